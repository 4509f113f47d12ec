#include "contract_check/cleaning.h"

#include <cstring>

#include <winioctl.h>

#include "contract_check/asked.h"
#include "contract_check/text.h"

namespace check {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kOpenItself = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
// For a scanner that has just had a look: so long, for all items of one clean-up.
constexpr ULONGLONG kPatience = 5000;
constexpr DWORD kPause = 200;
ULONGLONG Deadline() { return GetTickCount64() + kPatience; }

std::wstring Literal(const std::wstring& path) { return path.starts_with(L"\\\\") ? path : L"\\\\?\\" + path; }

// Deletes what a handle has opened. The newer way takes the name away at once, though others have the item open.
DWORD DeleteOpened(HANDLE item) {
  FILE_BASIC_INFO basic{};
  basic.FileAttributes = FILE_ATTRIBUTE_NORMAL;  // what is read-only could not be deleted
  SetFileInformationByHandle(item, FileBasicInfo, &basic, sizeof basic);
  constexpr auto kDispositionEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
  ULONG deleteAtOnce = 0x1 | 0x2;  // FILE_DISPOSITION_FLAG_DELETE, FILE_DISPOSITION_FLAG_POSIX_SEMANTICS
  if (SetFileInformationByHandle(item, kDispositionEx, &deleteAtOnce, sizeof deleteAtOnce)) return 0;
  FILE_DISPOSITION_INFO disposition{TRUE};
  return SetFileInformationByHandle(item, FileDispositionInfo, &disposition, sizeof disposition) ? 0 : GetLastError();
}

// Makes a plain folder of one that has a tag: there are tags whose folders have contents of their own.
bool TakeOffTag(const std::wstring& path) {
  const Handle folder(
      CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING, kOpenItself, nullptr));
  BYTE data[MAXIMUM_REPARSE_DATA_BUFFER_SIZE];
  DWORD size = 0;
  if (!DeviceIoControl(folder.get(), FSCTL_GET_REPARSE_POINT, nullptr, 0, data, sizeof data, &size, nullptr))
    return false;
  const bool isMicrosofts = (data[3] & 0x80) != 0;
  std::memset(data + 4, 0, 4);  // no length; a tag that is not Microsoft's has its GUID behind it
  return DeviceIoControl(folder.get(), FSCTL_DELETE_REPARSE_POINT, data, isMicrosofts ? 8 : 24, nullptr, 0, &size,
                         nullptr);
}

// Is the mount point one of a volume, and no junction? Only then the system is told that the volume goes.
bool IsVolumeMounted(const std::wstring& path) {
  constexpr std::wstring_view kVolume = L"\\??\\Volume{";
  const Handle folder(CreateFileW(path.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING, kOpenItself, nullptr));
  alignas(wchar_t) BYTE data[MAXIMUM_REPARSE_DATA_BUFFER_SIZE] = {};
  DWORD size = 0;
  USHORT offset = 0;
  DeviceIoControl(folder.get(), FSCTL_GET_REPARSE_POINT, nullptr, 0, data, sizeof data, &size, nullptr);
  std::memcpy(&offset, data + 8, sizeof offset);  // of the name that it leads to, behind a header of 16 bytes
  const std::size_t begin = 16 + std::size_t{offset};
  return begin + kVolume.size() * sizeof(wchar_t) <= size &&
         std::memcmp(data + begin, kVolume.data(), kVolume.size() * sizeof(wchar_t)) == 0;
}

// Deletes a file, a link or an empty folder. A folder is full for as long as somebody has open what was deleted in it.
DWORD Delete(const std::wstring& path, ULONGLONG deadline, bool isLink = false) {
  for (;; Sleep(kPause)) {
    const Handle item(CreateFileW(Literal(path).c_str(), DELETE | FILE_WRITE_ATTRIBUTES, kShareAll, nullptr,
                                  OPEN_EXISTING, kOpenItself, nullptr));
    const DWORD error = item ? DeleteOpened(item.get()) : GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return 0;
    const bool mayPass =
        error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED || (error == ERROR_DIR_NOT_EMPTY && !isLink);
    if (!mayPass || GetTickCount64() > deadline) return error;
  }
}

void Remove(const std::wstring& path, const Entry& entry, ULONGLONG deadline, std::vector<std::wstring>& stayed) {
  if (entry.isDirectory() && !entry.isLink())
    for (const Entry& child : EntriesOf(path)) Remove(path + L'\\' + child.name, child, deadline, stayed);
  if (entry.isLink() && entry.tag == IO_REPARSE_TAG_MOUNT_POINT && IsVolumeMounted(Literal(path)))
    DeleteVolumeMountPointW((path + L'\\').c_str());
  const DWORD error = Delete(path, deadline, entry.isLink());
  if (error == ERROR_DIR_NOT_EMPTY && entry.isLink() && TakeOffTag(Literal(path)))
    return Remove(path, {entry.name, FILE_ATTRIBUTE_DIRECTORY, 0}, deadline, stayed);
  if (error != 0) stayed.push_back(path + L": " + ErrorText(error));
}

