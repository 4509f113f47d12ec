#include "probes/nt_dll.h"

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
