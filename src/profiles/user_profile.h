// A user's profile folder moved to another place, and moved back.
#pragma once

#include <string>

#include "fsops/carried_along.h"

struct ProfileMoveFlags {
  CarriedAlong carried;
  bool backToDefault = false;  // the target is the profiles folder of the system
};

// Moves the profile of `user` to `target`\<the folder's name>, or onto the volume that `target` names, and has Windows'
// record of it name the new place.
// 0 on success, 1 otherwise; console and log say which. docs/profiles.md says what each failure leaves.
int RedirectUserProfile(const char16_t* user, const char16_t* target, const ProfileMoveFlags& flags);
// All that RedirectUserProfile asks before the profile moves; for a run that only looks. `folder` is the profile's,
// empty where there is none.
bool MayRedirectUserProfile(const std::u16string& user, const std::u16string& target, std::u16string& folder);

// The same to the profiles folder that the configuration recorded.
int RedirectUserProfileToDefault(const char16_t* user, CarriedAlong carried);
