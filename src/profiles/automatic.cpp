#include "profiles/automatic.h"

#include <exception>
#include <optional>
#include <string>

#include "configuration/service_config.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "probes/privileges.h"
#include "probes/services.h"
#include "profiles/keelroom_rule.h"
#include "profiles/profiles_location.h"
#include "profiles/recorded_home.h"
#include "profiles/redirection_notes.h"
#include "profiles/shared_profiles_rules.h"
#include "profiles/shared_profiles_steps.h"
#include "regredirect/location.h"
#include "regredirect/registry_keys.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/outcome.h"
#include "text/path_text.h"
#include "validate/relations.h"
#include "win32/win32.h"

namespace {

constexpr CarriedAlong kEverything{.ntfsPermissions = true, .shares = true};

// What a command came to, when not everything is done.
enum class Outcome { Done, Failed, Refused };  // Refused: the console has been told why

bool ReadSection(CQBConfig& config, std::u16string& location, bool& isOn) {
  std::u16string status;
  if (!config.Init()) return LogFailure(line::kConfigNotRead);
  if (!config.GetUserProfileRedirection(&location, &status, nullptr)) return LogFailure(line::kConfigLacksInformation);
  isOn = status == u"1";
  return true;
}

// The configuration may have been lost and made anew while new profiles were created elsewhere, or a run was cut off.
void TellIfProfilesGoElsewhere() {
  ProfileFolderValue directory;
  std::optional<NewProfilesNote> note;
  if (!ReadProfileFolder(ProfileFolder::ProfilesDirectory, directory)) return;
  const bool isNoted = ReadNote(note) && note && EqualPaths(note->location, directory.folder);
  char16_t drive[win32::MAX_PATH] = {};
  const win32::DWORD size = win32::ExpandEnvironmentStringsW(u"%SystemDrive%", drive, win32::MAX_PATH);
  if (!isNoted && (size == 0 || size > win32::MAX_PATH || IsSameOrBelow(directory.folder, drive))) return;
  Log(u"#INFO: The configuration file does not say so, but new user profiles are created in %ls (ProfilesDirectory in "
      u"the profile list).",
      directory.folder);
  if (isNoted)
    Log(u"#INFO: To have them created in %ls again, redirect them to %ls once more, then remove that.", note->home,
        note->location);
}

// What new accounts leave in the profile list must survive as their profiles do. Finds what the configuration lacks for
// that, which is then ours.
bool FindWhatIsMissing(const CQBConfig& config, NewProfilesNote& note) {
  int status = 0;
  std::u16string registryLocation;
  if (!config.GetOutDir(status, registryLocation)) return LogFailure(line::kConfigLacksRegistryLocation);
  note.setsRegistryLocation = status == 0;
  note.monitorsProfileList = !config.IsMonitored(kProfileListKey) && !config.HasParentKey(kProfileListKey);
  return true;
}

bool WriteSection(CQBConfig& config, const NewProfilesNote& note) {
  if (config.SetUserProfileRedirection(u"1", note.location.c_str(), note.home.c_str()) &&
      (!note.monitorsProfileList || config.AddRegKey(kProfileListKey)) &&
      (!note.setsRegistryLocation || config.SetOutDir(true, note.location)))
    return true;
  return LogFailure(u"#ERROR: Unable to set the location of new user profiles in config file.");
}

// The note on new profiles, dropped again unless it is kept, or still tells the truth.
class NoteInForce {
 public:
  NoteInForce() = default;
  NoteInForce(const NoteInForce&) = delete;
  NoteInForce& operator=(const NoteInForce&) = delete;
  ~NoteInForce() {
    ProfileFolderValue directory;
    if (location_.empty() || !ReadProfileFolder(ProfileFolder::ProfilesDirectory, directory) ||
        EqualPaths(directory.folder, location_))
      return;
    DropNote(ProfileFolder::ProfilesDirectory);
  }

  bool Write(const NewProfilesNote& note) {
    location_ = note.location;
    return WriteNote(note);
  }
  void Keep() { location_.clear(); }

