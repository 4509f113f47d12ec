// RedirectRegKeyLocation and RedirectRegKey. Both start out from exit code 1, also when the gate refuses them.

#include "cli/invocation.h"
#include "regredirect/location.h"
#include "regredirect/registry_keys.h"
#include "report/console.h"
#include "report/log.h"

namespace {

constexpr unsigned kLocationName = 105;
constexpr unsigned kLocationUsage = 106;
constexpr unsigned kKeyRedirectionFailed = 168;

}  // namespace

int RunRedirectRegKeyLocation(const Invocation& invocation) {
  const bool locationGiven = !invocation.line.arguments.empty();
  if (!locationGiven && !invocation.Removes()) return PrintRegKeyLocation();
  if (RefusedWhileFrozen(invocation)) return 1;
  if (locationGiven && invocation.Removes()) {
    Log(u"Remove Redirect Registry Key was not successful.\nUsage:\n");
    ConsolePrint(LoadResourceString(kLocationName) + u"\n   " + LoadResourceString(kLocationUsage));
    return 1;
  }
  return locationGiven ? SetRegKeyLocation(invocation.line.arguments.front().c_str()) : RemoveRegKeyLocation();
}

int RunRedirectRegKey(const Invocation& invocation) {
  const bool keyGiven = !invocation.line.arguments.empty();
  if (!keyGiven && !invocation.Removes()) return PrintRedirectedRegKeys();
  if (RefusedWhileFrozen(invocation)) return 1;
  if (!keyGiven) {
    Log(u"Please specify registry key to be removed.\n Registry Key Redirection was not successful.\n");
    ConsoleFormatString(kKeyRedirectionFailed, LogPath());
    return 1;
  }
  const char16_t* const key = invocation.line.arguments.front().c_str();
  return invocation.Removes() ? RemoveRedirectedRegKey(key) : AddRedirectedRegKey(key);
}
