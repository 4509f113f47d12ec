// Profiles of users, Default and Public, and where new profiles are made.
#include <algorithm>
#include <array>

#include "configuration/service_config.h"
#include "links/mounted_folder.h"
#include "links/volume_paths.h"
#include "profiles/profile_folders.h"
#include "profiles/profile_list.h"
#include "profiles/recorded_home.h"
#include "profiles/user_accounts.h"
#include "regredirect/registry_keys.h"
#include "survey/inventory.h"
#include "survey/place.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kHive = u"NTUSER.DAT";

// A name by which a command finds just this profile; the SID when there is none.
void NameUser(Row& row, const UserProfile& profile, const std::vector<UserProfile>& all) {
  const std::u16string name = NameOfAccount(profile.sid), last = LastComponent(profile.folder);
  row.user = name.empty() ? profile.sid : name;
  if (!name.empty() && EqualIgnoringAsciiCase(SidOfAccount(name), profile.sid)) return;
  const auto sharesName = [&](const UserProfile& one) { return EqualPaths(LastComponent(one.folder), last); };
  if (std::ranges::count_if(all, sharesName) == 1 && SidOfAccount(last).empty())
    row.user = last;
  else
    row.isNameable = false;
}

// Of a hive that is not loaded no more is read than that it is one: loading it would write to it.
void ExamineHiveFile(Row& row, const std::u16string& folder) {
  const std::u16string path = JoinPath(folder, kHive);
  const win32::UniqueFile file{win32::CreateFileW(path.c_str(), win32::GENERIC_READ, kShareAll, nullptr,
                                                  win32::OPEN_EXISTING, win32::FILE_FLAG_BACKUP_SEMANTICS, nullptr)};
  std::array<char, 4> head{};
  win32::DWORD size = 0;
  if (!file || !win32::ReadFile(file.get(), head.data(), head.size(), &size, nullptr))
    row.Find(Finds::NotTold,
             FormatText(u"%ls cannot be read (error %u). It may be in use.", path, win32::GetLastError()));
  else if (std::string_view(head.data(), size) != "regf")
    row.Find(Finds::HiveDamaged, folder);
}

