// Attributes and times, by name and by handle.
#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

// What one FILETIME of SetFileTime asks for.
struct TimeChange {
  FileTime time = 0;  // 0: leave it
  bool keep = false;  // later work through the handle leaves it too
};

// Null and 0 leave the time; -1 switches the handle's own updates of it off, -2 on again. 87 for other negative times.
DWORD ReadChange(const win32::FILETIME* given, bool& keep, TimeChange& change) {
  if (!given) return 0;
  const FileTime time = FromFileTime(*given);
  if (time == 0) return 0;
  if (time < -2) return win32::ERROR_INVALID_PARAMETER;
  if (time == -2) {
    keep = false;
    return 0;
  }
  keep = true;
  if (time > 0) change.time = time;
  return 0;
}

DWORD SetTimes(FileObject& file, const win32::FILETIME* creation, const win32::FILETIME* access,
               const win32::FILETIME* write) {
  if (!(file.granted & win32::FILE_WRITE_ATTRIBUTES)) return win32::ERROR_ACCESS_DENIED;
  FileService& files = Machine::Current().files();
  bool keepCreation = false, keepAccess = file.keepLastAccess, keepWrite = file.keepLastWrite;
  TimeChange newCreation, newAccess, newWrite;
  if (const DWORD error = ReadChange(creation, keepCreation, newCreation)) return error;
  if (const DWORD error = ReadChange(access, keepAccess, newAccess)) return error;
  if (const DWORD error = ReadChange(write, keepWrite, newWrite)) return error;
  if (file.wrote) files.NoteWrite(file);
  file.keepLastAccess = keepAccess;
  file.keepLastWrite = keepWrite;
  FileTimes times{.creation = newCreation.time, .lastAccess = newAccess.time, .lastWrite = newWrite.time};
  if (times.creation == 0 && times.lastAccess == 0 && times.lastWrite == 0) return 0;
  times.change = Machine::Current().Now();
  return file.volume->volume->SetTimes(file.file, times);
}

// A matter of the name itself: a link in the last place is not followed.
DWORD Query(std::u16string_view path, FileInfo& info) {
  FileService& files = Machine::Current().files();
  DosDevice device{};
  if (const DWORD error = files.FindDevice(path, device)) return error;
  if (device != DosDevice::None) {
    info = {.attributes = win32::FILE_ATTRIBUTE_ARCHIVE};
    return 0;
  }
  Location location;
  if (const DWORD error = files.Resolve(path, false, location)) return error;
  if (location.file == 0) return win32::ERROR_FILE_NOT_FOUND;
  if (!location.stream.empty()) {
    std::uint64_t size = 0;
    if (const DWORD error = location.volume->volume->StreamSize(location.file, location.stream, size)) return error;
  }
  if (files.IsDeletePending(location)) return win32::ERROR_ACCESS_DENIED;
  DWORD granted = 0;
  if (const DWORD error =
          files.Check(*location.volume, location.file, location.directory, win32::FILE_READ_ATTRIBUTES, true, granted))
    return error;
  info = location.info;
  return 0;
}

DWORD ChangeAttributes(std::u16string_view path, DWORD attributes) {
  FileService& files = Machine::Current().files();
  std::shared_ptr<FileObject> file;
  if (const DWORD error = files.OpenItself(path, win32::FILE_WRITE_ATTRIBUTES | win32::SYNCHRONIZE, file)) return error;
  if (file->isDirectory && (attributes & win32::FILE_ATTRIBUTE_TEMPORARY)) return win32::ERROR_INVALID_PARAMETER;
  if (const DWORD error = file->volume->volume->SetAttributes(file->file, attributes & ~win32::FILE_ATTRIBUTE_NORMAL))
    return error;
  return file->volume->volume->SetTimes(file->file, {.change = Machine::Current().Now()});
}

}  // namespace

}  // namespace emulated

