#include "regredirect/registry_keys.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <vector>

#include "configuration/service_config.h"
#include "probes/privileges.h"
#include "probes/services.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/outcome.h"
#include "text/ascii_case.h"
#include "win32/win32.h"

namespace {

int SayAddingFailed(const std::u16string& name) {
  return name.empty() ? SayFailure(StringId::RegKeyFailedUnnamed, LogPath())
                      : SayFailure(StringId::RegKeyFailed, name, LogPath());
}

// May the key join those that the file lists?
bool MayBeAdded(const CQBConfig& config, const std::u16string& name) {
  std::u16string parent;
  if (!config.IsOutDirSet()) return LogFailure(u"#ERROR: redirect location not set (redirection disabled).");
  if (config.IsMonitored(name)) return LogFailure(u"#ERROR: Registry key already present in list.");
  if (config.HasParentKey(name, &parent)) return LogFailure(u"#ERROR: parent key already present: %s", parent);
  return true;
}

// The monitored keys below `name` are preserved with it from now on and need no entries of their own. The profile list
// key, written just so, keeps its entry: it is looked for under that name. One that cannot be taken out does no harm.
void AbsorbChildren(CQBConfig& config, const std::u16string& name) {
  std::vector<std::u16string> children;
  if (!config.GetChildKeys(name, children)) return;
  for (const std::u16string& child : children) Log(u"%ls", child);
  // An entry is removed in all its spellings at once, so beside the exact one another spelling stays as well.
  std::vector<std::u16string> settled;
  if (std::ranges::find(children, kProfileListKey) != children.end()) settled.emplace_back(kProfileListKey);
  for (const std::u16string& child : children) {
    if (ContainsIgnoringAsciiCase(settled, child)) continue;
    if (!config.RemoveRegKey(child)) Log(u"#INFO: The child key stays in the config file: %ls", child);
    settled.push_back(child);
  }
}

bool Add(CQBConfig& config, const std::u16string& name) {
  if (!config.Init() || !MayBeAdded(config, name)) return false;
  AbsorbChildren(config, name);
  return config.AddRegKey(name) && SaveConfiguration(config);
}

bool Remove(CQBConfig& config, const std::u16string& name) {
  if (!config.Init()) return false;
  std::u16string profileStatus;
  if (!config.IsOutDirSet()) return LogFailure(u"#ERROR: Registry key redirection is disabled.");
  if (EqualIgnoringAsciiCase(name, kProfileListKey)) {
    if (!config.GetUserProfileRedirection(nullptr, &profileStatus, nullptr))
      return LogFailure(line::kConfigLacksProfiles);
    if (profileStatus == u"1")
      return LogFailure(u"#ERROR: This registry key is required for redirecting new user profiles automatically.");
  }
  return config.RemoveRegKey(name) && SaveConfiguration(config);
}

}  // namespace

bool IsValidRegistryPath(const std::u16string& name) {
  std::u16string keyPath;
  if (!SplitKeyName(name, keyPath)) return false;
  win32::UniqueKey key;
  const win32::LSTATUS result =
      win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, win32::KEY_READ, key.put());
  return result == win32::LSTATUS{win32::ERROR_SUCCESS} || result == win32::LSTATUS{win32::ERROR_ACCESS_DENIED};
}

bool IsAllowedRegistryKey(const std::u16string& name) {
  for (const std::u16string_view refused :
       {u"HKEY_LOCAL_MACHINE\\SOFTWARE", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft",
        u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\"})
    if (EqualIgnoringAsciiCase(name, refused)) return false;
  return true;
}

int AddRedirectedRegKey(const char16_t* key) try {
  const std::u16string name = key ? key : u"";
  CQBConfig config;
  if (!IsAdministrator(StringId::RegKeyNeedsAdministrator)) return 1;
  if (name.empty()) {
    Log(u"#ERROR: Input path not specified.");
    return SayAddingFailed(name);
  }
  if (!IsValidRegistryPath(name)) {
    Log(u"#ERROR: Invalid Registry path: %s", name);
    return SayAddingFailed(name);
  }
  if (!IsAllowedRegistryKey(name)) {
    Log(u"#ERROR: Redirection of %s key is not allowed.", name);
    return SayFailure(StringId::RegKeyNotAllowed, name);
  }
  if (!Add(config, name)) return SayAddingFailed(name);
  StartQuillbayService();
  Say(StringId::RegKeyRedirected, name);
  return 0;
} catch (const std::exception&) {
  return SayAddingFailed(key ? key : u"");
}

int RemoveRedirectedRegKey(const char16_t* name) try {
  if (!name || !*name) return 1;
  CQBConfig config;
  if (!IsAdministrator(StringId::RegKeyNeedsAdministrator)) return 1;
  if (!Remove(config, name)) return SayFailure(StringId::RegKeyRemovalFailed, name, LogPath());
  Say(StringId::RegKeyRemovalDone, name);
  return 0;
} catch (const std::exception&) {
  return SayFailure(StringId::RegKeyRemovalFailed, name, LogPath());
}

int PrintRedirectedRegKeys() try {
  CQBConfig config;
  const bool read = config.Init() != 0;
  ConsolePrint(u"\n\n");
  for (const std::u16string& key : config.MonitoredKeys()) ConsoleFormat(u"%ls\n", key);
  ConsolePrint(u"\n");
  return read ? 0 : 1;
} catch (const std::exception&) {
  return 1;
}
