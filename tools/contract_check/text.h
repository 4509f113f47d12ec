// Texts, files and the console of the check.
#pragma once

#include <string>
#include <string_view>

#include <windows.h>

namespace check {

std::string Utf8(std::wstring_view text);
std::wstring Wide(std::string_view utf8);
// "error 5 (Access is denied.)"
std::wstring ErrorText(DWORD error);
// Prints a line; on a console in its own letters, into a file as UTF-8.
void Say(std::string_view utf8);

// A handle of the kernel that is closed with its owner.
class Handle {
 public:
  explicit Handle(HANDLE handle = nullptr) : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  Handle(Handle&& other) noexcept : handle_(other.Release()) {}
  Handle& operator=(Handle&& other) noexcept {
    Close();
    handle_ = other.Release();
    return *this;
  }
  ~Handle() { Close(); }
  explicit operator bool() const { return handle_ != nullptr; }
  HANDLE get() const { return handle_; }
  void Close() {
    if (handle_) CloseHandle(handle_);
    handle_ = nullptr;
  }

 private:
  HANDLE Release() {
    const HANDLE handle = handle_;
    handle_ = nullptr;
    return handle;
  }
  HANDLE handle_;
};

// Puts lines into a file, each at once: what was written stays when the program ends here.
class LineFile {
 public:
  // A new file, or one over an old one.
  bool Open(const std::wstring& path);
  void Line(std::string_view utf8);
  bool isOpen() const { return static_cast<bool>(file_); }
  bool isFailed() const { return isFailed_; }

 private:
  Handle file_;
  bool isFailed_ = false;
};

// All of a file; empty when it cannot be read.
std::string ReadAll(const std::wstring& path);

}  // namespace check
