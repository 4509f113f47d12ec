#include "profiles/shared_profiles.h"

#include <exception>
#include <optional>
#include <string>

#include "configuration/service_config.h"
#include "links/real_path.h"
#include "probes/privileges.h"
#include "profiles/keelroom_rule.h"
#include "profiles/profiles_location.h"
#include "profiles/recorded_home.h"
#include "profiles/redirection_notes.h"
#include "profiles/shared_profiles_rules.h"
#include "profiles/shared_profiles_steps.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/outcome.h"
#include "text/path_text.h"
#include "validate/relations.h"

namespace {

// Everything that may refuse; nothing has changed then.
bool MayRedirect(SharedProfiles which, const std::u16string& location, const std::u16string& home, CarriedAlong carried,
                 ProfileCopies& copies) {
  if (!MayHoldProfiles(location, home, true) || IsOnOldKeelroom(location) ||
      !PlanCopies(which, location, home, false, carried, copies))
    return false;
  std::vector<std::u16string> places;
  for (const auto& copy : copies) places.push_back(copy->copy());
  if (SayIfRestartIsOwed(places) != RestartOwed::No || !MayBeCopied(copies, location)) return false;
  TellIfOnOneVolume(home, location);
  return true;
}

bool Redirect(SharedProfiles which, const std::u16string& location, CarriedAlong carried) {
  std::u16string home;
  if (!ReadRecordedProfilesFolder(home)) return false;
  ProfilesLocation folder(location);
  ProfileCopies copies;
  if (!MayRedirect(which, location, home, carried, copies) || !folder.Make(home) || !CopyAndMakeLive(copies))
    return false;
  for (const auto& copy : copies) copy->Keep();
  folder.Keep();
  FollowPublicProfile(copies);
  return true;
}

// Where new profiles are created by the configuration, although nothing is noted of it; empty when that is not so.
bool ReadLocationWithoutNote(std::u16string& location) {
  std::optional<NewProfilesNote> note;
  std::u16string status;
  CQBConfig config;
  if (!ReadNote(note)) return false;
  if (config.path().empty()) return true;  // without the service, notes are all there is
  if (!config.Init() || !config.GetUserProfileRedirection(&location, &status, nullptr))
    return LogFailure(line::kConfigLacksInformation);
  if (status != u"1" || (note && EqualPaths(note->location, location))) location.clear();
  return true;
}

bool BringBack(SharedProfiles which, CarriedAlong carried) {
  std::u16string home, location;
  ProfileReturns returns;
  if (!ReadRecordedProfilesFolder(home) || !ReadLocationWithoutNote(location) ||
      !PlanReturns(which, home, location, carried, returns))
    return false;
  if (returns.empty()) return LogFailure(u"#ERROR: No profile that was named is redirected.");
  std::vector<std::u16string> places;
  for (const auto& back : returns) places.push_back(back->copy());
  if (SayIfRestartIsOwed(places) != RestartOwed::No || !CopyBackAndMakeLive(returns)) return false;
  for (const auto& back : returns) back->Keep();
  LeaveCopies(returns);
  FollowPublicProfile(returns);
  DeleteCopies(returns);
  return true;
}

}  // namespace

int RedirectSharedProfiles(SharedProfiles which, const char16_t* location, CarriedAlong carried) try {
  if (!IsAdministrator()) return 1;
  if (!location || !*location) {
    Log(line::kInputPathMissing);
    return Fail(StringId::ProfileRedirectionFailed);
  }
  return Redirect(which, AsStored(WithoutTrailingBackslash(location)), carried)
             ? Succeed(StringId::ProfileRedirected)
             : Fail(StringId::ProfileRedirectionFailed);
} catch (const std::exception&) {
  return Fail(StringId::ProfileRedirectionFailed);
}

int RedirectSharedProfilesToDefault(SharedProfiles which, CarriedAlong carried) try {
  if (!IsAdministrator()) return 1;
  return BringBack(which, carried) ? Succeed(StringId::ProfileRedirected) : Fail(StringId::ProfileRedirectionFailed);
} catch (const std::exception&) {
  return Fail(StringId::ProfileRedirectionFailed);
}
