// Whether the maker has a newer release.
#pragma once

#include <string>

// Asks the update server. 0: this is the latest version; 1: there is a newer one; 2: the check failed, for whatever
// reason. The message says which. Waits as long as the system's time-outs let it.
int CheckForUpdate(std::u16string& message);