 private:
  std::u16string location_;
};

// The profiles folder before new profiles went elsewhere, as far as is known: `present` itself, or what was noted when
// a setting began that the configuration does not know of. That one may be gone on with, but to no other place.
bool FindHome(const std::u16string& present, const std::u16string& location, std::u16string& home) {
  std::optional<NewProfilesNote> note;
  if (!ReadNote(note)) return false;
  home = present;
  if (!note || !EqualPaths(note->location, present)) return true;
  home = note->home;
  if (EqualPaths(location, present)) return IsFolderAndNoLink(home);
  return LogFailure(
      u"#ERROR: New user profiles are created in %ls already, which the configuration file does not say. Redirect them "
      u"to that folder once more, then remove that.",
      present);
}

// A setting on its way, as far as it has been read.
struct Setting {
  CQBConfig config;
  ProfileFolderValue before;
  NewProfilesNote note;
  ProfileCopies copies;
};

// Nothing has changed when this does not answer Done.
Outcome MaySet(const std::u16string& location, bool withSharedProfiles, Setting& setting) {
  std::u16string present;
  bool isOn = false;
  if (!ReadSection(setting.config, present, isOn)) return Outcome::Failed;
  if (isOn) {
    Log(u"#ERROR: New user profiles are created in %ls already.", present);
    Say(StringId::NewProfilesRedirectedAlready);
    return Outcome::Refused;
  }
  if (!RequireProfileFolder(ProfileFolder::ProfilesDirectory, setting.before)) return Outcome::Failed;
  setting.note = {.home = {}, .location = location};
  std::u16string& home = setting.note.home;
  const SharedProfiles named = withSharedProfiles ? kBothProfiles : SharedProfiles{};
  RestartOwed owed = RestartOwed::No;
  const auto noRestartIsOwed = [&] { return (owed = SayIfRestartIsOwed({location})) == RestartOwed::No; };
  const auto mayCopy = [&] {
    return PlanCopies(named, location, home, true, kEverything, setting.copies) &&
           MayBeCopied(setting.copies, location);
  };
  if (!AllHold({[&] { return FindHome(setting.before.folder, location, home); },
                [&] { return MayHoldProfiles(location, home, false); }, [&] { return !IsOnOldKeelroom(location); },
                noRestartIsOwed, mayCopy, [&] { return FindWhatIsMissing(setting.config, setting.note); }}))
    return owed == RestartOwed::Yes ? Outcome::Refused : Outcome::Failed;
  TellIfOnOneVolume(home, location);
  return Outcome::Done;
}

Outcome Set(const std::u16string& location, bool withSharedProfiles) {
  ProfilesLocation folder(location);
  Setting setting;  // the copies go before the folder
  if (const Outcome may = MaySet(location, withSharedProfiles, setting); may != Outcome::Done) return may;
  const ProfileCopies& copies = setting.copies;
  const NewProfilesNote& note = setting.note;

  NoteInForce noted;  // until the value is back
  ProfileFolderChange directory(ProfileFolder::ProfilesDirectory, setting.before);
  if (!folder.Make(note.home) || !CopyAndMakeLive(copies) || !noted.Write(note) || !directory.Set(location) ||
      !WriteSection(setting.config, note) || !SaveConfiguration(setting.config))
    return Outcome::Failed;
  directory.Keep();
  noted.Keep();
  for (const auto& copy : copies) copy->Keep();
  folder.Keep();
  // What the service does with a request cannot be taken back.
  FollowPublicProfile(copies);
  StartQuillbayService();
  return Outcome::Done;
}

// One removal, from the configuration that is to be read to the location that is left.
class Removal {
 public:
  Outcome Run();
  // As far as it could be read.
  const std::u16string& location() const { return location_; }
  bool onVolume() const { return onVolume_; }

 private:
  Outcome MayRemove();
  bool BringBack();
  bool EraseSection(const std::u16string& home);
  void LeaveLocation(bool restartOwed) const;

