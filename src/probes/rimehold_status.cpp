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
std::u16string ReadStatusText(win32::LSTATUS& error) {
  win32::UniqueKey key;
  error = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, u"Software\\Velmora\\Rimehold 6", 0,
                               win32::KEY_READ | win32::KEY_WOW64_64KEY, key.put());
  win32::DWORD size = 0;
  if (error == 0) error = win32::RegQueryValueExW(key.get(), u"RH Status", nullptr, nullptr, nullptr, &size);
  std::u16string text(size / sizeof(char16_t), u'\0');
  size = static_cast<win32::DWORD>(text.size() * sizeof(char16_t));
  if (error == 0)
    error = win32::RegQueryValueExW(key.get(), u"RH Status", nullptr, nullptr,
                                    reinterpret_cast<win32::BYTE*>(text.data()), &size);
  if (error != 0) return {};
  text.resize(size / sizeof(char16_t));
  return text.substr(0, text.find(u'\0'));
}

// Nothing when Windows does not tell.
std::optional<bool> IsServiceInstalled() {
  const win32::UniqueService manager{
      win32::OpenSCManagerW(nullptr, u"ServicesActive", win32::SC_MANAGER_ENUMERATE_SERVICE)};
  if (!manager) return std::nullopt;
  if (win32::UniqueService{win32::OpenServiceW(manager.get(), kService, win32::GENERIC_READ)}) return true;
  if (win32::GetLastError() == win32::ERROR_SERVICE_DOES_NOT_EXIST) return false;
  return std::nullopt;
}

}  // namespace

int GetRHStatus(std::u16string& message) try {
  win32::LSTATUS error = 0;
  const std::u16string text = ReadStatusText(error);
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
  return IsServiceInstalled().value_or(false) && GetRHStatus(message) == kFrozen;
}

std::optional<bool> TellWhetherFrozen() {
  const std::optional<bool> installed = IsServiceInstalled();
  if (!installed.value_or(false)) return installed;
  win32::LSTATUS error = 0;
  const std::u16string text = ReadStatusText(error);
  if (error != 0 && error != win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return std::nullopt;
  return EqualIgnoringAsciiCase(text, u"frozen");
}

bool GetRegRedirectPath(std::u16string& path) try {
  const std::u16string folder = ServiceFolder(kService);
  if (folder.empty()) return false;
  path = folder + u"RegRedirect";
  return true;
} catch (const std::exception&) {
  return false;
}
