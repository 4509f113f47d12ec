// Data streams.
#include <algorithm>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_attributes.h"
#include "win32/emulated/storage/ntfs_volume.h"

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated {
namespace {

constexpr std::size_t kMaximumStreamName = 255;
constexpr std::uint64_t kMaximumSize = std::uint64_t{1} << 44;  // 16 TiB, NTFS's own limit with 4 KiB clusters

// The sizes as they are after a change.
void Measure(const ntfs_attr& attribute, StreamInfo& stream) {
  stream.size = static_cast<std::uint64_t>(attribute.data_size);
  const bool hasHoles = (attribute.data_flags & (ATTR_IS_SPARSE | ATTR_COMPRESSION_MASK)) != 0;
  stream.allocated = !NAttrNonResident(&attribute)
                         ? ResidentAllocation(stream.size)
                         : static_cast<std::uint64_t>(hasHoles ? attribute.compressed_size : attribute.allocated_size);
}

// Without a hole unless the stream is sparse: the library's own extension makes the stream sparse.
int Resize(ntfs_attr* attribute, std::uint64_t size, bool sparse) {
  const bool mayHaveHoles = sparse || (attribute->data_flags & ATTR_COMPRESSION_MASK) != 0;
  return mayHaveHoles ? ntfs_attr_truncate(attribute, static_cast<s64>(size))
                      : ntfs_attr_truncate_solid(attribute, static_cast<s64>(size));
}

// How much of a long piece is written first, so that the rest ends where it does within one cluster: the library copies
// all of what it is given to fill up the last cluster of a stream. 0: write all of it at once.
std::size_t UpToLastCluster(const ntfs_attr& attribute, std::uint64_t offset, std::size_t length) {
  constexpr std::size_t kLong = 64 * 1024;
  const std::size_t rest = (offset + length) % attribute.ni->vol->cluster_size;
  const bool isPlain = (attribute.data_flags & ATTR_COMPRESSION_MASK) == 0;
  return isPlain && length >= kLong && rest < length ? length - rest : 0;
}

bool FitsInRecord(const MFT_RECORD& record, std::uint64_t size) {
  return size <= le32_to_cpu(record.bytes_allocated) - le32_to_cpu(record.bytes_in_use);
}

// Clusters for a stream that has none, from `next` on, which is then what follows them: small files lie side by side.
// Left to itself, the library goes through 32,768 bits for the widest gap, and then leaves 4,096 clusters free. A
// stream that fits in the record, or is of a kind that the library must look at, stays as it is.
int GiveFirstClusters(ntfs_attr* attribute, std::uint64_t size, std::int64_t& next) {
  ntfs_volume& volume = *attribute->ni->vol;
  if (size == 0 || attribute->data_size != 0 || attribute->allocated_size != 0 || attribute->data_flags != 0 ||
      NInoAttrList(attribute->ni))
    return 0;
  if (!NAttrNonResident(attribute) &&
      (FitsInRecord(*attribute->ni->mrec, size) || ntfs_attr_force_non_resident(attribute) != 0))
    return 0;
  const bool isOfData =
      (next >= 0 && next < volume.mft_zone_start) || (next >= volume.mft_zone_end && next < volume.nr_clusters);
  const auto count = static_cast<s64>((size + volume.cluster_size - 1) >> volume.cluster_size_bits);
  runlist* const clusters = ntfs_cluster_alloc(&volume, 0, count, isOfData ? next : -1, DATA_ZONE);
  if (!clusters) return -1;
  free(std::exchange(attribute->rl, clusters));
  attribute->allocated_size = count << volume.cluster_size_bits;
  NAttrSetRunlistDirty(attribute);
  if (ntfs_attr_update_mapping_pairs(attribute, 0) != 0) {
    const int error = errno;
    ntfs_cluster_free_from_rl(&volume, attribute->rl);
    free(std::exchange(attribute->rl, nullptr));
    attribute->allocated_size = 0;
    ntfs::ClearState(attribute->state, NA_RunlistDirty);
    errno = error;
    return -1;
  }
  const runlist* last = attribute->rl;
  while (last[1].length != 0) ++last;
  next = last->lcn + last->length;
  return 0;
}

}  // namespace

StreamInfo* NtfsVolume::FindStream(Node& node, std::u16string_view stream) const {
  const auto found =
      std::ranges::find_if(node.streams, [&](const StreamInfo& known) { return EqualNames(known.name, stream); });
  return found == node.streams.end() ? nullptr : &*found;
}

win32::DWORD NtfsVolume::Streams(FileId file, std::vector<StreamInfo>& streams) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  streams = node->streams;
  return 0;
}