// The registry of a user who is logged on says which profile he has.
void ExamineLoadedHive(Row& row, const UserProfile& profile) {
  win32::UniqueKey key;
  const std::u16string path = profile.sid + u"\\Volatile Environment";
  win32::LSTATUS error = win32::RegOpenKeyExW(win32::HKEY_USERS, path.c_str(), 0, win32::KEY_QUERY_VALUE, key.put());
  RegistryValue value;
  if (error == 0) error = ReadRegistryValue(key.get(), u"USERPROFILE", value);
  if (error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return;
  if (error != 0)
    row.Find(Finds::NotTold, FormatText(u"The registry of the user %ls cannot be read (error %u).", row.user, error));
  else if (const std::u16string folder = WithoutTrailingBackslash(RawText(value)); !EqualPaths(folder, profile.folder))
    row.Find(Finds::HiveElsewhere, folder);
}

// Something is in it: a folder with contents, or one on which a volume is mounted. `row` is told when nobody knows.
bool HoldsSomething(Row& row, const std::u16string& folder) {
  const Look look = LookAt(folder);
  if (look.presence == Presence::NotTold) row.Find(Finds::NotTold, NotToldOf(folder, win32::GetLastError()));
  if (!look.IsDirectory() || look.IsReparsePoint()) return look.IsDirectory();
  const std::optional<bool> empty = IsFolderEmpty(folder);
  if (!empty) row.Find(Finds::NotTold, NotToldOf(folder, win32::GetLastError()));
  return empty && !*empty;
}

// What a command that was cut off has left in the folders through which a profile and its volume change places.
void FindBeside(Row& row, const UserProfile& profile, const std::vector<UserProfile>& all) {
  for (const std::u16string suffix : {u".mount", u".temp"}) {
    if (profile.folder.ends_with(suffix)) row.Find(Finds::ProfileInSideFolder, profile.folder);
    const std::u16string beside = profile.folder + suffix;
    const auto isOthers = [&](const UserProfile& other) { return EqualPaths(other.folder, beside); };
    if (std::ranges::any_of(all, isOthers) || !HoldsSomething(row, beside)) continue;
    const bool isWhole = HasLoadableHive(beside) && !HasLoadableHive(profile.folder);
    row.Find(isWhole ? Finds::ProfileBeside : Finds::ProfilePartBeside, beside);
  }
}

// The folder is there: is it the profile?
void ExamineHive(Row& row, const UserProfile& profile) {
  const Look hive = LookAt(JoinPath(profile.folder, kHive));
  if (hive.presence == Presence::NotTold)
    return row.Find(Finds::NotTold, NotToldOf(JoinPath(profile.folder, kHive), win32::GetLastError()));
  if (profile.hiveState == kHiveLoaded) return ExamineLoadedHive(row, profile);
  if (hive.IsPlainFile()) return ExamineHiveFile(row, profile.folder);
  // Of a profile that nobody may change.
  if (hive.IsGone() && LookAt(JoinPath(profile.folder, u"NTUSER.MAN")).IsThere()) return;
  if (!row.Has(Finds::ProfileBeside)) row.Find(Finds::HiveMissing, profile.folder);
}

void ExamineRedirected(Row& row, const UserProfile& profile, const Stands& stands) {
  if (stands.look.presence == Presence::NotTold || !stands.IsReadable())
    return row.Find(Finds::NotTold, NotToldOf(profile.folder, stands.error));
  if (stands.look.IsGone()) return row.Find(Finds::ProfileMissing, profile.folder);
  if (!stands.look.IsDirectory()) return row.Find(Finds::ProfileIsFile, profile.folder);
  if (stands.IsVolume() && LookAt(row.target).IsGone()) return row.Find(Finds::VolumeMissing);
  ExamineHive(row, profile);
  if (stands.IsVolume() || EqualPaths(row.source, profile.folder)) return;
  const Look second = LookAt(JoinPath(row.source, kHive));
  if (second.presence == Presence::NotTold) row.Find(Finds::NotTold, NotToldOf(row.source, win32::GetLastError()));
  if (second.IsThere() && !row.Has(Finds::HiveMissing))
    row.Find(Finds::SecondHive);
  else if (HoldsSomething(row, row.source))
    row.Find(Finds::ProfileSplit);
}

// A profile in its place counts only when a command that was cut off has left it in pieces.
void ExamineAtHome(Row& row, const UserProfile& profile, const Stands& stands) {
  if (stands.look.presence == Presence::NotTold) row.Find(Finds::NotTold, NotToldOf(profile.folder, stands.error));
  if (!stands.look.IsThere()) return;
  const Look hive = LookAt(JoinPath(profile.folder, kHive));
  if (!hive.IsThere()) ExamineHive(row, profile);
}

void AddUsers(Inventory& inventory, const std::vector<UserProfile>& profiles, const std::u16string& home) {
  for (UserProfile profile : profiles) {
    profile.folder = DriveForm(profile.folder);
    const Stands stands = WhatStandsAt(profile.folder);
    const std::u16string place = JoinPath(home, LastComponent(profile.folder));
    const bool isRedirected = !EqualPaths(profile.folder, place) || stands.IsVolume();
    Row row{.kind = RowKind::Profile,
            .source = stands.IsVolume() ? profile.folder : place,
            .target = stands.IsVolume() ? stands.LeadsTo() : profile.folder};
    NameUser(row, profile, profiles);
    FindBeside(row, profile, profiles);
    if (isRedirected)
      ExamineRedirected(row, profile, stands);
    else
      ExamineAtHome(row, profile, stands);
    for (const UserProfile& other : profiles)
      if (isRedirected && other.sid != profile.sid && EqualPaths(DriveForm(other.folder), profile.folder))
        row.Find(Finds::SameProfile, profile.folder);
    if (isRedirected || !row.IsWhole()) inventory.rows.push_back(std::move(row));
  }
}

// The configuration's section, as far as it is there.
struct Section {
  bool isOn = false;
  std::u16string location;
};

void ExamineNewProfiles(Row& row, const CQBConfig& config, const std::u16string& present) {
  int status = 0;
  std::u16string registryLocation;
  if (!EqualPaths(present, row.target)) row.Find(Finds::NewProfilesElsewhere, present);
  const Look there = LookAt(row.target);
  if (there.presence == Presence::NotTold)
    row.Find(Finds::NotTold, NotToldOf(row.target, win32::GetLastError()));
  else if (!there.IsDirectory())
    row.Find(Finds::NewProfilesMissing);
  const Stands home = WhatStandsAt(row.source);
  if (home.look.presence == Presence::NotTold)
    row.Find(Finds::NotTold, NotToldOf(row.source, home.error));
  else if (!home.look.IsDirectory() || home.IsJunction() || home.IsSymbolicLink())
    row.Find(Finds::NewProfilesHomeMissing);
  if (!config.GetOutDir(status, registryLocation))
    row.Find(Finds::NotTold, u"The configuration does not tell the location for registry data.");
  else if (status == 0 || (!config.IsMonitored(kProfileListKey) && !config.HasParentKey(kProfileListKey)))
    row.Find(Finds::ProfileListNotKept);
}

void AddNewProfiles(Inventory& inventory, const CQBConfig* config, const Section& section,
                    const std::optional<NewProfilesNote>& note, const std::u16string& home) {
  ProfileFolderValue present;
  if (!ReadProfileFolder(ProfileFolder::ProfilesDirectory, present)) {
    inventory.untold.push_back(u"The registry does not tell where Windows makes new profiles.");
    return;
  }
  if (section.isOn) {
    Row row{.kind = RowKind::NewProfiles, .source = home, .target = section.location};
    ExamineNewProfiles(row, *config, present.folder);
    inventory.rows.push_back(std::move(row));
    if (note && EqualPaths(note->location, section.location)) inventory.newProfiles = note;
  } else if (note && EqualPaths(note->location, present.folder)) {
    Row row{.kind = RowKind::NewProfiles, .source = note->home, .target = note->location};
    row.Find(Finds::NewProfilesOff);
    inventory.rows.push_back(std::move(row));
  }
}

void ExamineShared(Row& row, const std::u16string& volume) {
  const Look copy = LookAt(row.target);
  if (copy.presence == Presence::NotTold) return row.Find(Finds::NotTold, NotToldOf(row.target, win32::GetLastError()));
  if (!copy.IsDirectory()) return row.Find(Finds::SharedMissing);
  if (volume.empty()) return;
  const std::u16string present = VolumeThatHolds(row.target);
  if (present.empty())
    row.Find(Finds::NotTold, u"Windows does not tell on which volume " + row.target + u" is.");
  else if (!EqualPaths(present, volume))
    row.Find(Finds::SharedVolumeMissing, volume);
}

void AddShared(Inventory& inventory, ProfileFolder which, const Section& section, bool isNoted,
               const std::u16string& home) {
  ProfileFolderValue value;
  std::optional<SharedProfileNote> note;
  // Where Windows has no such value, nothing is redirected by it.
  if (ReadMachineValue(kProfileListPath, which == ProfileFolder::Default ? u"Default" : u"Public", value) ==
      win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND})
    return;
  if (!ReadProfileFolder(which, value) || !ReadNote(which, note)) {
    inventory.untold.push_back(which == ProfileFolder::Default
                                   ? u"The registry does not tell where the Default profile is."
                                   : u"The registry does not tell where the Public profile is.");
    return;
  }
  const std::u16string name = LastComponent(value.folder);
  if (note && !EqualPaths(note->copy, value.folder)) note.reset();
  // A version that noted nothing put them into the location.
  if (!note && section.isOn && !isNoted && EqualPaths(value.folder, JoinPath(section.location, name)))
    note = SharedProfileNote{JoinPath(home, name), value.folder, {}};
  if (!note) return;
  Row row{.kind = which == ProfileFolder::Default ? RowKind::DefaultProfile : RowKind::PublicProfile,
          .source = note->original,
          .target = note->copy};
  ExamineShared(row, note->volume);
  inventory.rows.push_back(std::move(row));
}

