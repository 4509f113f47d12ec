#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::size_t kCopyPiece = 256 * 1024;

DWORD CopyStream(const Location& from, const Location& to, const StreamInfo& stream) {
  if (const DWORD error = to.volume->volume->CreateStream(to.file, stream.name)) return error;
  Bytes piece(kCopyPiece);
  for (std::uint64_t offset = 0; offset < stream.size;) {
    std::size_t read = 0;
    if (const DWORD error = from.volume->volume->Read(from.file, stream.name, offset, piece, read)) return error;
    if (read == 0) return win32::ERROR_HANDLE_EOF;
    if (const DWORD error = to.volume->volume->Write(to.file, stream.name, offset, ByteView(piece).first(read)))
      return error;
    offset += read;
  }
  return 0;
}

// Attributes, extended attributes and named streams; the descriptor is the new directory's own.
DWORD CopyFromTemplate(const Location& from, const Location& to, DWORD attributes) {
  std::vector<StreamInfo> streams;
  if (const DWORD error = from.volume->volume->Streams(from.file, streams)) return error;
  for (const StreamInfo& stream : streams)
    if (!stream.name.empty())
      if (const DWORD error = CopyStream(from, to, stream)) return error;
  std::vector<ExtendedAttribute> extended;
  if (const DWORD error = from.volume->volume->GetExtendedAttributes(from.file, extended)) return error;
  if (!extended.empty())
    if (const DWORD error = to.volume->volume->SetExtendedAttributes(to.file, extended)) return error;
  return to.volume->volume->SetAttributes(to.file, attributes);
}

}  // namespace

}  // namespace emulated

namespace win32 {

// A template that is a reparse point is refused: a copy of its name surrogate would be a second mount point or link.
BOOL CreateDirectoryExW(const char16_t* lpTemplateDirectory, const char16_t* lpNewDirectory,
                        SECURITY_ATTRIBUTES* lpSecurityAttributes) {
  WIN32_CALL(lpTemplateDirectory, lpNewDirectory);
  if (call.Refused()) return FALSE;
  if (!lpTemplateDirectory || !lpNewDirectory) return call.Done(ERROR_PATH_NOT_FOUND);
  emulated::FileService& files = emulated::Machine::Current().files();
  emulated::Location from;
  if (const DWORD error = files.Resolve(lpTemplateDirectory, false, from)) return call.Done(error);
  if (from.file == 0) return call.Done(ERROR_FILE_NOT_FOUND);
  const DWORD attributes = from.info.attributes;
  if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return call.Done(ERROR_DIRECTORY);
  if (!CreateDirectoryW(lpNewDirectory, lpSecurityAttributes)) return call.Done(emulated::LastError());
  emulated::Location to;
  DWORD error = files.Resolve(lpNewDirectory, false, to);
  // An encrypted directory can only be made where the encrypting file system is (see EncryptFileW).
  if (error == 0 && (attributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_ENCRYPTED)))
    error = ERROR_NOT_SUPPORTED;
  if (error == 0) error = emulated::CopyFromTemplate(from, to, attributes);
  if (error != 0) RemoveDirectoryW(lpNewDirectory);
  return call.Done(error);
}

}  // namespace win32