win32::DWORD NtfsVolume::CreateStream(FileId file, std::u16string_view stream) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (FindStream(*node, stream)) return win32::ERROR_ALREADY_EXISTS;
  if (stream.empty() || stream.size() > kMaximumStreamName ||
      stream.find_first_of(std::u16string_view(u"\\/:\0", 4)) != stream.npos) {
    return win32::ERROR_INVALID_NAME;
  }
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  if (ntfs_attr_add(inode.get(), AT_DATA, ntfs::Units(stream), static_cast<u8>(stream.size()), nullptr, 0) != 0)
    return ntfs::LastError();
  if (const win32::DWORD error = inode.Close()) return error;
  node->streams.push_back({std::u16string(stream), 0, 0, false});
  return 0;
}

win32::DWORD NtfsVolume::RemoveStream(FileId file, std::u16string_view stream) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  if (known->name.empty()) return win32::ERROR_INVALID_PARAMETER;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  if (ntfs_attr_remove(inode.get(), AT_DATA, ntfs::Units(known->name), static_cast<u32>(known->name.size())) != 0) {
    return ntfs::LastError();
  }
  node->streams.erase(node->streams.begin() + (known - node->streams.data()));
  return inode.Close();
}

win32::DWORD NtfsVolume::StreamSize(FileId file, std::u16string_view stream, std::uint64_t& size) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  size = known->size;
  return 0;
}

win32::DWORD NtfsVolume::Read(FileId file, std::u16string_view stream, std::uint64_t offset, std::span<std::uint8_t> to,
                              std::size_t& done) {
  Enter();
  done = 0;
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  if (offset >= known->size || to.empty()) return 0;
  const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(to.size(), known->size - offset));

  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  ntfs::UniqueAttribute data = ntfs::OpenData(inode.get(), known->name);
  if (!data) return ntfs::LastError();
  while (done < length) {
    const s64 part =
        ntfs_attr_pread(data.get(), static_cast<s64>(offset + done), static_cast<s64>(length - done), to.data() + done);
    if (part < 0) return ntfs::LastError();
    if (part == 0) return win32::ERROR_FILE_CORRUPT;
    done += static_cast<std::size_t>(part);
  }
  data.reset();
  return inode.KeepIn(inodes_, file);
}

