#include "profiles/user_profile.h"

#include <exception>
#include <string>
#include <vector>

#include "fsops/side_folder.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "links/volume_paths.h"
#include "probes/keelroom.h"
#include "probes/privileges.h"
#include "probes/service_pause.h"
#include "probes/windows_version.h"
#include "profiles/keelroom_rule.h"
#include "profiles/profile_folders.h"
#include "profiles/profile_move.h"
#include "profiles/recorded_home.h"
#include "profiles/user_accounts.h"
#include "profiles/user_hive.h"
#include "report/console.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/outcome.h"
#include "text/path_text.h"

namespace {

bool HasModernApps() {
  const int version = GetWindowsVersionCode();
  return version == 6 || version == 7 || version == 10 || version == 11;
}

void WarnOfModernApps(char16_t drive) {
  if (!HasModernApps()) return;
  if (!IsKeelroomDrive(drive))
    ConsolePrint(
        u"Please note that redirecting a User Profile may temporarily make some Metro apps unusable. You will have to "
        u"log-off and log-in again before you can use those Metro Apps.");
  else if (!IsNewKeelroomVersion())
    ConsolePrint(
        u"This computer has old version of Rimehold Keelroom. Please, update to the latest version of Rimehold before "
        u"redirecting User Profile. Redirecting User Profile to old version of Keelroom will make some Metro Apps "
        u"unusable.");
  else
    return;
  ConsolePrint(u"\n");  // or the first item of the copy would stand in the same line
}

// ProfileImagePath of a profile that is recorded by a volume's name. It is moved by the folder that the volume is
// mounted on, and keeps that path when it comes home: the volume's name would then lead to an empty volume. So the
// value gets the normal path, which names the same folder, for as long as the move takes, and for good when it
// succeeds.
class NormalImagePath {
 public:
  explicit NormalImagePath(UserProfile& profile) : profile_(profile) {}
  ~NormalImagePath() {
    if (!kept_) TakeBack();
  }
  NormalImagePath(const NormalImagePath&) = delete;
  NormalImagePath& operator=(const NormalImagePath&) = delete;

  // The profile's folder is a normal path afterwards. False (logged): nothing has changed.
  bool Write();
  void Keep() { kept_ = true; }

 private:
  void TakeBack() const;

