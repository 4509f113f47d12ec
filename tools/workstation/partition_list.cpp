#include "workstation/partition_list.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "win32/emulated/registry/hive.h"
#include "win32/emulated/registry/hive_file.h"
#include "win32/emulated/storage/volume.h"
#include "win32/emulated/storage/windows_state.h"
#include "win32/emulated/text.h"

namespace workstation {

namespace {

using emulated::FileDescriptor;

// The volume's own MountedDevices, when a Windows is on it whose hive can be read.
std::vector<emulated::RegistryValue> MountedDevices(emulated::Volume& volume) {
  static constexpr std::u16string_view kFolder = u"\\Windows\\System32\\config", kName = u"SYSTEM";
  emulated::HivePlace place{0, kName, 0};
  emulated::Bytes content;
  std::string ignored;
  if (volume.LookupPath(kFolder, place.directory) != 0 ||
      volume.LookupPath(std::u16string(kFolder) + u"\\" + std::u16string(kName), place.file) != 0 ||
      emulated::ReadHiveFile(volume, place, content, ignored) != 0)
    return {};
  const auto hive = emulated::ReadHive(std::move(content), std::make_shared<const emulated::UpCase>(volume), ignored);
  const auto key = hive ? hive->root->Child(u"MOUNTEDDEVICES") : nullptr;
  return key ? key->Values() : std::vector<emulated::RegistryValue>();
}

// "C:" for a partition that one of them calls so.
std::string LetterOf(const Partition& partition, const std::vector<emulated::RegistryValue>& known) {
  static constexpr std::u16string_view kPrefix = u"\\DosDevices\\";
  for (const emulated::RegistryValue& value : known)
    if (!partition.identity.empty() && value.data == partition.identity && value.name.starts_with(kPrefix))
      return emulated::Utf8(value.name.substr(kPrefix.size()));
  return {};
}

}  // namespace

std::string KindOf(const FileDescriptor& disk, const Partition& partition) {
  if (partition.isExtended) return "the logical partitions";
  std::array<std::uint8_t, 512> sector{};
  if (!disk.ReadAt(partition.start, sector)) return "nothing that can be read";
  if (std::memcmp(sector.data() + 3, "NTFS    ", 8) == 0) return kNtfs;
  const std::string kind = emulated::OtherVolumeKind(sector);
  return kind.empty() ? "nothing that is known here" : kind;
}

std::string ListPartitions(const FileDescriptor& disk, const std::vector<Partition>& partitions, bool hasVolumes) {
  std::vector<std::string> labels(partitions.size());
  std::vector<emulated::RegistryValue> known;
  for (std::size_t i = 0; hasVolumes && i < partitions.size(); ++i) {
    RangeDevice device(disk, partitions[i].start, partitions[i].size);
    std::unique_ptr<emulated::Volume> volume;
    if (KindOf(disk, partitions[i]) != kNtfs || emulated::Volume::Mount(device, volume) != 0) continue;
    labels[i] = emulated::Utf8(volume->Label());
    const auto more = MountedDevices(*volume);
    known.insert(known.end(), more.begin(), more.end());
  }
  std::string lines;
  for (std::size_t i = 0; i < partitions.size(); ++i) {
    const Partition& partition = partitions[i];
    char line[96];
    std::snprintf(line, sizeof line, "\n  %3u  at %14llu  %14llu bytes  ", partition.number,
                  static_cast<unsigned long long>(partition.start), static_cast<unsigned long long>(partition.size));
    lines.append(line).append(KindOf(disk, partition));
    if (!labels[i].empty()) lines += ", labelled \"" + labels[i] + '"';
    if (!partition.name.empty()) lines += ", called \"" + partition.name + '"';
    if (const std::string letter = LetterOf(partition, known); !letter.empty()) lines += ", was " + letter;
  }
  return lines;
}

}  // namespace workstation
