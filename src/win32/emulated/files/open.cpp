// Opening and making files: access, sharing, dispositions.
#include <algorithm>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/processes.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr DWORD kReading = win32::FILE_READ_DATA | win32::FILE_EXECUTE;
constexpr DWORD kWriting = win32::FILE_WRITE_DATA | win32::FILE_APPEND_DATA;
// What a read-only file denies to everybody.
constexpr DWORD kDeniedByReadOnly = kWriting | win32::FILE_DELETE_CHILD;
constexpr DWORD kSettable = win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                            win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE |
                            win32::FILE_ATTRIBUTE_TEMPORARY | win32::FILE_ATTRIBUTE_OFFLINE |
                            win32::FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

DWORD Mapped(DWORD access) {
  if (access & win32::GENERIC_READ) access |= kFileMapping.GenericRead;
  if (access & win32::GENERIC_WRITE) access |= kFileMapping.GenericWrite;
  if (access & win32::GENERIC_EXECUTE) access |= kFileMapping.GenericExecute;
  if (access & (win32::GENERIC_ALL | win32::MAXIMUM_ALLOWED)) access |= kFileMapping.GenericAll;
  return access & ~(win32::GENERIC_READ | win32::GENERIC_WRITE | win32::GENERIC_EXECUTE | win32::GENERIC_ALL |
                    win32::MAXIMUM_ALLOWED);
}

bool HasBackupIntent(const OpenRequest& request) { return (request.flags & win32::FILE_FLAG_BACKUP_SEMANTICS) != 0; }

// Do the rights that one open holds go with what another lets share?
bool Excludes(DWORD access, DWORD share) {
  return ((access & kReading) && !(share & win32::FILE_SHARE_READ)) ||
         ((access & kWriting) && !(share & win32::FILE_SHARE_WRITE)) ||
         ((access & win32::DELETE) && !(share & win32::FILE_SHARE_DELETE));
}

bool CountsForSharing(DWORD access) { return (access & (kReading | kWriting | win32::DELETE)) != 0; }

// The disposition that does not ask whether the file exists.
bool Overwrites(DWORD disposition) {
  return disposition == win32::CREATE_ALWAYS || disposition == win32::TRUNCATE_EXISTING;
}

}  // namespace

DWORD FileService::Check(MountedVolume& volume, FileId file, FileId directory, DWORD access, bool backupIntent,
                         DWORD& granted) {
  Bytes descriptor;
  if (const DWORD error = volume.volume->GetSecurity(file, descriptor)) return error;
  Token& token = machine_.EffectiveToken();
  const DWORD error = CheckAccess(token, descriptor, access, kFileMapping, backupIntent, std::nullopt, granted);
  if (error != win32::ERROR_ACCESS_DENIED || directory == 0) return error;
  // The directory's rights can add to the file's; they are read only when the file's own do not do.
  Bytes parent;
  if (const DWORD unread = volume.volume->GetSecurity(directory, parent)) return unread;
  return CheckAccess(token, descriptor, access, kFileMapping, backupIntent, ByteView(parent), granted);
}

// Each stream is shared for itself, with one exception: the unnamed one stands for the whole file where it is to be
// deleted, so nobody opens that for DELETE while another stream is open without FILE_SHARE_DELETE, nor the other way
// round. What the unnamed stream's own opens share does not matter to the others.
DWORD FileService::ShareConflict(const Location& location, DWORD access, DWORD share) const {
  if (!CountsForSharing(access)) return 0;
  for (const FileObject* const open : opens_) {
    if (open->file != location.file || open->volume != location.volume || !CountsForSharing(open->granted)) continue;
    const bool conflict = EqualNames(*location.volume->volume, open->stream, location.stream)
                              ? Excludes(access, open->share) || Excludes(open->granted, share)
                              : (location.stream.empty() && Excludes(access & win32::DELETE, open->share)) ||
                                    (open->stream.empty() && Excludes(open->granted & win32::DELETE, share));
    if (conflict) return win32::ERROR_SHARING_VIOLATION;
  }
  return 0;
}

DWORD FileService::OpenItself(std::u16string_view path, DWORD access, std::shared_ptr<FileObject>& object,
                              bool wantDirectory) {
  OpenRequest request;
  request.path = path;
  request.access = access;
  request.share = kAnyShare;
  request.flags = win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT;
  request.wantDirectory = wantDirectory;
  return Open(request, object);
}

