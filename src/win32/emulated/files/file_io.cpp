// Reading, writing, positions and sizes.
#include <limits>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/null_device.h"
#include "win32/emulated/system/console.h"
#include "win32/emulated/system/pipes.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr auto kLargestSize = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

DWORD Read(FileObject& file, std::span<std::uint8_t> to, DWORD& done) {
  if (file.isDirectory) return win32::ERROR_INVALID_FUNCTION;
  if (!(file.granted & win32::FILE_READ_DATA)) return win32::ERROR_ACCESS_DENIED;
  std::size_t read = 0;
  if (const DWORD error = file.volume->volume->Read(file.file, file.stream, file.position, to, read)) return error;
  file.position += read;
  file.accessed = true;
  done = static_cast<DWORD>(read);
  return 0;
}

DWORD Write(FileObject& file, ByteView from, DWORD& done) {
  if (file.isDirectory) return win32::ERROR_INVALID_FUNCTION;
  if (!(file.granted & (win32::FILE_WRITE_DATA | win32::FILE_APPEND_DATA))) return win32::ERROR_ACCESS_DENIED;
  Volume& volume = *file.volume->volume;
  std::uint64_t offset = file.position;
  if (!(file.granted & win32::FILE_WRITE_DATA))  // who may only append writes at the end, wherever the position is
    if (const DWORD error = volume.StreamSize(file.file, file.stream, offset)) return error;
  if (offset > kLargestSize - from.size()) return win32::ERROR_INVALID_PARAMETER;
  if (from.empty()) return 0;
  if (const DWORD error = volume.Write(file.file, file.stream, offset, from)) return error;
  file.position = offset + from.size();
  Machine::Current().files().NoteWrite(file);
  done = static_cast<DWORD>(from.size());
  return 0;
}

DWORD SizeOf(const FileObject& file, std::uint64_t& size) {
  size = 0;
  if (file.isDirectory) return 0;
  return file.volume->volume->StreamSize(file.file, file.stream, size);
}

}  // namespace

}  // namespace emulated

namespace win32 {

// Asynchronous opens do not exist here, so neither do OVERLAPPED requests.
BOOL ReadFile(HANDLE hFile, void* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead,
              OVERLAPPED* lpOverlapped) {
  WIN32_CALL(hFile, nNumberOfBytesToRead);
  if (call.Refused()) return FALSE;
  if (lpOverlapped || !lpNumberOfBytesRead) return call.Done(ERROR_INVALID_PARAMETER);
  *lpNumberOfBytesRead = 0;
  if (emulated::ObjectOf<emulated::NullDevice>(hFile)) return call.Done(0);
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  return call.Done(
      emulated::Read(*file, {static_cast<std::uint8_t*>(lpBuffer), nNumberOfBytesToRead}, *lpNumberOfBytesRead));
}

BOOL WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten,
               OVERLAPPED* lpOverlapped) {
  WIN32_CALL(hFile, nNumberOfBytesToWrite);
  if (call.Refused()) return FALSE;
  if (lpOverlapped || !lpNumberOfBytesWritten) return call.Done(ERROR_INVALID_PARAMETER);
  *lpNumberOfBytesWritten = 0;
  if (const auto console = emulated::ObjectOf<emulated::ConsoleObject>(hFile)) {
    console->Write({static_cast<const char*>(lpBuffer), nNumberOfBytesToWrite});
    *lpNumberOfBytesWritten = nNumberOfBytesToWrite;
    return call.Done(0);
  }
  if (emulated::ObjectOf<emulated::NullDevice>(hFile)) {
    *lpNumberOfBytesWritten = nNumberOfBytesToWrite;
    return call.Done(0);
  }
  if (const auto pipe = emulated::ObjectOf<emulated::PipeClient>(hFile)) {
    const DWORD error = pipe->Write({static_cast<const std::uint8_t*>(lpBuffer), nNumberOfBytesToWrite});
    if (error == 0) *lpNumberOfBytesWritten = nNumberOfBytesToWrite;
    return call.Done(error);
  }
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  return call.Done(emulated::Write(*file, {static_cast<const std::uint8_t*>(lpBuffer), nNumberOfBytesToWrite},
                                   *lpNumberOfBytesWritten));
}

