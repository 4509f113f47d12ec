// Modules and their entry points, of win32/system.h.
#include "win32/emulated/system/modules.h"

#include <iterator>

#include "win32/emulated/files/runtime_bound.h"
#include "win32/emulated/system/native_queries.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace emulated {

namespace {

// Where modules lie in a process; a handle is the address.
constexpr std::uintptr_t kOwnBase = 0x140000000;
constexpr std::uintptr_t kSystemBase = 0x7FFA00000000;
constexpr std::uintptr_t kSystemStep = 0x1000000;

constexpr std::u16string_view kSystemModules[] = {
    u"ntdll.dll",   u"kernel32.dll", u"kernelbase.dll", u"advapi32.dll", u"user32.dll",   u"shell32.dll",
    u"ole32.dll",   u"oleaut32.dll", u"shlwapi.dll",    u"version.dll",  u"netapi32.dll", u"netmsg.dll",
    u"wininet.dll", u"msxml3.dll",   u"psapi.dll",      u"userenv.dll",  u"sechost.dll",  u"ws2_32.dll",
    u"rpcrt4.dll",  u"gdi32.dll",    u"msvcrt.dll",     u"crypt32.dll",  u"wintrust.dll",
};

constexpr std::u16string_view kSystemFolder = u"C:\\Windows\\System32\\";

}  // namespace

win32::HMODULE OwnModule() { return reinterpret_cast<win32::HMODULE>(kOwnBase); }

bool IsOwnModule(win32::HMODULE module) { return !module || module == OwnModule(); }

win32::HMODULE SystemModule(std::u16string_view name) {
  if (StartsWithAsciiNoCase(name, kSystemFolder)) name.remove_prefix(kSystemFolder.size());
  std::u16string wanted(name);
  if (wanted.find(u'.') == std::u16string::npos) wanted += u".dll";
  for (std::size_t i = 0; i < std::size(kSystemModules); ++i)
    if (EqualAsciiNoCase(kSystemModules[i], wanted))
      return reinterpret_cast<win32::HMODULE>(kSystemBase + i * kSystemStep);
  return nullptr;
}

std::u16string_view SystemModuleName(win32::HMODULE module) {
  const auto address = reinterpret_cast<std::uintptr_t>(module);
  if (address < kSystemBase || (address - kSystemBase) % kSystemStep != 0) return {};
  const std::size_t index = (address - kSystemBase) / kSystemStep;
  return index < std::size(kSystemModules) ? kSystemModules[index] : std::u16string_view();
}

const ModuleImage::Resource* FindResource(const ModuleImage& module, std::u16string_view type,
                                          std::u16string_view name) {
  for (const ModuleImage::Resource& resource : module.resources)
    if (EqualAsciiNoCase(resource.type, type) && EqualAsciiNoCase(resource.name, name)) return &resource;
  return nullptr;
}

}  // namespace emulated

