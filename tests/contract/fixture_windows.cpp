#ifdef _WIN32

#include "contract/fixture.h"

#include <windows.h>
// windows.h rewrites the names of two of ours.
#undef CreateSymbolicLink
#undef GetFinalPathNameByHandle

#include <atomic>

namespace contract {

namespace {

std::u16string Text(const wchar_t* text) { return reinterpret_cast<const char16_t*>(text); }

// GetProcAddress answers with a function of no type; memcpy is the cast that no warning is about.
template <typename Function>
Function Bound(const char* name) {
  const FARPROC found = ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), name);
  Function function = nullptr;
  static_assert(sizeof function == sizeof found);
  __builtin_memcpy(&function, &found, sizeof function);
  return function;
}

}  // namespace

std::u16string Scratch() {
  static std::atomic<unsigned> number{0};
  wchar_t temporary[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temporary);
  std::u16string path = Text(temporary) + u"contract-";
  for (const char digit : std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++number))
    path += static_cast<char16_t>(digit);
  ::CreateDirectoryW(reinterpret_cast<const wchar_t*>(path.c_str()), nullptr);
  return path;
}

std::u16string OtherVolume() { return {}; }
bool OnWine() { return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }
win32::CreateSymbolicLinkWFunction CreateSymbolicLink() {
  return Bound<win32::CreateSymbolicLinkWFunction>("CreateSymbolicLinkW");
}
win32::GetFinalPathNameByHandleWFunction GetFinalPathNameByHandle() {
  return Bound<win32::GetFinalPathNameByHandleWFunction>("GetFinalPathNameByHandleW");
}

}  // namespace contract

#endif
