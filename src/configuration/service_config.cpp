#include "configuration/service_config.h"

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>

#include "configuration/service_config_file.h"
#include "links/presence.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/service_path.h"
#include "text/ascii_case.h"
#include "win32/shell.h"
#include "win32/system.h"

namespace {

constexpr std::u16string_view kBaseKey = u"HKEY_LOCAL_MACHINE";
constexpr const char16_t* kRedirection = u"UserProfileRedirection";
constexpr const char16_t* kOutDir = u"OutDir";
constexpr const char16_t* kMonitoredKeys = u"RegistryKeysToMonitor";
constexpr const char16_t* kMonitoredKey = u"RegistryKeysToMonitor/RegKey";

// The ways in which elements are reached, each by the name of a child.

bool FindChild(const win32::XmlNode& parent, const char16_t* name, win32::XmlNode& child) {
  return parent.selectSingleNode(name, child) == win32::S_OK;
}

// S_FALSE when there is no such child.
win32::HRESULT ReadChildText(const win32::XmlNode& parent, const char16_t* name, std::u16string& text) {
  win32::XmlNode child;
  const win32::HRESULT found = parent.selectSingleNode(name, child);
  return found == win32::S_OK ? child.get_text(text) : found;
}

bool GetChildText(const win32::XmlNode& parent, const char16_t* name, std::u16string& text) {
  return ReadChildText(parent, name, text) == win32::S_OK;
}

bool SetChildText(const win32::XmlNode& parent, const char16_t* name, const std::u16string& text) {
  win32::XmlNode child;
  return FindChild(parent, name, child) && child.put_text(text) == win32::S_OK;
}

bool CreateChild(win32::XmlDocument& document, win32::XmlNode& parent, const char16_t* name, win32::XmlNode& child) {
  return document.createNode(name, child) == win32::S_OK && parent.appendChild(child) == win32::S_OK;
}

// The two texts that name the key of a RegKey element; S_FALSE when one of them is missing.
win32::HRESULT ReadKeyName(const win32::XmlNode& element, std::u16string& baseKey, std::u16string& keyPath) {
  const win32::HRESULT read = ReadChildText(element, u"BaseKey", baseKey);
  return read == win32::S_OK ? ReadChildText(element, u"RegKeyPath", keyPath) : read;
}

bool IsBelow(const std::u16string& name, const std::u16string& key) {
  return StartsWithIgnoringAsciiCase(name, key + u'\\');
}

// A name that no other backup file has; empty when none can be made.
std::u16string NewBackupFileName() {
  win32::GUID guid{};
  std::array<char16_t, 40> text{};
  if (win32::CoCreateGuid(&guid) != win32::S_OK) return {};
  const int size = win32::StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
  if (size < 3) return {};
  return std::u16string(text.data() + 1, static_cast<std::size_t>(size) - 3) + u".bak";  // neither braces nor the end
}

}  // namespace

bool SplitKeyName(const std::u16string& name, std::u16string& keyPath) {
  if (!StartsWithIgnoringAsciiCase(name, std::u16string(kBaseKey) + u'\\')) return false;
  keyPath = name.substr(kBaseKey.size() + 1);
  return true;
}

CQBConfig::CQBConfig() : CQBConfig(std::u16string_view()) { GetConfigFilePath(path_); }

CQBConfig::CQBConfig(std::u16string_view path) : path_(path) {}

void CQBConfig::Close() {
  path_.clear();
  Forget();
}

void CQBConfig::Forget() {
  monitoredKeys_.clear();
  root_.reset();
  document_.reset();
  loaded_ = 0;
}

