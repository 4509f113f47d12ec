#include "win32/emulated/files/copy_file.h"

#include <algorithm>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::size_t kPiece = 1024 * 1024;
constexpr DWORD kCopiedAttributes = win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                    win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE |
                                    win32::FILE_ATTRIBUTE_TEMPORARY | win32::FILE_ATTRIBUTE_OFFLINE |
                                    win32::FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

DWORD OpenSource(std::u16string_view path, bool linkItself, std::shared_ptr<FileObject>& source) {
  OpenRequest request;
  request.path = path;
  request.access = win32::GENERIC_READ | win32::SYNCHRONIZE | win32::FILE_READ_ATTRIBUTES;
  request.share = win32::FILE_SHARE_READ | win32::FILE_SHARE_DELETE;
  if (linkItself) request.flags = win32::FILE_FLAG_OPEN_REPARSE_POINT;
  FileService& files = Machine::Current().files();
  DWORD error = files.Open(request, source);
  if (error == win32::ERROR_SHARING_VIOLATION) {  // somebody is writing: what is there now is copied
    request.share |= win32::FILE_SHARE_WRITE;
    error = files.Open(request, source);
  }
  return error;
}

// DELETE is for taking an unfinished copy back. Who may not delete the target, or finds it open, does without; what
// others hold open is replaced when they share writing.
DWORD OpenTarget(std::u16string_view path, bool failIfExists, std::shared_ptr<FileObject>& target) {
  FileService& files = Machine::Current().files();
  OpenRequest request;
  request.path = path;
  request.access = win32::GENERIC_WRITE | win32::SYNCHRONIZE | win32::FILE_READ_ATTRIBUTES | win32::DELETE;
  request.disposition = failIfExists ? win32::CREATE_NEW : win32::CREATE_ALWAYS;
  DWORD error = files.Open(request, target);
  if (error == win32::ERROR_ACCESS_DENIED || error == win32::ERROR_SHARING_VIOLATION) {
    request.access &= ~DWORD{win32::DELETE};
    if (error == win32::ERROR_SHARING_VIOLATION) request.share = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE;
    error = files.Open(request, target);
  }
  return error;
}

// The streams of a file on their way, and who is asked whether they are to go on.
struct Streams {
  const FileObject &from, &to;
  const CopyGoesOn& goesOn;
  std::uint64_t total = 0, transferred = 0;

  bool GoOn() const { return !goesOn || goesOn(total, transferred); }
};

DWORD CopyStream(Streams& streams, const StreamInfo& stream) {
  const FileObject &from = streams.from, &to = streams.to;
  Volume &source = *from.volume->volume, &target = *to.volume->volume;
  if (!stream.name.empty())
    if (const DWORD error = target.CreateStream(to.file, stream.name)) return error;
  if (!streams.GoOn()) return win32::ERROR_REQUEST_ABORTED;
  Bytes piece(static_cast<std::size_t>(std::min<std::uint64_t>(stream.size, kPiece)));
  for (std::uint64_t offset = 0; offset < stream.size;) {
    std::size_t read = 0;
    if (const DWORD error = source.Read(from.file, stream.name, offset, piece, read)) return error;
    if (read == 0) return win32::ERROR_HANDLE_EOF;
    if (const DWORD error = target.Write(to.file, stream.name, offset, ByteView(piece).first(read))) return error;
    offset += read;
    streams.transferred += read;
    if (!streams.GoOn()) return win32::ERROR_REQUEST_ABORTED;
  }
  return 0;
}

DWORD CopyContent(const FileObject& from, const FileObject& to, const CopyGoesOn& goesOn) {
  Volume &source = *from.volume->volume, &target = *to.volume->volume;
  std::vector<StreamInfo> infos;
  if (const DWORD error = source.Streams(from.file, infos)) return error;
  Streams streams{from, to, goesOn};
  for (const StreamInfo& stream : infos) streams.total += stream.size;
  for (const StreamInfo& stream : infos)
    if (const DWORD error = CopyStream(streams, stream)) return error;
  std::vector<ExtendedAttribute> extended;
  if (const DWORD error = source.GetExtendedAttributes(from.file, extended)) return error;
  return extended.empty() ? 0 : target.SetExtendedAttributes(to.file, extended);
}

