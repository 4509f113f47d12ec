#include "profiles/shared_profiles_rules.h"

#include "fsops/file_list.h"
#include "links/junction.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "links/volume_paths.h"
#include "profiles/profile_folders.h"
#include "profiles/profile_list.h"
#include "records/redirected_places.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "validate/free_space.h"
#include "validate/path_rules.h"
#include "validate/relations.h"
#include "validate/validate.h"
#include "win32/win32.h"

namespace {

bool IsApartFromHome(const std::u16string& location, const std::u16string& home) {
  if (AreApart(location, home)) return true;
  // A drive's root holds the profiles folder of that drive, and much else.
  if (IsDriveRoot(location.c_str()))
    Log(line::kFolderRequired, location);
  else
    Log(u"#ERROR: The location %ls is the profiles folder %ls, lies in it or holds it. Browse to a different location.",
        location, home);
  return false;
}

// What were put into a profile would go wherever that goes.
bool IsOutsideProfiles(const std::u16string& location) {
  std::vector<UserProfile> profiles;
  if (!ReadOtherProfiles({}, profiles)) return false;
  for (const ProfileFolder which : {ProfileFolder::Default, ProfileFolder::Public})
    if (ProfileFolderValue value; !RequireProfileFolder(which, value)) return false;
  for (const UserProfile& profile : profiles) {
    if (!IsReallySameOrBelow(location, DriveForm(profile.folder))) continue;
    return LogFailure(u"#ERROR: The location %ls lies in the profile %ls. Browse to a different location.", location,
                      profile.folder);
  }
  return true;
}

}  // namespace

bool MayHoldProfiles(const std::u16string& location, const std::u16string& home, bool allowDriveRoot) {
  if (!IsOrdinaryPath(location)) return false;
  const bool asRoot = allowDriveRoot && IsDriveRoot(location.c_str());
  const bool mustExist = !asRoot && PathExists(location);
  // Without a source, just the rules for the target are asked.
  return AllHold({[&] { return ValidateTargetPath(location.c_str(), {.mustExist = mustExist}); },
                  [&] { return mustExist || !IsSystemFolder(location.c_str(), {.quiet = true}); },
                  [&] { return IsOutsideSystemFolders(location); }, [&] { return IsApartFromHome(location, home); },
                  [&] { return IsOutsideProfiles(location); },
                  [&] { return CheckPathRelations(u"", location.c_str(), {.excludeMountedVolume = true}); },
                  [&] { return MayComeTo(home, location, Comes::Profiles); }});
}

bool IsVolumeThere(const std::u16string& folder, const std::u16string& volume) {
  const std::u16string present = VolumeThatHolds(folder);
  // A folder keeps its mount when the volume has gone.
  return !present.empty() && (volume.empty() || EqualPaths(present, volume)) &&
         win32::GetVolumeInformationW(present.c_str(), nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0);
}

bool IsFolderAndNoLink(const std::u16string& folder) {
  if (!DirectoryExists(folder)) return LogFailure(line::kNotADirectory, folder);
  // A folder on which a volume is mounted holds what the volume holds.
  if (IsVolumeMountPoint(folder.c_str()) || LinkTagAt(folder) == 0) return true;
  return LogFailure(line::kRedirectedAlready, folder);
}

bool HoldsRedirectedData(const std::u16string& folder) {
  for (const int isFile : {0, 1}) {
    std::vector<JunctionRecord> records;
    if (!ReadJunctionRecords(isFile, records)) {
      Log(u"#ERROR: Unable to read the redirected folders and files in registry.");
      return true;
    }
    for (const JunctionRecord& record : records) {
      if (!IsReallySameOrBelow(record.target, folder)) continue;
      Log(u"#ERROR: The profile %ls holds what %ls is redirected to. Remove that redirection first.", folder,
          record.source);
      return true;
    }
  }
  return false;
}

bool IsFree(const std::u16string& folder) {
  if (!HasAllowedLength(folder)) return false;
  if (IsGone(folder)) return true;
  if (!IsFolderAndNoLink(folder)) return false;
  if (IsEmptyFolder(folder)) return true;
  return LogFailure(u"#ERROR: The folder %ls is there already and is not empty. Browse to a different location.",
                    folder);
}

bool HasRoomFor(const std::vector<std::u16string>& trees, const std::u16string& location) {
  std::uint64_t needed = 0;
  for (const std::u16string& tree : trees) {
    const std::optional<std::uint64_t> bytes = MeasureSource(tree.c_str());
    if (!bytes) return false;
    needed += *bytes;
  }
  const std::u16string place = NearestFolder(location);
  const std::optional<std::uint64_t> available = AvailableBytes(place);
  if (!available) return LogSystemFailure(line::kFreeSpaceUnknown, place);
  if (*available > needed) return true;
  return LogFailure(line::kNotEnoughSpace, location);
}
