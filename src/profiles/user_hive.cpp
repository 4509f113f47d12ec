#include "profiles/user_hive.h"

#include <exception>
#include <optional>

#include "links/real_path.h"
#include "probes/privileges.h"
#include "records/registry_text.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kTemporaryKey = u"_ntuser";
constexpr const char16_t* kWallpaper = u"WallPaper";

// Hives are loaded and unloaded as files are backed up.
void EnableHivePrivileges() {
  EnablePrivilege(u"SeBackupPrivilege");
  EnablePrivilege(u"SeRestorePrivilege");
}

bool Unload() {
  constexpr int kAttempts = 3;  // a virus scanner, an indexer may have a look at a hive that has just been loaded
  for (int attempt = 1;; ++attempt) {
    if (win32::RegUnLoadKeyW(win32::HKEY_USERS, kTemporaryKey) == 0) return true;
    if (attempt == kAttempts) return false;
    win32::Sleep(1000);
  }
}

// A profile's hive below HKEY_USERS, for as long as the object lives.
class LoadedHive {
 public:
  explicit LoadedHive(const std::u16string& folder) : file_(JoinPath(folder, u"ntuser.dat")) {
    EnableHivePrivileges();
    // A file that is not there would be made.
    loaded_ = HasLoadableHive(folder) && win32::RegLoadKeyW(win32::HKEY_USERS, kTemporaryKey, file_.c_str()) == 0;
    if (!loaded_) Log(u"#INFO: Unable to load the user's registry file %ls.", file_);
  }
  ~LoadedHive() { TakeOff(); }
  LoadedHive(const LoadedHive&) = delete;
  LoadedHive& operator=(const LoadedHive&) = delete;
  bool isLoaded() const { return loaded_; }

  // All its keys are closed. False: it is still loaded.
  bool TakeOff() {
    if (!loaded_) return true;
    loaded_ = false;
    if (Unload()) return true;
    return LogFailure(u"#INFO: Unable to unload the user's registry file %ls.", file_);
  }

 private:
  const std::u16string file_;
  bool loaded_ = false;
};

// What of a user's path is behind the folder of his profile, which may be named by a short name. Only a path on the
// profile's own drive is looked up: one that names a server would have the program log on there.
std::optional<std::u16string> BehindProfile(const std::u16string& path, const std::u16string& folder) {
  constexpr std::size_t kRoot = 3;
  if (!IsSameOrBelow(path, folder.substr(0, kRoot))) return std::nullopt;
  return BehindFolder(path, folder);
}

bool RewriteBelow(const std::u16string& hive, const std::u16string& oldFolder, const std::u16string& newFolder) {
  win32::UniqueKey desktop;
  const std::u16string path = hive + u"\\Control Panel\\Desktop";
  RegistryValue value;
  win32::LSTATUS result = win32::RegOpenKeyExW(win32::HKEY_USERS, path.c_str(), 0,
                                               win32::KEY_QUERY_VALUE | win32::KEY_SET_VALUE, desktop.put());
  if (result == 0) result = ReadRegistryValue(desktop.get(), kWallpaper, value);
  if (result == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return true;
  if (result == 0) {
    const std::u16string text = RawText(value);
    const std::optional<std::u16string> rest = BehindProfile(text, oldFolder);
    if (!rest) return true;
    result = WriteRegistryValue(desktop.get(), kWallpaper, TextValue(newFolder + *rest, value.type));
  }
  if (result == 0) return true;
  return LogFailure(u"#INFO: Unable to update the desktop wallpaper path in the user's registry.");
}

}  // namespace

int RewriteWallpaper(const UserProfile& profile, const std::u16string& oldFolder, const std::u16string& newFolder) try {
  if (profile.hiveState < 0) return 1;
  if (profile.hiveState == kHiveLoaded) return RewriteBelow(profile.sid, oldFolder, newFolder) ? 1 : 0;
  LoadedHive hive(profile.folder);
  const bool rewritten = hive.isLoaded() && RewriteBelow(kTemporaryKey, oldFolder, newFolder);
  return hive.TakeOff() && rewritten ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int CanRewriteWallpaper(const UserProfile& profile) try {
  if (profile.hiveState != kHiveNotLoaded) return 1;
  if (OnlyLooks* const look = OnlyLooks::Current()) {
    look->Leave(u"Whether the user's registry file is whole: it would have to be loaded.");
    return 1;
  }
  LoadedHive hive(profile.folder);
  if (hive.isLoaded() && hive.TakeOff()) return 1;
  Log(u"#ERROR: The registry file of the user of %ls is damaged, or in use. Nothing in it could follow the User "
      u"Profile, "
      u"which stays where it is.",
      profile.folder);
  return 0;
} catch (const std::exception&) {
  return 0;
}

void UnloadForgottenHive() try {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_USERS, kTemporaryKey, 0, win32::KEY_QUERY_VALUE, key.put()) != 0) return;
  key.reset();
  if (OnlyLooks* const look = OnlyLooks::Current()) {
    look->Leave(
        u"What becomes of a user's registry file that an earlier run left loaded: the command unloads it first.");
    return;
  }
  EnableHivePrivileges();
  if (!Unload()) Log(u"#INFO: Unable to unload the user's registry file that an earlier run left loaded.");
} catch (const std::exception&) {
  // Whoever loads a hive next is told.
}