DWORD CopyLink(const FileObject& from, const FileObject& to) {
  Bytes data;
  if (const DWORD error = from.volume->volume->GetReparse(from.file, data)) return error;
  return to.volume->volume->SetReparse(to.file, data);
}

}  // namespace

DWORD CopyWholeFile(std::u16string_view from, std::u16string_view to, bool failIfExists, bool linkItself,
                    const CopyGoesOn& goesOn) {
  std::shared_ptr<FileObject> source, target;
  if (const DWORD error = OpenSource(from, linkItself, source)) return error;
  FileService& files = Machine::Current().files();
  DosDevice device{};
  if (const DWORD error = files.FindDevice(to, device)) return error;
  if (device == DosDevice::Null) return 0;  // it takes everything and keeps nothing
  // "If the destination file already exists and has the FILE_ATTRIBUTE_HIDDEN or FILE_ATTRIBUTE_READONLY attribute set,
  // this function fails with ERROR_ACCESS_DENIED" (CopyFile's documentation); the open below sees to it. Onto itself it
  // is the sharing that fails.
  Location place;
  if (const DWORD error = files.Resolve(to, true, place)) return error;
  if (place.file == source->file && place.volume == source->volume && place.stream == source->stream && !failIfExists)
    return win32::ERROR_SHARING_VIOLATION;
  if (const DWORD error = OpenTarget(to, failIfExists, target)) return error;

  FileInfo info;
  DWORD error = source->volume->volume->Stat(source->file, info);
  const bool isLink = linkItself && (info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT);
  if (error == 0) error = isLink ? CopyLink(*source, *target) : CopyContent(*source, *target, goesOn);
  Volume& volume = *target->volume->volume;
  if (error == 0)
    error = volume.SetAttributes(target->file, (info.attributes & kCopiedAttributes) | win32::FILE_ATTRIBUTE_ARCHIVE);
  const FileTime now = Machine::Current().Now();
  if (error == 0) error = volume.SetTimes(target->file, {.lastWrite = info.lastWrite, .change = now});
  target->keepLastWrite = true;
  source->accessed = true;
  if (error != 0 && (target->granted & win32::DELETE)) files.MarkForDeletion(*target);
  return error;
}

}  // namespace emulated

namespace win32 {

BOOL CopyFileExW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName,
                 LPPROGRESS_ROUTINE lpProgressRoutine, void* lpData, BOOL* /*pbCancel*/, DWORD dwCopyFlags) {
  WIN32_CALL(lpExistingFileName, lpNewFileName, dwCopyFlags);
  if (call.Refused()) return FALSE;
  if (!lpExistingFileName || !lpNewFileName) return call.Done(ERROR_PATH_NOT_FOUND);
  // The program's own part: it makes calls like any other.
  emulated::CopyGoesOn goesOn;
  if (lpProgressRoutine)
    goesOn = [&](std::uint64_t total, std::uint64_t transferred) {
      const emulated::Call::Pause pause(call);
      const LARGE_INTEGER all{static_cast<LONGLONG>(total)}, done{static_cast<LONGLONG>(transferred)};
      return lpProgressRoutine(all, done, all, done, 1, 0, nullptr, nullptr, lpData) == PROGRESS_CONTINUE;
    };
  const DWORD error = emulated::CopyWholeFile(lpExistingFileName, lpNewFileName,
                                              dwCopyFlags == COPY_FILE_FAIL_IF_EXISTS, false, goesOn);
  emulated::SetLastError(error);  // 0, too
  return call.Done(error);
}

}  // namespace win32
