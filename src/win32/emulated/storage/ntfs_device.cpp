#include "win32/emulated/storage/ntfs_device.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated::ntfs {
namespace {

DeviceState& StateOf(ntfs_device* device) { return *static_cast<DeviceState*>(device->d_private); }

s64 Fail(int error) {
  errno = error;
  return -1;
}

int Open(ntfs_device* device, int /*flags*/) {
  if (NDevOpen(device)) return static_cast<int>(Fail(EBUSY));
  NDevSetOpen(device);
  return 0;
}

int Close(ntfs_device* device) {
  ClearState(device->d_state, ND_Open);
  return 0;
}

s64 Seek(ntfs_device* device, s64 offset, int whence) {
  DeviceState& state = StateOf(device);
  const s64 base = whence == SEEK_SET   ? 0
                   : whence == SEEK_CUR ? static_cast<s64>(state.position)
                                        : static_cast<s64>(state.device->Size());
  if (base + offset < 0) return Fail(EINVAL);
  state.position = static_cast<std::uint64_t>(base + offset);
  return base + offset;
}

s64 ReadAt(ntfs_device* device, void* buffer, s64 count, s64 offset) {
  DeviceState& state = StateOf(device);
  if (offset < 0 || count < 0) return Fail(EINVAL);
  const auto from = static_cast<std::uint64_t>(offset);
  if (from >= state.device->Size()) return 0;
  const auto length =
      static_cast<std::size_t>(std::min(static_cast<std::uint64_t>(count), state.device->Size() - from));
  return state.device->Read(from, {static_cast<std::uint8_t*>(buffer), length}) ? static_cast<s64>(length) : Fail(EIO);
}

s64 WriteAt(ntfs_device* device, const void* buffer, s64 count, s64 offset) {
  DeviceState& state = StateOf(device);
  if (offset < 0 || count < 0) return Fail(EINVAL);
  const auto to = static_cast<std::uint64_t>(offset);
  if (to > state.device->Size() || static_cast<std::uint64_t>(count) > state.device->Size() - to) return Fail(EIO);
  state.written = true;
  const ByteView from(static_cast<const std::uint8_t*>(buffer), static_cast<std::size_t>(count));
  return state.device->Write(to, from) ? count : Fail(EIO);
}

s64 ReadNext(ntfs_device* device, void* buffer, s64 count) {
  const s64 done = ReadAt(device, buffer, count, static_cast<s64>(StateOf(device).position));
  if (done > 0) StateOf(device).position += static_cast<std::uint64_t>(done);
  return done;
}

s64 WriteNext(ntfs_device* device, const void* buffer, s64 count) {
  const s64 done = WriteAt(device, buffer, count, static_cast<s64>(StateOf(device).position));
  if (done > 0) StateOf(device).position += static_cast<std::uint64_t>(done);
  return done;
}

int Sync(ntfs_device*) { return 0; }

int Status(ntfs_device* device, struct stat* status) {
  *status = {};
  status->st_mode = S_IFREG | 0600;
  status->st_size = static_cast<off_t>(StateOf(device).device->Size());
  return 0;
}

int Control(ntfs_device*, unsigned long, void*) { return static_cast<int>(Fail(EOPNOTSUPP)); }

ntfs_device_operations operations{.open = Open,
                                  .close = Close,
                                  .seek = Seek,
                                  .read = ReadNext,
                                  .write = WriteNext,
                                  .pread = ReadAt,
                                  .pwrite = WriteAt,
                                  .sync = Sync,
                                  .stat = Status,
                                  .ioctl = Control};

}  // namespace

namespace {

win32::DWORD Mount(DeviceState& state, _ntfs_volume*& volume) {
  constexpr std::size_t kOemIdOffset = 3;
  std::array<std::uint8_t, 512> boot{};
  if (state.device->Size() < boot.size() || !state.device->Read(0, boot)) return win32::ERROR_UNRECOGNIZED_VOLUME;
  if (std::memcmp(boot.data() + kOemIdOffset, "NTFS    ", 8) != 0) return win32::ERROR_UNRECOGNIZED_VOLUME;
  // The library would mount an image that was cut short, and meet its end in the middle of the work.
  constexpr std::size_t kBytesPerSectorOffset = 0x0B, kTotalSectorsOffset = 0x28;
  const auto bytesPerSector = LoadLittleEndian<std::uint16_t>(boot, kBytesPerSectorOffset);
  const auto totalSectors = LoadLittleEndian<std::uint64_t>(boot, kTotalSectorsOffset);
  if (bytesPerSector == 0 || totalSectors > state.device->Size() / bytesPerSector) return win32::ERROR_FILE_CORRUPT;

  ntfs_log_set_handler(ntfs_log_handler_null);
  ntfs_device* const device = ntfs_device_alloc("image", 0, &operations, &state);
  if (!device) return win32::ERROR_NOT_ENOUGH_MEMORY;
  volume = ntfs_device_mount(device, NTFS_MNT_FORENSIC | NTFS_MNT_RECOVER);
  if (!volume) {
    ntfs_device_free(device);
    return win32::ERROR_FILE_CORRUPT;
  }
  return 0;
}

}  // namespace

win32::DWORD MountDevice(DeviceState& state, _ntfs_volume*& volume) {
  if (const win32::DWORD error = Mount(state, volume)) return error;
  ntfs_create_lru_caches(volume);
  // Without its cache of closed inodes, which costs more than it saves: the volume itself remembers what is asked for.
  // (When what is in that place is another member, the library was built with other options than its headers assume.)
  if (!volume->xattr_mapping && volume->legacy_cache) free(std::exchange(volume->nidata_cache, nullptr));
  ClearState(volume->state, NV_CaseSensitive);
  ntfs_set_shown_files(volume, FALSE, TRUE, FALSE);
  if (ntfs_volume_get_free_space(volume) != 0) {
    ntfs_umount(volume, TRUE);
    volume = nullptr;
    return win32::ERROR_FILE_CORRUPT;
  }
  return 0;
}

win32::DWORD ReadClusterBitmap(BlockDevice& device, Bytes& bitmap, std::uint32_t& clusterSize) {
  DeviceState state{.device = &device};
  _ntfs_volume* volume = nullptr;
  if (const win32::DWORD error = Mount(state, volume)) return error;
  clusterSize = volume->cluster_size;
  bitmap.resize((static_cast<std::size_t>(volume->nr_clusters) + 7) / 8);
  const auto size = static_cast<s64>(bitmap.size());
  const bool isRead = ntfs_attr_pread(volume->lcnbmp_na, 0, size, bitmap.data()) == size;
  ntfs_umount(volume, TRUE);
  return isRead ? 0 : win32::ERROR_FILE_CORRUPT;
}

}  // namespace emulated::ntfs
