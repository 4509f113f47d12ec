// Hives and their files: loading, writing back and unloading.
#include <algorithm>

#include "win32/emulated/registry/hive_file.h"
#include "win32/emulated/registry/key_object.h"
#include "win32/emulated/registry/registry_state.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace emulated {

using win32::DWORD;

namespace {

constexpr DWORD kSystemProcess = 4;
constexpr std::uint64_t kLargestHive = 0x7FFFFFFF;

// While it lives the system itself acts, with its privileges on, whoever called.
class ActAsSystem {
 public:
  explicit ActAsSystem(Machine& machine) : machine_(machine), saved_(machine.threadToken) {
    machine.threadToken = MakeSystemToken();
    machine.threadToken->EnablePrivilege(u"SeBackupPrivilege", true);
    machine.threadToken->EnablePrivilege(u"SeRestorePrivilege", true);
  }
  ~ActAsSystem() { machine_.threadToken = saved_; }
  ActAsSystem(const ActAsSystem&) = delete;
  ActAsSystem& operator=(const ActAsSystem&) = delete;

 private:
  Machine& machine_;
  std::shared_ptr<Token> saved_;
};

}  // namespace

DWORD Registry::OpenHiveFile(std::u16string_view file, bool create, Mount& mount) {
  Machine& machine = state_->machine;
  const ActAsSystem system(machine);
  OpenRequest request;
  request.path = file;
  request.access = win32::GENERIC_READ | win32::GENERIC_WRITE;
  request.disposition = create ? win32::OPEN_ALWAYS : win32::OPEN_EXISTING;
  request.flags = win32::FILE_FLAG_BACKUP_SEMANTICS;
  std::shared_ptr<FileObject> object;
  if (const DWORD error = machine.files().Open(request, object)) return error;
  object->processId = kSystemProcess;
  mount.handle = machine.objects.Insert(object, kSystemProcess, object->granted);
  mount.file = object;
  return object->isDirectory ? win32::ERROR_ACCESS_DENIED : win32::ERROR_SUCCESS;
}

DWORD Registry::ReadMount(Mount& mount, std::u16string_view name, bool create, std::string& error) {
  Volume& volume = *mount.file->volume->volume;
  std::uint64_t size = 0;
  if (const DWORD code = volume.StreamSize(mount.file->file, mount.file->stream, size)) return code;
  if (size > kLargestHive) return kBadDatabase;
  if (size == 0 && create) {
    mount.hive = NewHive(name, MachineHiveSecurity(), state_->upCase, state_->machine.Now());
    return WriteMount(mount);
  }
  Bytes content;
  const HivePlace place{mount.file->directory, mount.file->name, mount.file->file};
  if (const DWORD code = ReadHiveFile(volume, place, content, error)) return code;
  mount.hive = ReadHive(std::move(content), state_->upCase, error);
  return mount.hive ? win32::ERROR_SUCCESS : kBadDatabase;
}

DWORD Registry::WriteMount(Mount& mount) {
  if (!mount.file) return win32::ERROR_SUCCESS;
  Volume& volume = *mount.file->volume->volume;
  const FileId file = mount.file->file;
  const FileTime now = state_->machine.Now();
  const Bytes content = WriteHive(*mount.hive, now);
  if (const DWORD error = volume.Write(file, mount.file->stream, 0, content)) return error;
  if (const DWORD error = volume.SetStreamSize(file, mount.file->stream, content.size())) return error;
  mount.hive->baseBlock.assign(content.begin(),
                               content.begin() + static_cast<std::ptrdiff_t>(mount.hive->baseBlock.size()));
  mount.hive->dirty = false;
  mount.hive->source.reset();  // all of it has been read to be written
  FileTimes times;
  times.lastWrite = times.change = now;
  return volume.SetTimes(file, times);
}

void Registry::Attach(HiveKey& root, std::u16string_view name, Mount mount) {
  const auto point = state_->master->AddKey(root, name, root.security, true, state_->machine.Now());
  point->mounted = mount.hive;
  mount.point = point.get();
  state_->mounts.push_back(std::move(mount));
}

// Gives the file free; what is not written by now is lost.
void Registry::Release(Mount& mount) {
  if (mount.hive) mount.hive->Abandon();
  if (mount.handle) state_->machine.objects.Close(mount.handle, kSystemProcess);
  mount.handle = nullptr;
  mount.file.reset();
}

DWORD Registry::CheckMountPoint(std::u16string_view mountPath, std::shared_ptr<HiveKey>& root, std::u16string& name) {
  if (StartsWithAsciiNoCase(mountPath, u"HKLM\\")) {
    root = state_->machineRoot;
    name = mountPath.substr(5);
  } else if (StartsWithAsciiNoCase(mountPath, u"HKU\\")) {
    root = state_->usersRoot;
    name = mountPath.substr(4);
  }
  if (!root || name.empty() || name.size() > kLongestKeyName || name.find(u'\\') != name.npos)
    return win32::ERROR_INVALID_PARAMETER;
  return win32::ERROR_SUCCESS;
}

