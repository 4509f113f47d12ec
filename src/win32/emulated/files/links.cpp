// Hard links, symbolic links, and the final path of an open file.
#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/files/reparse.h"
#include "win32/emulated/files/runtime_bound.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr DWORD kAllowUnprivileged = 2;  // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE: counts in developer mode only

// The new name stands for the link itself when `existing` is one.
DWORD MakeHardLink(std::u16string_view path, std::u16string_view existing) {
  FileService& files = Machine::Current().files();
  std::shared_ptr<FileObject> file;
  if (const DWORD error = files.OpenItself(existing, win32::FILE_WRITE_ATTRIBUTES | win32::SYNCHRONIZE, file))
    return error;
  if (file->isDirectory) return win32::ERROR_ACCESS_DENIED;
  Location place;
  if (const DWORD error = files.Resolve(path, false, place)) return error;
  if (place.volume != file->volume) return win32::ERROR_NOT_SAME_DEVICE;
  if (place.directory == 0 || place.file != 0) return win32::ERROR_ALREADY_EXISTS;
  if (place.hasStream || place.trailingBackslash) return win32::ERROR_INVALID_NAME;
  DWORD granted = 0;
  if (const DWORD error = files.Check(*place.volume, place.directory, 0, win32::FILE_WRITE_DATA, true, granted))
    return error;
  if (const DWORD error = place.volume->volume->Link(file->file, place.directory, place.name)) return error;
  files.TouchDirectory(*place.volume, place.directory);
  return place.volume->volume->SetTimes(file->file, {.change = Machine::Current().Now()});
}

// What is written into the link: an absolute target as an object name, any other relative. A path that begins with one
// backslash is relative to the drive's root and stays so.
struct LinkNames {
  std::u16string substitute, print;
  bool relative = false;
};

LinkNames NamesOf(std::u16string_view target) {
  const auto isAbsolute = target.size() >= 3 && target[1] == u':' && (target[2] == u'\\' || target[2] == u'/');
  if (IsLiteral(target)) return {u"\\??\\" + std::u16string(target.substr(4)), std::u16string(target), false};
  if (isAbsolute) return {u"\\??\\" + FullPath(target), std::u16string(target), false};
  if (target.starts_with(u"\\\\"))
    return {u"\\??\\UNC\\" + std::u16string(target.substr(2)), std::u16string(target), false};
  std::u16string relative(target);
  for (char16_t& unit : relative)
    if (unit == u'/') unit = u'\\';
  return {relative, std::u16string(target), true};
}

DWORD MakeSymbolicLinkFile(std::u16string_view path, std::u16string_view target, DWORD flags) {
  if (flags & ~(win32::SYMBOLIC_LINK_FLAG_DIRECTORY | kAllowUnprivileged)) return win32::ERROR_INVALID_PARAMETER;
  if (target.empty()) return win32::ERROR_INVALID_REPARSE_DATA;
  Machine& machine = Machine::Current();
  if (!machine.EffectiveToken().HasPrivilege(u"SeCreateSymbolicLinkPrivilege")) return win32::ERROR_PRIVILEGE_NOT_HELD;
  const LinkNames names = NamesOf(target);
  const Bytes data = MakeSymbolicLink(names.substitute, names.print, names.relative);
  if (data.empty()) return win32::ERROR_FILENAME_EXCED_RANGE;
  FileService& files = machine.files();
  Location place;
  if (const DWORD error = files.Resolve(path, false, place)) return error;
  if (place.directory == 0 || place.file != 0) return win32::ERROR_ALREADY_EXISTS;
  if (place.hasStream) return win32::ERROR_INVALID_NAME;
  OpenRequest request;
  request.access = win32::FILE_WRITE_ATTRIBUTES | win32::DELETE | win32::SYNCHRONIZE;
  request.share = kAnyShare;
  request.flags = win32::FILE_FLAG_BACKUP_SEMANTICS;
  request.createDirectory = (flags & win32::SYMBOLIC_LINK_FLAG_DIRECTORY) != 0;
  std::shared_ptr<FileObject> link;
  if (const DWORD error = files.CreateAt(place, request, link)) return error;
  const DWORD error = place.volume->volume->SetReparse(link->file, data);
  if (error != 0) files.MarkForDeletion(*link);
  return error;
}

// The flags of GetFinalPathNameByHandleW. Names are always the normalized ones here (FILE_NAME_OPENED, 8, differs only
// in short names).
constexpr DWORD kVolumeNameGuid = 1, kVolumeNameNt = 2, kVolumeNameNone = 4, kFileNameOpened = 8;

DWORD FinalPath(const FileObject& file, DWORD flags, std::u16string& path) {
  path = Machine::Current().files().PathInVolume(file);
  if (path.empty()) return win32::ERROR_FILE_NOT_FOUND;
  switch (flags & ~kFileNameOpened) {
    case 0:
      if (file.volume->letter != 0) {
        path = std::u16string(u"\\\\?\\") + file.volume->letter + u':' + path;
        return 0;
      }
      [[fallthrough]];  // the volume has no letter: its GUID name is the DOS name
    case kVolumeNameGuid:
      path = file.volume->guidName.substr(0, file.volume->guidName.size() - 1) + path;
      return 0;
    case kVolumeNameNt:
      path = file.volume->device + path;
      return 0;
    case kVolumeNameNone:
      return 0;
    default:
      return win32::ERROR_INVALID_PARAMETER;
  }
}

}  // namespace

win32::BOOLEAN CreateSymbolicLinkW(const char16_t* lpSymlinkFileName, const char16_t* lpTargetFileName, DWORD dwFlags) {
  WIN32_CALL(lpSymlinkFileName, lpTargetFileName, dwFlags);
  if (call.Refused()) return 0;
  if (!lpSymlinkFileName || !lpTargetFileName)
    return static_cast<win32::BOOLEAN>(call.Done(win32::ERROR_PATH_NOT_FOUND));
  return static_cast<win32::BOOLEAN>(call.Done(MakeSymbolicLinkFile(lpSymlinkFileName, lpTargetFileName, dwFlags)));
}

DWORD GetFinalPathNameByHandleW(win32::HANDLE hFile, char16_t* lpszFilePath, DWORD cchFilePath, DWORD dwFlags) {
  WIN32_CALL(hFile, cchFilePath, dwFlags);
  if (call.Refused()) return 0;
  const auto file = FileOf(hFile);
  std::u16string path;
  const DWORD error = file ? FinalPath(*file, dwFlags, path) : DWORD{win32::ERROR_INVALID_HANDLE};
  if (error != 0) {
    SetLastError(error);
    return call.Return(DWORD{0});
  }
  const auto length = static_cast<DWORD>(path.size());
  if (!lpszFilePath || cchFilePath <= length) return call.Return(length + 1);
  path.copy(lpszFilePath, length);
  lpszFilePath[length] = u'\0';
  return call.Return(length);
}

}  // namespace emulated

namespace win32 {

BOOL CreateHardLinkW(const char16_t* lpFileName, const char16_t* lpExistingFileName,
                     SECURITY_ATTRIBUTES* lpSecurityAttributes) {
  WIN32_CALL(lpFileName, lpExistingFileName);
  if (call.Refused()) return FALSE;
  if (lpSecurityAttributes) return call.Done(ERROR_INVALID_PARAMETER);
  if (!lpFileName || !lpExistingFileName) return call.Done(ERROR_PATH_NOT_FOUND);
  return call.Done(emulated::MakeHardLink(lpFileName, lpExistingFileName));
}

}  // namespace win32
