#include "regredirect/location_volume.h"

#include "links/mounted_folder.h"
#include "links/presence.h"
#include "probes/rimehold_status.h"
#include "records/registry_text.h"
#include "regredirect/registry_data.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kNotesKey = u"SOFTWARE\\Velmora\\Quillbay\\RegistryVolumes";

enum class Noted { Nothing, Volume, NotTold };

// The volume that is noted as mounted on the folder.
Noted ReadNote(const std::u16string& folder, std::u16string& volume) {
  RegistryValue value;
  const win32::LSTATUS error = ReadMachineValue(kNotesKey, folder.c_str(), value, win32::KEY_WOW64_32KEY);
  if (error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return Noted::Nothing;
  if (error != 0 || !IsText(value)) return Noted::NotTold;
  volume = RawText(value);
  return Noted::Volume;
}

bool WriteNote(const std::u16string& folder, const std::u16string& volume) {
  win32::UniqueKey key;
  return win32::RegCreateKeyExW(win32::HKEY_LOCAL_MACHINE, kNotesKey, 0, nullptr, win32::REG_OPTION_NON_VOLATILE,
                                win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, nullptr, key.put(), nullptr) == 0 &&
         WriteRegistryValue(key.get(), folder.c_str(), TextValue(volume, win32::REG_SZ)) == 0;
}

// One that stays does no harm: it counts only while that volume is mounted there.
void DropNote(const std::u16string& folder) {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kNotesKey, 0, win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY,
                           key.put()) == 0)
    win32::RegDeleteValueW(key.get(), folder.c_str());
}

// Is it ours, the volume that is mounted on the folder? Where nothing is noted (by a version that did not), the folder
// itself says so: nobody else mounts anything there.
bool IsOwnMount(const std::u16string& folder, const std::u16string& mounted) {
  std::u16string text;
  switch (ReadNote(folder, text)) {
    case Noted::Volume:
      return EqualPaths(text, mounted);
    case Noted::Nothing:
      return GetRegRedirectPath(text) && EqualPaths(folder, text);
    case Noted::NotTold:
      break;
  }
  return false;
}

}  // namespace

LocationVolume::~LocationVolume() {
  if (kept_ || !begun_) return;
  if (mounted_ && !UnmountVolume(folder_)) {
    LogWithSystemError(line::kMountNotTakenBack, folder_);
    return;
  }
  created_.RemoveIfEmpty();
  DropNote(folder_);
}

bool LocationVolume::Mount(const std::u16string& location) {
  if (!GetRegRedirectPath(folder_)) return LogFailure(u"#ERROR: Unable to get mount volume path.");
  const std::u16string volume = location.ends_with(u'\\') ? location : location + u'\\';
  if (!MayHoldRegistryData(volume)) return false;
  std::u16string mounted, noted;
  if (IsVolumeMountPoint(folder_.c_str(), &mounted)) {
    if (EqualPaths(mounted, volume)) return Note(volume);
    const bool isLeft = ReadNote(folder_, noted) == Noted::Volume && EqualPaths(noted, mounted);
    if (isLeft && !UnmountVolume(folder_)) return LogSystemFailure(line::kVolumeNotUnmounted, folder_);
  }
  created_ = CreatedFolders(folder_);
  begun_ = true;
  if (MakeFolder(folder_) == FolderMade::Failed) return LogFailure(line::kTargetFolderNotCreated, folder_);
  if (!Note(volume)) return false;
  mounted_ = MountVolume(folder_, volume);
  if (!mounted_) Log(line::kVolumeNotMounted, folder_);
  return mounted_;
}

bool LocationVolume::Note(const std::u16string& volume) const {
  return WriteNote(folder_, volume) ||
         LogFailure(u"#ERROR: Unable to note in registry which volume is mounted on %ls.", folder_);
}

bool IsLocationOnVolume(const std::u16string& location) {
  std::u16string volume;
  const Look look = LookAt(location);
  if (look.IsGone() || look.IsPlainDirectory()) return false;
  // What is mounted on a folder of another name is the administrator's, and a place like any.
  return ReadNote(location, volume) != Noted::Nothing || EqualPaths(LastComponent(location), u"RegRedirect");
}

bool ReadLocationVolume(const std::u16string& folder, std::u16string& volume) {
  volume.clear();
  return ReadNote(folder, volume) != Noted::NotTold;
}

void LeaveLocationVolume(const std::u16string& location) {
  std::u16string mounted;
  if (IsVolumeMountPoint(location.c_str(), &mounted) && IsOwnMount(location, mounted) && UnmountVolume(location)) {
    RemoveEmptyFolder(location);
    DropNote(location);
  } else {
    Log(u"#INFO: The volume stays mounted on folder %ls.", location);
  }
}
