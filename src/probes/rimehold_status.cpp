#include "probes/rimehold_status.h"

#include <array>
#include <exception>
#include <string_view>

#include "report/console.h"
#include "report/service_path.h"
#include "text/ascii_case.h"
#include "win32/handle.h"

namespace {

constexpr const char16_t* kService = u"RHServ";
constexpr int kNotInstalled = 1;
constexpr int kFrozen = 2;

struct Status {
  int code;
  std::u16string_view value;
  StringId message;
};
constexpr std::array<Status, 8> kStatuses{{{kFrozen, u"frozen", StringId::RimeholdFrozen},
                                           {3, u"thawed", StringId::RimeholdThawed},
                                           {4, u"thawed and locked", StringId::RimeholdThawedAndLocked},
                                           {5, u"maintenance mode", StringId::RimeholdMaintenance},
                                           {6, u"seed", StringId::RimeholdSeed},
                                           {7, u"Applying Batch File", StringId::RimeholdBatchFile},
                                           {8, u"Applying Windows Update", StringId::RimeholdWindowsUpdate},
                                           {9, u"Thawed Period", StringId::RimeholdThawedPeriod}}};

// The status text in the 64-bit view of the registry; empty when it cannot be read.
std::u16string ReadStatusText() {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, u"Software\\Velmora\\Rimehold 6", 0,
                           win32::KEY_READ | win32::KEY_WOW64_64KEY, key.put()) != 0)
    return {};
  win32::DWORD size = 0;
  if (win32::RegQueryValueExW(key.get(), u"RH Status", nullptr, nullptr, nullptr, &size) != 0) return {};
  std::u16string text(size / sizeof(char16_t), u'\0');
  size = static_cast<win32::DWORD>(text.size() * sizeof(char16_t));
  if (win32::RegQueryValueExW(key.get(), u"RH Status", nullptr, nullptr, reinterpret_cast<win32::BYTE*>(text.data()),
                              &size) != 0)
    return {};
  text.resize(size / sizeof(char16_t));
  return text.substr(0, text.find(u'\0'));
}

bool IsServiceInstalled() {
  const win32::UniqueService manager{
      win32::OpenSCManagerW(nullptr, u"ServicesActive", win32::SC_MANAGER_ENUMERATE_SERVICE)};
  return manager && win32::UniqueService{win32::OpenServiceW(manager.get(), kService, win32::GENERIC_READ)};
}

}  // namespace

int GetRHStatus(std::u16string& message) try {
  const std::u16string text = ReadStatusText();
  for (const Status& status : kStatuses) {
    if (!EqualIgnoringAsciiCase(text, status.value)) continue;
    message = LoadResourceString(status.message);
    return status.code;
  }
  message = LoadResourceString(StringId::RimeholdNotInstalled);
  return kNotInstalled;
} catch (const std::exception&) {
  message = LoadResourceString(StringId::RimeholdNotInstalled);
  return kNotInstalled;
}

bool IsRimeholdFrozen() {
  std::u16string message;
  return IsServiceInstalled() && GetRHStatus(message) == kFrozen;
}

bool GetRegRedirectPath(std::u16string& path) try {
  const std::u16string folder = ServiceFolder(kService);
  if (folder.empty()) return false;
  path = folder + u"RegRedirect";
  return true;
} catch (const std::exception&) {
  return false;
}
