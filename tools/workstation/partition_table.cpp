#include "workstation/partition_table.h"

#include <blkid/blkid.h>

#include <cstdlib>
#include <memory>
#include <string_view>

namespace workstation {

namespace {

using emulated::Bytes;

// libblkid counts in these, whatever the disk does.
constexpr std::uint64_t kSector = 512;

// What MountedDevices holds for a partition of a disk with a master boot record: signature and offset in bytes.
Bytes IdentityOnMbr(const char* signature, std::uint64_t start) {
  Bytes identity;
  emulated::AppendLittleEndian(identity, static_cast<std::uint32_t>(std::strtoul(signature, nullptr, 16)));
  emulated::AppendLittleEndian(identity, start);
  return identity;
}

// And of a disk with a GUID partition table: "DMIO:ID:" and the partition's GUID as it lies on the disk, the first
// three of its parts with the lowest byte first.
Bytes IdentityOnGpt(std::string_view guid) {
  static constexpr std::string_view kPrefix = "DMIO:ID:";
  static constexpr unsigned kPlaces[] = {6, 4, 2, 0, 11, 9, 16, 14, 19, 21, 24, 26, 28, 30, 32, 34};
  Bytes identity(kPrefix.begin(), kPrefix.end());
  for (const unsigned place : kPlaces)
    identity.push_back(
        static_cast<std::uint8_t>(std::strtoul(std::string(guid.substr(place, 2)).c_str(), nullptr, 16)));
  return identity;
}

std::string_view TextOf(const char* text) { return text ? text : ""; }

Partition Describe(blkid_partition found) {
  constexpr std::size_t kGuidText = 36;
  Partition partition;
  partition.number = static_cast<unsigned>(blkid_partition_get_partno(found));
  partition.start = static_cast<std::uint64_t>(blkid_partition_get_start(found)) * kSector;
  partition.size = static_cast<std::uint64_t>(blkid_partition_get_size(found)) * kSector;
  partition.isExtended = blkid_partition_is_extended(found) != 0;
  partition.name = TextOf(blkid_partition_get_name(found));
  const blkid_parttable table = blkid_partition_get_table(found);
  const std::string_view type = TextOf(blkid_parttable_get_type(table)), guid = TextOf(blkid_partition_get_uuid(found));
  if (type == "dos" && blkid_parttable_get_id(table))
    partition.identity = IdentityOnMbr(blkid_parttable_get_id(table), partition.start);
  if (type == "gpt" && guid.size() == kGuidText) partition.identity = IdentityOnGpt(guid);
  return partition;
}

}  // namespace

std::vector<Partition> ReadPartitions(int disk) {
  std::vector<Partition> partitions;
  const std::unique_ptr<blkid_struct_probe, decltype(&blkid_free_probe)> probe(blkid_new_probe(), blkid_free_probe);
  if (!probe || blkid_probe_set_device(probe.get(), disk, 0, 0) != 0) return partitions;
  blkid_probe_enable_superblocks(probe.get(), 0);
  blkid_probe_enable_partitions(probe.get(), 1);
  const blkid_partlist list = blkid_probe_get_partitions(probe.get());
  for (int i = 0; list && i < blkid_partlist_numof_partitions(list); ++i)
    partitions.push_back(Describe(blkid_partlist_get_partition(list, i)));
  return partitions;
}

}  // namespace workstation
