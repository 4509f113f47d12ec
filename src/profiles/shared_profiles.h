// The Default and Public profiles: copied to another place, as they are in use, and brought back.
#pragma once

#include <string_view>

#include "fsops/carried_along.h"

// The switches that name a profile in a user's stead. A command for a user with one of these words anywhere else on its
// line, be it a part of the location, is refused as one that is mistyped.
inline constexpr std::u16string_view kDefaultProfile = u"DefaultProfile";
inline constexpr std::u16string_view kPublicProfile = u"PublicProfile";

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
