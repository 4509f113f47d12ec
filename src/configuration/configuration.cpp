#include "configuration/configuration.h"

#include "report/log.h"

bool SaveConfiguration(CQBConfig& config) {
  if (config.Save()) return true;
  LogWithSystemError(u"CQBConfig::Save: failed to save config file:\n");
  return false;
}
