// The border between our types and Windows' own: texts, handles and structures that are the same bytes under two names.
// layout_check.cpp proves that they are. Included after our headers and before nothing else, because it brings
// <windows.h>, whose macros bear the names of our constants.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace win32::native {

inline const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline wchar_t* Wide(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }
inline char16_t* Utf16(wchar_t* text) { return reinterpret_cast<char16_t*>(text); }

// A structure of ours as Windows' structure of the same layout; a handle of ours as Windows' typed handle.
template <typename WindowsType, typename Ours>
WindowsType* As(Ours* pointer) {
  static_assert(sizeof(WindowsType) == sizeof(Ours));
  return reinterpret_cast<WindowsType*>(pointer);
}
template <typename WindowsHandle>
WindowsHandle AsHandle(void* handle) {
  return static_cast<WindowsHandle>(handle);
}

}  // namespace win32::native
