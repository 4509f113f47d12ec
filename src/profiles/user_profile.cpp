#include "profiles/user_profile.h"

#include <exception>
#include <string>

#include "cli/console.h"
#include "fsops/mounted_folder.h"
#include "fsops/volume_paths.h"
#include "log/log.h"
#include "probes/keelroom.h"
#include "probes/services.h"
#include "probes/windows_version.h"
#include "profiles/keelroom_rule.h"
#include "profiles/profile_move.h"
#include "profiles/recorded_home.h"
#include "profiles/user_accounts.h"
#include "profiles/user_hive.h"
#include "redirect/outcome.h"
#include "redirect/path_text.h"

namespace {

constexpr unsigned kSucceeded = 138;
constexpr unsigned kFailed = 146;

// Media sharing is stopped while a profile is examined; one that ran before runs again afterwards.
class MediaSharingAsFound {
 public:
  MediaSharingAsFound() : wasRunning_(IsServiceRunning(kMediaSharingService)) {}
  ~MediaSharingAsFound() {
    if (wasRunning_ && !IsServiceRunning(kMediaSharingService))
      ControlServiceAndWait(kMediaSharingService, kStartService);
  }
  MediaSharingAsFound(const MediaSharingAsFound&) = delete;
  MediaSharingAsFound& operator=(const MediaSharingAsFound&) = delete;

 private:
  const bool wasRunning_;
};

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

// A profile that is recorded by a volume's name is moved by the folder that the volume is mounted on.
bool ToNormalPath(std::u16string& folder) {
  if (!IsVolumePath(folder.c_str())) return true;
  std::u16string given = folder, normal;
  if (!VolumePathToNormalPath(given, normal)) {
    Log(u"#ERROR: Volume Path to Normal Path Conversion Failed.");
    return false;
  }
  folder = WithoutTrailingBackslash(normal);
  return true;
}

bool FindProfile(const std::u16string& user, UserProfile& profile) {
  if (IsUserLoggedOn(user)) {
    Log(u"#ERROR: Cannot redirect logged in user = %ls.", user);
    return false;
  }
  // Without a SID it is nobody's.
  if (GetUserProfile(user, profile) && !profile.sid.empty()) return true;
  Log(u"#ERROR: Failed to obtain User Profile Information. User: %s", user);
  return false;
}

}  // namespace

int RedirectUserProfile(const char16_t* user, const char16_t* target, int copyNtfsPermissions, int moveShares,
                        int backToDefault) try {
  if (!IsAdministrator()) return 1;
  if (!user || !target) return 1;
  if (!backToDefault) {
    if (IsOnOldKeelroom(target)) return Fail(kFailed);
    WarnOfModernApps(*target);
  }
  UnloadForgottenHive();
  const MediaSharingAsFound mediaSharing;
  UserProfile profile;
  if (!FindProfile(user, profile)) return Fail(kFailed);
  if (!ToNormalPath(profile.folder)) return 1;
  ProfileMove move(profile, target, {copyNtfsPermissions, moveShares, backToDefault});
  return move.Run() ? Succeed(kSucceeded) : Fail(kFailed);
} catch (const std::exception&) {
  return Fail(kFailed);
}

int RedirectUserProfileToDefault(const char16_t* user, int copyNtfsPermissions, int moveShares) try {
  std::u16string home;
  if (!IsAdministrator() || !ReadRecordedProfilesFolder(home)) return 1;
  return RedirectUserProfile(user, home.c_str(), copyNtfsPermissions, moveShares, 1);
} catch (const std::exception&) {
  return 1;
}
