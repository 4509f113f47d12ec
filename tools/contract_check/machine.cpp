#include "contract_check/machine.h"

#include <algorithm>
#include <cstring>
#include <map>

#include <windows.h>
#include <sddl.h>
#include <winioctl.h>

#include "contract_check/text.h"
#include "contract_check/version.h"

namespace check {

namespace {

template <typename Function>
Function From(const wchar_t* library, const char* name) {
  const FARPROC found = GetProcAddress(GetModuleHandleW(library), name);
  Function function = nullptr;
  static_assert(sizeof function == sizeof found);
  std::memcpy(&function, &found, sizeof found);
  return function;
}

constexpr wchar_t kWindows[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// A value below HKEY_LOCAL_MACHINE; empty when it is not there.
std::wstring Text(const wchar_t* key, const wchar_t* value) {
  wchar_t text[200] = {};
  DWORD size = sizeof text;
  return RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, text, &size) == 0 ? text : L"";
}
std::wstring Number(const wchar_t* key, const wchar_t* value) {
  DWORD number = 0, size = sizeof number;
  const bool isThere = RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_DWORD, nullptr, &number, &size) == 0;
  return isThere ? std::to_wstring(number) : L"not set";
}

std::string Line(const char* what, const std::wstring& value) {
  std::string line = what;
  line.resize(std::max<std::size_t>(line.size() + 1, 22), ' ');
  return line + Utf8(value);
}

std::wstring Hex(DWORD number) {
  wchar_t text[20];
  wsprintfW(text, L"0x%08x", number);
  return text;
}

std::wstring Version() {
  RTL_OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (const auto ask = From<LONG(WINAPI*)(RTL_OSVERSIONINFOW*)>(L"ntdll.dll", "RtlGetVersion")) ask(&version);
  return std::to_wstring(version.dwMajorVersion) + L"." + std::to_wstring(version.dwMinorVersion) + L"." +
         std::to_wstring(version.dwBuildNumber) + L", update " + Number(kWindows, L"UBR");
}

// Of the machine itself, which may run programs for x64 without being one.
std::wstring Processor() {
  const auto ask = From<BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*)>(L"kernel32.dll", "IsWow64Process2");
  USHORT ofProgram = 0, ofMachine = 0;
  if (!ask || !ask(GetCurrentProcess(), &ofProgram, &ofMachine)) return L"not told";
  return ofMachine == IMAGE_FILE_MACHINE_AMD64 ? L"x64" : Hex(ofMachine);
}

bool IsElevated() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
  const Handle token(opened);
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  return GetTokenInformation(opened, TokenElevation, &elevation, sizeof elevation, &size) && elevation.TokenIsElevated;
}

std::wstring ShortNames(const std::wstring& folder) {
  const std::wstring file = folder + L"\\a name that is too long.text";
  const HANDLE made = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  if (made == INVALID_HANDLE_VALUE) return L"not tried: " + ErrorText(GetLastError());
  CloseHandle(made);
  WIN32_FIND_DATAW data{};
  const HANDLE search = FindFirstFileW(file.c_str(), &data);
  if (search != INVALID_HANDLE_VALUE) FindClose(search);
  DeleteFileW(file.c_str());
  return data.cAlternateFileName[0] ? std::wstring(L"made: ") + data.cAlternateFileName : L"not made";
}

// Every place of `from` becomes `to`; as a word of its own only when `isWord`. Without the case of letters.
void Replace(std::string& line, const std::string& from, const std::string& to, bool isWord) {
  const auto same = [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
  };
  const auto isLetter = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || static_cast<signed char>(c) < 0;
  };
  for (std::size_t at = 0; at + from.size() <= line.size();) {
    const std::size_t end = at + from.size();
    const bool isAlone = (at == 0 || !isLetter(line[at - 1])) && (end == line.size() || !isLetter(line[end]));
    if ((isAlone || !isWord) &&
        std::equal(from.begin(), from.end(), line.begin() + static_cast<std::ptrdiff_t>(at), same)) {
      line.replace(at, from.size(), to);
      at += to.size();
    } else {
      ++at;
    }
  }
}

// What no other machine's or directory's SIDs begin with; empty for an account of Windows' own.
std::wstring OwnPartOf(PSID sid) {
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) return {};
  std::wstring own = text;
  LocalFree(text);
  if (own.starts_with(L"S-1-12-1-")) return own;  // of a directory in the cloud
  if (!own.starts_with(L"S-1-5-21-")) return {};
  // S-1-5-21-a-b-c, and -n for an account.
  return std::count(own.begin(), own.end(), L'-') > 6 ? own.substr(0, own.rfind(L'-')) : own;
}

}  // namespace