DWORD FileService::OpenAt(const Location& location, const OpenRequest& request, bool overwrite,
                          std::shared_ptr<FileObject>& object) {
  const FileInfo& info = location.info;
  const bool isDirectory = (info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) && location.stream.empty();
  const bool isReadOnly =
      !(info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) && (info.attributes & win32::FILE_ATTRIBUTE_READONLY);
  DWORD access = request.access;
  if (request.flags & win32::FILE_FLAG_DELETE_ON_CLOSE) {
    access |= win32::DELETE;
    if (isReadOnly) return win32::ERROR_ACCESS_DENIED;
  }
  const DWORD extra =
      overwrite ? win32::FILE_WRITE_DATA | win32::FILE_WRITE_ATTRIBUTES | win32::FILE_WRITE_EA : DWORD{0};
  if (isReadOnly && !(access & win32::MAXIMUM_ALLOWED) && (Mapped(access | extra) & kDeniedByReadOnly))
    return win32::ERROR_ACCESS_DENIED;

  auto opened = std::make_shared<FileObject>();
  if (const DWORD error = Check(*location.volume, location.file, location.directory, access | extra,
                                HasBackupIntent(request), opened->granted))
    return error;
  if (isReadOnly) opened->granted &= ~kDeniedByReadOnly;
  if (const DWORD error = ShareConflict(location, opened->granted, request.share)) return error;
  if (extra != 0 && !(access & win32::MAXIMUM_ALLOWED)) opened->granted &= ~extra | Mapped(access);

  opened->file = location.file;
  if (location.directory != 0) {
    FileId same = 0;
    if (const DWORD error = location.volume->volume->Lookup(location.directory, location.name, same, &opened->name))
      return error;
  }
  opened->isDirectory = isDirectory;
  object = Register(std::move(opened), location, request);
  return 0;
}

DWORD FileService::CreateAt(const Location& location, const OpenRequest& request, std::shared_ptr<FileObject>& object) {
  if (request.access & win32::ACCESS_SYSTEM_SECURITY) {
    const Token& token = machine_.EffectiveToken();
    const bool may = token.PrivilegeEnabled(u"SeSecurityPrivilege") ||
                     (HasBackupIntent(request) && token.PrivilegeEnabled(u"SeRestorePrivilege"));
    if (!may) return win32::ERROR_PRIVILEGE_NOT_HELD;
  }
  Volume& volume = *location.volume->volume;
  DWORD granted = 0;
  const DWORD right = request.createDirectory ? win32::FILE_APPEND_DATA
                                              : win32::FILE_WRITE_DATA;  // FILE_ADD_SUBDIRECTORY, FILE_ADD_FILE
  if (const DWORD error = Check(*location.volume, location.directory, 0, right, HasBackupIntent(request), granted))
    return error;
  if (IsDeletePending(*location.volume, location.directory)) return win32::ERROR_ACCESS_DENIED;
  if (const DWORD error = CheckCreator(machine_.EffectiveToken(), request.descriptor)) return error;

  Bytes parent;
  if (const DWORD error = volume.GetSecurity(location.directory, parent)) return error;
  const Bytes descriptor = NewObjectDescriptor(machine_.EffectiveToken(), ByteView(parent), request.descriptor,
                                               request.createDirectory, kFileMapping);
  DWORD attributes = request.attributes & kSettable;
  if (!request.createDirectory) attributes |= win32::FILE_ATTRIBUTE_ARCHIVE;
  FileId file = 0;
  if (const DWORD error = volume.Create(location.directory, location.name, request.createDirectory, attributes,
                                        descriptor, machine_.Now(), file))
    return error;
  TouchDirectory(*location.volume, location.directory);
  if (!location.stream.empty())
    if (const DWORD error = volume.CreateStream(file, location.stream)) return error;

  // Who makes a file has whatever it asked for: the new descriptor is for those who come later.
  auto opened = std::make_shared<FileObject>();
  opened->granted = Mapped(request.access);
  opened->file = file;
  opened->name = location.name;
  opened->isDirectory = request.createDirectory && location.stream.empty();
  object = Register(std::move(opened), location, request);
  return 0;
}

// The data goes, named streams and a link with it (unless only a stream was opened); CREATE_ALWAYS also sets the
// attributes.
DWORD FileService::Overwrite(FileObject& object, const FileInfo& info, DWORD attributes) {
  Volume& volume = *object.volume->volume;
  if (object.stream.empty()) {
    if (info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) {
      if (const DWORD error = volume.RemoveReparse(object.file)) return error;
      ForgetPaths();
    }
    std::vector<StreamInfo> streams;
    if (const DWORD error = volume.Streams(object.file, streams)) return error;
    for (const StreamInfo& stream : streams)
      if (!stream.name.empty())
        if (const DWORD error = volume.RemoveStream(object.file, stream.name)) return error;
    const DWORD kept = info.attributes & ~win32::FILE_ATTRIBUTE_NORMAL;
    if (const DWORD error =
            volume.SetAttributes(object.file, (kept | attributes | win32::FILE_ATTRIBUTE_ARCHIVE) & kSettable))
      return error;
  }
  if (const DWORD error = volume.SetStreamSize(object.file, object.stream, 0)) return error;
  NoteWrite(object);
  return 0;
}

