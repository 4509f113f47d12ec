// RedirectRegKeyLocation and RedirectRegKey. Both start out from exit code 1, also when the gate refuses them.

#include "cli/invocation.h"
#include "regredirect/location.h"
#include "regredirect/registry_keys.h"
#include "report/log.h"
#include "report/outcome.h"

int RunRedirectRegKeyLocation(const Invocation& invocation) {
  const bool locationGiven = !invocation.line.arguments.empty();
  if (!locationGiven && !invocation.Removes()) return PrintRegKeyLocation();
  if (RefusedWhileFrozen(invocation)) return 1;
  if (locationGiven && invocation.Removes()) {
    Log(u"Remove Redirect Registry Key was not successful.\nUsage:\n");
    return SayUsage(StringId::RedirectRegKeyLocationName, StringId::RedirectRegKeyLocationUsage);
  }
  return locationGiven ? SetRegKeyLocation(invocation.line.arguments.front().c_str()) : RemoveRegKeyLocation();
}

int RunRedirectRegKey(const Invocation& invocation) {
  const bool keyGiven = !invocation.line.arguments.empty();
  if (!keyGiven && !invocation.Removes()) return PrintRedirectedRegKeys();
  if (RefusedWhileFrozen(invocation)) return 1;
  if (!keyGiven) {
    Log(u"Please specify registry key to be removed.\n Registry Key Redirection was not successful.\n");
    return SayFailure(StringId::RegKeyFailedUnnamed, LogPath());
  }
  const char16_t* const key = invocation.line.arguments.front().c_str();
  return invocation.Removes() ? RemoveRedirectedRegKey(key) : AddRedirectedRegKey(key);
}