bool FindHome(const CQBConfig* config, std::u16string& home) {
  if (!config) return ReadProfilesHome(home);
  home = RecordedProfilesFolder(*config);
  return !home.empty();
}

}  // namespace

void AddProfiles(Inventory& inventory, const CQBConfig* config, bool isTold, ProfileFolders& folders) {
  std::vector<UserProfile> profiles;
  std::optional<NewProfilesNote> note;
  Section section;
  std::u16string status, home;
  folders.areAll = ReadUserProfiles(profiles);
  if (!folders.areAll) inventory.untold.push_back(u"The registry does not tell all user profiles.");
  if (!ReadNote(note)) inventory.untold.push_back(u"The registry does not tell what is noted of redirected profiles.");
  if (config && !config->GetUserProfileRedirection(&section.location, &status, nullptr)) {
    inventory.untold.push_back(u"The configuration does not tell where new profiles are created.");
    isTold = false;
  }
  section.isOn = status == u"1";
  for (const UserProfile& profile : profiles) folders.paths.push_back(DriveForm(profile.folder));
  if (!isTold) return;
  if (!FindHome(config, home)) {
    inventory.untold.push_back(u"It is not recorded in which folder profiles are at home.");
    return;
  }
  AddUsers(inventory, profiles, home);
  const bool isNoted = note && EqualPaths(note->location, section.location);
  AddShared(inventory, ProfileFolder::Default, section, isNoted, home);
  AddShared(inventory, ProfileFolder::Public, section, isNoted, home);
  AddNewProfiles(inventory, config, section, note, home);
}
