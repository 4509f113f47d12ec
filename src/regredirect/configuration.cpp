#include "regredirect/configuration.h"

#include "cli/console.h"
#include "log/log.h"

bool ReadLocation(const CQBConfig& config, int& status, std::u16string& location) {
  if (config.GetOutDir(status, location)) return true;
  Log(u"#ERROR: Unable to get Registry Redirect Location from config file.");
  return false;
}

bool SaveConfiguration(CQBConfig& config) {
  if (config.Save()) return true;
  LogWithSystemError(u"CQBConfig::Save: failed to save config file:\n");
  return false;
}

int SayAdministratorsOnly(unsigned message) {
  ConsolePrint(LoadResourceString(message));
  return 1;
}
