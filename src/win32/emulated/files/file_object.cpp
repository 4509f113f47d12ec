// What happens to open files until their last handle goes: times, deletion, names.
#include <algorithm>
#include <utility>

#include "win32/emulated/files/file_service.h"

namespace emulated {

using win32::DWORD;

FileService::FileService(Machine& machine) : machine_(machine) {}

FileService::~FileService() {
  for (FileObject* const open : opens_) open->service_ = nullptr;
}

void FileObject::Closed() {
  if (FileService* const service = std::exchange(service_, nullptr)) service->CloseObject(*this);
}

std::u16string FileObject::NameOnDevice() const { return service_ ? service_->PathInVolume(*this) : std::u16string(); }

std::shared_ptr<FileObject> FileService::Register(std::shared_ptr<FileObject> object, const Location& location,
                                                  const OpenRequest& request) {
  object->volume = location.volume;
  object->directory = location.directory;
  object->stream = location.stream;
  object->share = request.share;
  object->flags = request.flags;
  object->deleteOnClose = (request.flags & win32::FILE_FLAG_DELETE_ON_CLOSE) != 0;
  object->service_ = this;
  object->processId = machine_.process.id;
  opens_.push_back(object.get());
  return object;
}

void FileService::CloseObject(FileObject& object) {
  std::erase(opens_, &object);
  if (!object.volume || object.file == 0) return;
  if (object.wrote && object.writeNoted_ == 0) NoteWrite(object);
  if (object.accessed && lastAccessUpdates && !object.keepLastAccess)
    object.volume->volume->SetTimes(object.file, {.lastAccess = machine_.Now()});
  bool pending = object.deletePending;
  if (object.deleteOnClose && !pending) pending = MarkForDeletion(object) == 0;
  if (!pending) return;
  bool last = true;
  for (FileObject* const open : opens_) {
    if (open->volume != object.volume || open->file != object.file) continue;
    open->deletePending = true;
    last = false;
  }
  if (last) RemoveName(object);
}

void FileService::RemoveName(FileObject& object) {
  Volume& volume = *object.volume->volume;
  if (!object.stream.empty()) {
    volume.RemoveStream(object.file, object.stream);
    return;
  }
  // The name may have come to stand for another file since it was opened.
  FileId found = 0;
  if (volume.Lookup(object.directory, object.name, found, nullptr) != 0 || found != object.file) return;
  if (volume.Unlink(object.directory, object.name) != 0) return;
  TouchDirectory(*object.volume, object.directory);
  if (object.isDirectory) ForgetPaths();
}

DWORD FileService::MarkForDeletion(FileObject& object) {
  if (object.directory == 0) return win32::ERROR_ACCESS_DENIED;  // the root
  Volume& volume = *object.volume->volume;
  FileInfo info;
  if (const DWORD error = volume.Stat(object.file, info)) return error;
  if (info.attributes & win32::FILE_ATTRIBUTE_READONLY) return win32::ERROR_ACCESS_DENIED;
  if (object.isDirectory && !(info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT)) {
    std::vector<DirectoryEntry> entries;
    if (const DWORD error = volume.List(object.file, entries)) return error;
    if (!entries.empty()) return win32::ERROR_DIR_NOT_EMPTY;
  }
  object.deletePending = true;
  for (FileObject* const open : opens_)
    if (open->volume == object.volume && open->file == object.file) open->deletePending = true;
  return 0;
}

void FileService::UnmarkForDeletion(FileObject& object) {
  for (FileObject* const open : opens_)
    if (open->volume == object.volume && open->file == object.file) open->deletePending = false;
}

bool FileService::IsOpen(const MountedVolume& volume, FileId file) const {
  return std::any_of(opens_.begin(), opens_.end(),
                     [&](const FileObject* open) { return open->volume == &volume && open->file == file; });
}

bool FileService::IsDeletePending(const MountedVolume& volume, FileId file) const {
  return std::any_of(opens_.begin(), opens_.end(), [&](const FileObject* open) {
    return open->deletePending && open->file == file && open->volume == &volume;
  });
}

bool FileService::IsOpenBelow(const MountedVolume& volume, FileId directory) {
  return std::any_of(opens_.begin(), opens_.end(), [&](const FileObject* open) {
    if (open->volume != &volume) return false;
    FileId above = open->directory;
    constexpr int kDeepest = 16'384;
    for (int depth = 0; above != 0 && depth < kDeepest; ++depth) {
      if (above == directory) return true;
      std::vector<std::pair<FileId, std::u16string>> names;
      if (above == volume.volume->Root() || volume.volume->Names(above, names) != 0 || names.empty()) return false;
      above = names.front().first;
    }
    return false;
  });
}

void FileService::NoteWrite(FileObject& object) {
  object.wrote = true;
  const FileTime now = machine_.Now();
  if (object.writeNoted_ == now) return;
  object.writeNoted_ = now;
  Volume& volume = *object.volume->volume;
  FileTimes times;
  if (!object.keepLastWrite) times.lastWrite = now;
  if (!object.keepChange) times.change = now;
  volume.SetTimes(object.file, times);
  FileInfo info;
  if (volume.Stat(object.file, info) != 0 ||
      (info.attributes & (win32::FILE_ATTRIBUTE_ARCHIVE | win32::FILE_ATTRIBUTE_DIRECTORY)))
    return;
  volume.SetAttributes(object.file, (info.attributes & ~win32::FILE_ATTRIBUTE_NORMAL) | win32::FILE_ATTRIBUTE_ARCHIVE);
}

void FileService::TouchDirectory(MountedVolume& volume, FileId directory) {
  const FileTime now = machine_.Now();
  FileTimes times{.lastWrite = now, .change = now};
  if (lastAccessUpdates) times.lastAccess = now;
  volume.volume->SetTimes(directory, times);
}

void FileService::NoteRename(MountedVolume& volume, FileId file, FileId fromDirectory, std::u16string_view fromName,
                             FileId toDirectory, std::u16string_view toName) {
  for (FileObject* const open : opens_) {
    if (open->volume != &volume || open->file != file || open->directory != fromDirectory || open->name != fromName)
      continue;
    open->directory = toDirectory;
    open->name = toName;
  }
}

}  // namespace emulated