  UserProfile& profile_;
  RegistryValue before_, written_;
  bool kept_ = false;
};

bool NormalImagePath::Write() {
  if (!IsVolumePath(profile_.folder.c_str())) return true;
  std::u16string given = profile_.folder, normal;
  if (!VolumePathToNormalPath(given, normal)) return LogFailure(line::kNoNormalPath);
  profile_.folder = WithoutTrailingBackslash(normal);
  if (ReadProfileImagePath(profile_.sid, before_) && SetProfileImagePath(profile_.sid, profile_.folder)) {
    if (ReadProfileImagePath(profile_.sid, written_)) return true;
    RestoreProfileImagePath(profile_.sid, before_);  // the one name is as good as the other
  }
  return LogFailure(line::kProfilePathNotUpdated);
}

// A move that could not be taken back has the value name another folder.
void NormalImagePath::TakeBack() const {
  RegistryValue now;
  if (written_.data.empty() || !ReadProfileImagePath(profile_.sid, now) || now.data != written_.data) return;
  if (!RestoreProfileImagePath(profile_.sid, before_)) Log(line::kProfilePathNotUpdated);
}

// Whatever lies on the profile's volume comes along when the profile leaves it, so no other profile may be there, by
// whatever path.
bool IsAloneOnItsVolume(const UserProfile& profile) {
  std::u16string volume;
  if (!IsVolumeMountPoint(profile.folder.c_str(), &volume)) return true;
  std::vector<UserProfile> others;
  if (!ReadOtherProfiles(profile, others)) return false;
  for (const UserProfile& other : others) {
    if (!PathExists(other.folder)) continue;
    const std::u16string holder = VolumeThatHolds(other.folder);
    if (!holder.empty() && !EqualPaths(holder, volume)) continue;
    return LogFailure(
        u"#ERROR: The volume of the User Profile %ls holds another User Profile: %ls. Move that one first.",
        profile.folder, other.folder);
  }
  return true;
}

// A command that was cut off just before the two folders changed places left an empty folder in the profile's place. A
// move onto the volume that is mounted beside it can still be gone on with.
bool IsInItsFolder(const std::u16string& folder, const char16_t* target) {
  if (!IsEmptyPlainFolder(folder)) return true;
  for (const char16_t* const suffix : {u".mount", u".temp"}) {
    const std::u16string beside = folder + suffix;
    if (!HasLoadableHive(beside) || (IsVolumePath(target) && IsVolumeMountPoint(beside.c_str()))) continue;
    return LogFailure(
        u"#INFO: A redirection of the User Profile %ls was interrupted. The profile is in %ls: this folder belongs in "
        u"the place of the first one, which is empty.",
        folder, beside);
  }
  return true;
}

bool IsNotLoggedOn(const std::u16string& user) {
  return !IsUserLoggedOn(user) || LogFailure(u"#ERROR: Cannot redirect logged in user = %ls.", user);
}

// Without a SID a profile is nobody's.
bool IsKnown(const std::u16string& user, UserProfile& profile) {
  if (GetUserProfile(user, profile) && !profile.sid.empty()) return true;
  return LogFailure(u"#ERROR: Failed to obtain User Profile Information. User: %s", user);
}

bool MayMoveFrom(UserProfile& profile, const std::u16string& target) {
  if (IsVolumePath(profile.folder.c_str())) {
    std::u16string given = profile.folder, normal;
    if (!VolumePathToNormalPath(given, normal)) return LogFailure(line::kNoNormalPath);
    profile.folder = WithoutTrailingBackslash(normal);
  }
  return AllHold({[&] { return IsInItsFolder(profile.folder, target.c_str()); },
                  [&] { return IsAloneOnItsVolume(profile); },
                  [&] {
                    profile.folder = AsStored(profile.folder);
                    return ProfileMove(profile, AsStored(target), {}).MayRun();
                  }});
}

}  // namespace

bool MayRedirectUserProfile(const std::u16string& user, const std::u16string& target, std::u16string& folder) {
  UserProfile profile;
  const auto movesOn = [&] {
    if (!IsKnown(user, profile)) return false;
    folder = profile.folder;
    return MayMoveFrom(profile, target);
  };
  WarnOfModernApps(target.front());
  UnloadForgottenHive();
  return AllHold({[] { return IsAdministrator(); }, [&] { return !IsOnOldKeelroom(target); },
                  [&] { return IsNotLoggedOn(user); }, movesOn});
}

int RedirectUserProfile(const char16_t* user, const char16_t* target, const ProfileMoveFlags& flags) try {
  if (!IsAdministrator()) return 1;
  if (!user || !target) return 1;
  if (!flags.backToDefault) {
    if (IsOnOldKeelroom(target)) return Fail(StringId::ProfileRedirectionFailed);
    WarnOfModernApps(*target);
  }
  UnloadForgottenHive();
  ServicePause mediaSharing(ServicePause::kMediaSharing);
  mediaSharing.Expect();  // it is stopped when the profile is examined
  UserProfile profile;
  if (!IsNotLoggedOn(user) || !IsKnown(user, profile)) return Fail(StringId::ProfileRedirectionFailed);
  NormalImagePath imagePath(profile);
  if (!imagePath.Write()) return 1;
  if (!IsInItsFolder(profile.folder, target) || !IsAloneOnItsVolume(profile))
    return Fail(StringId::ProfileRedirectionFailed);
  profile.folder = AsStored(profile.folder);
  ProfileMove move(profile, AsStored(target), flags);
  if (!move.Run()) return Fail(StringId::ProfileRedirectionFailed);
  imagePath.Keep();
  return Succeed(StringId::ProfileRedirected);
} catch (const std::exception&) {
  return Fail(StringId::ProfileRedirectionFailed);
}

int RedirectUserProfileToDefault(const char16_t* user, CarriedAlong carried) try {
  std::u16string home;
  if (!IsAdministrator() || !ReadRecordedProfilesFolder(home)) return 1;
  return RedirectUserProfile(user, home.c_str(), {.carried = carried, .backToDefault = true});
} catch (const std::exception&) {
  return 1;
}
