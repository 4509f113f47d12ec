#include "validate/free_space.h"

#include <exception>
#include <string>

#include "links/mounted_folder.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "validate/path_rules.h"
#include "win32/win32.h"

namespace {

bool IsVolume(const char16_t* path) { return IsVolumeMountPoint(path) || IsVolumePath(path); }

std::optional<std::uint64_t> UsedBytes(const char16_t* volume) {
  win32::ULARGE_INTEGER total{}, free{};
  if (!win32::GetDiskFreeSpaceExW(volume, nullptr, &total, &free)) return std::nullopt;
  return total.QuadPart - free.QuadPart;
}

// A target that is yet to be made takes its room where the folder above it is.
std::u16string WhereToLook(const char16_t* target) {
  std::u16string parent;
  if (PathExists(target) || !GetParentDirPath(target, parent)) return target;
  Log(line::kSpaceOfParent, target, parent);
  return FolderForm(parent);
}

}  // namespace

std::optional<std::uint64_t> AvailableBytes(const std::u16string& folder) {
  win32::ULARGE_INTEGER available{};
  if (!win32::GetDiskFreeSpaceExW(folder.c_str(), &available, nullptr, nullptr)) return std::nullopt;
  return available.QuadPart;
}

std::optional<std::uint64_t> MeasureSource(const FolderTree& source) {
  std::optional<std::uint64_t> bytes;
  if (IsVolume(source.path()))
    bytes = UsedBytes(source.path());
  else if (const TreeListing* const listing = source.Get())
    bytes = listing->TotalSize();
  if (!bytes) Log(line::kSizeUnknown, source.path());
  return bytes;
}

int HasEnoughFreeSpace(const FolderTree& source, const char16_t* target, const char16_t* standIn) try {
  if (!source.path() || !target) return LogFailure(u"#ERROR: Source Or Target path is missing.");
  const std::optional<std::uint64_t> needed = MeasureSource(source);
  if (!needed) return 0;

  const std::u16string place = standIn ? std::u16string(standIn) : WhereToLook(target);
  const std::optional<std::uint64_t> available = AvailableBytes(place);
  if (!available && IsVolume(place.c_str())) return LogFailure(line::kFreeSpaceUnknown, place);
  if (available && *available > *needed) return 1;
  std::u16string name = target;
  IsVolumeMountPoint(target, &name);
  return LogFailure(line::kNotEnoughSpace, name);
} catch (const std::exception&) {
  return 0;
}