int CQBConfig::GetConfigFilePath(std::u16string& path) try {
  const std::u16string folder = ServiceFolder(kQuillbayService);
  path = folder.empty() ? std::u16string() : folder + u"ServiceConfig.xml";
  return folder.empty() ? 0 : 1;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::Init() try {
  if (document_) return 0;
  loaded_ = 0;
  if (OnlyLooks::Current()) return Look();
  if (!PathExists(path_)) {
    if (!CreateDefaultConfig(path_)) {
      Log(u"CQBConfig::Init: could not find config file. Create default config failed");
      return 0;
    }
    Log(u"CQBConfig::Init: could not find config file. Default config created.");
  }
  if (!Parse()) {
    if (!CreateDefaultConfig(path_)) {
      Log(u"CQBConfig::Init: failed to load config file; Create default config failed");
      return 0;
    }
    if (!Parse()) return 0;
    Log(u"CQBConfig::Init: failed to load config file; Default config created");
  }
  return ReadContent();
} catch (const std::exception&) {
  Forget();
  return 0;
}

ConfigReading CQBConfig::Read() try {
  Forget();
  if (IsGone(path_)) return ConfigReading::NotThere;
  std::u16string text;
  if (!ReadConfigText(path_, text) || document_.CreateInstance() != win32::S_OK) {
    Forget();
    return ConfigReading::NotTold;
  }
  const win32::HRESULT loaded = document_.loadXML(text);
  if (loaded == win32::S_OK && ReadContent()) return ConfigReading::Done;
  Forget();
  return loaded == win32::S_FALSE ? ConfigReading::Damaged : ConfigReading::NotTold;
} catch (const std::exception&) {
  Forget();
  return ConfigReading::NotTold;
}

// A file that is there and does not tell what it holds is none that would be made anew.
int CQBConfig::Look() {
  const ConfigReading reading = Read();
  if (reading == ConfigReading::NotTold) Log(u"CQBConfig::Init: failed to load config file");
  return reading == ConfigReading::Done || (reading != ConfigReading::NotTold && TakeDefault()) ? 1 : 0;
}

// What the file would hold once it is made.
int CQBConfig::TakeDefault() {
  std::u16string text, profiles;
  if (path_.empty() || !ReadProfilesDirectory(profiles) || !DefaultConfigText(text) || !ParseText(text) ||
      !ReadContent())
    return LogFailure(u"CQBConfig::Init: could not find config file. Create default config failed");
  OnlyLooks::Current()->Leave(
      u"Whether the service's configuration file, which is missing or cannot be read, can be "
      u"made anew. The answer goes by its default.");
  return SetUserProfileRedirection(nullptr, nullptr, profiles.c_str());
}

// Reads the file into a new document. Without one, nothing is held.
int CQBConfig::Parse() {
  std::u16string text;
  return ReadConfigText(path_, text) && ParseText(text) ? 1 : 0;
}

int CQBConfig::ParseText(const std::u16string& text) {
  if (document_.CreateInstance() == win32::S_OK && document_.put_preserveWhiteSpace(win32::TRUE) == win32::S_OK &&
      document_.loadXML(text) == win32::S_OK)
    return 1;
  document_.reset();
  return 0;
}

int CQBConfig::ReadContent() {
  loaded_ = document_.get_documentElement(root_) == win32::S_OK && ReadMonitoredKeys() ? 1 : 0;
  if (!loaded_) Forget();  // a list in part would be taken for the whole
  return loaded_;
}

int CQBConfig::ReadMonitoredKeys() {
  monitoredKeys_.clear();
  std::vector<win32::XmlNode> elements;
  if (root_.selectNodes(kMonitoredKey, elements) != win32::S_OK) return 0;
  for (const win32::XmlNode& element : elements) {
    std::u16string baseKey, keyPath;
    const win32::HRESULT read = ReadKeyName(element, baseKey, keyPath);
    if (read < 0) return 0;
    if (read == win32::S_OK) monitoredKeys_.push_back(baseKey + u'\\' + keyPath);
  }
  return 1;
}

int CQBConfig::CreateDefaultConfig(const std::u16string& path) {
  // What would keep the new file from being completed is met before the old one is touched.
  std::u16string profiles;
  if (!ReadProfilesDirectory(profiles)) return 0;
  win32::XmlDocument document;
  if (document.CreateInstance() != win32::S_OK) return 0;

  if (!WriteDefaultConfigFile(path)) return 0;
  if (CompleteDefaultConfig(path, profiles)) return 1;
  // Nobody would complete it later. Without it, the next run makes it anew.
  win32::DeleteFileW(path.c_str());
  return 0;
}

// Puts into the default that has just been written what only this machine knows.
int CQBConfig::CompleteDefaultConfig(const std::u16string& path, const std::u16string& profiles) {
  CQBConfig config{std::u16string_view(path)};
  return config.Parse() && config.ReadContent() &&
                 config.SetUserProfileRedirection(nullptr, nullptr, profiles.c_str()) && SaveConfiguration(config)
             ? 1
             : 0;
}

int CQBConfig::Save() try {
  std::u16string text;
  if (document_.get_xml(text) != win32::S_OK) text.clear();  // which is not written
  return WriteConfigText(path_, text) ? 1 : 0;
} catch (const std::exception&) {
  win32::SetLastError(win32::ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

bool SaveConfiguration(CQBConfig& config) {
  if (config.Save()) return true;
  return LogSystemFailure(u"CQBConfig::Save: failed to save config file:\n");
}

bool CQBConfig::PeekOutDirStatus(std::u16string& status) const {
  std::u16string text;
  win32::XmlDocument document;
  win32::XmlNode root;
  return ReadConfigText(path_, text) && document.CreateInstance() == win32::S_OK &&
         document.loadXML(text) == win32::S_OK && document.get_documentElement(root) == win32::S_OK &&
         GetChildText(root, u"OutDir/Status", status);
}

int CQBConfig::IsOutDirEnabled() const try {
  win32::XmlNode section;
  std::u16string status;
  return FindChild(root_, kOutDir, section) && GetChildText(section, u"Status", status) && status == u"1" ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

bool CQBConfig::IsOutDirSet() const {
  int status = 0;
  std::u16string location;
  return GetOutDir(status, location) && status != 0;
}

int CQBConfig::GetOutDir(int& status, std::u16string& baseDir, std::u16string* type, std::u16string* subDir) const try {
  win32::XmlNode section;
  std::u16string text;
  if (!FindChild(root_, kOutDir, section) || !GetChildText(section, u"Status", text)) return 0;
  const int order = text.compare(u"0");
  status = order == 0 ? 0 : order < 0 ? -1 : 1;
  if (!GetChildText(section, u"BaseDir", baseDir)) return 0;
  if (type && !GetChildText(section, u"Type", *type)) return 0;
  if (subDir && !GetChildText(section, u"SubDir", *subDir)) return 0;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::SetOutDir(bool enable, const std::u16string& baseDir) try {
  win32::XmlNode section;
  if (!FindChild(root_, kOutDir, section)) return 0;
  return SetChildText(section, u"Status", enable ? u"1" : u"0") &&
                 SetChildText(section, u"BaseDir", enable ? baseDir : std::u16string())
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::GetUserProfileRedirection(std::u16string* newProfileDirectory, std::u16string* status,
                                         std::u16string* defaultProfilePath) const try {
  win32::XmlNode section;
  if (!FindChild(root_, kRedirection, section)) return 0;
  if (newProfileDirectory && !GetChildText(section, u"DefaultNewUserProfileDirectory", *newProfileDirectory)) return 0;
  if (status && !GetChildText(section, u"ProfileStatus", *status)) return 0;
  if (defaultProfilePath && !GetChildText(section, u"DefaultProfilePath", *defaultProfilePath)) return 0;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::SetUserProfileRedirection(const char16_t* status, const char16_t* newProfileDirectory,
                                         const char16_t* defaultProfilePath) try {
  win32::XmlNode section;
  if (!FindChild(root_, kRedirection, section)) return 0;
  if (status && !SetChildText(section, u"ProfileStatus", status)) return 0;
  if (newProfileDirectory && !SetChildText(section, u"DefaultNewUserProfileDirectory", newProfileDirectory)) return 0;
  if (defaultProfilePath && !SetChildText(section, u"DefaultProfilePath", defaultProfilePath)) return 0;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::AddRegKey(const std::u16string& name) try {
  std::u16string keyPath;
  if (!root_ || !SplitKeyName(name, keyPath)) return 0;
  monitoredKeys_.push_back(name);
  win32::XmlNode list, key, value;
  const win32::HRESULT found = root_.selectSingleNode(kMonitoredKeys, list);
  if (found < 0 || (found == win32::S_FALSE && !CreateChild(document_, root_, kMonitoredKeys, list))) return 0;
  if (!CreateChild(document_, list, u"RegKey", key)) return 0;
  for (const char16_t* const element : {u"BaseKey", u"RegKeyPath", u"BackUpFile"})
    if (!CreateChild(document_, key, element, value)) return 0;
  if (!SetChildText(key, u"BaseKey", std::u16string(kBaseKey)) || !SetChildText(key, u"RegKeyPath", keyPath)) return 0;
  const std::u16string backupFile = NewBackupFileName();
  return !backupFile.empty() && SetChildText(key, u"BackUpFile", backupFile) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::RemoveRegKey(const std::u16string& name) try {
  std::u16string keyPath;
  if (!root_ || !SplitKeyName(name, keyPath)) return 0;
  const auto entry = std::find_if(monitoredKeys_.begin(), monitoredKeys_.end(),
                                  [&name](const std::u16string& key) { return EqualIgnoringAsciiCase(key, name); });
  if (entry == monitoredKeys_.end()) {
    Log(u"key path not found in list :- %s", name);
    return 0;
  }
  monitoredKeys_.erase(entry);
  return RemoveElements(keyPath);
} catch (const std::exception&) {
  return 0;
}

// Takes every element of this key out of the document; 0 when there was none or one could not be taken out.
int CQBConfig::RemoveElements(const std::u16string& keyPath) {
  std::vector<win32::XmlNode> elements;
  if (root_.selectNodes(kMonitoredKey, elements) != win32::S_OK) return 0;
  int result = 0;
  for (const win32::XmlNode& element : elements) {
    std::u16string itsBaseKey, itsKeyPath;
    const win32::HRESULT read = ReadKeyName(element, itsBaseKey, itsKeyPath);
    if (read < 0) return 0;
    if (read != win32::S_OK || !EqualIgnoringAsciiCase(itsBaseKey, kBaseKey) ||
        !EqualIgnoringAsciiCase(itsKeyPath, keyPath))
      continue;
    win32::XmlNode list;
    if (element.get_parentNode(list) != win32::S_OK || list.removeChild(element) != win32::S_OK) return 0;
    result = 1;
  }
  return result;
}

bool CQBConfig::IsMonitored(const std::u16string& name) const {
  return ContainsIgnoringAsciiCase(monitoredKeys_, name);
}

int CQBConfig::GetChildKeys(const std::u16string& name, std::vector<std::u16string>& children) const try {
  const std::size_t before = children.size();
  std::copy_if(monitoredKeys_.begin(), monitoredKeys_.end(), std::back_inserter(children),
               [&name](const std::u16string& key) { return IsBelow(key, name); });
  return children.size() > before ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int CQBConfig::HasParentKey(const std::u16string& name, std::u16string* parent) const try {
  const auto found = std::find_if(monitoredKeys_.begin(), monitoredKeys_.end(),
                                  [&name](const std::u16string& key) { return IsBelow(name, key); });
  if (found == monitoredKeys_.end()) return 0;
  if (parent) *parent = *found;
  return 1;
} catch (const std::exception&) {
  return 0;
}
