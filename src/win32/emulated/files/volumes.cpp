// Drives and volumes: which there are, what they are and how much room they have.

#include <algorithm>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/files/volume_names.h"
#include "win32/emulated/text.h"
#include "win32/volume.h"

namespace emulated {

namespace {

using win32::DWORD;

// What NTFS of this workstation can do, as GetVolumeInformationW says it: all of NTFS 3.1 but compression, quotas,
// encryption, transactions and the change journal.
constexpr DWORD kNtfsFlags = 0x1           // FILE_CASE_SENSITIVE_SEARCH
                             | 0x2         // FILE_CASE_PRESERVED_NAMES
                             | 0x4         // FILE_UNICODE_ON_DISK
                             | 0x8         // FILE_PERSISTENT_ACLS
                             | 0x40        // FILE_SUPPORTS_SPARSE_FILES
                             | 0x80        // FILE_SUPPORTS_REPARSE_POINTS
                             | 0x10000     // FILE_SUPPORTS_OBJECT_IDS
                             | 0x40000     // FILE_NAMED_STREAMS
                             | 0x400000    // FILE_SUPPORTS_HARD_LINKS
                             | 0x800000    // FILE_SUPPORTS_EXTENDED_ATTRIBUTES
                             | 0x1000000;  // FILE_SUPPORTS_OPEN_BY_FILE_ID
constexpr DWORD kFatFlags = 0x2 | 0x4;
constexpr DWORD kLongestComponent = 255;

// The drives with their letters, in the order of the letters.
std::vector<const MountedVolume*> Drives() {
  std::vector<const MountedVolume*> drives;
  for (const auto& mounted : Machine::Current().volumes)
    if (mounted->letter != 0) drives.push_back(mounted.get());
  std::sort(drives.begin(), drives.end(),
            [](const MountedVolume* a, const MountedVolume* b) { return a->letter < b->letter; });
  return drives;
}

std::u16string DriveName(const MountedVolume& drive) { return std::u16string(1, drive.letter) + u":"; }

// The volume whose root a path with a trailing backslash is, through a mounted folder as well. 0; 3 for a drive that is
// not there, 2 for a folder, 144 for a folder that is no root.
DWORD VolumeAtRoot(std::u16string_view path, MountedVolume*& volume) {
  bool isRoot = false;
  volume = VolumeOfRoot(path, &isRoot);
  if (isRoot) return volume ? 0 : DWORD{win32::ERROR_PATH_NOT_FOUND};
  Location location;
  if (const DWORD error = Machine::Current().files().Resolve(path, true, location)) return error;
  if (location.file == 0) return win32::ERROR_FILE_NOT_FOUND;
  if (location.file != location.volume->volume->Root()) return win32::ERROR_DIR_NOT_ROOT;
  volume = location.volume;
  return 0;
}

bool CopyText(std::u16string_view text, char16_t* to, DWORD size) {
  if (text.size() >= size) return false;
  text.copy(to, text.size());
  to[text.size()] = 0;
  return true;
}

// Texts one after the other, each with its end, and one end more. The length with that last end.
std::u16string MultiText(const std::vector<std::u16string>& texts) {
  std::u16string all;
  for (const std::u16string& text : texts) all += text + u'\0';
  return all + u'\0';
}

}  // namespace

}  // namespace emulated

