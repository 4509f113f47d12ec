// Windows' version, folders and environment variables, of win32/system.h.
#include <optional>

#include "win32/emulated/machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace win32 {

namespace {

using emulated::Machine;
using std::u16string;
using std::u16string_view;

constexpr u16string_view kSystemDirectory = u"C:\\Windows\\system32";
constexpr u16string_view kProfileList = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";

struct Variable {
  u16string_view name;
  u16string_view value;  // may name others, between percent signs
};
constexpr Variable kVariables[] = {
    {u"SystemDrive", u"C:"},
    {u"SystemRoot", u"C:\\Windows"},
    {u"windir", u"C:\\Windows"},
    {u"ComSpec", u"C:\\Windows\\system32\\cmd.exe"},
    {u"ProgramData", u"C:\\ProgramData"},
    {u"ALLUSERSPROFILE", u"C:\\ProgramData"},
    {u"ProgramFiles", u"C:\\Program Files"},
    {u"ProgramFiles(x86)", u"C:\\Program Files (x86)"},
    {u"ProgramW6432", u"C:\\Program Files"},
    {u"CommonProgramFiles", u"C:\\Program Files\\Common Files"},
    {u"CommonProgramFiles(x86)", u"C:\\Program Files (x86)\\Common Files"},
    {u"CommonProgramW6432", u"C:\\Program Files\\Common Files"},
    {u"PUBLIC", u"C:\\Users\\Public"},
    {u"HOMEDRIVE", u"C:"},
    {u"OS", u"Windows_NT"},
    {u"PROCESSOR_ARCHITECTURE", u"AMD64"},
    {u"APPDATA", u"%USERPROFILE%\\AppData\\Roaming"},
    {u"LOCALAPPDATA", u"%USERPROFILE%\\AppData\\Local"},
    {u"TEMP", u"%USERPROFILE%\\AppData\\Local\\Temp"},
    {u"TMP", u"%USERPROFILE%\\AppData\\Local\\Temp"},
};

u16string Expand(u16string_view text, int depth);

// The profile folder of the process's user, as the profile list of the registry has it.
u16string UserProfile(int depth) {
  Machine& machine = Machine::Current();
  const auto path = machine.registry().Query(u16string(kProfileList) + emulated::SidToText(machine.process.token->user),
                                             u"ProfileImagePath");
  return path ? Expand(path->Text(), depth + 1) : u16string(u"C:\\Users\\Default");
}

std::optional<u16string> ValueOf(u16string_view name, int depth) {
  for (const Variable& variable : kVariables)
    if (emulated::EqualAsciiNoCase(variable.name, name)) return Expand(variable.value, depth + 1);
  if (emulated::EqualAsciiNoCase(name, u"USERPROFILE")) return UserProfile(depth);
  if (emulated::EqualAsciiNoCase(name, u"USERNAME")) {
    const u16string profile = UserProfile(depth);
    return profile.substr(profile.rfind(u'\\') + 1);
  }
  if (emulated::EqualAsciiNoCase(name, u"COMPUTERNAME")) {
    const auto computer = Machine::Current().registry().Query(
        u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName", u"ComputerName");
    return computer ? computer->Text() : u16string(u"WORKSTATION");
  }
  return std::nullopt;
}

// Names that are not known stay as they are, percent signs included.
u16string Expand(u16string_view text, int depth) {
  constexpr int kDeepest = 4;
  u16string expanded;
  while (!text.empty()) {
    const std::size_t start = text.find(u'%');
    const std::size_t end = start == u16string_view::npos ? start : text.find(u'%', start + 1);
    if (end == u16string_view::npos || depth > kDeepest) return expanded += text;
    expanded += text.substr(0, start);
    if (const auto value = ValueOf(text.substr(start + 1, end - start - 1), depth)) {
      expanded += *value;
      text.remove_prefix(end + 1);
    } else {
      expanded += text.substr(start, end - start);
      text.remove_prefix(end);  // the second sign may open the next name
    }
  }
  return expanded;
}

}  // namespace

BOOL GetVersionExW(OSVERSIONINFOEXW* lpVersionInformation) {
  WIN32_CALL(lpVersionInformation);
  if (call.Refused()) return FALSE;
  constexpr DWORD kPlainSize = offsetof(OSVERSIONINFOEXW, wServicePackMajor);
  const Machine& machine = Machine::Current();
  if (!lpVersionInformation || machine.versionQueryFails) return call.Done(ERROR_INVALID_PARAMETER);
  const DWORD size = lpVersionInformation->dwOSVersionInfoSize;
  if (size != kPlainSize && size != sizeof(OSVERSIONINFOEXW)) return call.Done(ERROR_INSUFFICIENT_BUFFER);
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = size;
  version.dwMajorVersion = machine.majorVersion;
  version.dwMinorVersion = machine.minorVersion;
  version.dwBuildNumber = machine.buildNumber;
  version.dwPlatformId = machine.platformId;
  version.wSuiteMask = 0x100;  // VER_SUITE_SINGLEUSERTS
  version.wProductType = 1;    // VER_NT_WORKSTATION
  std::memcpy(lpVersionInformation, &version, size);
  return call.Done(ERROR_SUCCESS);
}

// The length with its terminator, also when it is more than there is room for.
DWORD ExpandEnvironmentStringsW(const char16_t* lpSrc, char16_t* lpDst, DWORD nSize) {
  WIN32_CALL(lpSrc, nSize);
  if (call.Refused()) return 0;
  if (!lpSrc) {
    emulated::SetLastError(ERROR_INVALID_PARAMETER);
    return call.Return(DWORD{0});
  }
  const u16string expanded = Expand(lpSrc, 0);
  const auto needed = static_cast<DWORD>(expanded.size() + 1);
  if (lpDst && nSize >= needed)
    std::memcpy(lpDst, expanded.c_str(), needed * sizeof(char16_t));
  else if (lpDst && nSize > 0)
    lpDst[0] = u'\0';
  return call.Return(needed);
}

UINT GetSystemDirectoryW(char16_t* lpBuffer, UINT uSize) {
  WIN32_CALL(uSize);
  if (call.Refused()) return 0;
  const auto length = static_cast<UINT>(kSystemDirectory.size());
  if (!lpBuffer || uSize <= length) return call.Return(length + 1);
  std::memcpy(lpBuffer, kSystemDirectory.data(), length * sizeof(char16_t));
  lpBuffer[length] = u'\0';
  return call.Return(length);
}

}  // namespace win32
