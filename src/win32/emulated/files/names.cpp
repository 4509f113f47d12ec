// Making directories, and removing names.
#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::size_t kRoomForShortName = 12;  // a directory's path leaves room for "\FILENAME.EXT" below it

constexpr DWORD kToDelete = win32::DELETE | win32::FILE_READ_ATTRIBUTES;

DWORD RemoveDirectory(std::u16string_view path) {
  std::shared_ptr<FileObject> directory;
  if (const DWORD error = Machine::Current().files().OpenItself(path, kToDelete | win32::SYNCHRONIZE, directory, true))
    return error;
  return Machine::Current().files().MarkForDeletion(*directory);
}

// The attributes would tell whether it is a link; who may not read them deletes all the same.
DWORD RemoveFile(std::u16string_view path) {
  FileService& files = Machine::Current().files();
  DosDevice device{};
  if (const DWORD error = files.FindDevice(path, device)) return error;
  if (device == DosDevice::Null) return win32::ERROR_INVALID_PARAMETER;
  std::shared_ptr<FileObject> file;
  DWORD error = files.OpenItself(path, kToDelete, file);
  if (error == win32::ERROR_ACCESS_DENIED) error = files.OpenItself(path, win32::DELETE, file);
  if (error != 0) return error;
  if (file->isDirectory) return win32::ERROR_ACCESS_DENIED;
  return files.MarkForDeletion(*file);
}

DWORD MakeDirectory(std::u16string_view path, const win32::SECURITY_ATTRIBUTES* security) {
  FileService& files = Machine::Current().files();
  DosDevice device{};
  if (const DWORD error = files.FindDevice(path, device)) return error;
  if (device != DosDevice::None) return win32::ERROR_DIRECTORY;
  if (!IsLiteral(path) && FullPath(path).size() >= win32::MAX_PATH - kRoomForShortName)
    return win32::ERROR_FILENAME_EXCED_RANGE;
  std::optional<Bytes> creator;
  if (const DWORD error = CreatorDescriptor(security, creator)) return error;
  Location location;
  if (const DWORD error = files.Resolve(path, false, location)) return error;
  if (location.hasStream) return win32::ERROR_DIRECTORY;
  if (location.directory == 0) return win32::ERROR_ACCESS_DENIED;  // the root of a drive
  if (location.file != 0) {
    return files.IsDeletePending(location) ? win32::ERROR_ACCESS_DENIED : win32::ERROR_ALREADY_EXISTS;
  }
  OpenRequest request;
  request.access = win32::FILE_READ_DATA | win32::SYNCHRONIZE;
  request.share = kAnyShare;
  request.flags = win32::FILE_FLAG_BACKUP_SEMANTICS;
  request.createDirectory = true;
  if (creator) request.descriptor = *creator;
  std::shared_ptr<FileObject> directory;
  return files.CreateAt(location, request, directory);
}

}  // namespace

}  // namespace emulated

namespace win32 {

BOOL CreateDirectoryW(const char16_t* lpPathName, SECURITY_ATTRIBUTES* lpSecurityAttributes) {
  WIN32_CALL(lpPathName);
  if (call.Refused()) return FALSE;
  return call.Done(lpPathName ? emulated::MakeDirectory(lpPathName, lpSecurityAttributes) : ERROR_PATH_NOT_FOUND);
}

BOOL RemoveDirectoryW(const char16_t* lpPathName) {
  WIN32_CALL(lpPathName);
  if (call.Refused()) return FALSE;
  return call.Done(lpPathName ? emulated::RemoveDirectory(lpPathName) : ERROR_PATH_NOT_FOUND);
}

BOOL DeleteFileW(const char16_t* lpFileName) {
  WIN32_CALL(lpFileName);
  if (call.Refused()) return FALSE;
  return call.Done(lpFileName ? emulated::RemoveFile(lpFileName) : ERROR_PATH_NOT_FOUND);
}

}  // namespace win32