// Sets the stream to `size` bytes and writes `from`, all or nothing.
win32::DWORD NtfsVolume::ChangeStream(FileId file, std::u16string_view stream, std::uint64_t size, std::uint64_t offset,
                                      ByteView from) {
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  if (size > kMaximumSize) return win32::ERROR_INVALID_PARAMETER;
  const std::uint64_t oldSize = known->size;
  if (size > oldSize && !known->sparse) {
    if (const win32::DWORD error = MakeRoomFor(size - oldSize)) return error;
  }

  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  win32::DWORD result = 0;
  ntfs::UniqueAttribute data = ntfs::OpenData(inode.get(), known->name);
  if (!data) return ntfs::LastError();
  if (size != oldSize && ((!known->sparse && GiveFirstClusters(data.get(), size, nextCluster_) != 0) ||
                          Resize(data.get(), size, known->sparse) != 0))
    result = ntfs::LastError();
  const std::size_t whole = UpToLastCluster(*data, offset, from.size());
  for (std::size_t done = 0; result == 0 && done < from.size();) {
    const std::size_t length = (done < whole ? whole : from.size()) - done;
    const s64 part =
        ntfs_attr_pwrite(data.get(), static_cast<s64>(offset + done), static_cast<s64>(length), from.data() + done);
    if (part <= 0) {
      result = part < 0 ? ntfs::LastError() : win32::ERROR_DISK_FULL;
    } else {
      done += static_cast<std::size_t>(part);
    }
  }
  if ((data->data_flags & ATTR_COMPRESSION_MASK) != 0 && ntfs_attr_pclose(data.get()) != 0 && result == 0)
    result = ntfs::LastError();
  if (result != 0 && data->data_size != static_cast<s64>(oldSize)) Resize(data.get(), oldSize, known->sparse);
  Measure(*data, *known);
  data.reset();

  const bool isSparse = known->sparse && known->name.empty();
  if (isSparse && !(inode->flags & FILE_ATTR_SPARSE_FILE)) {
    inode->flags = static_cast<FILE_ATTR_FLAGS>(
        inode->flags | FILE_ATTR_SPARSE_FILE);  // the library takes it off when no hole is left
    NInoSetDirty(inode.get());
  }
  if (known->name.empty()) {
    RefreshTotals(*node);
    inode->data_size = static_cast<s64>(known->size);
    inode->allocated_size = static_cast<s64>(known->allocated);
  }
  node->dirty = true;  // the index follows when the node is put down
  ListDirty(*node);
  const win32::DWORD kept = inode.KeepIn(inodes_, file);
  return result ? result : kept;
}

win32::DWORD NtfsVolume::Write(FileId file, std::u16string_view stream, std::uint64_t offset, ByteView from) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  if (from.empty()) return 0;
  if (offset > kMaximumSize || from.size() > kMaximumSize) return win32::ERROR_INVALID_PARAMETER;
  return ChangeStream(file, stream, std::max(known->size, offset + from.size()), offset, from);
}

win32::DWORD NtfsVolume::SetStreamSize(FileId file, std::u16string_view stream, std::uint64_t size) {
  Enter();
  return ChangeStream(file, stream, size, 0, {});
}

win32::DWORD NtfsVolume::SetSparse(FileId file, std::u16string_view stream) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  if (known->sparse) return 0;
  known->sparse = true;
  if (!known->name.empty()) return 0;
  node->info.attributes = ShownAttributes(node->info.attributes | win32::FILE_ATTRIBUTE_SPARSE_FILE);
  node->dirty = true;
  return Settle(*node);
}

win32::DWORD NtfsVolume::AllocatedRanges(FileId file, std::u16string_view stream, std::vector<StreamRange>& ranges) {
  Enter();
  ranges.clear();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const StreamInfo* const known = FindStream(*node, stream);
  if (!known) return win32::ERROR_FILE_NOT_FOUND;
  if (known->size == 0) return 0;

  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  const ntfs::UniqueAttribute data = ntfs::OpenData(inode.get(), known->name);
  if (!data) return ntfs::LastError();
  if (!NAttrNonResident(data.get()) || (data->data_flags & ATTR_IS_SPARSE) == 0) {
    ranges.push_back({0, known->size});
    return 0;
  }
  if (ntfs_attr_map_whole_runlist(data.get()) != 0) return ntfs::LastError();
  for (const runlist_element* run = data->rl; run && run->length != 0; ++run) {
    if (run->lcn < 0) continue;
    const std::uint64_t start = static_cast<std::uint64_t>(run->vcn) * volume_->cluster_size;
    if (start >= known->size) break;
    const std::uint64_t length =
        std::min(static_cast<std::uint64_t>(run->length) * volume_->cluster_size, known->size - start);
    if (!ranges.empty() && ranges.back().offset + ranges.back().length == start) {
      ranges.back().length += length;
    } else {
      ranges.push_back({start, length});
    }
  }
  return 0;
}

}  // namespace emulated