// Without this a key whose access list refuses everybody would stay.
void OpenToEverybody(HKEY parent, const std::wstring& name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK | REG_OPTION_BACKUP_RESTORE, WRITE_DAC, &key) != 0)
    return;
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, &descriptor);
  RegCloseKey(key);
}

// RegDeleteKeyW opens the key by its name, and so might follow a link; this deletes what is opened.
DWORD DeleteOpenedKey(HKEY key) {
  using NtDeleteKeyFunction = LONG(WINAPI*)(HANDLE);
  const FARPROC found = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtDeleteKey");
  NtDeleteKeyFunction deleteKey = nullptr;
  static_assert(sizeof deleteKey == sizeof found);
  std::memcpy(&deleteKey, &found, sizeof found);
  return deleteKey && deleteKey(key) >= 0 ? 0 : ERROR_ACCESS_DENIED;
}

DWORD RemoveKey(HKEY parent, const std::wstring& name, std::vector<std::wstring>& stayed, bool keepItself = false) {
  constexpr REGSAM kAccess = KEY_ENUMERATE_SUB_KEYS | DELETE;
  HKEY key = nullptr;
  LSTATUS error = RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK, kAccess, &key);
  if (error == ERROR_ACCESS_DENIED) {
    OpenToEverybody(parent, name);
    error = RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK, kAccess, &key);
  }
  if (error != 0) return static_cast<DWORD>(error);
  std::vector<std::wstring> children;
  wchar_t child[256];
  for (DWORD size = 256;
       RegEnumKeyExW(key, static_cast<DWORD>(children.size()), child, &size, nullptr, nullptr, nullptr, nullptr) == 0;
       size = 256)
    children.emplace_back(child, size);
  for (const std::wstring& one : children)
    if (const DWORD failed = RemoveKey(key, one, stayed)) stayed.push_back(one + L": " + ErrorText(failed));
  const DWORD result = keepItself ? 0 : DeleteOpenedKey(key);
  RegCloseKey(key);
  return result;
}

}  // namespace

BackupPrivileges::BackupPrivileges() {
  if (!ImpersonateSelf(SecurityImpersonation)) return;
  HANDLE opened = nullptr;
  if (!OpenThreadToken(GetCurrentThread(), TOKEN_ADJUST_PRIVILEGES, TRUE, &opened)) return;
  const Handle token(opened);
  for (const wchar_t* const name : {SE_BACKUP_NAME, SE_RESTORE_NAME}) {
    TOKEN_PRIVILEGES wish{};
    wish.PrivilegeCount = 1;
    wish.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (LookupPrivilegeValueW(nullptr, name, &wish.Privileges[0].Luid))
      AdjustTokenPrivileges(opened, FALSE, &wish, 0, nullptr, nullptr);
  }
}

BackupPrivileges::~BackupPrivileges() { RevertToSelf(); }

std::vector<Entry> EntriesOf(const std::wstring& folder) {
  std::vector<Entry> entries;
  WIN32_FIND_DATAW data{};
  const HANDLE search = FindFirstFileW((Literal(folder) + L"\\*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return entries;
  do {
    const std::wstring_view name = data.cFileName;
    const bool isLink = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (name != L"." && name != L"..")
      entries.push_back({std::wstring(name), data.dwFileAttributes, isLink ? data.dwReserved0 : 0});
  } while (FindNextFileW(search, &data));
  FindClose(search);
  return entries;
}

DWORD DeleteItem(const std::wstring& path) { return Delete(path, Deadline()); }

std::vector<std::wstring> EmptyFolder(const std::wstring& folder, const std::wstring& keep) {
  const BackupPrivileges privileges;
  const ULONGLONG deadline = Deadline();
  std::vector<std::wstring> stayed;
  for (const Entry& entry : EntriesOf(folder))
    if (entry.name != keep) Remove(folder + L'\\' + entry.name, entry, deadline, stayed);
  return stayed;
}

std::vector<std::wstring> EmptyKey() {
  const BackupPrivileges privileges;
  std::vector<std::wstring> stayed;
  RemoveKey(HKEY_CURRENT_USER, kKey, stayed, true);
  return stayed;
}

DWORD DeleteKey() {
  const BackupPrivileges privileges;
  std::vector<std::wstring> stayed;
  const DWORD error = RemoveKey(HKEY_CURRENT_USER, kKey, stayed);
  return error == ERROR_FILE_NOT_FOUND ? 0 : error;
}

}  // namespace check