namespace win32 {

DWORD GetFileAttributesW(const char16_t* lpFileName) {
  WIN32_CALL(lpFileName);
  if (call.Refused()) return INVALID_FILE_ATTRIBUTES;
  emulated::FileInfo info;
  const DWORD error = lpFileName ? emulated::Query(lpFileName, info) : ERROR_PATH_NOT_FOUND;
  if (error != 0) emulated::SetLastError(error);
  return call.Return(error == 0 ? info.attributes : INVALID_FILE_ATTRIBUTES);
}

BOOL GetFileAttributesExW(const char16_t* lpFileName, int fInfoLevelId, void* lpFileInformation) {
  WIN32_CALL(lpFileName, fInfoLevelId);
  if (call.Refused()) return FALSE;
  if (fInfoLevelId != GetFileExInfoStandard || !lpFileInformation) return call.Done(ERROR_INVALID_PARAMETER);
  emulated::FileInfo info;
  if (const DWORD error = lpFileName ? emulated::Query(lpFileName, info) : ERROR_PATH_NOT_FOUND)
    return call.Done(error);
  *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(lpFileInformation) = {
      .dwFileAttributes = info.attributes,
      .ftCreationTime = emulated::ToFileTime(info.creation),
      .ftLastAccessTime = emulated::ToFileTime(info.lastAccess),
      .ftLastWriteTime = emulated::ToFileTime(info.lastWrite),
      .nFileSizeHigh = static_cast<DWORD>(info.size >> 32),
      .nFileSizeLow = static_cast<DWORD>(info.size & 0xFFFFFFFF)};
  return call.Done(0);
}

BOOL SetFileAttributesW(const char16_t* lpFileName, DWORD dwFileAttributes) {
  WIN32_CALL(lpFileName, dwFileAttributes);
  if (call.Refused()) return FALSE;
  return call.Done(lpFileName ? emulated::ChangeAttributes(lpFileName, dwFileAttributes) : ERROR_PATH_NOT_FOUND);
}

BOOL GetFileTime(HANDLE hFile, FILETIME* lpCreationTime, FILETIME* lpLastAccessTime, FILETIME* lpLastWriteTime) {
  WIN32_CALL(hFile);
  if (call.Refused()) return FALSE;
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (!(file->granted & FILE_READ_ATTRIBUTES)) return call.Done(ERROR_ACCESS_DENIED);
  emulated::FileInfo info;
  if (const DWORD error = file->volume->volume->Stat(file->file, info)) return call.Done(error);
  if (lpCreationTime) *lpCreationTime = emulated::ToFileTime(info.creation);
  if (lpLastAccessTime) *lpLastAccessTime = emulated::ToFileTime(info.lastAccess);
  if (lpLastWriteTime) *lpLastWriteTime = emulated::ToFileTime(info.lastWrite);
  return call.Done(0);
}

BOOL SetFileTime(HANDLE hFile, const FILETIME* lpCreationTime, const FILETIME* lpLastAccessTime,
                 const FILETIME* lpLastWriteTime) {
  WIN32_CALL(hFile, lpCreationTime, lpLastAccessTime, lpLastWriteTime);
  if (call.Refused()) return FALSE;
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  return call.Done(emulated::SetTimes(*file, lpCreationTime, lpLastAccessTime, lpLastWriteTime));
}

BOOL GetFileInformationByHandle(HANDLE hFile, BY_HANDLE_FILE_INFORMATION* lpFileInformation) {
  WIN32_CALL(hFile);
  if (call.Refused()) return FALSE;
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (!lpFileInformation) return call.Done(ERROR_INVALID_PARAMETER);
  if (!(file->granted & FILE_READ_ATTRIBUTES)) return call.Done(ERROR_ACCESS_DENIED);
  emulated::FileInfo info;
  emulated::Volume& volume = *file->volume->volume;
  if (const DWORD error = volume.Stat(file->file, info)) return call.Done(error);
  if (!file->stream.empty())
    if (const DWORD error = volume.StreamSize(file->file, file->stream, info.size)) return call.Done(error);
  *lpFileInformation = {.dwFileAttributes = info.attributes,
                        .ftCreationTime = emulated::ToFileTime(info.creation),
                        .ftLastAccessTime = emulated::ToFileTime(info.lastAccess),
                        .ftLastWriteTime = emulated::ToFileTime(info.lastWrite),
                        .dwVolumeSerialNumber = static_cast<DWORD>(volume.SerialNumber() & 0xFFFFFFFF),
                        .nFileSizeHigh = static_cast<DWORD>(info.size >> 32),
                        .nFileSizeLow = static_cast<DWORD>(info.size & 0xFFFFFFFF),
                        .nNumberOfLinks = info.links,
                        .nFileIndexHigh = static_cast<DWORD>(info.id >> 32),
                        .nFileIndexLow = static_cast<DWORD>(info.id & 0xFFFFFFFF)};
  return call.Done(0);
}

BOOL SetFileInformationByHandle(HANDLE hFile, int FileInformationClass, void* lpFileInformation, DWORD dwBufferSize) {
  WIN32_CALL(hFile, FileInformationClass, dwBufferSize);
  if (call.Refused()) return FALSE;
  if (FileInformationClass != FileDispositionInfo || !lpFileInformation) return call.Done(ERROR_INVALID_PARAMETER);
  if (dwBufferSize < sizeof(FILE_DISPOSITION_INFO)) return call.Done(ERROR_BAD_LENGTH);
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (!(file->granted & DELETE)) return call.Done(ERROR_ACCESS_DENIED);
  emulated::FileService& files = emulated::Machine::Current().files();
  if (static_cast<const FILE_DISPOSITION_INFO*>(lpFileInformation)->DeleteIt)
    return call.Done(files.MarkForDeletion(*file));
  files.UnmarkForDeletion(*file);
  return call.Done(0);
}

}  // namespace win32
