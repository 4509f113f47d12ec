#include "redirect/idle_service.h"

#include "configuration/service_config.h"
#include "links/presence.h"
#include "probes/services.h"
#include "report/log.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kFileRecords = u"SOFTWARE\\Velmora\\Quillbay\\FileJunctions";

// Neither setting has a text of its own in the service's configuration; both follow from what it has to work on. What
// cannot be read counts as enabled: a service that runs for nothing does no harm, one that is missing does.

// Registry keys are redirected while there is a location for their data. Without a configuration file there is none.
bool IsRegistryRedirectionEnabled() {
  CQBConfig config;
  if (config.path().empty()) return true;
  if (!PathExists(config.path())) return !MeansGone(win32::GetLastError());
  return !config.Load() || !config.TellsOutDir() || config.IsOutDirEnabled();
}

// Files are redirected while one is recorded.
bool IsFileRedirectionEnabled() {
  win32::UniqueKey list;
  const win32::LSTATUS error = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kFileRecords, 0,
                                                    win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY, list.put());
  if (error != win32::ERROR_SUCCESS) return error != win32::ERROR_FILE_NOT_FOUND;
  win32::DWORD records = 0;
  return win32::RegQueryInfoKeyW(list.get(), nullptr, nullptr, nullptr, &records, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr) != win32::ERROR_SUCCESS ||
         records != 0;
}

}  // namespace

void StopServiceWithoutWork() {
  const bool registryKeys = IsRegistryRedirectionEnabled();
  const bool files = IsFileRedirectionEnabled();
  Log(u"RemoveFileRedirection - IsRegistryRedirectionEnabled: %d and IsFileRedirectionEnabled: %d ",
      registryKeys ? 1 : 0, files ? 1 : 0);
  if (registryKeys || files) return;
  Log(u"RemoveFileRedirection - Going to stop Quillbay Service");
  RetireQuillbayService();
}
