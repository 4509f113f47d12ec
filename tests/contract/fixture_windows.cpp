#ifdef _WIN32

#include "contract/fixture.h"

#include <windows.h>
// windows.h rewrites the names of two of ours.
#undef CreateSymbolicLink
#undef GetFinalPathNameByHandle

#include <atomic>
#include <stdexcept>

#include "contract_check/asked.h"

namespace contract {

namespace {

std::u16string Text(const std::wstring& text) { return reinterpret_cast<const char16_t*>(text.c_str()); }

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
  const std::wstring path = check::asked.folder + L"\\" + std::to_wstring(++number);
  if (!::CreateDirectoryW(path.c_str(), nullptr))
    throw std::runtime_error("the scratch folder cannot be made: error " + std::to_string(::GetLastError()));
  return Text(path);
}

std::u16string OtherVolume() { return Text(check::asked.other); }
bool OnWine() { return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }
win32::CreateSymbolicLinkWFunction CreateSymbolicLink() {
  return Bound<win32::CreateSymbolicLinkWFunction>("CreateSymbolicLinkW");
}
win32::GetFinalPathNameByHandleWFunction GetFinalPathNameByHandle() {
  return Bound<win32::GetFinalPathNameByHandleWFunction>("GetFinalPathNameByHandleW");
}

}  // namespace contract

#endif