namespace win32 {

namespace {

using emulated::Machine;

template <typename T>
T Fail(emulated::Call& call, T value, DWORD error) {
  emulated::SetLastError(error);
  return call.Return(value);
}

struct Procedure {
  std::u16string_view module;
  std::string_view name;
  FARPROC address;
};

const Procedure* FindProcedure(std::u16string_view module, std::string_view name) {
  static const Procedure procedures[] = {
      {u"kernel32.dll", "CreateSymbolicLinkW", reinterpret_cast<FARPROC>(&emulated::CreateSymbolicLinkW)},
      {u"kernel32.dll", "GetFinalPathNameByHandleW", reinterpret_cast<FARPROC>(&emulated::GetFinalPathNameByHandleW)},
      {u"ntdll.dll", "NtQuerySystemInformation", reinterpret_cast<FARPROC>(&emulated::NtQuerySystemInformation)},
      {u"ntdll.dll", "NtQueryObject", reinterpret_cast<FARPROC>(&emulated::NtQueryObject)},
      {u"ntdll.dll", "NtQueryInformationThread", reinterpret_cast<FARPROC>(&emulated::NtQueryInformationThread)},
      {u"ntdll.dll", "NtQueryInformationFile", reinterpret_cast<FARPROC>(&emulated::NtQueryInformationFile)},
      {u"ntdll.dll", "NtQueryInformationProcess", reinterpret_cast<FARPROC>(&emulated::NtQueryInformationProcess)},
  };
  for (const Procedure& procedure : procedures)
    if (procedure.name == name && emulated::EqualAsciiNoCase(procedure.module, module)) return &procedure;
  return nullptr;
}

}  // namespace

HMODULE GetModuleHandleW(const char16_t* lpModuleName) {
  WIN32_CALL(lpModuleName);
  if (call.Refused()) return nullptr;
  if (!lpModuleName) return call.Return(emulated::OwnModule());
  const std::u16string_view path = Machine::Current().module.path;
  const std::u16string_view own = path.substr(path.rfind(u'\\') + 1);
  if (emulated::EqualAsciiNoCase(lpModuleName, path) || emulated::EqualAsciiNoCase(lpModuleName, own))
    return call.Return(emulated::OwnModule());
  const HMODULE module = emulated::SystemModule(lpModuleName);
  return module ? call.Return(module) : Fail(call, HMODULE{nullptr}, ERROR_MOD_NOT_FOUND);
}

// The length without terminator; nSize and ERROR_INSUFFICIENT_BUFFER, and as much as fits, when there is too little
// room.
DWORD GetModuleFileNameW(HMODULE hModule, char16_t* lpFilename, DWORD nSize) {
  WIN32_CALL(hModule, nSize);
  if (call.Refused()) return 0;
  std::u16string path = Machine::Current().module.path;
  if (!emulated::IsOwnModule(hModule)) {
    const std::u16string_view name = emulated::SystemModuleName(hModule);
    if (name.empty()) return Fail(call, DWORD{0}, ERROR_MOD_NOT_FOUND);
    path = u"C:\\Windows\\System32\\" + std::u16string(name);
  }
  if (!lpFilename || nSize == 0) return Fail(call, DWORD{0}, ERROR_INSUFFICIENT_BUFFER);
  if (nSize <= path.size()) {
    std::memcpy(lpFilename, path.data(), nSize * sizeof(char16_t));
    lpFilename[nSize - 1] = u'\0';
    return Fail(call, nSize, ERROR_INSUFFICIENT_BUFFER);
  }
  std::memcpy(lpFilename, path.c_str(), (path.size() + 1) * sizeof(char16_t));
  emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(static_cast<DWORD>(path.size()));
}

HMODULE LoadLibraryExW(const char16_t* lpLibFileName, HANDLE hFile, DWORD dwFlags) {
  WIN32_CALL(lpLibFileName, hFile, dwFlags);
  if (call.Refused()) return nullptr;
  if (!lpLibFileName) return Fail(call, HMODULE{nullptr}, ERROR_INVALID_PARAMETER);
  const HMODULE module = emulated::SystemModule(lpLibFileName);
  return module ? call.Return(module) : Fail(call, HMODULE{nullptr}, ERROR_MOD_NOT_FOUND);
}

HMODULE LoadLibraryW(const char16_t* lpLibFileName) {
  WIN32_CALL(lpLibFileName);
  if (call.Refused()) return nullptr;
  return call.Return(LoadLibraryExW(lpLibFileName, nullptr, 0));
}

BOOL FreeLibrary(HMODULE hLibModule) {
  WIN32_CALL(hLibModule);
  if (call.Refused()) return FALSE;
  const bool known = hLibModule == emulated::OwnModule() || !emulated::SystemModuleName(hLibModule).empty();
  return call.Done(known ? ERROR_SUCCESS : ERROR_MOD_NOT_FOUND);
}

FARPROC GetProcAddress(HMODULE hModule, const char* lpProcName) {
  WIN32_CALL(hModule, lpProcName);
  if (call.Refused()) return nullptr;
  const bool isOrdinal = reinterpret_cast<std::uintptr_t>(lpProcName) < 0x10000;
  const Procedure* const procedure =
      isOrdinal ? nullptr : FindProcedure(emulated::SystemModuleName(hModule), lpProcName);
  if (!procedure || Machine::Current().missingProcedures.contains(lpProcName)) {
    emulated::SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  return procedure->address;
}

}  // namespace win32
