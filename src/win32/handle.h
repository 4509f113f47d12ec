// Owning handles: each closes what it holds, once, with the call that its kind needs.
#pragma once

#include <utility>

#include "win32/file.h"
#include "win32/internet.h"
#include "win32/registry.h"
#include "win32/security.h"
#include "win32/service.h"
#include "win32/system.h"

namespace win32 {

// Leaves the last error as it was, whatever is called meanwhile: it tells of a call before that.
class LastErrorKept {
 public:
  LastErrorKept() : error_(GetLastError()) {}
  ~LastErrorKept() { SetLastError(error_); }
  LastErrorKept(const LastErrorKept&) = delete;
  LastErrorKept& operator=(const LastErrorKept&) = delete;

 private:
  const DWORD error_;
};

// Traits give the handle type, the value that means "none" and the closing call.
template <typename Traits>
class UniqueHandle {
 public:
  using Type = typename Traits::Type;

  UniqueHandle() = default;
  explicit UniqueHandle(Type handle) : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { reset(); }

  Type get() const { return handle_; }
  explicit operator bool() const { return Traits::IsValid(handle_); }
  Type release() { return std::exchange(handle_, Traits::None()); }
  void reset(Type handle = Traits::None()) {
    const Type old = std::exchange(handle_, handle);
    if (Traits::IsValid(old)) Traits::Close(old);
  }
  // For calls that give the handle through a pointer; what was held before is closed.
  Type* put() {
    reset();
    return &handle_;
  }

 private:
  Type handle_ = Traits::None();
};

// A handle of CreateFileW is invalid as -1; some of our own openers also answer null.
struct FileHandleTraits {
  using Type = HANDLE;
  static Type None() { return INVALID_HANDLE_VALUE; }
  static bool IsValid(Type handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }
  static void Close(Type handle) { CloseHandle(handle); }
};

struct FindHandleTraits : FileHandleTraits {
  static void Close(Type handle) { FindClose(handle); }
};

struct KernelHandleTraits {
  using Type = HANDLE;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { CloseHandle(handle); }
};

struct KeyHandleTraits {
  using Type = HKEY;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { RegCloseKey(handle); }
};

struct ServiceHandleTraits {
  using Type = SC_HANDLE;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { CloseServiceHandle(handle); }
};

struct LibraryTraits {
  using Type = HMODULE;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { FreeLibrary(handle); }
};

struct LocalMemoryTraits {
  using Type = HLOCAL;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { LocalFree(handle); }
};

struct InternetHandleTraits {
  using Type = HINTERNET;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { InternetCloseHandle(handle); }
};

struct SidTraits {
  using Type = PSID;
  static Type None() { return nullptr; }
  static bool IsValid(Type handle) { return handle != nullptr; }
  static void Close(Type handle) { FreeSid(handle); }
};

using UniqueFile = UniqueHandle<FileHandleTraits>;
using UniqueFind = UniqueHandle<FindHandleTraits>;
using UniqueKernelHandle = UniqueHandle<KernelHandleTraits>;
using UniqueKey = UniqueHandle<KeyHandleTraits>;
using UniqueService = UniqueHandle<ServiceHandleTraits>;
using UniqueLibrary = UniqueHandle<LibraryTraits>;
using UniqueLocalMemory = UniqueHandle<LocalMemoryTraits>;
using UniqueInternet = UniqueHandle<InternetHandleTraits>;
using UniqueSid = UniqueHandle<SidTraits>;

// COM for this thread, apartment threaded, for as long as the object lives.
class ComApartment {
 public:
  ComApartment() : result_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
  ~ComApartment() {
    if (result_ == S_OK || result_ == S_FALSE) CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  const HRESULT result_;
};

}  // namespace win32
