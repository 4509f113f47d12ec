#include "regredirect/location.h"

#include <exception>
#include <string>

#include "configuration/service_config.h"
#include "fsops/descriptor.h"
#include "fsops/folder_itself.h"
#include "links/mounted_folder.h"
#include "probes/privileges.h"
#include "probes/services.h"
#include "regredirect/location_volume.h"
#include "regredirect/registry_data.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/outcome.h"
#include "validate/path_rules.h"
#include "validate/validate.h"
#include "win32/win32.h"

namespace {

// What the service finds at a location it puts into the registry.
void TellWhoMayWrite(const std::u16string& folder) {
  constexpr win32::DWORD kRights = win32::FILE_WRITE_DATA | win32::FILE_APPEND_DATA | win32::FILE_DELETE_CHILD |
                                   win32::WRITE_DAC | win32::WRITE_OWNER;
  const FolderDescriptor descriptor = ReadDescriptor(folder);
  if (descriptor.empty()) return;
  if (const std::u16string entry = EntryOfOthers(descriptor, kRights, {}); !entry.empty())
    Log(u"#INFO: The entry %ls of the folder %ls lets others change the registry data that are kept there.", entry,
        folder);
}

// Everything up to the saved file. The location that was recorded before goes to `oldLocation`, the folder that is
// recorded now to `folder`.
bool Set(const std::u16string& location, CQBConfig& config, std::u16string& oldLocation, std::u16string& folder) {
  int status = 0;
  std::u16string type, subfolder;
  if (!config.Init()) return false;
  if (!config.GetOutDir(status, oldLocation, &type, &subfolder)) return LogFailure(line::kConfigLacksRegistryLocation);
  if (status != 0)
    return LogFailure(
        u"#ERROR: Registry Key Redirection location already set. To set new location,please remove existing location");
  LocationVolume mount;
  const bool onVolume = IsExactVolumePath(location);
  if (!onVolume && IsExtendedDrivePath(location)) return LogFailure(line::kInvalidPath, location);
  if (onVolume && !mount.Mount(location)) return false;
  folder = onVolume ? mount.folder() : location;
  constexpr TargetPathOptions kOptions{
      .mustExist = true, .allowDriveRoot = true, .systemFolder = {.insideProductOnly = true}};
  if (!ValidateTargetPath(folder.c_str(), kOptions) || !MayHoldRegistryData(folder)) return false;
  TellOfFormerRegistryData(folder);
  TellWhoMayWrite(onVolume ? location : folder);
  if (!config.SetOutDir(true, folder) || !SaveConfiguration(config)) return false;
  mount.Keep();
  return true;
}

enum class Removal { Done, Failed, ProfilesNeedIt };

// Everything up to the saved file. The location that was recorded goes to `oldLocation`.
Removal Remove(CQBConfig& config, std::u16string& oldLocation) {
  const auto fail = [](const char16_t* reason) {
    Log(u"%ls", reason);
    return Removal::Failed;
  };
  std::u16string profileStatus;
  if (!config.Init() || !config.GetUserProfileRedirection(nullptr, &profileStatus, nullptr))
    return fail(line::kConfigLacksProfiles);
  if (profileStatus == u"1") {
    Log(u"#ERROR: Redirect new user profile redirection is enabled.");
    return Removal::ProfilesNeedIt;
  }
  int status = 0;
  if (!config.GetOutDir(status, oldLocation) || oldLocation.empty())
    return fail(u"#ERROR: Redirect Registry key location already empty.");
  if (!config.SetOutDir(false) || !SaveConfiguration(config))
    return fail(u"#ERROR: Unable to set Registry Redirect Location in config file.");
  return Removal::Done;
}

}  // namespace

int SetRegKeyLocation(const char16_t* location) try {
  if (!location || !*location) return 1;
  CQBConfig config;
  if (!IsAdministrator(StringId::RegKeyNeedsAdministrator)) return 1;
  std::u16string oldLocation, folder;
  if (!Set(location, config, oldLocation, folder))
    return SayFailure(StringId::RegKeyLocationFailed, LogPath(), location);
  if (!IsLocationOnVolume(oldLocation)) CleanRegistryData(oldLocation, folder);
  StartQuillbayService();
  Say(StringId::RegKeyLocationSet, location);
  return 0;
} catch (const std::exception&) {
  return SayFailure(StringId::RegKeyLocationFailed, LogPath(), location);
}

void LeaveRegKeyLocation(const std::u16string& location) {
  const bool onVolume = IsLocationOnVolume(location);
  if (onVolume) LeaveLocationVolume(location);
  RetireQuillbayService();
  if (!onVolume) CleanRegistryData(location);
}

int RemoveRegKeyLocation() try {
  CQBConfig config;
  if (!IsAdministrator(StringId::RegKeyRemovalNeedsAdministrator)) return 1;
  std::u16string oldLocation;
  const Removal result = Remove(config, oldLocation);
  if (result == Removal::ProfilesNeedIt) return SayFailure(StringId::NewProfilesNeedRegKeyLocation);
  if (result == Removal::Failed) return SayFailure(StringId::RegKeyLocationRemovalFailed, LogPath(), oldLocation);
  LeaveRegKeyLocation(oldLocation);
  Say(StringId::RegKeyLocationRemovalDone, oldLocation);
  return 0;
} catch (const std::exception&) {
  return SayFailure(StringId::RegKeyLocationRemovalFailed, LogPath(), u"");
}

int PrintRegKeyLocation() try {
  CQBConfig config;
  int status = 0;
  std::u16string location;
  if (!config.Init() || !config.GetOutDir(status, location)) return 1;
  ConsoleFormat(u"\n\n%ls\n\n", location);
  return 0;
} catch (const std::exception&) {
  return 1;
}
