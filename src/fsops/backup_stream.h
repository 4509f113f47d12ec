// The two ends of a backup copy: files that keep their last-access time, the contexts of BackupRead and BackupWrite,
// and the header of a stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "win32/file.h"
#include "win32/handle.h"

// A file whose last-access time the use of this handle does not change: the file system is told so before it is closed.
// The end of a copy leaves the last error as it was: it tells why the copy has failed.
struct AccessTimeKeepingTraits : win32::FileHandleTraits {
  static void Close(Type handle) {
    const win32::LastErrorKept error;
    const win32::FILETIME keep{0xFFFFFFFF, 0xFFFFFFFF};
    win32::SetFileTime(handle, nullptr, &keep, nullptr);
    win32::CloseHandle(handle);
  }
};
using AccessTimeKeepingFile = win32::UniqueHandle<AccessTimeKeepingTraits>;

// The header of a stream without its name.
inline constexpr win32::DWORD kStreamHeaderSize = 20;
static_assert(offsetof(win32::WIN32_STREAM_ID, cStreamName) == kStreamHeaderSize);

inline win32::WIN32_STREAM_ID StreamHeaderAt(const win32::BYTE* bytes) {
  win32::WIN32_STREAM_ID header{};
  std::memcpy(&header, bytes, kStreamHeaderSize);
  return header;
}
// False, with a last error: what a backup gave is not as it should be, and no call has failed that would say so.
inline bool IsInvalidStream() {
  win32::SetLastError(win32::ERROR_INVALID_DATA);
  return false;
}
inline std::uint64_t SizeOf(const win32::WIN32_STREAM_ID& header) {
  return static_cast<std::uint64_t>(header.Size.QuadPart);
}

// A backup being read from, or written to, an open file. The file outlives it.
class BackupReader {
 public:
  explicit BackupReader(const AccessTimeKeepingFile& file) : file_(file.get()) {}
  ~BackupReader() {
    if (!context_) return;
    const win32::LastErrorKept error;
    win32::DWORD count = 0;
    win32::BackupRead(file_, nullptr, 0, &count, win32::TRUE, win32::TRUE, &context_);
  }
  BackupReader(const BackupReader&) = delete;
  BackupReader& operator=(const BackupReader&) = delete;

  // False when the call failed. `count`: what was read; 0 at the end.
  bool Read(win32::BYTE* buffer, win32::DWORD wanted, win32::DWORD& count) {
    count = 0;
    return win32::BackupRead(file_, buffer, wanted, &count, win32::FALSE, win32::TRUE, &context_) != win32::FALSE;
  }

 private:
  win32::HANDLE file_;
  void* context_ = nullptr;
};

class BackupWriter {
 public:
  explicit BackupWriter(const AccessTimeKeepingFile& file) : file_(file.get()) {}
  ~BackupWriter() {
    if (!context_) return;
    const win32::LastErrorKept error;
    win32::DWORD count = 0;
    win32::BackupWrite(file_, nullptr, 0, &count, win32::TRUE, win32::TRUE, &context_);
  }
  BackupWriter(const BackupWriter&) = delete;
  BackupWriter& operator=(const BackupWriter&) = delete;

  // False, with the last error, when the call failed or wrote less than all.
  bool Write(win32::BYTE* buffer, win32::DWORD count) {
    win32::DWORD written = 0;
    if (!win32::BackupWrite(file_, buffer, count, &written, win32::FALSE, win32::TRUE, &context_)) return false;
    if (written != count) win32::SetLastError(win32::ERROR_WRITE_FAULT);
    return written == count;
  }

 private:
  win32::HANDLE file_;
  void* context_ = nullptr;
};
