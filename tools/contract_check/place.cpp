#include "contract_check/place.h"

#include <aclapi.h>
#include <sddl.h>
#include <winioctl.h>

#include "contract_check/asked.h"
#include "contract_check/cleaning.h"
#include "contract_check/machine.h"

namespace check {

namespace {

constexpr wchar_t kWork[] = L"contract_tests", kMark[] = L"mark";
constexpr char kMarkText[] = "This folder belongs to contract_tests.exe, which takes it away.";
constexpr char kMadeText[] = " The folder around it, too.";
constexpr wchar_t kMarkOfKey[] = L"belongs to contract_tests.exe";
constexpr std::size_t kLongest = 100;  // some facts are about longer paths below it
constexpr ULONGLONG kRoom = 64 << 20;

// The path as the disk spells it, without "\\?\"; empty when it cannot be opened.
std::wstring RealPath(const std::wstring& path) {
  const Handle item(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  wchar_t real[1000] = {};
  const DWORD length = item ? GetFinalPathNameByHandleW(item.get(), real, 1000, VOLUME_NAME_DOS) : 0;
  return length > 4 && length < 1000 ? real + 4 : L"";
}

bool IsAdministratorsOrOurs(PSID owner) {
  if (IsWellKnownSid(owner, WinBuiltinAdministratorsSid) || IsWellKnownSid(owner, WinLocalSystemSid)) return true;
  DWORD_PTR user[64];
  DWORD size = 0;
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
  const Handle token(opened);
  return GetTokenInformation(opened, TokenUser, user, sizeof user, &size) &&
         EqualSid(owner, reinterpret_cast<TOKEN_USER*>(user)->User.Sid);
}

// A folder with our mark that somebody else has made may lead an administrator's clean-up astray.
bool IsOfAnAdministrator(const std::wstring& path) {
  if (!WineVersion().empty()) return true;  // it tells no owners of files
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                            &descriptor) != 0)
    return false;
  const bool isOurs = IsAdministratorsOrOurs(owner);
  LocalFree(descriptor);
  return isOurs;
}

bool IsAdministrator() {
  BYTE administrators[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof administrators;
  BOOL isMember = FALSE;
  return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size) &&
         CheckTokenMembership(nullptr, administrators, &isMember) && isMember;
}

// The key may be there only when a run that was ended has left it.
bool IsKeyForeign() {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kKey, REG_OPTION_OPEN_LINK, KEY_READ, &key) != 0) return false;
  DWORD keys = 0, values = 0;
  const bool isOurs = RegQueryValueExW(key, kMarkOfKey, nullptr, nullptr, nullptr, nullptr) == 0 ||
                      (RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr,
                                        nullptr, nullptr, nullptr) == 0 &&
                       keys + values == 0);
  RegCloseKey(key);
  return !isOurs;
}

