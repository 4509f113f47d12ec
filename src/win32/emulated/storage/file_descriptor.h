// An open file of the host, and whole transfers at an offset.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "win32/emulated/bytes.h"

namespace emulated {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& from) noexcept : descriptor_(std::exchange(from.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& from) noexcept {
    std::swap(descriptor_, from.descriptor_);
    return *this;
  }
  ~FileDescriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

  // All bytes or false; the end of the file counts as a failure.
  bool ReadAt(std::uint64_t offset, std::span<std::uint8_t> to) const {
    while (!to.empty()) {
      const ssize_t done = pread(descriptor_, to.data(), to.size(), static_cast<off_t>(offset));
      if (done < 0 && errno == EINTR) continue;
      if (done <= 0) return false;
      to = to.subspan(static_cast<std::size_t>(done));
      offset += static_cast<std::uint64_t>(done);
    }
    return true;
  }
  bool WriteAt(std::uint64_t offset, ByteView from) const {
    while (!from.empty()) {
      const ssize_t done = pwrite(descriptor_, from.data(), from.size(), static_cast<off_t>(offset));
      if (done < 0 && errno == EINTR) continue;
      if (done <= 0) {
        LastWriteError() = errno;
        return false;
      }
      from = from.subspan(static_cast<std::size_t>(done));
      offset += static_cast<std::uint64_t>(done);
    }
    return true;
  }

  // Why a write failed last, in this process; 0 when none has. Who works through a volume hears of it as an error of
  // the volume, and has to tell the host's full disk from that.
  static std::atomic<int>& LastWriteError() {
    static std::atomic<int> error = 0;
    return error;
  }

 private:
  int descriptor_ = -1;
};

// To be read, without a trace of it in the time of the last access where Linux allows that (to the owner).
inline FileDescriptor OpenToRead(const std::filesystem::path& file, int flags = 0) {
  FileDescriptor opened(open(file.c_str(), O_RDONLY | O_NOATIME | O_CLOEXEC | flags));
  if (opened || errno != EPERM) return opened;
  return FileDescriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | flags));
}

// What is in a folder, in no order; nothing where it cannot be read. The same of its time.
inline std::vector<std::string> NamesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(fdopendir(OpenToRead(folder, O_DIRECTORY).release()), closedir);
  while (const dirent* const entry = directory ? readdir(directory.get()) : nullptr)
    if (const std::string_view name = entry->d_name; name != "." && name != "..") names.emplace_back(name);
  return names;
}

}  // namespace emulated
