#include "win32/emulated/setup/windows_installation.h"

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
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
constexpr std::u16string_view kProgramData =
    u"O:SYG:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICIIO;GA;;;CO)(A;OICI;0x1200a9;;;BU)(A;CI;DCLCRPCR;;;BU)";

std::u16string ProfileDescriptor(const std::u16string& sid) {
  return u"O:SYG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;" + sid + u")";
}

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
  build.Junction(u"\\Documents and Settings", u"C:\\Users",
                 u"O:SYG:SYD:PAI(D;;CC;;;WD)(A;;0x1200a9;;;WD)(A;;FA;;;SY)(A;;FA;;;BA)",
                 FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
}

void MakeProfile(VolumeBuilder& build, const ProfileFacts& profile, FileTime now) {
  const std::u16string home = u"\\Users\\" + profile.name;
  build.Directory(home, profile.sid.empty() ? std::u16string() : ProfileDescriptor(profile.sid));
  for (const auto* const folder : {u"AppData", u"AppData\\Local", u"AppData\\Local\\Temp", u"AppData\\LocalLow",
                                   u"AppData\\Roaming", u"AppData\\Roaming\\Microsoft"})
    build.Directory(home + u"\\" + folder, {}, folder == std::u16string_view(u"AppData") ? FILE_ATTRIBUTE_HIDDEN : 0);
  for (const auto* const folder :
       {u"Contacts", u"Desktop", u"Documents", u"Downloads", u"Favorites", u"Music", u"Pictures", u"Videos"})
    build.Directory(home + u"\\" + folder, {}, FILE_ATTRIBUTE_READONLY);
  build.File(home + u"\\NTUSER.DAT", UserHive(u"C:" + home, now, profile.sid), {}, FILE_ATTRIBUTE_HIDDEN);
}

}  // namespace

std::vector<ProfileFacts> DefaultProfiles() {
  constexpr std::u16string_view kComputer = u"S-1-5-21-1004336348-1177238915-682003330-";
  return {{u"Administrator", std::u16string(kComputer) + u"500"},
          {u"anna", std::u16string(kComputer) + u"1001"},
          {u"jan", std::u16string(kComputer) + u"1002"}};
}

win32::DWORD InstallWindows(Machine& machine, const InstallationFacts& facts) {
  MountedVolume* const system = machine.SystemVolume();
  if (!system) return win32::ERROR_PATH_NOT_FOUND;
  VolumeBuilder build(*system->volume, machine.Now());
  MakeFolders(build);
  for (const auto* const hive : {u"SYSTEM", u"SOFTWARE", u"SAM", u"SECURITY", u"DEFAULT"})
    build.File(std::u16string(u"\\Windows\\System32\\config\\") + hive, BlankHive(hive, machine.Now()));
  MakeProfile(build, {u"Default", {}}, machine.Now());
  build.Directory(u"\\Users\\Public",
                  u"O:BAG:SYD:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1301bf;;;IU)(A;OICI;0x1301bf;;;SU)");
  for (const auto* const folder : {u"Desktop", u"Documents", u"Downloads", u"Music", u"Pictures", u"Videos"})
    build.Directory(std::u16string(u"\\Users\\Public\\") + folder, {}, FILE_ATTRIBUTE_READONLY);
  for (const ProfileFacts& profile : facts.profiles) MakeProfile(build, profile, machine.Now());
  if (build.error() != 0) return build.error();

  std::string error;
  if (!machine.registry().LoadSystemHives(error)) return win32::ERROR_FILE_CORRUPT;
  if (!machine.registry().KeyExists(u"HKLM\\SYSTEM\\Select")) FillSystemHives(machine.registry(), facts);
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