DWORD Registry::LoadHive(std::u16string_view mountPath, std::u16string_view file) {
  std::shared_ptr<HiveKey> root;
  std::u16string name;
  if (const DWORD error = CheckMountPoint(mountPath, root, name)) return error;
  Mount mount;
  std::string why;
  DWORD error = OpenHiveFile(file, true, mount);
  if (error == 0 && root->Child(upCase()(name))) error = win32::ERROR_ACCESS_DENIED;
  if (error == 0) error = ReadMount(mount, name, true, why);
  if (error != 0) {
    Release(mount);
    return error;
  }
  Attach(*root, name, std::move(mount));
  return win32::ERROR_SUCCESS;
}

DWORD Registry::UnloadHive(std::u16string_view mountPath) {
  std::shared_ptr<HiveKey> root;
  std::u16string name;
  if (const DWORD error = CheckMountPoint(mountPath, root, name)) return error;
  const auto point = root->Child(upCase()(name));
  if (!point) return win32::ERROR_FILE_NOT_FOUND;
  const auto mount = std::find_if(state_->mounts.begin(), state_->mounts.end(),
                                  [&](const Mount& candidate) { return candidate.point == point.get(); });
  if (mount == state_->mounts.end()) return win32::ERROR_INVALID_PARAMETER;
  const auto& handles = state_->machine.objects.all();
  const bool inUse = std::any_of(handles.begin(), handles.end(), [&](const auto& entry) {
    const auto* const open = dynamic_cast<const KeyObject*>(entry.second.object.get());
    return open && open->key->hive == mount->hive.get();
  });
  if (mount->system || inUse) return win32::ERROR_ACCESS_DENIED;
  if (mount->hive->dirty)
    if (const DWORD error = WriteMount(*mount)) return error;
  Release(*mount);
  state_->mounts.erase(mount);
  state_->master->RemoveKey(*point, state_->machine.Now());
  return win32::ERROR_SUCCESS;
}

void Registry::MountEmpty(std::u16string_view mountPath) {
  std::shared_ptr<HiveKey> root;
  std::u16string name;
  if (CheckMountPoint(mountPath, root, name) != 0 || root->Child(upCase()(name))) return;
  Mount mount;
  mount.hive = NewHive(name, MachineHiveSecurity(), state_->upCase, state_->machine.Now());
  Attach(*root, name, std::move(mount));
}

bool Registry::LoadSystemHive(std::u16string_view name, std::u16string_view mountPath, bool needed,
                              std::string& error) {
  const std::u16string path = u"\\Windows\\System32\\config\\" + std::u16string(name);
  const MountedVolume& volume = *state_->machine.SystemVolume();
  FileId id = 0;
  const DWORD missing = volume.volume->LookupPath(path, id);
  if (missing != 0 && !needed && (missing == win32::ERROR_FILE_NOT_FOUND || missing == win32::ERROR_PATH_NOT_FOUND))
    return true;
  Mount mount;
  std::string why;
  DWORD code = missing;
  if (code == 0)
    code = OpenHiveFile(volume.letter != 0 ? volume.letter + (u":" + path) : volume.guidName + path.substr(1), false,
                        mount);
  if (code == 0) code = ReadMount(mount, name, false, why);
  if (code != 0) {
    Release(mount);
    if (why.empty()) why = missing != 0 ? "is missing" : "cannot be read (error " + std::to_string(code) + ")";
    error = Utf8(path) + " on the system volume " + why;
    return false;
  }
  mount.system = true;
  std::shared_ptr<HiveKey> root;
  std::u16string key;
  CheckMountPoint(mountPath, root, key);
  Attach(*root, key, std::move(mount));
  return true;
}

bool Registry::LoadSystemHives(std::string& error) {
  Reset();
  if (!state_->machine.SystemVolume()) {
    error = "the machine has no system volume to read the registry from";
    return false;
  }
  const bool loaded = LoadSystemHive(u"SYSTEM", u"HKLM\\SYSTEM", true, error) &&
                      LoadSystemHive(u"SOFTWARE", u"HKLM\\SOFTWARE", true, error) &&
                      LoadSystemHive(u"SAM", u"HKLM\\SAM", false, error) &&
                      LoadSystemHive(u"SECURITY", u"HKLM\\SECURITY", false, error) &&
                      LoadSystemHive(u"DEFAULT", u"HKU\\.DEFAULT", false, error);
  if (loaded) SelectControlSet();
  return loaded;
}

void Registry::LoadUserHive() {
  const std::u16string sid = SidToText(state_->machine.process.token->user);
  const auto profile =
      Query(u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\" + sid, u"ProfileImagePath");
  if (!profile || KeyExists(u"HKU\\" + sid)) return;
  const std::u16string file = ExpandSystemVariables(*this, profile->Text()) + u"\\NTUSER.DAT";
  Location location;
  // A user without a sound hive works on the default one.
  if (state_->machine.files().Resolve(file, true, location) == 0 && location.file != 0) LoadHive(u"HKU\\" + sid, file);
}

bool Registry::Flush(std::string& error) {
  for (Mount& mount : state_->mounts) {
    if (!mount.hive->dirty || !mount.file) continue;
    if (const DWORD code = WriteMount(mount)) {
      error = "the registry hive of " + Utf8(mount.point->name) + " could not be written (error " +
              std::to_string(code) + ")";
      return false;
    }
  }
  return true;
}

}  // namespace emulated
