#include "win32/emulated/storage/windows_state.h"

#include <array>
#include <string_view>
#include <utility>

#include "win32/constants.h"
#include "win32/emulated/storage/block_device.h"

namespace emulated {

namespace {

// A hibernation file that waits to be resumed begins so; one that has been resumed, or is not in use, does not.
bool IsHibernated(Volume& volume) {
  FileId file = 0;
  std::array<std::uint8_t, 4> start{};
  std::size_t done = 0;
  if (volume.LookupPath(u"\\hiberfil.sys", file) != 0 || volume.Read(file, {}, 0, start, done) != 0) return false;
  const std::string_view text(reinterpret_cast<const char*>(start.data()), done);
  return text == "hibr" || text == "HIBR";
}

}  // namespace

std::string WhyNotToWrite(Volume& volume) {
  if (IsHibernated(volume))
    return "Windows is hibernated there (fast startup counts, too); shut it down whole with \"shutdown /s /f /t 0\", "
           "or "
           "turn hibernation off with \"powercfg /h off\"";
  if (!volume.IsJournalClean())
    return "Windows has not put the volume away: its journal ($LogFile) holds changes that are not in place yet; start "
           "Windows with it and shut down, or have chkdsk look at it there";
  if (volume.IsMarkedForCheck()) return "the volume is marked for a check; have chkdsk look at it in Windows";
  return {};
}

std::string OtherVolumeKind(ByteView firstSector) {
  static constexpr std::pair<std::size_t, std::pair<std::string_view, const char*>> kKinds[] = {
      {3, {"-FVE-FS-", "a BitLocker volume"}},
      {3, {"EXFAT   ", "an exFAT volume"}},
      {3, {std::string_view("ReFS\0", 5), "a ReFS volume"}},
      {54, {"FAT1", "a FAT volume"}},
      {82, {"FAT32", "a FAT volume"}}};
  for (const auto& [offset, kind] : kKinds)
    if (firstSector.size() >= offset + kind.first.size() &&
        std::memcmp(firstSector.data() + offset, kind.first.data(), kind.first.size()) == 0)
      return kind.second;
  return {};
}

std::string WhyNotMounted(BlockDevice& device, win32::DWORD error) {
  if (error != win32::ERROR_UNRECOGNIZED_VOLUME) return "the NTFS volume is damaged";
  std::array<std::uint8_t, 512> first{};
  const std::string kind =
      device.Size() >= first.size() && device.Read(0, first) ? OtherVolumeKind(first) : std::string();
  return kind.empty() ? "not an NTFS volume" : kind + ", not an NTFS volume";
}

}  // namespace emulated
