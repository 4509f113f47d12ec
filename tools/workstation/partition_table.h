// The partitions of a disk, as libblkid reads them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "win32/emulated/bytes.h"

namespace workstation {

struct Partition {
  unsigned number = 0;                // as fdisk shows it
  std::uint64_t start = 0, size = 0;  // in bytes
  bool isExtended = false;            // an MBR's container of logical ones
  std::string name;                   // GPT's own, in UTF-8
  emulated::Bytes identity;           // as Windows' MountedDevices has it
};

// Empty when the open file or block device has no partition table.
std::vector<Partition> ReadPartitions(int disk);

}  // namespace workstation
