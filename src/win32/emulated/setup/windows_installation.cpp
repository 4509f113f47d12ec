#include "win32/emulated/setup/windows_installation.h"

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/security/accounts.h"
#include "win32/emulated/setup/account_pictures.h"
#include "win32/emulated/setup/user_hive.h"
#include "win32/emulated/setup/user_profile.h"
#include "win32/emulated/setup/volume_builder.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::FILE_ATTRIBUTE_HIDDEN;
using win32::FILE_ATTRIBUTE_READONLY;
using win32::FILE_ATTRIBUTE_SYSTEM;

// Descriptors as a Windows 10 installation has them.
constexpr std::u16string_view kRoot =
    u"O:SYG:SYD:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)(A;;LC;;;AU)(A;OICIIO;SDGXGWGR;;;AU)";
constexpr std::u16string_view kDataRoot =
    u"O:BAG:SYD:AI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1301bf;;;AU)(A;OICI;0x1200a9;;;BU)";
constexpr std::u16string_view kVolumeInformation = u"O:BAG:SYD:PAI(A;OICI;FA;;;SY)";
constexpr std::u16string_view kSystem =
    u"O:SYG:SYD:PAI(A;OICIIO;GA;;;CO)(A;OICIIO;GA;;;SY)(A;;0x1301bf;;;SY)(A;OICIIO;GA;;;BA)(A;;0x1301bf;;;BA)(A;OICIIO;"
    u"GXGR;;;BU)(A;;0x1200a9;;;BU)";
constexpr std::u16string_view kConfiguration = u"O:SYG:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
constexpr std::u16string_view kUsers =
    u"O:SYG:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;;0x1200a9;;;BU)(A;OICIIO;GXGR;;;BU)(A;;0x1200a9;;;WD)(A;OICIIO;"
    u"GXGR;;;WD)";
constexpr std::u16string_view kEverybodyReads = u"O:SYG:SYD:PAI(A;;0x1200a9;;;WD)(A;;FA;;;SY)(A;;FA;;;BA)";
constexpr std::u16string_view kProgramData =
    u"O:SYG:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICIIO;GA;;;CO)(A;OICI;0x1200a9;;;BU)(A;CI;DCLCRPCR;;;BU)";

ByteView AsBytes(std::string_view text) { return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}; }

