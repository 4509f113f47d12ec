// The Default and Public profiles: copied to another place, as they are in use, and brought back.
#pragma once

#include "fsops/carried_along.h"

// Which of the two a command names.
struct SharedProfiles {
  bool defaultProfile = false;
  bool publicProfile = false;
};

// Copies each to `location`\<its folder's name> and has Windows' profile list name the copy. 0 on success, 1 otherwise;
// console and log say which.
int RedirectSharedProfiles(SharedProfiles which, const char16_t* location, CarriedAlong carried);

// Brings each back to where it was before, with what was written there meanwhile, and removes the copies, now or at the
// next restart. Results as above.
int RedirectSharedProfilesToDefault(SharedProfiles which, CarriedAlong carried);