// What a new folder takes over from the one above it would change attributes that the facts name.
void MakePlain(const std::wstring& folder) {
  SetFileAttributesW(folder.c_str(), FILE_ATTRIBUTE_NORMAL);
  const Handle open(CreateFileW(folder.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  USHORT none = COMPRESSION_FORMAT_NONE;
  DWORD returned = 0;
  DeviceIoControl(open.get(), FSCTL_SET_COMPRESSION, &none, sizeof none, nullptr, 0, &returned, nullptr);
}

}  // namespace

std::wstring WhyNotHere() {
  if (!IsAdministrator()) return L"This is not run as an administrator: open the prompt with \"Run as administrator\".";
  if (GetLogicalDrives() & (1u << (L'Q' - L'A')))
    return L"There is a drive Q: here. The facts take Q: for a drive that is not there: give it another letter.";
  if (IsKeyForeign())
    return std::wstring(L"There is a key HKEY_CURRENT_USER\\") + kKey + L" that this program has not made.";
  return {};
}

DWORD MakeKey() {
  HKEY key = nullptr;
  LSTATUS error = RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  if (error != 0) return static_cast<DWORD>(error);
  error = RegSetValueExW(key, kMarkOfKey, 0, REG_SZ, nullptr, 0);
  RegCloseKey(key);
  return static_cast<DWORD>(error);
}

Place::Place(const std::wstring& folder, std::wstring& whyNot) {
  wchar_t full[1000] = {};
  const bool hasDrive = folder.size() > 3 && folder[1] == L':' && (folder[2] == L'\\' || folder[2] == L'/') &&
                        folder.find_first_of(L"*?\"<>|:", 2) == std::wstring::npos;
  const DWORD length = hasDrive ? GetFullPathNameW(folder.c_str(), 1000, full, nullptr) : 0;
  folder_ = length < 1000 ? full : L"";
  while (folder_.ends_with(L'\\')) folder_.pop_back();
  if (folder_.size() <= 3 || folder_.size() > kLongest) {
    whyNot = folder + L": a path such as X:\\scratch is needed, of at most " + std::to_wstring(kLongest) + L" letters.";
    return;
  }
  folder_[0] = static_cast<wchar_t>(towupper(folder_[0]));
  whyNot = WhyNotVolume();
  if (whyNot.empty()) whyNot = WhyNotFolder();
  work_ = folder_ + L'\\' + kWork;
}

std::wstring Place::WhyNotVolume() const {
  const std::wstring drive = root();
  wchar_t name[50], system[50] = {};
  if (GetDriveTypeW(drive.c_str()) != DRIVE_FIXED || !GetVolumeNameForVolumeMountPointW(drive.c_str(), name, 50))
    return drive + L" is no fixed local volume with this letter of its own. A virtual disk (VHD) can be made for this.";
  DWORD flags = 0;
  if (!GetVolumeInformationW(drive.c_str(), nullptr, 0, nullptr, nullptr, &flags, system, 50))
    return drive + L" tells nothing of itself: " + ErrorText(GetLastError());
  if (std::wstring_view(system) != L"NTFS") return drive + L" is " + system + L". The facts are about NTFS.";
  ULARGE_INTEGER free{};
  if ((flags & FILE_READ_ONLY_VOLUME) || !GetDiskFreeSpaceExW(drive.c_str(), &free, nullptr, nullptr))
    return drive + L" can only be read.";
  if (free.QuadPart < kRoom) return drive + L" has less than 64 MB free.";
  return {};
}

std::wstring Place::WhyNotFolder() {
  const std::size_t cut = folder_.rfind(L'\\');
  const std::wstring above = RealPath(folder_.substr(0, cut + 1));
  if (above.empty()) return folder_.substr(0, cut + 1) + L" is not there.";
  if (above.substr(0, 3) != root()) return folder_ + L" leads to another volume: " + above;
  WIN32_FIND_DATAW data{};
  const HANDLE search = FindFirstFileW(folder_.c_str(), &data);
  isThere_ = search != INVALID_HANDLE_VALUE;
  if (isThere_) FindClose(search);
  folder_ = above + (above.ends_with(L'\\') ? L"" : L"\\") + (isThere_ ? data.cFileName : folder_.substr(cut + 1));
  if (!isThere_) return {};
  if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) return folder_ + L" is a file.";
  if (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) return folder_ + L" is a link.";

  const std::wstring notEmpty = folder_ + L" is not empty.", work = folder_ + L'\\' + kWork;
  const std::vector<Entry> entries = EntriesOf(folder_);
  if (entries.empty()) return {};
  if (entries.size() > 1 || entries[0].name != kWork || !entries[0].isDirectory() || entries[0].isLink())
    return notEmpty;
  const std::string mark = ReadAll(work + L'\\' + kMark);
  if (!EntriesOf(work).empty() && !mark.starts_with(kMarkText)) return notEmpty;
  if (!IsOfAnAdministrator(work)) return work + L" was made by somebody who is no administrator.";
  hasLeftovers_ = true;
  isMade_ = mark.ends_with(kMadeText);
  return {};
}

std::wstring Place::Make() {
  if (!isThere_ && !CreateDirectoryW(folder_.c_str(), nullptr))
    return folder_ + L" cannot be made: " + ErrorText(GetLastError());
  isMade_ = isMade_ || !isThere_;
  isThere_ = true;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)", SDDL_REVISION_1,
                                                       &descriptor, nullptr);
  SECURITY_ATTRIBUTES forAdministrators{sizeof forAdministrators, descriptor, FALSE};
  const bool isMade = CreateDirectoryW(work_.c_str(), &forAdministrators);
  const DWORD error = GetLastError();
  LocalFree(descriptor);
  if (!isMade) return work_ + L" cannot be made: " + ErrorText(error);
  MakePlain(work_);
  // Held, so that nobody takes it away meanwhile.
  mark_ = Handle(CreateFileW((work_ + L'\\' + kMark).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
  const std::string text = std::string(kMarkText) + (isMade_ ? kMadeText : "");
  DWORD written = 0;
  if (!WriteFile(mark_.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr))
    return work_ + L" cannot be written to: " + ErrorText(GetLastError());
  return {};
}

// The mark goes last: until then the next run knows whose all this is.
std::vector<std::wstring> Place::Remove() {
  std::vector<std::wstring> stayed = EmptyFolder(work_, kMark);
  mark_.Close();
  for (const std::wstring& path : {work_ + L'\\' + kMark, work_, isMade_ ? folder_ : std::wstring()})
    if (stayed.empty() && !path.empty()) {
      const DWORD error = DeleteItem(path);
      const bool isGone = GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES;
      if (error != 0 || !isGone) stayed.push_back(path + L": " + (isGone ? ErrorText(error) : L"is still there"));
    }
  if (!stayed.empty()) return stayed;
  isThere_ = isThere_ && !isMade_;
  isMade_ = hasLeftovers_ = false;
  return {};
}

}  // namespace check
