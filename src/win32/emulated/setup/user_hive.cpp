#include "win32/emulated/setup/user_hive.h"

#include <initializer_list>
#include <memory>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::REG_EXPAND_SZ;
using win32::REG_SZ;

using Path = std::initializer_list<std::u16string_view>;
using SharedDescriptor = std::shared_ptr<const Bytes>;

constexpr Path kShellFoldersKey = {u"Software",       u"Microsoft", u"Windows",
                                   u"CurrentVersion", u"Explorer",  u"Shell Folders"};
constexpr Path kUserShellFoldersKey = {u"Software",       u"Microsoft", u"Windows",
                                       u"CurrentVersion", u"Explorer",  u"User Shell Folders"};
constexpr std::u16string_view kProfileVariable = u"%USERPROFILE%";

// The folders of a profile, by the names that the shell's keys have for them.
struct ShellFolder {
  std::u16string_view name, folder;
};
constexpr ShellFolder kShellFolders[] = {{u"AppData", u"AppData\\Roaming"},
                                         {u"Desktop", u"Desktop"},
                                         {u"Favorites", u"Favorites"},
                                         {u"Local AppData", u"AppData\\Local"},
                                         {u"My Music", u"Music"},
                                         {u"My Pictures", u"Pictures"},
                                         {u"My Video", u"Videos"},
                                         {u"Personal", u"Documents"},
                                         {u"{374DE290-123F-4565-9164-39C4925E467B}", u"Downloads"}};

SharedDescriptor RootSecurity(std::u16string_view sid) {
  std::u16string sddl = u"O:BAG:SYD:PAI(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;RC)";
  if (!sid.empty()) sddl += u"(A;CI;KA;;;" + std::u16string(sid) + u")";
  const auto descriptor = DescriptorFromText(sddl);
  return descriptor ? std::make_shared<const Bytes>(*descriptor) : MachineHiveSecurity();
}

// The key, made when it is missing, with what it inherits.
HiveKey& KeyAt(Hive& hive, Path path, FileTime now) {
  HiveKey* at = hive.root.get();
  for (const std::u16string_view name : path) {
    auto child = at->Child((*hive.upCase)(name));
    if (!child) {
      const auto inherited = std::make_shared<const Bytes>(
          NewObjectDescriptor(*MakeSystemToken(), ByteView(*at->security), std::nullopt, true, kKeyMapping));
      child = hive.AddKey(*at, name, inherited, false, now);
    }
    at = child.get();
  }
  return *at;
}

void SetText(const Hive& hive, HiveKey& key, std::u16string_view name, std::u16string_view text, win32::DWORD type) {
  if (RegistryValue* const known = key.Value(name, *hive.upCase)) {
    known->type = type;
    known->data = RegistryText(text);
  } else {
    key.Values().push_back({std::u16string(name), type, RegistryText(text)});
  }
}

// What a key inherits follows its parent's descriptor; its own entries stay, and a protected one stays as it is.
void InheritAnew(HiveKey& key) {
  for (const auto& child : key.Children()) {
    Bytes security = Reinherit(*child->security, *key.security, true, kKeyMapping);
    if (!security.empty() && security != *child->security)
      child->security = std::make_shared<const Bytes>(std::move(security));
    InheritAnew(*child);
  }
}

// As the shell does at a logon: what the settings say of the profile, with the profile's path.
void PointShellFoldersTo(Hive& hive, std::u16string_view home, FileTime now) {
  HiveKey& paths = KeyAt(hive, kShellFoldersKey, now);
  for (const RegistryValue& setting : KeyAt(hive, kUserShellFoldersKey, now).Values()) {
    const std::u16string text = setting.Text();
    if ((setting.type == REG_SZ || setting.type == REG_EXPAND_SZ) && StartsWithAsciiNoCase(text, kProfileVariable))
      SetText(hive, paths, setting.name, std::u16string(home) + text.substr(kProfileVariable.size()), REG_SZ);
  }
}

}  // namespace

Bytes UserHive(std::u16string_view home, FileTime now, std::u16string_view sid, std::u16string_view wallpaper) {
  const auto hive = NewHive(u"ROOT", RootSecurity(sid), std::make_shared<const UpCase>(), now);
  HiveKey& desktop = KeyAt(*hive, {u"Control Panel", u"Desktop"}, now);
  SetText(*hive, desktop, u"WallPaper", wallpaper.empty() ? kWindowsWallpaper : wallpaper, REG_SZ);
  SetText(*hive, desktop, u"WallpaperStyle", u"10", REG_SZ);
  SetText(*hive, desktop, u"TileWallpaper", u"0", REG_SZ);
  HiveKey& environment = KeyAt(*hive, {u"Environment"}, now);
  for (const auto* const name : {u"TEMP", u"TMP"})
    SetText(*hive, environment, name, u"%USERPROFILE%\\AppData\\Local\\Temp", REG_EXPAND_SZ);
  HiveKey& settings = KeyAt(*hive, kUserShellFoldersKey, now);
  for (const ShellFolder& folder : kShellFolders)
    SetText(*hive, settings, folder.name, std::u16string(kProfileVariable) + u"\\" + std::u16string(folder.folder),
            REG_EXPAND_SZ);
  PointShellFoldersTo(*hive, home, now);
  return WriteHive(*hive, now);
}

std::optional<Bytes> UserHiveFromDefault(ByteView defaultHive, const UpCase& upCase, std::u16string_view home,
                                         std::u16string_view sid, FileTime now) {
  std::string error;
  const auto hive = ReadHive({defaultHive.begin(), defaultHive.end()}, std::make_shared<const UpCase>(upCase), error);
  if (!hive) return std::nullopt;
  hive->root->security = RootSecurity(sid);
  InheritAnew(*hive->root);
  PointShellFoldersTo(*hive, home, now);
  return WriteHive(*hive, now);
}

Bytes ClassesHive(std::u16string_view sid, FileTime now) {
  const std::u16string name = std::u16string(sid) + u"_Classes";
  return WriteHive(*NewHive(name, RootSecurity(sid), std::make_shared<const UpCase>(), now), now);
}

}  // namespace emulated
