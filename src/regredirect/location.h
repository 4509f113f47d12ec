// The command RedirectRegKeyLocation: where the product's service keeps the data of redirected registry keys.
#pragma once

#include <string>

// Each answers the exit code, 0 for success, and says on the console how it went; the log has the reasons of a failure.
// The configuration file is saved before the service is touched: after a failure it is as it was.

// Sets the location: a folder, or a volume ("\\?\Volume{...}\") that is mounted on a folder beside Rimehold's service.
int SetRegKeyLocation(const char16_t* location);
int RemoveRegKeyLocation();
int PrintRegKeyLocation();

// The configuration no longer names this location: the service stops and starts by hand only, what it kept there goes,
// and so does the folder that a volume was mounted on for it. Nothing of this is checked.
void LeaveRegKeyLocation(const std::u16string& location);