DWORD FileService::Open(const OpenRequest& request, std::shared_ptr<FileObject>& object, bool* existed) {
  if (existed) *existed = false;
  Location location;
  const bool followLast = !(request.flags & win32::FILE_FLAG_OPEN_REPARSE_POINT);
  if (const DWORD error = Resolve(request.path, false, location)) return error;
  if (followLast && location.file != 0 && (location.info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT)) {
    // Who may not list a link does not list through it either; names behind it are reached all the same.
    DWORD granted = 0;
    if (Mapped(request.access & ~win32::MAXIMUM_ALLOWED) & win32::FILE_READ_DATA)
      if (const DWORD error = Check(*location.volume, location.file, location.directory, win32::FILE_READ_DATA,
                                    HasBackupIntent(request), granted))
        return error;
    if (const DWORD error = Resolve(request.path, true, location)) return error;
  }
  const bool mustBeNew = request.disposition == win32::CREATE_NEW;
  const bool mayCreate =
      mustBeNew || request.disposition == win32::CREATE_ALWAYS || request.disposition == win32::OPEN_ALWAYS;

  if (location.file == 0) {
    if (!mayCreate) return win32::ERROR_FILE_NOT_FOUND;
    if (location.trailingBackslash && !request.createDirectory) return win32::ERROR_INVALID_NAME;
    return CreateAt(location, request, object);
  }
  const bool isDirectory = (location.info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (isDirectory && location.hasStream && location.stream.empty())
    return win32::ERROR_ACCESS_DENIED;  // a directory has no unnamed stream
  if (!location.stream.empty()) {
    std::uint64_t size = 0;
    const DWORD error = location.volume->volume->StreamSize(location.file, location.stream, size);
    if (error != 0 && error != win32::ERROR_FILE_NOT_FOUND) return error;
    if (error != 0) {
      if (!mayCreate) return error;
      DWORD granted = 0;
      if (const DWORD denied = Check(*location.volume, location.file, location.directory, win32::FILE_WRITE_DATA,
                                     HasBackupIntent(request), granted))
        return denied;
      if (const DWORD full = location.volume->volume->CreateStream(location.file, location.stream)) return full;
      return OpenAt(location, request, false, object);
    }
  }
  if (existed) *existed = true;
  const bool opensDirectory = isDirectory && location.stream.empty();
  // A directory of that name is reported before its existence is: the caller asked for a file.
  if (opensDirectory && !request.createDirectory && !request.wantDirectory && !HasBackupIntent(request))
    return location.trailingBackslash ? win32::ERROR_PATH_NOT_FOUND : win32::ERROR_ACCESS_DENIED;
  if (IsDeletePending(location)) return win32::ERROR_ACCESS_DENIED;
  if (mustBeNew) return request.createDirectory ? win32::ERROR_ALREADY_EXISTS : win32::ERROR_FILE_EXISTS;
  if (request.wantDirectory && !opensDirectory) return win32::ERROR_DIRECTORY;
  const bool overwrite = Overwrites(request.disposition);
  if (overwrite && opensDirectory) return win32::ERROR_ACCESS_DENIED;
  if (request.disposition == win32::CREATE_ALWAYS && location.stream.empty()) {
    // A hidden or system file is not replaced by one that is not.
    constexpr DWORD kGuarded = win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM;
    if (location.info.attributes & kGuarded & ~request.attributes) return win32::ERROR_ACCESS_DENIED;
  }
  if (const DWORD error = OpenAt(location, request, overwrite, object)) return error;
  if (!overwrite) return 0;
  FileInfo kept = location.info;
  if (request.disposition == win32::CREATE_ALWAYS) kept.attributes &= win32::FILE_ATTRIBUTE_REPARSE_POINT;
  const DWORD error = Overwrite(*object, kept, request.disposition == win32::CREATE_ALWAYS ? request.attributes : 0);
  if (error != 0) object.reset();
  return error;
}

std::shared_ptr<FileObject> FileService::OpenForeign(DWORD processId, std::u16string_view path, DWORD access,
                                                     DWORD share) {
  std::shared_ptr<FileObject> object;
  OpenRequest request;
  request.path = path;
  request.access = access;
  request.share = share;
  request.flags = win32::FILE_FLAG_BACKUP_SEMANTICS;
  if (Open(request, object) != 0) return nullptr;
  object->processId = processId;
  AddProcess(machine_, processId);
  machine_.objects.Insert(object, processId, object->granted);
  return object;
}

void FileService::CloseForeign(const std::shared_ptr<FileObject>& object) {
  for (const auto& [value, entry] : machine_.objects.all()) {
    if (entry.object != object) continue;
    machine_.objects.Close(reinterpret_cast<win32::HANDLE>(value), entry.processId);
    return;
  }
}

}  // namespace emulated
