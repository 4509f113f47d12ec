// The registry: hives as trees, mounted where Windows mounts them.
//
// The functions of win32/registry.h are written on it; the machine's own services use the path helpers below.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "win32/constants.h"
#include "win32/emulated/bytes.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/registry/hive.h"

namespace emulated {

class FileObject;  // files/file_service.h

// Where a path of the registry's name space leads.
struct RegistryPlace {
  std::shared_ptr<HiveKey> key;      // null: the key does not exist
  std::u16string path;               // of what exists, below \REGISTRY, links followed: u"MACHINE\\SOFTWARE\\Microsoft"
  std::shared_ptr<HiveKey> deepest;  // the last key on the way that exists
  std::vector<std::u16string> missing;  // names below it
};

class Registry {
 public:
  explicit Registry(Machine& machine);
  ~Registry();

  // Loads \Windows\System32\config\SYSTEM, SOFTWARE, SAM, SECURITY, DEFAULT (those that are there) from the system
  // volume. False and one clear line when SYSTEM or SOFTWARE is missing, or any of them is damaged or dirty.
  bool LoadSystemHives(std::string& error);
  // Loads the NTUSER.DAT of the process's user, as a logon does, when the profile list knows his profile and it is
  // sound.
  void LoadUserHive();
  // Writes every changed hive back to its file. False: `error`.
  bool Flush(std::string& error);

  // For the machine itself: no access check, no gate. A path is a root and keys:
  // u"HKLM\\SYSTEM\\CurrentControlSet\\Services" (HKLM, HKU; CurrentControlSet is followed, keys as the 64-bit view
  // shows them).
  bool KeyExists(std::u16string_view path);
  std::optional<RegistryValue> Query(std::u16string_view path, std::u16string_view value);
  std::vector<RegistryValue> Values(std::u16string_view path);
  std::vector<std::u16string> SubKeys(std::u16string_view path);
  // Creates the keys. Nothing happens where no hive is mounted.
  void Set(std::u16string_view path, std::u16string_view value, win32::DWORD type, ByteView data);
  void SetText(std::u16string_view path, std::u16string_view value, std::u16string_view text,
               win32::DWORD type = win32::REG_SZ);
  void SetDword(std::u16string_view path, std::u16string_view value, win32::DWORD number);
  void CreateKey(std::u16string_view path);
  bool DeleteValue(std::u16string_view path, std::u16string_view value);
  bool DeleteTree(std::u16string_view path);
  // Does what has changed in the path's hive have to be written? What the machine can work out again at its next start
  // need not: a run that only looks leaves every file as it is.
  bool IsDirty(std::u16string_view path);
  void SetDirty(std::u16string_view path, bool dirty);
  // The key's security descriptor; setting it changes this key alone. Nothing (false) without the key.
  std::optional<Bytes> Security(std::u16string_view path);
  bool SetSecurity(std::u16string_view path, ByteView descriptor);

  // Mounts a hive file as a key of HKLM or HKU and unmounts it: RegLoadKeyW without its checks. A file that is missing
  // or empty becomes a new hive. 0 or an error code: 5 (the name is in use; a key of the hive is open; one of the
  // system's hives), 32 (the file is in use), 87, 1009 ERROR_BADDB (damaged or dirty), or what opening the file gives.
  win32::DWORD LoadHive(std::u16string_view mountPath, std::u16string_view file);
  win32::DWORD UnloadHive(std::u16string_view mountPath);
  // Mounts an empty hive that lives in memory only. For machines without disks.
  void MountEmpty(std::u16string_view mountPath);
  // Makes SYSTEM\CurrentControlSet the link to the control set that SYSTEM\Select chooses.
  void SelectControlSet();

  // For the functions of win32/registry.h. A path below \REGISTRY (u"USER\\S-1-5-18\\Environment"), redirected for the
  // 32-bit view where `view32`, links followed (the last one not with `openLink`). 0 (look at `place.key`), or 2 for a
  // link without a proper target.
  win32::DWORD Walk(std::u16string_view path, bool view32, bool openLink, RegistryPlace& place);
  // The key of HKEY_CURRENT_USER: u"USER\\" and the SID of the user who acts, or u"USER\\.DEFAULT" without his hive.
  std::u16string CurrentUserPath();
  const UpCase& upCase() const;

 private:
  struct Mount;
  struct State;
  std::shared_ptr<HiveKey> Find(std::u16string_view path);
  std::shared_ptr<HiveKey> FindOrCreate(std::u16string_view path);
  win32::DWORD OpenHiveFile(std::u16string_view file, bool create, Mount& mount);
  win32::DWORD ReadMount(Mount& mount, std::u16string_view name, bool create, std::string& error);
  win32::DWORD WriteMount(Mount& mount);
  // The root and the name that `mountPath` means; 87 when it is no direct child of a root.
  win32::DWORD CheckMountPoint(std::u16string_view mountPath, std::shared_ptr<HiveKey>& root, std::u16string& name);
  void Attach(HiveKey& root, std::u16string_view name, Mount mount);
  void Release(Mount& mount);
  void Reset();
  bool LoadSystemHive(std::u16string_view name, std::u16string_view mountPath, bool needed, std::string& error);

  std::unique_ptr<State> state_;
};

// A blank hive file (8 KiB) whose root has `rootName`; what `workstation create` puts down and fills through LoadHive.
Bytes BlankHive(std::u16string_view rootName, FileTime now);
// The descriptor of a machine hive's root: SYSTEM and Administrators full, Users read.
std::shared_ptr<const Bytes> MachineHiveSecurity();
// `text` with %SystemRoot%, %windir%, %SystemDrive%, %ProgramFiles%, %ProgramFiles(x86)% and %ProgramData% replaced by
// what the registry says; other names stay.
std::u16string ExpandSystemVariables(Registry& registry, std::u16string_view text);

}  // namespace emulated
