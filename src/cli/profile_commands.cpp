// AutoRedirectUP, RedirectUP and RedirectUPDefault.

#include <algorithm>

#include "cli/invocation.h"
#include "links/mounted_folder.h"
#include "probes/service_pause.h"
#include "profiles/automatic.h"
#include "profiles/profile_listing.h"
#include "profiles/shared_profiles.h"
#include "profiles/user_profile.h"
#include "report/console.h"
#include "report/debugger.h"
#include "report/log.h"
#include "text/ascii_case.h"
#include "win32/system.h"

namespace {

constexpr std::u16string_view kBothProfiles = u"RedirectDefaultAndPublicProfile";

int RefuseParameters(StringId usage) {
  ConsoleFormat(u"\nInvalid parameters\n%s", LoadResourceString(usage));
  return 1;
}

// A switch must stand on the command line as one, and its word nowhere else: "/RedirectUPDefault defaultprofile" and
// "//DefaultProfile" are slips, not users' names.
bool SwitchIsMistyped(const Invocation& invocation, std::u16string_view name) {
  const std::u16string word = LowerAscii(name);
  const bool asSwitch = invocation.lowered.find(u"/" + word) != std::u16string::npos;
  const bool anywhere = invocation.lowered.find(word) != std::u16string::npos;
  return invocation.line.Has(name) ? !asSwitch : anywhere;
}

bool ProfileSwitchIsMistyped(const Invocation& invocation) {
  return invocation.table.vistaOrLater &&
         (SwitchIsMistyped(invocation, kDefaultProfile) || SwitchIsMistyped(invocation, kPublicProfile));
}

// Windows before Vista has neither profile.
bool NamesDefaultOrPublic(const Invocation& invocation) {
  return invocation.table.vistaOrLater && invocation.line.NamesDefaultOrPublic();
}

std::u16string ProfileName(const Invocation& invocation) {
  if (!NamesDefaultOrPublic(invocation)) return invocation.line.arguments.front();
  return std::u16string(invocation.line.Has(kDefaultProfile) ? kDefaultProfile : kPublicProfile);
}

SharedProfiles NamedProfiles(const Invocation& invocation) {
  return {.defaultProfile = invocation.line.Has(kDefaultProfile), .publicProfile = invocation.line.Has(kPublicProfile)};
}

// Neither arguments nor switches; /c, which means nothing, is none.
bool IsBare(const Invocation& invocation) {
  const std::vector<std::u16string>& switches = invocation.line.switches;
  return invocation.line.arguments.empty() &&
         std::all_of(switches.begin(), switches.end(),
                     [](const std::u16string& given) { return EqualIgnoringAsciiCase(given, u"c"); });
}

bool AutoParametersAreInvalid(const Invocation& invocation) {
  if (!invocation.table.vistaOrLater) return false;
  if (invocation.Removes()) return invocation.lowered.find(LowerAscii(kBothProfiles)) != std::u16string::npos;
  const bool noLocation = invocation.line.arguments.empty();
  return noLocation || SwitchIsMistyped(invocation, kBothProfiles);
}

int RunRemoval(const Invocation& invocation) {
  ServicePause mediaSharing(ServicePause::kMediaSharing);
  mediaSharing.Begin();
  if (invocation.line.arguments.empty()) return RemoveAutoRedirection();
  Log(u"Remove Auto redirect newly created user profiles is not successful.\nUsage:\n");
  return SayUsage(StringId::AutoRedirectUPName, StringId::AutoRedirectUPUsage);
}

int RunSetting(const Invocation& invocation) {
  TellDebugger(u"Before AutoRedirectNewUserProfile");
  const char16_t* const location = invocation.line.arguments.front().c_str();
  if (IsVolumePath(location)) {
    ConsolePrint(kNotOnVolume);
    return 0;
  }
  int result = 0;
  {
    ServicePause mediaSharing(ServicePause::kMediaSharing);
    mediaSharing.Begin();
    result = SetAutoRedirection(location, !invocation.table.vistaOrLater || invocation.line.Has(kBothProfiles));
  }
  TellDebugger(u"After AutoRedirectNewUserProfile");
  return result;
}

}  // namespace

int RunAutoRedirectUP(const Invocation& invocation) {
  if (IsBare(invocation)) return ShowAutoRedirection();
  if (AutoParametersAreInvalid(invocation)) return RefuseParameters(StringId::AutoRedirectUPUsage);
  if (RefusedWhileFrozen(invocation)) return 0;
  return invocation.Removes() ? RunRemoval(invocation) : RunSetting(invocation);
}

int RunRedirectUP(const Invocation& invocation) {
  if (invocation.line.arguments.empty()) return ListRedirectedProfiles() ? 0 : 1;
  if (ProfileSwitchIsMistyped(invocation)) return RefuseParameters(StringId::RedirectUPUsage);
  if (RefusedWhileFrozen(invocation)) return 0;
  TellDebugger(
      (u"RedirectUserProfile() User: " + ProfileName(invocation) + u" & TargetDir: " + invocation.line.arguments.back())
          .c_str());
  const char16_t* const location = invocation.line.arguments.back().c_str();
  if (!NamesDefaultOrPublic(invocation))
    return RedirectUserProfile(invocation.line.arguments.front().c_str(), location, {.carried = invocation.Carried()});
  ServicePause mediaSharing(ServicePause::kMediaSharing);
  mediaSharing.Begin();
  return RedirectSharedProfiles(NamedProfiles(invocation), location, invocation.Carried());
}

int RunRedirectUPDefault(const Invocation& invocation) {
  if (ProfileSwitchIsMistyped(invocation)) return RefuseParameters(StringId::RedirectUPDefaultUsage);
  if (RefusedWhileFrozen(invocation)) return 0;
  if (!NamesDefaultOrPublic(invocation))
    return RedirectUserProfileToDefault(invocation.line.arguments.front().c_str(), invocation.Carried());
  ServicePause mediaSharing(ServicePause::kMediaSharing);
  mediaSharing.Begin();
  return RedirectSharedProfilesToDefault(NamedProfiles(invocation), invocation.Carried());
}