std::wstring WineVersion() {
  const auto ask = From<const char*(CDECL*)()>(L"ntdll.dll", "wine_get_version");
  return ask ? L"Wine " + Wide(ask()) : L"";
}

std::vector<std::string> DescribeMachine() {
  wchar_t locale[LOCALE_NAME_MAX_LENGTH] = {};
  LCIDToLocaleName(GetUserDefaultUILanguage(), locale, LOCALE_NAME_MAX_LENGTH, 0);
  SYSTEMTIME now{};
  GetSystemTime(&now);
  wchar_t time[60];
  wsprintfW(time, L"%04u-%02u-%02u %02u:%02u UTC", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute);
  const std::wstring wine = WineVersion();
  return {Line("program", std::wstring(L"" CHECK_VERSION) + L", commit " + Wide(kCommit)),
          Line("begun", time),
          Line("Windows", Version()),
          Line("edition", Text(kWindows, L"EditionID") + L" " + Text(kWindows, L"DisplayVersion")),
          Line("processor", Processor()),
          Line("Wine", wine.empty() ? L"no" : wine),
          Line("language", locale),
          Line("code pages", L"ANSI " + std::to_wstring(GetACP()) + L", OEM " + std::to_wstring(GetOEMCP())),
          Line("elevated", IsElevated() ? L"yes" : L"no"),
          Line("developer mode", Number(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AppModelUnlock",
                                        L"AllowDevelopmentWithoutDevLicense")),
          Line("long paths", Number(L"SYSTEM\\CurrentControlSet\\Control\\FileSystem", L"LongPathsEnabled"))};
}

std::vector<std::string> DescribeVolume(const std::wstring& root, const std::wstring& folder) {
  wchar_t system[50] = {};
  DWORD flags = 0, longest = 0, sectors = 0, bytes = 0, freeClusters = 0, clusters = 0;
  GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, &longest, &flags, system, 50);
  GetDiskFreeSpaceW(root.c_str(), &sectors, &bytes, &freeClusters, &clusters);
  ULARGE_INTEGER available{}, total{};
  GetDiskFreeSpaceExW(root.c_str(), &available, &total, nullptr);
  return {Line("volume", root + L" " + system + L", flags " + Hex(flags) + L", names of " + std::to_wstring(longest)),
          Line("  clusters", std::to_wstring(sectors * bytes) + L" bytes, sectors of " + std::to_wstring(bytes)),
          Line("  room", std::to_wstring(total.QuadPart >> 20) + L" MB, " + std::to_wstring(available.QuadPart >> 20) +
                             L" MB free"),
          Line("  short names", ShortNames(folder)),
          Line("  folder", folder + L", attributes " + Hex(GetFileAttributesW(folder.c_str())))};
}

Veil::Veil() {
  wchar_t name[300] = {}, domain[300];
  DWORD size = 300, domainSize = 300, sidSize = SECURITY_MAX_SID_SIZE;
  if (GetUserNameW(name, &size)) Cover(name, "(user)");
  DWORD_PTR user[64];
  HANDLE opened = nullptr;
  DWORD used = 0;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    const Handle token(opened);
    if (GetTokenInformation(opened, TokenUser, user, sizeof user, &used))
      Cover(OwnPartOf(reinterpret_cast<TOKEN_USER*>(user)->User.Sid), "S-(owner's)");
  }
  size = 300;
  if (GetComputerNameW(name, &size)) Cover(name, "(machine)");
  SID_NAME_USE use{};
  if (LookupAccountNameW(nullptr, name, user, &sidSize, domain, &domainSize, &use))
    Cover(OwnPartOf(user), "S-(machine's)");
  if (GetEnvironmentVariableW(L"USERDOMAIN", name, 300)) Cover(name, "(domain)");
}

void Veil::Cover(const std::wstring& text, const char* cover) {
  const bool isSid = text.starts_with(L"S-1-");
  if (text.size() > 2) (isSid ? parts_ : words_).emplace_back(Utf8(text), cover);
}

std::string Veil::Over(std::string line) const {
  for (const auto& [text, cover] : parts_) Replace(line, text, cover, false);
  for (const auto& [text, cover] : words_) Replace(line, text, cover, true);
  return line;
}

}  // namespace check
