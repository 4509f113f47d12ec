// Steps that the commands on the Default and Public profiles and automatic redirection have in common.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "profiles/shared_profiles.h"
#include "profiles/shared_profiles_copy.h"
#include "profiles/shared_profiles_restart.h"
#include "profiles/shared_profiles_return.h"

inline constexpr SharedProfiles kBothProfiles{.defaultProfile = true, .publicProfile = true};

using ProfileCopies = std::vector<std::unique_ptr<SharedProfileCopy>>;
using ProfileReturns = std::vector<std::unique_ptr<SharedProfileReturn>>;

// Every operation that answers false has left a line in the log.

// The profiles that are to be copied from `home`, the profiles folder, to `location`. False when one of them is not in
// `home`: it is redirected already. skipThere: one that is in `location` is passed over instead.
bool PlanCopies(SharedProfiles which, const std::u16string& location, const std::u16string& home, bool skipThere,
                CarriedAlong carried, ProfileCopies& copies);
// May they be made? And is there room for them? Nothing is changed.
bool MayBeCopied(const ProfileCopies& copies, const std::u16string& location);
// Copies them, then has the profile list name the copies.
bool CopyAndMakeLive(const ProfileCopies& copies);

// Those of the profiles that were redirected from here, on their way back to where they were. `location`: where one of
// which nothing is noted counts as redirected, too, from `home`; may be empty.
bool PlanReturns(SharedProfiles which, const std::u16string& home, const std::u16string& location, CarriedAlong carried,
                 ProfileReturns& returns);
bool CopyBackAndMakeLive(const ProfileReturns& returns);
// After they are kept: what came back replaces what was there, and the copies go, but for what the service is still
// told of. Then FollowPublicProfile; then DeleteCopies, true when a restart is owed.
void LeaveCopies(const ProfileReturns& returns);
bool DeleteCopies(const ProfileReturns& returns);

// The paths of account pictures follow the Public profile, where it is among these.
void FollowPublicProfile(const ProfileCopies& copies);
void FollowPublicProfile(const ProfileReturns& returns);

// IsRestartOwed; for Yes the console tells to restart.
RestartOwed SayIfRestartIsOwed(const std::vector<std::u16string>& places);
