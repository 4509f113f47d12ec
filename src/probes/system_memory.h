// Memory of VirtualAlloc, for what the system's tables are read into.
#pragma once

#include <utility>

#include "win32/process.h"

class SystemMemory {
 public:
  SystemMemory() = default;
  // Zeroed. Without memory when there is none: data() is null then, and size() 0.
  explicit SystemMemory(win32::DWORD size)
      : data_(win32::VirtualAlloc(nullptr, size, win32::MEM_COMMIT | win32::MEM_RESERVE, win32::PAGE_READWRITE)),
        size_(data_ ? size : 0) {}
  SystemMemory(SystemMemory&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  SystemMemory& operator=(SystemMemory&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~SystemMemory() {
    if (data_) win32::VirtualFree(data_, 0, win32::MEM_RELEASE);
  }

  const win32::BYTE* data() const { return static_cast<const win32::BYTE*>(data_); }
  win32::BYTE* data() { return static_cast<win32::BYTE*>(data_); }
  win32::DWORD size() const { return size_; }

 private:
  void* data_ = nullptr;
  win32::DWORD size_ = 0;
};