void MakeFolders(VolumeBuilder& build) {
  build.SetSecurity(u"\\", kRoot);
  build.Directory(u"\\System Volume Information", kVolumeInformation, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  build.Directory(u"\\$Recycle.Bin", {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  build.Directory(u"\\PerfLogs");
  build.Directory(u"\\Program Files", kSystem, FILE_ATTRIBUTE_READONLY);
  build.Directory(u"\\Program Files\\Common Files");
  build.Directory(u"\\Program Files (x86)", kSystem, FILE_ATTRIBUTE_READONLY);
  build.Directory(u"\\Program Files (x86)\\Common Files");
  build.Directory(u"\\ProgramData", kProgramData, FILE_ATTRIBUTE_HIDDEN);
  build.Directory(u"\\Windows", kSystem);
  for (const auto* const folder : {u"\\Windows\\Fonts", u"\\Windows\\Logs", u"\\Windows\\SysWOW64",
                                   u"\\Windows\\System32", u"\\Windows\\Temp", u"\\Windows\\System32\\drivers"})
    build.Directory(folder);
  build.Directory(u"\\Windows\\System32\\config", kConfiguration);
  build.File(u"\\Windows\\win.ini", AsBytes("; for 16-bit app support\r\n[fonts]\r\n[extensions]\r\n"));
  // The programs of Windows' own services: the service manager starts nothing whose program is missing.
  build.Directory(u"\\Program Files\\Windows Media Player");
  for (const auto* const program :
       {u"\\Windows\\System32\\svchost.exe", u"\\Program Files\\Windows Media Player\\wmpnetwk.exe"})
    build.File(program, AsBytes("A program of this machine. It runs only as a record of the service manager.\r\n"));
  build.Directory(u"\\Users", kUsers, FILE_ATTRIBUTE_READONLY);
  MakeSystemLink(build, u"\\Documents and Settings", u"C:\\Users");
}

// The links in \ProgramData, once the profile of all users.
void MakeProgramDataLinks(VolumeBuilder& build) {
  for (const auto* const folder :
       {u"\\ProgramData\\Microsoft", u"\\ProgramData\\Microsoft\\Windows",
        u"\\ProgramData\\Microsoft\\Windows\\Start Menu", u"\\ProgramData\\Microsoft\\Windows\\Templates"})
    build.Directory(folder);
  MakeSystemLink(build, u"\\ProgramData\\Application Data", u"C:\\ProgramData");
  MakeSystemLink(build, u"\\ProgramData\\Desktop", u"C:\\Users\\Public\\Desktop");
  MakeSystemLink(build, u"\\ProgramData\\Documents", u"C:\\Users\\Public\\Documents");
  MakeSystemLink(build, u"\\ProgramData\\Start Menu", u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu");
  MakeSystemLink(build, u"\\ProgramData\\Templates", u"C:\\ProgramData\\Microsoft\\Windows\\Templates");
}

ProfilePlace PlaceOf(std::u16string_view name) {
  const std::u16string folder = u"\\Users\\" + std::u16string(name);
  return {folder, u"C:" + folder};
}

// Those of the accounts that services run for, where the profile list names them.
void MakeServiceProfiles(VolumeBuilder& build, FileTime now) {
  struct ServiceProfile {
    std::u16string_view sid, folder;
  };
  constexpr ServiceProfile profiles[] = {{u"S-1-5-18", u"\\Windows\\System32\\config\\systemprofile"},
                                         {u"S-1-5-19", u"\\Windows\\ServiceProfiles\\LocalService"},
                                         {u"S-1-5-20", u"\\Windows\\ServiceProfiles\\NetworkService"}};
  build.Directory(u"\\Windows\\ServiceProfiles");
  for (const ServiceProfile& profile : profiles) {
    const std::u16string folder(profile.folder);
    build.Directory(folder, ProfileDescriptor(profile.sid));
    MakeServiceProfile(build, {folder, u"C:" + folder}, now, profile.sid);
  }
}

void MakeProfiles(VolumeBuilder& build, const InstallationFacts& facts, FileTime now) {
  const WindowsVersion windows{facts.majorVersion, facts.minorVersion};
  build.Directory(u"\\Users\\Default", {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  MakeDefaultProfile(build, PlaceOf(u"Default"), windows, now);
  build.Directory(u"\\Users\\Public",
                  u"O:BAG:SYD:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1301bf;;;IU)(A;OICI;0x1301bf;;;SU)",
                  FILE_ATTRIBUTE_READONLY);
  MakePublicProfile(build, PlaceOf(u"Public"), windows);
  MakeSystemLink(build, u"\\Users\\Default User", u"C:\\Users\\Default");
  build.FolderLink(u"\\Users\\All Users", u"C:\\ProgramData", kEverybodyReads,
                   FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  build.File(u"\\Users\\desktop.ini", IniText(u"\r\n[.ShellClassInfo]\r\n"), {},
             FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  for (const auto* const folder :
       {u"\\Windows\\Web", u"\\Windows\\Web\\Wallpaper", u"\\Windows\\Web\\Wallpaper\\Windows"})
    build.Directory(folder);
  constexpr unsigned kWidthOfScreen = 1024;
  build.File(kWindowsWallpaper.substr(2), PictureFile(kWidthOfScreen));
  for (const ProfileFacts& profile : facts.profiles) {
    const ProfilePlace place = PlaceOf(profile.name);
    build.Directory(place.inVolume, ProfileDescriptor(profile.sid));
    const std::u16string wallpaper =
        profile.ownWallpaper ? place.path + std::u16string(kOwnWallpaper) : std::u16string();
    MakeUserProfile(build, place, windows, now, profile.sid, UserHive(place.path, now, profile.sid, wallpaper),
                    profile.ownWallpaper);
  }
  MakeServiceProfiles(build, now);
}

// The accounts of the machine in its SAM: those of the profiles, and the two that every machine has.
void MakeAccounts(Machine& machine, const InstallationFacts& facts) {
  constexpr win32::DWORD kAdministrator = 500, kGuest = 501;
  const Sid own = SidFromText(kMachineSid);
  SetMachineSid(machine, own);
  for (const ProfileFacts& profile : facts.profiles) {
    const Sid sid = SidFromText(profile.sid);
    if (DomainOf(sid) == own)
      AddLocalAccount(machine, profile.name, LoadLittleEndian<std::uint32_t>(sid, sid.size() - 4));
  }
  AddLocalAccount(machine, u"Administrator", kAdministrator);
  AddLocalAccount(machine, u"Guest", kGuest, kAccountDisabled | kNoPasswordNeeded | kNormalAccount | kPasswordStays);
}

bool IsBuiltInAdministrator(const ProfileFacts& profile) { return profile.sid.ends_with(u"-500"); }

}  // namespace

std::vector<ProfileFacts> DefaultProfiles() {
  const std::u16string machine(kMachineSid);
  return {{u"Administrator", machine + u"-500"}, {u"anna", machine + u"-1001", true}, {u"jan", machine + u"-1002"}};
}

win32::DWORD InstallWindows(Machine& machine, const InstallationFacts& facts, std::string& error,
                            InstallationReport* report) {
  InstallationReport ignored, &added = report ? *report : ignored;
  MountedVolume* const system = machine.SystemVolume();
  if (!system) return win32::ERROR_PATH_NOT_FOUND;
  machine.MakeShortNames(facts.disable8dot3NameCreation);
  VolumeBuilder build(*system->volume, machine.Now());
  MakeFolders(build);
  for (const auto* const hive : {u"SYSTEM", u"SOFTWARE", u"SAM", u"SECURITY", u"DEFAULT"}) {
    const std::size_t before = build.made();
    build.File(std::u16string(u"\\Windows\\System32\\config\\") + hive, BlankHive(hive, machine.Now()));
    if (build.made() != before) added.hives.emplace_back(hive);
  }
  MakeProgramDataLinks(build);
  MakeProfiles(build, facts, machine.Now());
  if (build.error() != 0) return build.error();

  if (!machine.registry().LoadSystemHives(error)) return win32::ERROR_FILE_CORRUPT;
  if (!machine.registry().KeyExists(u"HKLM\\SYSTEM\\Select")) {
    added.registry = true;
    FillSystemHives(machine.registry(), facts);
    MakeAccounts(machine, facts);
    if (WindowsVersion{facts.majorVersion, facts.minorVersion}.AtLeast(6, 2))
      for (const ProfileFacts& profile : facts.profiles)
        if (!IsBuiltInAdministrator(profile))
          MakeAccountPictures(build, PlaceOf(u"Public"), machine.registry(), profile.sid);
    if (build.error() != 0) return build.error();
  }
  added.items = build.made();
  return machine.registry().Flush(error) ? 0 : win32::ERROR_FILE_CORRUPT;
}

win32::DWORD PrepareDataVolume(Volume& volume, FileTime now) {
  VolumeBuilder build(volume, now);
  build.SetSecurity(u"\\", kDataRoot);
  build.Directory(u"\\System Volume Information", kVolumeInformation, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  build.Directory(u"\\$RECYCLE.BIN", {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  return build.error();
}

}  // namespace emulated
