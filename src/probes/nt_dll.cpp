#include "probes/nt_dll.h"

#include <cstdint>
#include <cstring>

#include "probes/windows_version.h"
#include "win32/system.h"

namespace {

template <typename Function>
bool Find(win32::HMODULE module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(win32::GetProcAddress(module, name));
  return function != nullptr;
}

}  // namespace

INtDll& INtDll::Get() {
  static INtDll ntDll;
  return ntDll;
}

bool INtDll::Bind() {
  if (bound_) return true;
  const win32::HMODULE module = win32::GetModuleHandleW(u"ntdll.dll");
  if (!module) return false;
  bound_ = Find(module, "NtQuerySystemInformation", NtQuerySystemInformation) &&
           Find(module, "NtQueryObject", NtQueryObject) &&
           Find(module, "NtQueryInformationThread", NtQueryInformationThread) &&
           Find(module, "NtQueryInformationFile", NtQueryInformationFile) &&
           Find(module, "NtQueryInformationProcess", NtQueryInformationProcess);
  majorVersion = GetWindowsMajorVersion();
  return bound_;
}

std::u16string TextIn(const win32::UNICODE_STRING& text, const win32::BYTE* answer, std::size_t size) {
  const auto begin = reinterpret_cast<std::uintptr_t>(answer), at = reinterpret_cast<std::uintptr_t>(text.Buffer);
  if (at < begin || at - begin > size || size - (at - begin) < text.Length) return {};
  std::u16string found(text.Length / sizeof(char16_t), u'\0');
  std::memcpy(found.data(), text.Buffer, found.size() * sizeof(char16_t));
  return found;
}
