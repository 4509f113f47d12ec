#include "probes/version.h"

#include <array>
#include <exception>

#include "probes/file_version.h"
#include "text/format.h"
#include "win32/system.h"

namespace {

std::u16string Number(win32::DWORD value) { return FormatText(u"%d", value); }
win32::DWORD High(win32::DWORD value) { return value >> 16; }
win32::DWORD Low(win32::DWORD value) { return value & 0xFFFF; }

}  // namespace

bool GetProductVersion(ProductVersion& version) try {
  std::array<char16_t, win32::MAX_PATH> path{};
  const win32::DWORD length = win32::GetModuleFileNameW(nullptr, path.data(), win32::MAX_PATH);
  if (length == 0 || length >= win32::MAX_PATH) return false;
  win32::VS_FIXEDFILEINFO fixed{};
  if (!ReadFixedFileInfo(path.data(), fixed)) return false;

  version.major = Number(High(fixed.dwProductVersionMS));
  version.minor = Number(Low(fixed.dwProductVersionMS));
  version.hotfix = Number(High(fixed.dwProductVersionLS));
  version.build = Number(Low(fixed.dwProductVersionLS));
  version.dotted = FormatText(u"%d.%d.%d.%d", High(fixed.dwProductVersionMS), Low(fixed.dwProductVersionMS),
                              High(fixed.dwProductVersionLS), Low(fixed.dwProductVersionLS));
  return true;
} catch (const std::exception&) {
  return false;
}
