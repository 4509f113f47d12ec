// "ServiceConfig.xml": the settings of the product's service, which the program shares with it. UTF-16LE text with a
// byte-order mark, in the folder of the service's executable:
//
//   VelmoraQuillbayConfig
//     Meta                    ProductVersion, ConfigVersion
//     UserProfileRedirection  ProfileStatus, DefaultNewUserProfileDirectory, DefaultProfilePath
//     OutDir                  Status, Type, BaseDir, SubDir
//     RegistryKeysToMonitor   RegKey: BaseKey, RegKeyPath, BackUpFile (one for each monitored key; may be missing)
//
// Every command makes a CQBConfig of its own: Init, edit, Save. Nothing reaches the disk before Save.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "win32/handle.h"
#include "win32/xml.h"

// The path of a key below its hive; false when its name does not begin with "HKEY_LOCAL_MACHINE\" (in any case of
// letters).
bool SplitKeyName(const std::u16string& name, std::u16string& keyPath);

// What came of reading the file.
enum class ConfigReading { Done, NotThere, NotTold, Damaged };

// One loaded copy of the file. Operations answer 1 for success and 0 for failure, and fail on an object that is not
// loaded. An element that an operation needs and the file lacks makes it fail; only AddRegKey creates elements.
class CQBConfig {
 public:
  // Initialises COM for the thread and finds the file; without the service its path stays empty.
  CQBConfig();
  CQBConfig(const CQBConfig&) = delete;
  CQBConfig& operator=(const CQBConfig&) = delete;

  // Loads the file; a missing or unreadable one is first replaced by the default (logged); for a run that only looks,
  // in memory alone. 0 on an object that is loaded already, which stays as it is.
  int Init();
  // Loads the file as it is, for who only looks: nothing is put in the place of one that is missing or damaged.
  ConfigReading Read();
  // The text of `OutDir/Status` in the file, loaded or not: a look that puts nothing in place of a file that is missing
  // or cannot be read. Blanks around the text do not count. False when the file does not tell.
  bool PeekOutDirStatus(std::u16string& status) const;
  // Writes the document to the file, in place. A failure (not logged) leaves the last error of the call that failed;
  // docs/service-config.md says what the file holds then.
  int Save();
  // Forgets the path and the document.
  void Close();
  const std::u16string& path() const { return path_; }

  // 1 when a registry redirection location is set (`OutDir/Status` is exactly "1").
  int IsOutDirEnabled() const;
  // GetOutDir's status for those who do not ask where: it can be read, and is not 0.
  bool IsOutDirSet() const;
  // status: 0 when the text is "0", otherwise -1 or 1, as the text compares with it. type, subDir: may be null. Stops
  // at the first element that is missing.
  int GetOutDir(int& status, std::u16string& baseDir, std::u16string* type = nullptr,
                std::u16string* subDir = nullptr) const;
  // enable: status "1" and the folder; otherwise "0" and an empty folder.
  int SetOutDir(bool enable, const std::u16string& baseDir = {});

  // Each where it is asked for (not null), in this order, up to the first that is missing or cannot be set. status: the
  // text, "1" while new user profiles are redirected.
  int GetUserProfileRedirection(std::u16string* newProfileDirectory, std::u16string* status,
                                std::u16string* defaultProfilePath) const;
  int SetUserProfileRedirection(const char16_t* status, const char16_t* newProfileDirectory,
                                const char16_t* defaultProfilePath);

  // The monitored keys, in the file's order and then the order of adding: "HKEY_LOCAL_MACHINE\SOFTWARE\X".
  const std::vector<std::u16string>& MonitoredKeys() const { return monitoredKeys_; }
  // name: "HKEY_LOCAL_MACHINE\" (in any case of letters) and a path below it; all else fails. Duplicates are not looked
  // for. After a failure the document may hold a part of the entry: it is not to be saved.
  int AddRegKey(const std::u16string& name);
  // Takes the first equal entry (but for the case of A to Z) off the list and every such element out of the document.
  // Logs a name that is not in the list.
  int RemoveRegKey(const std::u16string& name);
  bool IsMonitored(const std::u16string& name) const;  // letter case does not count
  // Appends the monitored keys below `name`; 1 when there is one.
  int GetChildKeys(const std::u16string& name, std::vector<std::u16string>& children) const;
  // 1 when `name` lies below a monitored key, which `parent` (may be null) receives.
  int HasParentKey(const std::u16string& name, std::u16string* parent = nullptr) const;

  // The path of the file; 0, and an empty path, when the service's folder cannot be told.
  static int GetConfigFilePath(std::u16string& path);

 private:
  // For the file at this path.
  explicit CQBConfig(std::u16string_view path);

  static int CreateDefaultConfig(const std::u16string& path);
  static int CompleteDefaultConfig(const std::u16string& path, const std::u16string& profiles);
  void Forget();  // the document and all that was read from it
  int Look();
  int TakeDefault();
  int Parse();
  int ParseText(const std::u16string& text);
  int ReadContent();
  int ReadMonitoredKeys();
  int RemoveElements(const std::u16string& keyPath);

  const win32::ComApartment apartment_;  // outlives what follows
  int loaded_ = 0;
  std::u16string path_;
  std::vector<std::u16string> monitoredKeys_;
  win32::XmlDocument document_;
  win32::XmlNode root_;
};

// CQBConfig::Save; a failure has its line in the log.
bool SaveConfiguration(CQBConfig& config);
