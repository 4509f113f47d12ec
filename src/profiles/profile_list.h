// Whose profile lies where: the keys below Windows' profile list,
// HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList, one a user, named by his SID.
#pragma once

#include <string>
#include <vector>

#include "records/registry_text.h"

// What can be done with the hive of a profile. Below 0 it is not to be touched.
inline constexpr int kHiveNotLoaded = 0;
inline constexpr int kHiveLoaded = 1;    // below HKEY_USERS, by the user's SID
inline constexpr int kHiveMissing = -1;  // see HasLoadableHive

struct UserProfile {
  std::u16string sid;     // "S-1-5-21-..."; empty for Default and Public
  std::u16string folder;  // ProfileImagePath with its variables replaced, without a backslash at the end
  int hiveState = kHiveMissing;
};

// Is there a hive in the profile folder? NTUSER.DAT must be an ordinary file: a link could lead to any file, and
// loading a hive changes it with rights that its user does not have.
bool HasLoadableHive(const std::u16string& folder);

// The profile of a user, by an account's name or, when there is no such account, by the last component of exactly one
// profile folder. 0 when there is none.
int GetUserProfile(const std::u16string& user, UserProfile& profile);

// Writes the folder as the user's ProfileImagePath, without variables; the value keeps its type. 0 when it cannot be
// written, or would be read as another folder.
int SetProfileImagePath(const std::u16string& sid, const std::u16string& folder);
// Would SetProfileImagePath write this folder? Nothing is changed.
bool CanSetProfileImagePath(const std::u16string& sid, const std::u16string& folder);

// The value as it stands, byte for byte, to put it back.
bool ReadProfileImagePath(const std::u16string& sid, RegistryValue& value);
bool RestoreProfileImagePath(const std::u16string& sid, const RegistryValue& value);

// The profiles of people (no services, none that Windows has set aside), in the order of their SIDs. False when the
// registry did not tell all of them.
bool ReadUserProfiles(std::vector<UserProfile>& profiles);

// Everybody else's profiles, Default and Public (without a SID) among them. False (logged) when the registry did not
// tell all of those of people.
bool ReadOtherProfiles(const UserProfile& profile, std::vector<UserProfile>& others);

// A profile may be recorded with "\\?\", which is no part of a path on a drive: the folder without it.
std::u16string DriveForm(const std::u16string& folder);
