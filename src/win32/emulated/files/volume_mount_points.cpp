// The mount manager's calls: volume names, and the drive letters and folders through which volumes are reached.

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/files/volume_names.h"
#include "win32/emulated/mount_manager.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"
#include "win32/file.h"
#include "win32/handle.h"
#include "win32/volume.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::u16string_view kMountedDevices = u"HKLM\\SYSTEM\\MountedDevices";
constexpr DWORD kNameBuffer = 50;  // a volume name with its end

class VolumeSearch : public Object {
 public:
  const char16_t* TypeName() const override { return u"VolumeSearch"; }
  std::vector<std::u16string> names;
  std::size_t next = 0;
};

DWORD NextVolume(VolumeSearch& search, char16_t* to, DWORD size) {
  if (search.next == search.names.size()) return win32::ERROR_NO_MORE_FILES;
  const std::u16string& name = search.names[search.next];
  if (!to || size <= name.size()) return win32::ERROR_FILENAME_EXCED_RANGE;
  name.copy(to, name.size());
  to[name.size()] = 0;
  ++search.next;
  return 0;
}

bool MayMount() {
  static const Sid administrators = SidFromText(u"S-1-5-32-544");
  return Machine::Current().EffectiveToken().Allows(administrators);
}

bool EndsWithSeparator(std::u16string_view path) {
  return !path.empty() && (path.back() == u'\\' || path.back() == u'/');
}

