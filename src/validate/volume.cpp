// The rules for a volume that is to be mounted in a folder's place.
#include <array>
#include <exception>
#include <string_view>

#include "fsops/file_list.h"
#include "links/mounted_folder.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "validate/free_space.h"
#include "validate/prescan.h"
#include "validate/relations.h"
#include "validate/validate.h"
#include "win32/win32.h"

namespace {

struct FindVolumeTraits : win32::FileHandleTraits {
  static void Close(Type handle) { win32::FindVolumeClose(handle); }
};

bool IsListed(const char16_t* volume) {
  constexpr win32::DWORD kNameBuffer = 260;
  std::array<char16_t, kNameBuffer> name{};
  const win32::UniqueHandle<FindVolumeTraits> find{win32::FindFirstVolumeW(name.data(), kNameBuffer)};
  if (!find) return false;
  do {
    if (EqualPaths(name.data(), volume)) return true;
  } while (win32::FindNextVolumeW(find.get(), name.data(), kNameBuffer));
  return false;
}

// On how many letters and folders the volume is mounted.
enum class Mounts { None, One, Several, Unknown };
Mounts MountsOf(const char16_t* volume) {
  constexpr win32::DWORD kPathBuffer = 261;
  std::array<char16_t, kPathBuffer> paths{};
  win32::DWORD length = 0;
  if (!win32::GetVolumePathNamesForVolumeNameW(volume, paths.data(), kPathBuffer, &length))
    return win32::GetLastError() == win32::ERROR_MORE_DATA ? Mounts::Several : Mounts::Unknown;
  if (length == 1) return Mounts::None;
  const std::size_t first = std::u16string_view(paths.data()).size();
  return paths[first + 1] == u'\0' ? Mounts::One : Mounts::Several;
}

// The folder may go by several names, so its volume is asked for and not the volume's path compared.
bool IsMountedElsewhere(const char16_t* volume, const char16_t* folder) {
  const Mounts mounts = MountsOf(volume);
  if (mounts != Mounts::One) return mounts != Mounts::None;
  std::u16string mounted;
  return !IsVolumeMountPoint(folder, &mounted) || !EqualPaths(mounted, volume);
}

win32::UniqueFile OpenProbe(const std::u16string& path, win32::DWORD disposition) {
  return win32::UniqueFile{win32::CreateFileW(path.c_str(), win32::GENERIC_READ | win32::GENERIC_WRITE, 0, nullptr,
                                              disposition, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
}

// Only "access denied" counts as not writable. A file of the probe's name that is there is somebody's: it is opened,
// and left as it is.
bool IsWritable(const char16_t* volume) {
  if (OnlyLooks* const look = OnlyLooks::Current()) {
    look->Leave(u"Whether the volume can be written to: a file would have to be made on it.");
    return true;
  }
  const std::u16string probe = std::u16string(volume) + u"temp.check";
  if (OpenProbe(probe, win32::OPEN_EXISTING)) return true;
  if (const win32::DWORD error = win32::GetLastError(); error != win32::ERROR_FILE_NOT_FOUND)
    return error != win32::ERROR_ACCESS_DENIED;
  win32::UniqueFile file = OpenProbe(probe, win32::CREATE_NEW);
  if (!file) return win32::GetLastError() != win32::ERROR_ACCESS_DENIED;
  file.reset();
  win32::DeleteFileW(probe.c_str());
  return true;
}

bool IsNotMounted(const char16_t* volume) {
  const Mounts mounts = MountsOf(volume);
  return mounts == Mounts::None || mounts == Mounts::Unknown;
}

using VolumeLine = FormatFor<const char16_t*>;

constexpr VolumeLine kNotNtfs = u"#ERROR: Volume %ls must be a NTFS formatted volume. Browse to a different location.";
constexpr VolumeLine kMounted = u"#ERROR: The selected volume %ls already mounted.";

struct VolumeRule {
  bool (*holds)(const char16_t* volume);
  VolumeLine line;  // when it does not hold
};

// All are tried; nothing can be asked of a volume that does not exist.
constexpr VolumeRule kRules[] = {
    {IsOnNtfs, kNotNtfs},
    {IsNotMounted, kMounted},
    {IsWritable, u"#ERROR: The selected volume %ls doesn't have write permission."},
};

// The log tells of one that does not.
bool VolumeExists(const char16_t* volume) {
  if (!volume) return false;
  if (IsListed(volume)) return true;
  return LogFailure(u"#ERROR: The selected volume %ls does not exist.", volume);
}

bool HasRoomFor(const FolderTree& source, const char16_t* volume) {
  const std::optional<std::uint64_t> size = MeasureSource(source);
  if (!size) return false;
  const std::optional<std::uint64_t> available = AvailableBytes(volume);
  if (available && *size <= *available) return true;
  return LogFailure(u"#ERROR: Volume %ls doesn't have enough free disk space.", volume);
}

}  // namespace

int ValidateProfileVolume(const char16_t* volume, const char16_t* mountFolder) try {
  if (!VolumeExists(volume)) return 0;
  if (!IsOnNtfs(volume)) return LogFailure(kNotNtfs, volume);
  if (!IsMountedElsewhere(volume, mountFolder)) return 1;
  return LogFailure(kMounted, volume);
} catch (const std::exception&) {
  return 0;
}

int ValidateVolume(const char16_t* volume) try {
  if (!VolumeExists(volume)) return 0;
  int result = 1;
  for (const VolumeRule& rule : kRules) {
    if (rule.holds(volume)) continue;
    Log(rule.line, volume);
    result = 0;
  }
  return result;
} catch (const std::exception&) {
  return 0;
}

int ValidateVolumeRedirection(const char16_t* source, const char16_t* volume) try {
  if (!ValidateSourcePath(source)) return 0;
  const FolderTree sourceTree(source);
  const bool volumePassed = ValidateVolume(volume) != 0;
  bool passed = volumePassed;
  if (!CheckPathRelations(sourceTree, u"", {.skipTarget = true})) passed = false;
  if (volumePassed && !HasRoomFor(sourceTree, volume)) passed = false;
  if (!PreScanSource(sourceTree, nullptr, {.checkLocks = true})) passed = false;
  return passed ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}
