// What is on a disk, for the user to choose from.
#pragma once

#include <string>
#include <vector>

#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/file_descriptor.h"
#include "workstation/partition_table.h"

namespace workstation {

// A range of an open file; writes to it fail.
class RangeDevice final : public emulated::BlockDevice {
 public:
  RangeDevice(const emulated::FileDescriptor& file, std::uint64_t offset, std::uint64_t size)
      : file_(file), offset_(offset), size_(size) {}

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, std::span<std::uint8_t> to) override {
    return offset <= size_ && to.size() <= size_ - offset && file_.ReadAt(offset_ + offset, to);
  }
  bool Write(std::uint64_t, emulated::ByteView) override { return false; }

 private:
  const emulated::FileDescriptor& file_;
  std::uint64_t offset_, size_;
};

inline constexpr const char* kNtfs = "NTFS";
// What a partition holds by its first sector: kNtfs, "a FAT volume", ...
std::string KindOf(const emulated::FileDescriptor& disk, const Partition& partition);

// One line for each, behind a line break. `hasVolumes`: more than the first sectors is there; then with labels, and
// with the drive letters that a Windows on the disk has given to its partitions.
std::string ListPartitions(const emulated::FileDescriptor& disk, const std::vector<Partition>& partitions,
                           bool hasVolumes);

}  // namespace workstation