bool IsLetter(char16_t unit) { return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z'); }

std::u16string WithoutEndSeparator(std::u16string_view path) {
  while (path.size() > 1 && EndsWithSeparator(path)) path.remove_suffix(1);
  return std::u16string(path);
}

// The reparse data of a folder, links before it followed. 0, or 2, 3, ..., 4390 for one without, 267 for a file.
DWORD ReparseDataOf(const std::u16string& folder, Bytes& data) {
  Location location;
  if (const DWORD error = Machine::Current().files().Resolve(folder, false, location)) return error;
  if (location.file == 0) return win32::ERROR_FILE_NOT_FOUND;
  FileInfo info;
  if (const DWORD error = location.volume->volume->Stat(location.file, info)) return error;
  if (!(info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY)) return win32::ERROR_DIRECTORY;
  return location.volume->volume->GetReparse(location.file, data);
}

// The volume that is mounted on a folder. Other than the errors of ReparseDataOf: 87 for a junction or a symbolic link,
// 2 for a volume that is no longer there.
DWORD VolumeOnFolder(const std::u16string& folder, MountedVolume*& volume) {
  Bytes data;
  if (const DWORD error = ReparseDataOf(folder, data)) return error;
  const auto name = MountedVolumeName(data);
  if (!name) return win32::ERROR_INVALID_PARAMETER;
  volume = Machine::Current().FindByGuidName(*name);
  return volume ? 0 : DWORD{win32::ERROR_FILE_NOT_FOUND};
}

// A mount point as its calls want it: with a backslash at its end.
DWORD VolumeAtMountPoint(const char16_t* mountPoint, MountedVolume*& volume) {
  if (!mountPoint || !EndsWithSeparator(mountPoint)) return win32::ERROR_INVALID_NAME;
  const std::u16string path = FullPath(mountPoint);
  bool isRoot = false;
  volume = VolumeOfRoot(path, &isRoot);
  if (isRoot) return volume ? 0 : DWORD{win32::ERROR_FILE_NOT_FOUND};
  return VolumeOnFolder(WithoutEndSeparator(path), volume);
}

// Puts a reparse point on a folder or takes one off, with the checks of DeviceIoControl (rights, emptiness).
DWORD ControlReparsePoint(const std::u16string& folder, DWORD control, Bytes data) {
  const win32::UniqueFile directory{win32::CreateFileW(
      folder.c_str(), win32::GENERIC_WRITE, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE,
      nullptr, win32::OPEN_EXISTING, win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
  if (!directory) return LastError();
  DWORD returned = 0;
  const win32::BOOL done = win32::DeviceIoControl(directory.get(), control, data.data(),
                                                  static_cast<DWORD>(data.size()), nullptr, 0, &returned, nullptr);
  return done ? 0 : LastError();
}

std::u16string LetterValue(char16_t letter) { return u"\\DosDevices\\" + std::u16string(1, letter) + u":"; }

// A letter that is taken, and a volume that has one, stay as they are.
DWORD AssignLetter(char16_t letter, MountedVolume& volume) {
  Machine& machine = Machine::Current();
  letter = static_cast<char16_t>(letter & ~0x20);
  if (machine.FindByLetter(letter)) return win32::ERROR_DIR_NOT_EMPTY;
  if (volume.letter != 0) return win32::ERROR_INVALID_PARAMETER;
  volume.letter = letter;
  machine.files().ForgetPaths();
  RecordNames(machine, volume);
  return 0;
}

DWORD RemoveLetter(MountedVolume& volume) {
  Machine& machine = Machine::Current();
  if (&volume == machine.SystemVolume()) return win32::ERROR_INVALID_PARAMETER;
  machine.registry().DeleteValue(kMountedDevices, LetterValue(volume.letter));
  volume.letter = 0;
  machine.files().ForgetPaths();
  return 0;
}

DWORD MountOnFolder(const std::u16string& folder, const MountedVolume& volume) {
  Bytes data;
  const DWORD error = ReparseDataOf(folder, data);
  if (error == 0) return win32::ERROR_DIR_NOT_EMPTY;  // a mounted folder counts as one that is not empty
  if (error != win32::ERROR_NOT_A_REPARSE_POINT) return error;
  return ControlReparsePoint(folder, win32::FSCTL_SET_REPARSE_POINT, MountPointData(volume.guidName));
}

// FSCTL_DELETE_REPARSE_POINT takes the header alone: the tag and no data.
Bytes MountPointHeader() {
  Bytes header;
  AppendLittleEndian(header, std::uint32_t{win32::IO_REPARSE_TAG_MOUNT_POINT});
  AppendLittleEndian(header, std::uint32_t{0});
  return header;
}

// The folders on which a volume is mounted, on all volumes that have a letter (what is mounted below a mounted folder
// has no path of its own). The index of reparse points is the truth: it knows of folders that were moved.
DWORD MountFolders(const MountedVolume& volume, std::vector<std::u16string>& paths) {
  Machine& machine = Machine::Current();
  for (const auto& host : machine.volumes) {
    if (host->letter == 0 || !host->volume) continue;
    std::vector<FileId> points;
    if (const DWORD error = host->volume->ReparsePoints(points)) return error;
    for (const FileId point : points) {
      Bytes data;
      if (host->volume->GetReparse(point, data) != 0) continue;
      const auto name = MountedVolumeName(data);
      if (name && machine.FindByGuidName(*name) == &volume)
        paths.push_back(std::u16string(1, host->letter) + u":" + machine.files().PathInVolume(*host, point) + u"\\");
    }
  }
  return 0;
}

// The root that a path begins with, in the path's own form: C:\ (its letter in upper case), \\?\C:\, a volume name.
DWORD FirstRoot(std::u16string_view given, std::u16string& path, std::u16string& root) {
  path = FullPath(given);
  if (path.starts_with(u"\\??\\")) path = u"C:\\";  // no name of Win32's: a path of the current drive
  if (given.size() > 1 && given[1] == u':' && !IsLetter(given[0])) return win32::ERROR_FILE_NOT_FOUND;
  const bool literal = path.starts_with(u"\\\\?\\");
  if (!literal && given.starts_with(u"\\\\")) return win32::ERROR_INVALID_NAME;  // there is no network
  const std::u16string_view text = path;
  root = IsVolumeName(text.substr(0, 49)) ? text.substr(0, 49) : text.substr(0, literal ? 7 : 3);
  if (!literal && root[0] >= u'a' && root[0] <= u'z') path[0] = root[0] = static_cast<char16_t>(root[0] - 32);
  bool isRoot = false;
  if (!EndsWithSeparator(root)) root += u'\\';
  const MountedVolume* const volume = VolumeOfRoot(root, &isRoot);
  return volume ? 0 : isRoot ? DWORD{win32::ERROR_FILE_NOT_FOUND} : DWORD{win32::ERROR_INVALID_NAME};
}

// Where the volume of a path begins, as the path has it; the part that is not there is left off first. A junction or a
// symbolic link on the way leads to the volume of its target.
DWORD VolumePath(std::u16string_view given, std::u16string& root) {
  std::u16string path;
  if (const DWORD error = FirstRoot(given, path, root)) return error;
  const std::size_t length = root.size();
  for (std::u16string at = WithoutEndSeparator(path); at.size() > length;
       at = WithoutEndSeparator(at.substr(0, at.rfind(u'\\')))) {
    MountedVolume* mounted = nullptr;
    const DWORD error = VolumeOnFolder(at, mounted);
    if (error == 0) return root = at + u"\\", 0;
    Location target;
    if (error == win32::ERROR_INVALID_PARAMETER && Machine::Current().files().Resolve(at, true, target) == 0)
      return root = RootPath(*target.volume), 0;
  }
  return 0;
}

}  // namespace

}  // namespace emulated

namespace win32 {

using namespace emulated;

HANDLE FindFirstVolumeW(char16_t* lpszVolumeName, DWORD cchBufferLength) {
  WIN32_CALL(cchBufferLength);
  if (call.Refused()) return INVALID_HANDLE_VALUE;
  const auto search = std::make_shared<VolumeSearch>();
  for (const auto& mounted : Machine::Current().volumes)
    if (!mounted->guidName.empty()) search->names.push_back(mounted->guidName);
  if (const DWORD error = NextVolume(*search, lpszVolumeName, cchBufferLength))
    return call.Done(error), INVALID_HANDLE_VALUE;
  return call.Return(NewHandle(search, 0));
}

BOOL FindNextVolumeW(HANDLE hFindVolume, char16_t* lpszVolumeName, DWORD cchBufferLength) {
  WIN32_CALL(hFindVolume, cchBufferLength);
  if (call.Refused()) return FALSE;
  const auto search = ObjectOf<VolumeSearch>(hFindVolume);
  return call.Done(search ? NextVolume(*search, lpszVolumeName, cchBufferLength) : DWORD{ERROR_INVALID_HANDLE});
}

BOOL FindVolumeClose(HANDLE hFindVolume) {
  WIN32_CALL(hFindVolume);
  if (call.Refused()) return FALSE;
  if (!ObjectOf<VolumeSearch>(hFindVolume)) return call.Done(ERROR_INVALID_HANDLE);
  return call.Done(CloseHandle(hFindVolume) ? DWORD{ERROR_SUCCESS} : LastError());
}

BOOL GetVolumeNameForVolumeMountPointW(const char16_t* lpszVolumeMountPoint, char16_t* lpszVolumeName,
                                       DWORD cchBufferLength) {
  WIN32_CALL(lpszVolumeMountPoint, cchBufferLength);
  if (call.Refused()) return FALSE;
  if (!lpszVolumeName) return call.Done(ERROR_INVALID_PARAMETER);
  if (cchBufferLength != 0) *lpszVolumeName = 0;
  MountedVolume* volume = nullptr;
  if (const DWORD error = VolumeAtMountPoint(lpszVolumeMountPoint, volume)) return call.Done(error);
  if (volume->guidName.empty()) return call.Done(ERROR_FILE_NOT_FOUND);  // a network drive has no volume name
  if (cchBufferLength < kNameBuffer) return call.Done(ERROR_FILENAME_EXCED_RANGE);
  volume->guidName.copy(lpszVolumeName, kNameBuffer - 1);
  lpszVolumeName[volume->guidName.size()] = 0;
  return call.Done(ERROR_SUCCESS);
}

BOOL GetVolumePathNameW(const char16_t* lpszFileName, char16_t* lpszVolumePathName, DWORD cchBufferLength) {
  WIN32_CALL(lpszFileName, cchBufferLength);
  if (call.Refused()) return FALSE;
  if (!lpszFileName || !lpszVolumePathName || cchBufferLength == 0) return call.Done(ERROR_INVALID_PARAMETER);
  if (!*lpszFileName) return call.Done(ERROR_INVALID_PARAMETER);
  std::u16string root;
  if (const DWORD error = VolumePath(lpszFileName, root)) return call.Done(error);
  if (cchBufferLength == root.size()) root.pop_back();  // the backslash is left out when it alone has no room
  if (cchBufferLength <= root.size()) return call.Done(ERROR_FILENAME_EXCED_RANGE);
  root.copy(lpszVolumePathName, root.size());
  lpszVolumePathName[root.size()] = 0;
  return call.Done(ERROR_SUCCESS);
}

// The letter's root first, then the folders. The length counts every end; of no path at all it is 1.
BOOL GetVolumePathNamesForVolumeNameW(const char16_t* lpszVolumeName, char16_t* lpszVolumePathNames,
                                      DWORD cchBufferLength, DWORD* lpcchReturnLength) {
  WIN32_CALL(lpszVolumeName, cchBufferLength);
  if (call.Refused()) return FALSE;
  if (!lpszVolumeName || !IsVolumeName(lpszVolumeName)) return call.Done(ERROR_INVALID_NAME);
  const MountedVolume* const volume = Machine::Current().FindByGuidName(lpszVolumeName);
  if (!volume) return call.Done(ERROR_FILE_NOT_FOUND);
  std::vector<std::u16string> paths;
  if (volume->letter != 0) paths.push_back(RootPath(*volume));
  if (const DWORD error = MountFolders(*volume, paths)) return call.Done(error);
  std::u16string all;
  for (const std::u16string& path : paths) all += path + u'\0';
  all += u'\0';
  if (lpcchReturnLength) *lpcchReturnLength = static_cast<DWORD>(all.size());
  if (!lpszVolumePathNames || cchBufferLength < all.size()) return call.Done(ERROR_MORE_DATA);
  all.copy(lpszVolumePathNames, all.size());
  return call.Done(ERROR_SUCCESS);
}

BOOL SetVolumeMountPointW(const char16_t* lpszVolumeMountPoint, const char16_t* lpszVolumeName) {
  WIN32_CALL(lpszVolumeMountPoint, lpszVolumeName);
  if (call.Refused()) return FALSE;
  if (!lpszVolumeMountPoint || !EndsWithSeparator(lpszVolumeMountPoint)) return call.Done(ERROR_INVALID_NAME);
  if (!lpszVolumeName || !IsVolumeName(lpszVolumeName)) return call.Done(ERROR_INVALID_PARAMETER);
  if (!MayMount()) return call.Done(ERROR_ACCESS_DENIED);
  MountedVolume* const volume = Machine::Current().FindByGuidName(lpszVolumeName);
  if (!volume) return call.Done(ERROR_FILE_NOT_FOUND);
  const std::u16string path = FullPath(lpszVolumeMountPoint);
  bool isRoot = false;
  VolumeOfRoot(path, &isRoot);
  if (!isRoot) {
    const DWORD error = MountOnFolder(WithoutEndSeparator(path), *volume);
    if (error == 0) RecordNames(Machine::Current(), *volume);  // the folder leads to the name
    return call.Done(error);
  }
  if (IsVolumeName(path)) return call.Done(ERROR_INVALID_PARAMETER);
  return call.Done(AssignLetter(path[path.size() - 3], *volume));
}

BOOL DeleteVolumeMountPointW(const char16_t* lpszVolumeMountPoint) {
  WIN32_CALL(lpszVolumeMountPoint);
  if (call.Refused()) return FALSE;
  if (!lpszVolumeMountPoint || !EndsWithSeparator(lpszVolumeMountPoint)) return call.Done(ERROR_INVALID_NAME);
  if (!MayMount()) return call.Done(ERROR_ACCESS_DENIED);
  const std::u16string path = FullPath(lpszVolumeMountPoint);
  bool isRoot = false;
  MountedVolume* const volume = VolumeOfRoot(path, &isRoot);
  if (isRoot && !volume) return call.Done(ERROR_FILE_NOT_FOUND);
  if (isRoot) return call.Done(IsVolumeName(path) ? DWORD{ERROR_INVALID_PARAMETER} : RemoveLetter(*volume));
  Bytes data;
  if (const DWORD error = ReparseDataOf(WithoutEndSeparator(path), data)) return call.Done(error);
  if (!MountedVolumeName(data)) return call.Done(ERROR_INVALID_PARAMETER);
  return call.Done(ControlReparsePoint(WithoutEndSeparator(path), FSCTL_DELETE_REPARSE_POINT, MountPointHeader()));
}

}  // namespace win32
