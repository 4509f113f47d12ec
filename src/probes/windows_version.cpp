#include "probes/windows_version.h"

#include <array>
#include <optional>

#include "report/console.h"
#include "win32/system.h"

namespace {

struct WindowsVersion {
  win32::DWORD major, minor, platform;
};

// The extended form is asked for first, the plain one where that is not known.
std::optional<WindowsVersion> Query() {
  constexpr win32::DWORD kPlainSize = 276;
  static_assert(sizeof(win32::OSVERSIONINFOEXW) == 284);
  win32::OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (!win32::GetVersionExW(&version)) {
    version.dwOSVersionInfoSize = kPlainSize;
    if (!win32::GetVersionExW(&version)) return std::nullopt;
  }
  return WindowsVersion{version.dwMajorVersion, version.dwMinorVersion, version.dwPlatformId};
}

std::optional<WindowsVersion> QueryOrSay() {
  const std::optional<WindowsVersion> version = Query();
  if (!version) ConsolePrint(u"Failed to get current OS version information.");
  return version;
}

struct VersionCode {
  bool nt;
  win32::DWORD major, minor;
  int code;
};
// Not in the order of the releases; the values are compared with as they are.
constexpr std::array<VersionCode, 12> kVersionCodes{{{true, 5, 0, 4},
                                                     {true, 5, 1, 3},
                                                     {true, 5, 2, 2},
                                                     {true, 6, 0, 1},
                                                     {true, 6, 1, 5},
                                                     {true, 6, 2, 6},
                                                     {true, 6, 3, 7},
                                                     {true, 10, 0, 7},
                                                     {false, 6, 0, 8},
                                                     {false, 6, 1, 9},
                                                     {false, 6, 2, 10},
                                                     {false, 6, 3, 11}}};

}  // namespace

bool IsVistaOrLater() {
  const auto version = QueryOrSay();
  return version && version->major >= 6;
}

bool IsWindows8OrLater() {
  const auto version = QueryOrSay();
  return version && (version->major >= 7 || (version->major == 6 && version->minor >= 2));
}

bool IsWindows10() {
  const auto version = Query();
  return version && version->platform == win32::VER_PLATFORM_WIN32_NT && version->major == 10 && version->minor == 0;
}

int GetWindowsVersionCode() {
  const auto version = Query();
  if (!version) return 0;
  const bool nt = version->platform == win32::VER_PLATFORM_WIN32_NT;
  for (const VersionCode& entry : kVersionCodes)
    if (entry.nt == nt && entry.major == version->major && entry.minor == version->minor) return entry.code;
  return 0;
}

win32::DWORD GetWindowsMajorVersion() {
  const auto version = Query();
  return version ? version->major : 0;
}
