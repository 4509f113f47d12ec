#include "profiles/profile_list.h"

#include <exception>
#include <utility>

#include "links/mounted_folder.h"
#include "links/presence.h"
#include "profiles/profile_folders.h"
#include "profiles/user_accounts.h"
#include "records/profile_keys.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

bool IsHiveLoaded(const std::u16string& sid) {
  win32::UniqueKey key;
  const win32::LSTATUS opened =
      win32::RegOpenKeyExW(win32::HKEY_USERS, sid.c_str(), 0, win32::KEY_QUERY_VALUE, key.put());
  return opened == 0 || opened == win32::LSTATUS{win32::ERROR_ACCESS_DENIED};
}

int HiveStateOf(const UserProfile& profile) {
  if (IsHiveLoaded(profile.sid)) return kHiveLoaded;
  return HasLoadableHive(profile.folder) ? kHiveNotLoaded : kHiveMissing;
}

enum class Found { Profile, None, Unknown };

// The profile of a SID; None when there is no such key, or it names no folder.
Found ReadProfile(const std::u16string& sid, UserProfile& profile) {
  RegistryValue value;
  const win32::LSTATUS result = ReadMachineValue(ProfileKeyOf(sid), kProfileImagePath, value);
  if (result == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return Found::None;
  if (result != 0) return Found::Unknown;
  profile.sid = sid;
  profile.folder = WithoutTrailingBackslash(ExpandedText(value));
  if (profile.folder.empty()) return IsText(value) && !RawText(value).empty() ? Found::Unknown : Found::None;
  profile.hiveState = HiveStateOf(profile);
  return Found::Profile;
}

// The profile of an account that nobody knows any more, by the name of its folder.
int FindByFolderName(const std::u16string& name, UserProfile& profile) {
  std::vector<UserProfile> profiles;
  if (!ReadUserProfiles(profiles)) return 0;
  int found = 0;
  for (UserProfile& candidate : profiles)
    if (EqualPaths(LastComponent(candidate.folder), name)) {
      ++found;
      profile = std::move(candidate);
    }
  return found == 1 ? 1 : 0;
}

// The value that names the folder; false when there is none that would be read as it.
bool MakeImagePath(const std::u16string& sid, const std::u16string& folder, RegistryValue& value) {
  RegistryValue present;
  if (sid.empty() || folder.empty() || ReadMachineValue(ProfileKeyOf(sid), kProfileImagePath, present) != 0 ||
      !IsText(present))
    return false;
  value = TextValue(folder, present.type);
  // A folder with a name like "%TEMP%" would become another one.
  return ExpandedText(value) == folder;
}

}  // namespace

bool HasLoadableHive(const std::u16string& folder) { return LookAt(JoinPath(folder, u"NTUSER.DAT")).IsPlainFile(); }

int GetUserProfile(const std::u16string& user, UserProfile& profile) try {
  if (user.empty()) return 0;
  const std::u16string sid = SidOfAccount(user);
  if (sid.empty()) return FindByFolderName(user, profile);
  return IsSidOfPerson(sid) && ReadProfile(sid, profile) == Found::Profile ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int SetProfileImagePath(const std::u16string& sid, const std::u16string& folder) try {
  RegistryValue value;
  return MakeImagePath(sid, folder, value) && WriteMachineValue(ProfileKeyOf(sid), kProfileImagePath, value) == 0 ? 1
                                                                                                                  : 0;
} catch (const std::exception&) {
  return 0;
}

bool CanSetProfileImagePath(const std::u16string& sid, const std::u16string& folder) try {
  RegistryValue value;
  win32::UniqueKey key;
  return MakeImagePath(sid, folder, value) && win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, ProfileKeyOf(sid).c_str(),
                                                                   0, win32::KEY_SET_VALUE, key.put()) == 0;
} catch (const std::exception&) {
  return false;
}

bool ReadProfileImagePath(const std::u16string& sid, RegistryValue& value) try {
  return !sid.empty() && ReadMachineValue(ProfileKeyOf(sid), kProfileImagePath, value) == 0;
} catch (const std::exception&) {
  return false;
}

bool RestoreProfileImagePath(const std::u16string& sid, const RegistryValue& value) try {
  return !sid.empty() && WriteMachineValue(ProfileKeyOf(sid), kProfileImagePath, value) == 0;
} catch (const std::exception&) {
  return false;
}

bool ReadUserProfiles(std::vector<UserProfile>& profiles) try {
  profiles.clear();
  std::vector<std::u16string> sids;
  if (!ReadSidsOfPeople(sids)) return false;
  for (const std::u16string& sid : sids) {
    UserProfile profile;
    const Found found = ReadProfile(sid, profile);
    if (found == Found::Unknown) return false;
    if (found == Found::Profile) profiles.push_back(std::move(profile));
  }
  return true;
} catch (const std::exception&) {
  return false;
}

bool ReadOtherProfiles(const UserProfile& profile, std::vector<UserProfile>& others) {
  if (!ReadUserProfiles(others)) return LogFailure(line::kProfilesNotRead);
  std::erase_if(others, [&](const UserProfile& other) { return EqualIgnoringAsciiCase(other.sid, profile.sid); });
  for (const ProfileFolder which : {ProfileFolder::Default, ProfileFolder::Public})
    if (ProfileFolderValue shared; ReadProfileFolder(which, shared)) others.push_back({{}, shared.folder, {}});
  return true;
}

std::u16string DriveForm(const std::u16string& folder) {
  return IsVolumePath(folder.c_str()) ? folder : std::u16string(WithoutExtendedPrefix(folder));
}
