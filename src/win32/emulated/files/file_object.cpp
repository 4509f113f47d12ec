// What happens to open files until their last handle goes: times, deletion, names.
#include <algorithm>
#include <iterator>
#include <utility>

#include "win32/emulated/files/file_service.h"

namespace emulated {

using win32::DWORD;

FileService::FileService(Machine& machine) : machine_(machine) {}

FileService::~FileService() {
  for (FileObject* const open : opens_) open->service_ = nullptr;
}

bool EqualNames(const Volume& volume, std::u16string_view a, std::u16string_view b) {
  return std::ranges::equal(
      a, b, {}, [&](char16_t unit) { return volume.UpCase(unit); }, [&](char16_t unit) { return volume.UpCase(unit); });
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
  if (object.deleteOnClose && object.pending == Deletion::None) MarkForDeletion(object);
  if (object.pending != Deletion::None && OpensOf(object, object.pending).empty()) RemoveName(object);
}

std::vector<FileObject*> FileService::OpensOf(const FileObject& object, Deletion what) const {
  std::vector<FileObject*> opens;
  std::ranges::copy_if(opens_, std::back_inserter(opens), [&](const FileObject* open) {
    return open->volume == object.volume && open->file == object.file &&
           (what == Deletion::Name ? open->directory == object.directory && open->name == object.name
                                   : EqualNames(*object.volume->volume, open->stream, object.stream));
  });
  return opens;
}

void FileService::RemoveName(FileObject& object) {
  Volume& volume = *object.volume->volume;
  if (object.pending == Deletion::Stream) {
    volume.RemoveStream(object.file, object.stream);
    return;
  }
  // The name may have come to stand for another file since it was opened.
  FileId found = 0;
  if (volume.Lookup(object.directory, object.name, found, nullptr) != 0 || found != object.file) return;
  FileInfo info;
  const bool isPlainFile = volume.Stat(object.file, info) == 0 &&
                           !(info.attributes & (win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT));
  if (volume.Unlink(object.directory, object.name) != 0) return;
  TouchDirectory(*object.volume, object.directory);
  if (!isPlainFile) ForgetPaths();  // no path leads on from a plain file
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
  object.pending = object.stream.empty() ? Deletion::Name : Deletion::Stream;  // it may be open no more
  for (FileObject* const open : OpensOf(object, object.pending)) open->pending = object.pending;
  return 0;
}

void FileService::UnmarkForDeletion(FileObject& object) {
  for (FileObject* const open : OpensOf(object, object.pending)) open->pending = Deletion::None;
}

bool FileService::IsOpen(const MountedVolume& volume, FileId file) const {
  return std::any_of(opens_.begin(), opens_.end(),
                     [&](const FileObject* open) { return open->volume == &volume && open->file == file; });
}

bool FileService::IsDeletePending(const Location& location) const {
  return std::any_of(opens_.begin(), opens_.end(), [&](const FileObject* open) {
    if (open->pending == Deletion::None || open->file != location.file || open->volume != location.volume) return false;
    const Volume& volume = *location.volume->volume;
    if (open->pending == Deletion::Stream) return EqualNames(volume, open->stream, location.stream);
    FileId same = 0;
    std::u16string name;  // the place may have been asked for by its short name
    return open->directory == location.directory &&
           location.volume->volume->Lookup(location.directory, location.name, same, &name) == 0 && name == open->name;
  });
}

bool FileService::IsDeletePending(const MountedVolume& volume, FileId directory) const {
  return std::any_of(opens_.begin(), opens_.end(), [&](const FileObject* open) {
    return open->pending == Deletion::Name && open->file == directory && open->volume == &volume;
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
