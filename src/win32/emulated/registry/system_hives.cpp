#include "win32/emulated/registry/system_hives.h"

#include <algorithm>
#include <map>

#include "win32/emulated/security/token.h"
#include "win32/emulated/text.h"

namespace emulated {

using win32::DWORD;
using win32::REG_EXPAND_SZ;

namespace {

struct TextValue {
  std::u16string_view name, text;
  DWORD type = win32::REG_SZ;
};

void SetTexts(Registry& registry, std::u16string_view key, std::initializer_list<TextValue> values) {
  for (const TextValue& value : values) registry.SetText(key, value.name, value.text, value.type);
}

struct SystemService {
  std::u16string_view name, imagePath, displayName, account;
  DWORD start;
  DWORD type;
  std::vector<std::u16string> needs;
};

constexpr DWORD kShared = 0x20;  // SERVICE_WIN32_SHARE_PROCESS
constexpr std::u16string_view kHost = u"%SystemRoot%\\system32\\svchost.exe -k ";

void FillServices(Registry& registry, const std::u16string& control) {
  const auto host = [](std::u16string_view group) { return std::u16string(kHost) + std::u16string(group); };
  const std::u16string network = host(u"NetworkService"), local = host(u"LocalServiceNetworkRestricted"),
                       shared = host(u"netsvcs");
  const SystemService services[] = {
      {u"EventLog", local, u"Windows Event Log", u"NT AUTHORITY\\LocalService", win32::SERVICE_AUTO_START, kShared, {}},
      {u"LanmanServer", shared, u"Server", u"LocalSystem", win32::SERVICE_AUTO_START, kShared, {}},
      {u"LanmanWorkstation",
       network,
       u"Workstation",
       u"NT AUTHORITY\\NetworkService",
       win32::SERVICE_AUTO_START,
       kShared,
       {}},
      {u"ProfSvc", shared, u"User Profile Service", u"LocalSystem", win32::SERVICE_AUTO_START, kShared, {}},
      {u"Schedule", shared, u"Task Scheduler", u"LocalSystem", win32::SERVICE_AUTO_START, kShared, {u"EventLog"}},
      {u"Themes", shared, u"Themes", u"LocalSystem", win32::SERVICE_AUTO_START, kShared, {}},
      {u"WMPNetworkSvc",
       u"\"%PROGRAMFILES%\\Windows Media Player\\wmpnetwk.exe\"",
       u"Windows Media Player Network Sharing Service",
       u"NT AUTHORITY\\NetworkService",
       win32::SERVICE_DEMAND_START,
       win32::SERVICE_WIN32_OWN_PROCESS,
       {}},
  };
  for (const SystemService& service : services) {
    const std::u16string key = control + u"\\Services\\" + std::u16string(service.name);
    registry.SetDword(key, u"Type", service.type);
    registry.SetDword(key, u"Start", service.start);
    registry.SetDword(key, u"ErrorControl", 1);
    SetTexts(registry, key,
             {{u"ImagePath", service.imagePath, REG_EXPAND_SZ},
              {u"DisplayName", service.displayName},
              {u"ObjectName", service.account}});
    if (!service.needs.empty())
      registry.Set(key, u"DependOnService", win32::REG_MULTI_SZ, RegistryMultiText(service.needs));
  }
  registry.CreateKey(control + u"\\Services\\LanmanServer\\Shares\\Security");
}

std::u16string_view AnsiCodePage(win32::UINT oem) {
  static const std::map<win32::UINT, std::u16string_view> pages = {
      {737, u"1253"}, {775, u"1257"}, {852, u"1250"}, {857, u"1254"}, {862, u"1255"}, {866, u"1251"},
      {874, u"874"},  {932, u"932"},  {936, u"936"},  {949, u"949"},  {950, u"950"}};
  const auto page = pages.find(oem);
  return page == pages.end() ? u"1252" : page->second;
}

void FillSystem(Registry& registry, const InstallationFacts& facts) {
  constexpr std::u16string_view kSelect = u"HKLM\\SYSTEM\\Select";
  registry.SetDword(kSelect, u"Current", 1);
  registry.SetDword(kSelect, u"Default", 1);
  registry.SetDword(kSelect, u"Failed", 0);
  registry.SetDword(kSelect, u"LastKnownGood", 1);

  const std::u16string set = u"HKLM\\SYSTEM\\ControlSet001", control = set + u"\\Control";
  registry.SetText(control, u"CurrentUser", u"USERNAME");
  for (const auto* const key : {u"\\ComputerName\\ComputerName", u"\\ComputerName\\ActiveComputerName"})
    registry.SetText(control + key, u"ComputerName", facts.computerName);
  SetTexts(registry, control + u"\\Nls\\CodePage",
           {{u"ACP", AnsiCodePage(facts.oemCodePage)}, {u"OEMCP", Utf16(std::to_string(facts.oemCodePage))}});
  registry.SetDword(control + u"\\FileSystem", kDisable8dot3NameCreation, facts.disable8dot3NameCreation);
  registry.SetText(control + u"\\ProductOptions", u"ProductType", u"WinNT");
  registry.SetText(control + u"\\Windows", u"Directory", u"%SystemRoot%", REG_EXPAND_SZ);
  registry.SetText(control + u"\\Windows", u"SystemDirectory", u"%SystemRoot%\\system32", REG_EXPAND_SZ);
  registry.SetDword(control + u"\\Windows", u"CSDVersion", 0);
  registry.Set(control + u"\\Session Manager", u"BootExecute", win32::REG_MULTI_SZ,
               RegistryMultiText({u"autocheck autochk *"}));
  SetTexts(registry, control + u"\\Session Manager\\Environment",
           {{u"ComSpec", u"%SystemRoot%\\system32\\cmd.exe", REG_EXPAND_SZ},
            {u"OS", u"Windows_NT"},
            {u"Path", u"%SystemRoot%\\system32;%SystemRoot%", REG_EXPAND_SZ},
            {u"PROCESSOR_ARCHITECTURE", u"AMD64"},
            {u"TEMP", u"%SystemRoot%\\TEMP", REG_EXPAND_SZ},
            {u"TMP", u"%SystemRoot%\\TEMP", REG_EXPAND_SZ},
            {u"windir", u"%SystemRoot%", REG_EXPAND_SZ}});
  FillServices(registry, set);
  registry.CreateKey(u"HKLM\\SYSTEM\\MountedDevices");
  registry.SelectControlSet();
}

std::u16string ProductName(const InstallationFacts& facts) {
  if (facts.majorVersion >= 10) return u"Windows 10 Pro";
  static constexpr std::u16string_view names[] = {u"Windows Vista (TM) Business", u"Windows 7 Professional",
                                                  u"Windows 8 Pro", u"Windows 8.1 Pro"};
  return std::u16string(names[std::min<std::size_t>(facts.minorVersion, 3)]);
}

void FillProfileList(Registry& registry, const InstallationFacts& facts) {
  SetTexts(registry, kProfileList,
           {{u"Default", u"%SystemDrive%\\Users\\Default", REG_EXPAND_SZ},
            {u"ProfilesDirectory", u"%SystemDrive%\\Users", REG_EXPAND_SZ},
            {u"ProgramData", u"%SystemDrive%\\ProgramData", REG_EXPAND_SZ},
            {u"Public", u"%SystemDrive%\\Users\\Public", REG_EXPAND_SZ}});
  RecordProfile(registry, u"S-1-5-18", u"%systemroot%\\system32\\config\\systemprofile", 12);
  RecordProfile(registry, u"S-1-5-19", u"%systemroot%\\ServiceProfiles\\LocalService", 0);
  RecordProfile(registry, u"S-1-5-20", u"%systemroot%\\ServiceProfiles\\NetworkService", 0);
  for (const ProfileFacts& profile : facts.profiles)
    RecordProfile(registry, profile.sid, u"C:\\Users\\" + profile.name, 0);
}

void FillSoftware(Registry& registry, const InstallationFacts& facts) {
  const std::u16string nt = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  const std::u16string build = Utf16(std::to_string(facts.buildNumber));
  // Windows 10 stayed at 6.3 here.
  const std::u16string version =
      facts.majorVersion >= 10 ? u"6.3"
                               : Utf16(std::to_string(facts.majorVersion) + "." + std::to_string(facts.minorVersion));
  SetTexts(registry, nt,
           {{u"ProductName", ProductName(facts)},
            {u"CurrentVersion", version},
            {u"CurrentBuild", build},
            {u"CurrentBuildNumber", build},
            {u"CurrentType", u"Multiprocessor Free"},
            {u"EditionID", u"Professional"},
            {u"InstallationType", u"Client"},
            {u"PathName", u"C:\\Windows"},
            {u"SystemRoot", u"C:\\Windows"}});
  registry.SetDword(nt, u"CurrentMajorVersionNumber", facts.majorVersion);
  registry.SetDword(nt, u"CurrentMinorVersionNumber", facts.minorVersion);
  FillProfileList(registry, facts);

  const std::u16string windows = u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
  SetTexts(registry, windows,
           {{u"ProgramFilesDir", u"C:\\Program Files"},
            {u"CommonFilesDir", u"C:\\Program Files\\Common Files"},
            {u"ProgramFilesDir (x86)", u"C:\\Program Files (x86)"},
            {u"CommonFilesDir (x86)", u"C:\\Program Files (x86)\\Common Files"},
            {u"ProgramW6432Dir", u"C:\\Program Files"},
            {u"CommonW6432Dir", u"C:\\Program Files\\Common Files"},
            {u"ProgramFilesPath", u"%ProgramFiles%", REG_EXPAND_SZ}});
  SetTexts(registry, windows + u"\\Explorer\\User Shell Folders",
           {{u"Common AppData", u"%ProgramData%", REG_EXPAND_SZ},
            {u"Common Desktop", u"%PUBLIC%\\Desktop", REG_EXPAND_SZ},
            {u"Common Documents", u"%PUBLIC%\\Documents", REG_EXPAND_SZ}});
  SetTexts(registry, windows + u"\\Explorer\\Shell Folders",
           {{u"Common AppData", u"C:\\ProgramData"},
            {u"Common Desktop", u"C:\\Users\\Public\\Desktop"},
            {u"Common Documents", u"C:\\Users\\Public\\Documents"}});
  SetTexts(registry, u"HKLM\\SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion",
           {{u"ProgramFilesDir", u"C:\\Program Files (x86)"},
            {u"CommonFilesDir", u"C:\\Program Files (x86)\\Common Files"},
            {u"ProgramFilesDir (x86)", u"C:\\Program Files (x86)"},
            {u"CommonFilesDir (x86)", u"C:\\Program Files (x86)\\Common Files"}});
  registry.CreateKey(u"HKLM\\SOFTWARE\\Classes");
  registry.CreateKey(u"HKLM\\SOFTWARE\\Policies");
}

}  // namespace

void RecordProfile(Registry& registry, std::u16string_view sid, std::u16string_view folder, DWORD flags) {
  const std::u16string key = std::u16string(kProfileList) + u"\\" + std::u16string(sid);
  registry.SetText(key, u"ProfileImagePath", folder, REG_EXPAND_SZ);
  registry.SetDword(key, u"Flags", flags);
  registry.SetDword(key, u"State", 0);
  if (const Sid binary = SidFromText(sid); !binary.empty()) registry.Set(key, u"Sid", win32::REG_BINARY, binary);
}

void FillSystemHives(Registry& registry, const InstallationFacts& facts) {
  FillSystem(registry, facts);
  FillSoftware(registry, facts);
  SetTexts(registry, u"HKU\\.DEFAULT\\Environment",
           {{u"TEMP", u"%USERPROFILE%\\AppData\\Local\\Temp", REG_EXPAND_SZ},
            {u"TMP", u"%USERPROFILE%\\AppData\\Local\\Temp", REG_EXPAND_SZ}});
  registry.CreateKey(u"HKU\\.DEFAULT\\Software");
}

}  // namespace emulated
