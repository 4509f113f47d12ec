// MoveFileW and MoveFileExW.
#include "win32/emulated/call.h"
#include "win32/emulated/files/copy_file.h"
#include "win32/emulated/files/delayed_renames.h"
#include "win32/emulated/files/file_service.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

// May something take the place of this file?
DWORD MayReplace(const Location& target) {
  FileService& files = Machine::Current().files();
  if (target.info.attributes & (win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_READONLY))
    return win32::ERROR_ACCESS_DENIED;
  if (files.IsOpen(*target.volume, target.file)) return win32::ERROR_ACCESS_DENIED;
  DWORD granted = 0;
  return files.Check(*target.volume, target.file, target.directory, win32::DELETE, true, granted);
}

// Renames onto a file's name. The file steps aside until the rename has succeeded: a full volume must not cost it.
DWORD Replace(Volume& volume, FileId fromDirectory, const std::u16string& fromName, const Location& target) {
  std::u16string aside = u"~replaced-";
  for (int shift = 60; shift >= 0; shift -= 4) aside += u"0123456789abcdef"[(target.file >> shift) & 0xF];
  if (const DWORD error = volume.Rename(target.directory, target.name, target.directory, aside)) return error;
  if (const DWORD error = volume.Rename(fromDirectory, fromName, target.directory, target.name)) {
    volume.Rename(target.directory, aside, target.directory, target.name);
    return error;
  }
  return volume.Unlink(target.directory, aside);
}

// The place names the very entry that is open, be it in another spelling.
bool IsSameEntry(const FileObject& source, const Location& target) {
  if (target.file != source.file || target.directory != source.directory) return false;
  FileId file = 0;
  std::u16string spelled;
  return target.volume->volume->Lookup(target.directory, target.name, file, &spelled) == 0 && spelled == source.name;
}

// A directory cannot go below itself, and not while anything below it is open. The file system opens the directory that
// the new name goes into: when that is the moved one, the two opens exclude each other.
DWORD MayMoveDirectory(const FileObject& source, const Location& target) {
  FileService& files = Machine::Current().files();
  if (target.directory == source.file) return win32::ERROR_SHARING_VIOLATION;
  for (FileId above = target.directory; above != target.volume->volume->Root();) {
    std::vector<std::pair<FileId, std::u16string>> names;
    if (const DWORD error = target.volume->volume->Names(above, names)) return error;
    if (names.empty()) break;
    above = names.front().first;
    if (above == source.file) return win32::ERROR_ACCESS_DENIED;
  }
  return files.IsOpenBelow(*source.volume, source.file) ? DWORD{win32::ERROR_ACCESS_DENIED} : 0;
}

DWORD Rename(FileObject& source, const Location& target, bool replace) {
  FileService& files = Machine::Current().files();
  if (source.directory == 0) return win32::ERROR_ACCESS_DENIED;  // the root
  const bool sameFile = IsSameEntry(source, target);
  if (target.file != 0 && !sameFile && !replace) return win32::ERROR_ALREADY_EXISTS;
  if (source.isDirectory && !sameFile)
    if (const DWORD error = MayMoveDirectory(source, target)) return error;
  DWORD granted = 0;
  const DWORD right =
      source.isDirectory ? win32::FILE_APPEND_DATA : win32::FILE_WRITE_DATA;  // FILE_ADD_SUBDIRECTORY, FILE_ADD_FILE
  if (const DWORD error = files.Check(*target.volume, target.directory, 0, right, true, granted)) return error;
  const bool replaces = target.file != 0 && !sameFile;
  if (replaces)
    if (const DWORD error = MayReplace(target)) return error;
  if (sameFile && target.name == source.name) return 0;

  const FileId fromDirectory = source.directory;
  const std::u16string fromName = source.name;
  Volume& volume = *target.volume->volume;
  if (const DWORD error = replaces ? Replace(volume, fromDirectory, fromName, target)
                                   : volume.Rename(fromDirectory, fromName, target.directory, target.name))
    return error;
  files.NoteRename(*source.volume, source.file, fromDirectory, fromName, target.directory, target.name);
  files.TouchDirectory(*source.volume, fromDirectory);
  if (target.directory != fromDirectory) files.TouchDirectory(*target.volume, target.directory);
  if (source.isDirectory) files.ForgetPaths();
  return source.volume->volume->SetTimes(source.file, {.change = Machine::Current().Now()});
}

DWORD Move(std::u16string_view from, std::u16string_view to, DWORD flags) {
  FileService& files = Machine::Current().files();
  std::shared_ptr<FileObject> source;
  constexpr DWORD kToMove = win32::DELETE | win32::FILE_READ_ATTRIBUTES | win32::SYNCHRONIZE;
  if (const DWORD error = files.OpenItself(from, kToMove, source)) return error;
  Location target;
  if (const DWORD error = files.Resolve(to, false, target)) return error;
  if (target.hasStream || !source->stream.empty()) return win32::ERROR_INVALID_NAME;
  const bool replace = (flags & win32::MOVEFILE_REPLACE_EXISTING) != 0;
  if (target.directory == 0) return replace ? win32::ERROR_ACCESS_DENIED : win32::ERROR_ALREADY_EXISTS;
  if (target.volume == source->volume) return Rename(*source, target, replace);

  if (source->isDirectory || !(flags & win32::MOVEFILE_COPY_ALLOWED)) return win32::ERROR_NOT_SAME_DEVICE;
  if (target.file != 0 && !replace) return win32::ERROR_ALREADY_EXISTS;
  if (const DWORD error = CopyWholeFile(from, to, !replace, true)) return error;
  // The move has succeeded with the copy; a source that cannot go (it is read-only, say) is cleared of that and tried
  // again.
  FileInfo info;
  if (source->volume->volume->Stat(source->file, info) == 0 && (info.attributes & win32::FILE_ATTRIBUTE_READONLY))
    source->volume->volume->SetAttributes(source->file, info.attributes & ~DWORD{win32::FILE_ATTRIBUTE_READONLY});
  files.MarkForDeletion(*source);
  return 0;
}

}  // namespace

}  // namespace emulated

namespace win32 {

BOOL MoveFileExW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName, DWORD dwFlags) {
  WIN32_CALL(lpExistingFileName, lpNewFileName, dwFlags);
  if (call.Refused()) return FALSE;
  if (!lpExistingFileName) return call.Done(ERROR_PATH_NOT_FOUND);
  if (dwFlags & MOVEFILE_DELAY_UNTIL_REBOOT)
    return call.Done(emulated::RegisterDelayedRename(lpExistingFileName, lpNewFileName, dwFlags));
  if (!lpNewFileName) return call.Done(ERROR_INVALID_PARAMETER);
  return call.Done(emulated::Move(lpExistingFileName, lpNewFileName, dwFlags));
}

BOOL MoveFileW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName) {
  WIN32_CALL(lpExistingFileName, lpNewFileName);
  if (call.Refused()) return FALSE;
  return MoveFileExW(lpExistingFileName, lpNewFileName, MOVEFILE_COPY_ALLOWED) ? call.Done(0)
                                                                               : call.Done(emulated::LastError());
}

}  // namespace win32
