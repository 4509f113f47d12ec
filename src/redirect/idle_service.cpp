#include "redirect/idle_service.h"

#include "configuration/service_config.h"
#include "links/presence.h"
#include "probes/services.h"
#include "records/records.h"
#include "report/log.h"
#include "win32/system.h"

namespace {

// Neither setting has a text of its own in the service's configuration; both follow from what it has to work on. What
// cannot be read counts as enabled: a service that runs for nothing does no harm, one that is missing does.

// Registry keys are redirected while there is a location for their data. Without a configuration file there is none.
bool IsRegistryRedirectionEnabled() {
  const CQBConfig config;
  if (config.path().empty()) return true;
  if (!PathExists(config.path())) return !MeansGone(win32::GetLastError());
  std::u16string status;
  return !config.PeekOutDirStatus(status) || status == u"1";
}

}  // namespace

void StopServiceWithoutWork() {
  const bool registryKeys = IsRegistryRedirectionEnabled();
  const bool files = MayHaveJunctionRecords(1);
  Log(u"RemoveFileRedirection - IsRegistryRedirectionEnabled: %d and IsFileRedirectionEnabled: %d ",
      registryKeys ? 1 : 0, files ? 1 : 0);
  if (registryKeys || files) return;
  Log(u"RemoveFileRedirection - Going to stop Quillbay Service");
  RetireQuillbayService();
}