  CQBConfig config_;
  std::u16string location_;
  std::optional<NewProfilesNote> note_;  // of this location
  bool onVolume_ = false, leavesRegistryLocation_ = false, holdsRegistryLocation_ = false;
};

Outcome Removal::Run() {
  const Outcome asked = MayRemove();
  if (asked != Outcome::Done) return asked;
  return BringBack() ? Outcome::Done : Outcome::Failed;
}

Outcome Removal::MayRemove() {
  bool isOn = false;
  if (!ReadSection(config_, location_, isOn)) return Outcome::Failed;
  if (!isOn) {
    Log(u"#ERROR: New user profiles are not redirected.");
    TellIfProfilesGoElsewhere();
    Say(StringId::NewProfilesNotRedirected);
    return Outcome::Refused;
  }
  onVolume_ = IsVolumeMountPoint(location_.c_str()) != 0;
  if (!ReadNote(note_)) return Outcome::Failed;
  if (note_ && !EqualPaths(note_->location, location_)) note_.reset();
  std::vector<std::u16string> places;
  for (const ProfileFolder which : {ProfileFolder::Default, ProfileFolder::Public}) {
    ProfileFolderValue value;
    if (!RequireProfileFolder(which, value)) return Outcome::Failed;
    places.push_back(JoinPath(location_, LastComponent(value.folder)));
  }
  const RestartOwed owed = SayIfRestartIsOwed(places);
  if (owed != RestartOwed::No) return owed == RestartOwed::Yes ? Outcome::Refused : Outcome::Failed;
  if (onVolume_) Say(StringId::VolumeRemovalBegins);
  return Outcome::Done;
}

bool Removal::BringBack() {
  const std::u16string home = RecordedProfilesFolder(config_);
  if (home.empty()) return LogFailure(line::kConfigLacksInformation);
  ProfileFolderValue present;
  ProfileReturns returns;
  if (!RequireProfileFolder(ProfileFolder::ProfilesDirectory, present)) return false;
  if (!IsFolderAndNoLink(home) || !PlanReturns(kBothProfiles, home, note_ ? u"" : location_, kEverything, returns))
    return false;
  ProfileFolderChange directory(ProfileFolder::ProfilesDirectory, present);
  if (!CopyBackAndMakeLive(returns) || !directory.Set(home) || !EraseSection(home) || !SaveConfiguration(config_))
    return false;
  directory.Keep();
  DropNote(ProfileFolder::ProfilesDirectory);
  for (const auto& back : returns) back->Keep();
  LeaveCopies(returns);
  FollowPublicProfile(returns);
  LeaveLocation(DeleteCopies(returns));
  return true;
}

// The monitored key and the location for registry data go as far as they came with the location.
bool Removal::EraseSection(const std::u16string& home) {
  int status = 0;
  std::u16string registryLocation;
  const bool leavesKey = note_ && note_->monitorsProfileList && config_.IsMonitored(kProfileListKey);
  if (config_.SetUserProfileRedirection(u"0", u"", home.c_str()) &&
      (!leavesKey || config_.RemoveRegKey(kProfileListKey)) && config_.GetOutDir(status, registryLocation)) {
    leavesRegistryLocation_ = note_ && note_->setsRegistryLocation && status != 0 &&
                              EqualPaths(registryLocation, location_) && config_.MonitoredKeys().empty();
    holdsRegistryLocation_ =
        status != 0 && !leavesRegistryLocation_ && IsReallySameOrBelow(registryLocation, location_);
    if (!note_)
      Log(u"#INFO: Nothing is noted of what came with %ls. The monitored registry keys and the location for registry "
          u"data stay.",
          location_);
    if (!leavesRegistryLocation_ || config_.SetOutDir(false)) return true;
  }
  return LogFailure(u"#ERROR: Unable to remove the location of new user profiles from config file.");
}

// Profiles that were made there stay, and the location with them. So does one that keeps registry data, and a link: a
// redirected folder is never empty by being one.
void Removal::LeaveLocation(bool restartOwed) const {
  if (leavesRegistryLocation_) LeaveRegKeyLocation(location_);
  if (location_.empty() || holdsRegistryLocation_ || !LookAt(location_).IsPlainDirectory() ||
      RemoveEmptyFolder(location_) || !restartOwed)
    return;
  // Windows passes over it then if it is not empty.
  win32::MoveFileExW(location_.c_str(), nullptr, win32::MOVEFILE_DELAY_UNTIL_REBOOT);
}

int SayRemovalFailed(const Removal& removal) {
  std::u16string location = removal.location();
  // Without a configuration, Windows says where new profiles are.
  if (ProfileFolderValue directory; location.empty() && ReadProfileFolder(ProfileFolder::ProfilesDirectory, directory))
    location = directory.folder;
  SayWhereErrorsAreLogged();
  const std::u16string said = removal.onVolume() ? LoadResourceString(StringId::VolumeRemovalFailed)
                                                 : u"\n" + FormatString(StringId::NewProfilesRemovalFailed, location);
  ConsolePrint(said);
  Log(u"%ls", said);
  return 1;
}

}  // namespace

bool MaySetAutoRedirection(const std::u16string& location, bool withSharedProfiles,
                           std::vector<std::u16string>& copied) {
  const auto maySet = [&] {
    Setting setting;
    const bool may = MaySet(AsStored(WithoutTrailingBackslash(location)), withSharedProfiles, setting) == Outcome::Done;
    for (const auto& copy : setting.copies) copied.push_back(copy->original());
    return may;
  };
  return AllHold({[] { return IsAdministrator(); }, maySet});
}

int SetAutoRedirection(const char16_t* location, bool withSharedProfiles) try {
  if (!IsAdministrator()) return 1;
  if (!location || !*location) {
    Log(line::kInputPathMissing);
    return Fail(StringId::NewProfilesRedirectionFailed);
  }
  const std::u16string folder = AsStored(WithoutTrailingBackslash(location));
  const Outcome outcome = Set(folder, withSharedProfiles);
  if (outcome == Outcome::Refused) return 1;
  return outcome == Outcome::Done ? Succeed(StringId::NewProfilesRedirected, folder)
                                  : Fail(StringId::NewProfilesRedirectionFailed);
} catch (const std::exception&) {
  return Fail(StringId::NewProfilesRedirectionFailed);
}

int RemoveAutoRedirection() try {
  if (!IsAdministrator()) return 1;
  Removal removal;
  try {
    const Outcome outcome = removal.Run();
    if (outcome == Outcome::Refused) return 1;
    if (outcome == Outcome::Done) return Succeed(StringId::NewProfilesRemovalDone, removal.location());
  } catch (const std::exception&) {
  }
  return SayRemovalFailed(removal);
} catch (const std::exception&) {
  return 1;
}

int ShowAutoRedirection() try {
  CQBConfig config;
  std::u16string location;
  bool isOn = false;
  if (!ReadSection(config, location, isOn)) return 1;
  if (isOn) {
    Say(StringId::NewProfilesLocationIs, location);
    return 0;
  }
  TellIfProfilesGoElsewhere();
  Say(StringId::NewProfilesNotRedirected);
  return 0;
} catch (const std::exception&) {
  return 1;
}
