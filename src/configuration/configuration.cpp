#include "configuration/configuration.h"

#include "report/console.h"
#include "report/log.h"

bool SaveConfiguration(CQBConfig& config) {
  if (config.Save()) return true;
  LogWithSystemError(u"CQBConfig::Save: failed to save config file:\n");
  return false;
}

int SayAdministratorsOnly(unsigned message) {
  ConsolePrint(LoadResourceString(message));
  return 1;
}