namespace win32 {

using namespace emulated;

DWORD GetLogicalDriveStringsW(DWORD nBufferLength, char16_t* lpBuffer) {
  WIN32_CALL(nBufferLength);
  if (call.Refused()) return 0;
  std::vector<std::u16string> roots;
  for (const MountedVolume* const drive : Drives()) roots.push_back(DriveName(*drive) + u"\\");
  const std::u16string all = MultiText(roots);
  const auto length = static_cast<DWORD>(all.size());
  if (nBufferLength < length || !lpBuffer) return call.Return(length);
  all.copy(lpBuffer, all.size());
  return call.Return(length - 1);
}

UINT GetDriveTypeW(const char16_t* lpRootPathName) {
  WIN32_CALL(lpRootPathName);
  if (call.Refused()) return DRIVE_UNKNOWN;
  if (lpRootPathName && !*lpRootPathName) return call.Return(DRIVE_NO_ROOT_DIR);
  std::u16string path = lpRootPathName ? FullPath(lpRootPathName) : u"C:\\";
  if (!path.ends_with(u'\\')) path += u'\\';
  MountedVolume* volume = nullptr;
  if (VolumeAtRoot(path, volume) != 0) return call.Return(DRIVE_NO_ROOT_DIR);
  return call.Return(volume->driveType);
}

// The names that the I/O manager knows a DOS device name by: of drives u"C:", of volumes u"Volume{GUID}".
DWORD QueryDosDeviceW(const char16_t* lpDeviceName, char16_t* lpTargetPath, DWORD ucchMax) {
  WIN32_CALL(lpDeviceName, ucchMax);
  if (call.Refused()) return 0;
  std::vector<std::u16string> names;
  for (const auto& mounted : Machine::Current().volumes) {
    const std::u16string volume =
        mounted->guidName.size() > 5 ? mounted->guidName.substr(4, mounted->guidName.size() - 5) : std::u16string();
    for (const std::u16string& name : {mounted->letter != 0 ? DriveName(*mounted) : std::u16string(), volume}) {
      if (name.empty()) continue;
      if (!lpDeviceName)
        names.push_back(name);
      else if (EqualAsciiNoCase(name, lpDeviceName))
        names.push_back(mounted->device);
    }
  }
  if (names.empty()) return call.Done(ERROR_FILE_NOT_FOUND), 0;
  const std::u16string all = MultiText(names);
  if (!lpTargetPath || ucchMax < all.size()) return call.Done(ERROR_INSUFFICIENT_BUFFER), 0;
  all.copy(lpTargetPath, all.size());
  return call.Return(static_cast<DWORD>(all.size()));
}

BOOL GetVolumeInformationW(const char16_t* lpRootPathName, char16_t* lpVolumeNameBuffer, DWORD nVolumeNameSize,
                           DWORD* lpVolumeSerialNumber, DWORD* lpMaximumComponentLength, DWORD* lpFileSystemFlags,
                           char16_t* lpFileSystemNameBuffer, DWORD nFileSystemNameSize) {
  WIN32_CALL(lpRootPathName, nVolumeNameSize, nFileSystemNameSize);
  if (call.Refused()) return FALSE;
  std::u16string given = lpRootPathName ? lpRootPathName : u"C:\\";
  if (given.starts_with(u"\\\\.\\")) given.erase(0, 4);
  if (given.size() == 2 && given[1] == u':') given += u'\\';  // the drive's current directory, which is its root
  if (given.empty() || (given.back() != u'\\' && given.back() != u'/')) return call.Done(ERROR_INVALID_NAME);
  MountedVolume* volume = nullptr;
  if (const DWORD error = VolumeAtRoot(FullPath(given), volume)) return call.Done(error);
  if (volume->fileSystem.empty()) return call.Done(ERROR_NOT_READY);
  const std::u16string label = volume->volume ? volume->volume->Label() : std::u16string();
  if (lpVolumeNameBuffer && !CopyText(label, lpVolumeNameBuffer, nVolumeNameSize)) return call.Done(ERROR_BAD_LENGTH);
  if (lpFileSystemNameBuffer && !CopyText(volume->fileSystem, lpFileSystemNameBuffer, nFileSystemNameSize))
    return call.Done(ERROR_BAD_LENGTH);
  if (lpVolumeSerialNumber)
    *lpVolumeSerialNumber = volume->volume ? static_cast<DWORD>(volume->volume->SerialNumber() & 0xFFFFFFFF) : 0;
  if (lpMaximumComponentLength) *lpMaximumComponentLength = kLongestComponent;
  if (lpFileSystemFlags) *lpFileSystemFlags = EqualAsciiNoCase(volume->fileSystem, u"NTFS") ? kNtfsFlags : kFatFlags;
  return call.Done(ERROR_SUCCESS);
}

// Of any folder; what is missing is a path that is not found.
BOOL GetDiskFreeSpaceExW(const char16_t* lpDirectoryName, ULARGE_INTEGER* lpFreeBytesAvailableToCaller,
                         ULARGE_INTEGER* lpTotalNumberOfBytes, ULARGE_INTEGER* lpTotalNumberOfFreeBytes) {
  WIN32_CALL(lpDirectoryName);
  if (call.Refused()) return FALSE;
  const std::u16string path = lpDirectoryName && *lpDirectoryName ? lpDirectoryName : u"C:\\";
  bool isRoot = false;
  MountedVolume* mounted = VolumeOfRoot(FullPath(path), &isRoot);
  if (isRoot && !mounted) return call.Done(ERROR_PATH_NOT_FOUND);
  if (!mounted) {
    Location location;
    const DWORD error = Machine::Current().files().Resolve(path, true, location);
    if (error == ERROR_FILE_NOT_FOUND || (error == 0 && location.file == 0)) return call.Done(ERROR_PATH_NOT_FOUND);
    if (error != 0) return call.Done(error);
    FileInfo info;
    if (const DWORD failed = location.volume->volume->Stat(location.file, info)) return call.Done(failed);
    if (!(info.attributes & FILE_ATTRIBUTE_DIRECTORY)) return call.Done(ERROR_DIRECTORY);
    mounted = location.volume;
  }
  if (!mounted->volume) return call.Done(ERROR_NOT_READY);
  if (lpFreeBytesAvailableToCaller) lpFreeBytesAvailableToCaller->QuadPart = mounted->volume->FreeBytes();
  if (lpTotalNumberOfBytes) lpTotalNumberOfBytes->QuadPart = mounted->volume->TotalBytes();
  if (lpTotalNumberOfFreeBytes) lpTotalNumberOfFreeBytes->QuadPart = mounted->volume->FreeBytes();
  return call.Done(ERROR_SUCCESS);
}

}  // namespace win32
