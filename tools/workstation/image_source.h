// Where the bytes of a volume come from: a raw image, a partition of a disk or of a block device, or the same in a
// virtual machine's container.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/file_descriptor.h"

namespace workstation {

// An open file or block device of the host and the range of it that is the volume.
struct ImageSource {
  std::filesystem::path shown;    // as the user named it
  emulated::FileDescriptor file;  // for reading; locked (shared), so that nobody of ours writes to it
  std::uint64_t offset = 0, size = 0;
  std::optional<unsigned> partition;  // its number, as fdisk shows it
  std::uint64_t start = 0;            // where it begins on its disk
  std::string container;              // "qcow2", "vhdx", ...: `file` is then what was unpacked, and has no name
  emulated::FileDescriptor packed;    // and this the container, locked
  emulated::Bytes identity;  // of a partition: what MountedDevices knows it by (disk signature and offset, or GUID)
  bool isBlockDevice = false;

  // A file that is the volume and nothing else: it may be moved or cloned whole.
  bool IsWholeFile() const { return container.empty() && !partition && !isBlockDevice; }
};

// Opens what the user names and finds the volume on it: all of it, its only NTFS partition, or the one of this number.
// Fails, naming what is there instead, or listing the partitions when several fit and none is named. What a container
// holds is unpacked into a file without a name in `scratch` (the host's folder for such files when it is empty).
ImageSource OpenImageSource(const std::filesystem::path& image, std::optional<unsigned> partition,
                            const std::filesystem::path& scratch = {});

// The volume, to be looked at: writes to it fail.
std::unique_ptr<emulated::BlockDevice> MakeDevice(const ImageSource& source);

// Fails when a file or block device is mounted, or stands behind a loop device.
void RequireUnused(const std::filesystem::path& image);

// An empty file of that size without a name: nothing is left of it when this process ends, however it does.
emulated::FileDescriptor MakeNamelessFile(const std::filesystem::path& folder, std::uint64_t size);

}  // namespace workstation
