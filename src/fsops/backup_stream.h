// The two ends of a backup copy: files that keep their last-access time, the contexts of BackupRead and BackupWrite,
// and the header of a stream.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "report/only_looks.h"
#include "win32/file.h"
#include "win32/handle.h"

// A file whose last-access time the use of this handle does not change: the file system is told so before it is closed.
// The end of a copy leaves the last error as it was: it tells why the copy has failed.
struct AccessTimeKeepingTraits : win32::FileHandleTraits {
  static void Close(Type handle) {
    const win32::LastErrorKept error;
    const win32::FILETIME keep{0xFFFFFFFF, 0xFFFFFFFF};
    if (!OnlyLooks::Current()) win32::SetFileTime(handle, nullptr, &keep, nullptr);
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

// The size of the descriptor that follows; 0 when the stream is another one, or no descriptor can be that large.
inline win32::DWORD DescriptorSize(const win32::WIN32_STREAM_ID& header) {
  constexpr win32::DWORD kSmallest = 20, kLargest = 0x40000;  // its fixed part; four parts of at most 64 KiB each
  const bool isDescriptor = header.dwStreamId == win32::BACKUP_SECURITY_DATA && header.dwStreamNameSize == 0 &&
                            SizeOf(header) >= kSmallest && SizeOf(header) <= kLargest;
  return isDescriptor ? static_cast<win32::DWORD>(SizeOf(header)) : 0;
}

// Picks the descriptor, the first stream of a backup, out of the pieces in which that is read.
class FirstDescriptor {
 public:
  void Take(const win32::BYTE* bytes, win32::DWORD count) {
    while (count > 0 && head_.size() < Wanted()) {
      const auto taken = std::min<std::size_t>(count, Wanted() - head_.size());
      head_.insert(head_.end(), bytes, bytes + taken);
      bytes += taken;
      count -= static_cast<win32::DWORD>(taken);
    }
  }
  // Empty when it has not come, or not whole.
  std::vector<win32::BYTE> Get() const {
    const bool whole = head_.size() > kStreamHeaderSize && head_.size() == Wanted();
    return whole ? std::vector<win32::BYTE>(head_.begin() + kStreamHeaderSize, head_.end())
                 : std::vector<win32::BYTE>();
  }

 private:
  std::size_t Wanted() const {
    return head_.size() < kStreamHeaderSize ? kStreamHeaderSize
                                            : kStreamHeaderSize + DescriptorSize(StreamHeaderAt(head_.data()));
  }
  std::vector<win32::BYTE> head_;
};

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