// A directory's size is that of nothing: 0. A low half of all ones is told from a failure by the last error 0.
DWORD GetFileSize(HANDLE hFile, DWORD* lpFileSizeHigh) {
  WIN32_CALL(hFile);
  if (call.Refused()) return INVALID_FILE_SIZE;
  if (emulated::ObjectOf<emulated::NullDevice>(hFile)) return call.Return(DWORD{0});
  const auto file = emulated::FileOf(hFile);
  std::uint64_t size = 0;
  const DWORD error = file ? emulated::SizeOf(*file, size) : ERROR_INVALID_HANDLE;
  if (error != 0) {
    emulated::SetLastError(error);
    return call.Return(INVALID_FILE_SIZE);
  }
  if (lpFileSizeHigh) *lpFileSizeHigh = static_cast<DWORD>(size >> 32);
  const DWORD low = static_cast<DWORD>(size & 0xFFFFFFFF);
  if (low == INVALID_FILE_SIZE) emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(low);
}

DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG* lpDistanceToMoveHigh, DWORD dwMoveMethod) {
  WIN32_CALL(hFile, static_cast<DWORD>(lDistanceToMove), dwMoveMethod);
  if (call.Refused()) return INVALID_SET_FILE_POINTER;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(INVALID_SET_FILE_POINTER);
  };
  const auto file = emulated::FileOf(hFile);
  if (!file) return fail(ERROR_INVALID_HANDLE);
  std::uint64_t base = 0;
  if (dwMoveMethod == FILE_CURRENT) {
    base = file->position;
  } else if (dwMoveMethod == FILE_END) {
    if (const DWORD error = emulated::SizeOf(*file, base)) return fail(error);
  } else if (dwMoveMethod != FILE_BEGIN) {
    return fail(ERROR_INVALID_PARAMETER);
  }
  // With a high half the two are one signed number; without, the low half is signed by itself.
  std::int64_t distance = lDistanceToMove;
  if (lpDistanceToMoveHigh)
    distance = static_cast<std::int64_t>(
        (static_cast<std::uint64_t>(static_cast<std::uint32_t>(*lpDistanceToMoveHigh)) << 32) |
        static_cast<std::uint32_t>(lDistanceToMove));
  std::int64_t position = 0;
  if (__builtin_add_overflow(static_cast<std::int64_t>(base), distance, &position))
    return fail(ERROR_INVALID_PARAMETER);
  if (position < 0) return fail(ERROR_NEGATIVE_SEEK);
  if (!lpDistanceToMoveHigh && position > std::int64_t{0xFFFFFFFE}) return fail(ERROR_INVALID_PARAMETER);
  file->position = static_cast<std::uint64_t>(position);
  if (lpDistanceToMoveHigh) *lpDistanceToMoveHigh = static_cast<LONG>(position >> 32);
  const DWORD low = static_cast<DWORD>(position & 0xFFFFFFFF);
  if (low == INVALID_SET_FILE_POINTER) emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(low);
}

BOOL SetEndOfFile(HANDLE hFile) {
  WIN32_CALL(hFile);
  if (call.Refused()) return FALSE;
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (file->isDirectory) return call.Done(ERROR_INVALID_PARAMETER);
  if (!(file->granted & FILE_WRITE_DATA)) return call.Done(ERROR_ACCESS_DENIED);
  const DWORD error = file->volume->volume->SetStreamSize(file->file, file->stream, file->position);
  if (error == 0) emulated::Machine::Current().files().NoteWrite(*file);
  return call.Done(error);
}

// What a run has written is put on the disks as a whole when the workstation is closed; a part of it is not put down
// before the rest.
BOOL FlushFileBuffers(HANDLE hFile) {
  WIN32_CALL(hFile);
  if (call.Refused()) return FALSE;
  if (emulated::ObjectOf<emulated::ConsoleObject>(hFile)) return call.Done(0);
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  return call.Done(file->granted & (FILE_WRITE_DATA | FILE_APPEND_DATA) ? 0 : ERROR_ACCESS_DENIED);
}

}  // namespace win32
