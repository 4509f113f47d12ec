// A BlockDevice as libntfs-3g's device, and the mounting of what is on it.
#pragma once

#include "win32/emulated/storage/block_device.h"
#include "win32/types.h"

struct _ntfs_volume;

namespace emulated::ntfs {

// The device under a mounted volume; lives as long as the mount.
struct DeviceState {
  BlockDevice* device = nullptr;
  std::uint64_t position = 0;
  bool written = false;  // since it was mounted
};

// Mounts without changing anything on the device. 0, 1005 ERROR_UNRECOGNIZED_VOLUME when the boot sector is not that of
// NTFS, 1392 ERROR_FILE_CORRUPT when the volume cannot be mounted.
win32::DWORD MountDevice(DeviceState& state, _ntfs_volume*& volume);

// Which clusters are in use: one bit for each, as $Bitmap keeps them. Changes nothing; fails as MountDevice does.
win32::DWORD ReadClusterBitmap(BlockDevice& device, Bytes& bitmap, std::uint32_t& clusterSize);

}  // namespace emulated::ntfs
