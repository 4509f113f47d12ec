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

bool MeasureVolume(const char16_t* path, std::uint64_t& bytes) {
  win32::ULARGE_INTEGER total{}, free{};
  if (!win32::GetDiskFreeSpaceExW(path, nullptr, &total, &free)) return false;
  bytes = total.QuadPart - free.QuadPart;
  return true;
}

bool MeasureTree(const FolderTree& tree, std::uint64_t& bytes) {
  const TreeListing* const listing = tree.Get();
  if (listing) bytes = listing->TotalSize();
  return listing != nullptr;
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

bool MeasureSource(const FolderTree& source, std::uint64_t& bytes) {
  if (IsVolume(source.path()) ? MeasureVolume(source.path(), bytes) : MeasureTree(source, bytes)) return true;
  Log(line::kSizeUnknown, source.path());
  return false;
}

int HasEnoughFreeSpace(const FolderTree& source, const char16_t* target) try {
  if (!source.path() || !target) {
    Log(u"#ERROR: Source Or Target path is missing.");
    return 0;
  }
  std::uint64_t needed = 0;
  if (!MeasureSource(source, needed)) return 0;

  const std::u16string place = WhereToLook(target);
  const std::optional<std::uint64_t> available = AvailableBytes(place);
  if (!available && IsVolume(place.c_str())) {
    Log(line::kFreeSpaceUnknown, place);
    return 0;
  }
  if (available && *available > needed) return 1;
  std::u16string name = target;
  IsVolumeMountPoint(target, &name);
  Log(line::kNotEnoughSpace, name);
  return 0;
} catch (const std::exception&) {
  return 0;
}
