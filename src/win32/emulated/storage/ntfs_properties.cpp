// Reparse points, extended attributes and object ids.
#include <algorithm>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_volume.h"

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated {
namespace {

constexpr std::size_t kReparseHeader = 8;
constexpr std::size_t kMaximumReparse = 16 * 1024;
constexpr std::size_t kMaximumExtendedAttributes = 65535;
constexpr std::size_t kObjectIdSize = 64, kBareObjectIdSize = 16;
constexpr std::size_t kAttributeHeader = 8;  // FILE_FULL_EA_INFORMATION up to the name ([MS-FSCC] 2.4.16)

const char* Chars(ByteView bytes) { return reinterpret_cast<const char*>(bytes.data()); }

bool UnpackExtendedAttributes(ByteView bytes, std::vector<ExtendedAttribute>& attributes) {
  while (!bytes.empty()) {
    if (bytes.size() < kAttributeHeader) return false;
    const std::size_t next = LoadLittleEndian<std::uint32_t>(bytes, 0);
    const std::size_t nameLength = bytes[5];
    const std::size_t valueLength = LoadLittleEndian<std::uint16_t>(bytes, 6);
    const std::size_t valueOffset = kAttributeHeader + nameLength + 1;
    if (valueOffset > bytes.size() || valueLength > bytes.size() - valueOffset) return false;
    const ByteView value = bytes.subspan(valueOffset, valueLength);
    attributes.push_back(
        {bytes[4], std::string(Chars(bytes) + kAttributeHeader, nameLength), Bytes(value.begin(), value.end())});
    if (next == 0) return true;
    if (next < valueOffset + valueLength || next > bytes.size()) return false;
    bytes = bytes.subspan(next);
  }
  return true;
}

// As they lie on the disk: each entry tells where the next one is, the last one too.
bool PackExtendedAttributes(const std::vector<ExtendedAttribute>& attributes, Bytes& bytes) {
  for (const ExtendedAttribute& attribute : attributes) {
    if (attribute.name.empty() || attribute.name.size() > 254 || attribute.value.size() > 0xFFFF) return false;
    const std::size_t length = kAttributeHeader + attribute.name.size() + 1 + attribute.value.size();
    const std::size_t aligned = (length + 3) & ~std::size_t{3};
    AppendLittleEndian(bytes, static_cast<std::uint32_t>(aligned));
    AppendLittleEndian(bytes, attribute.flags);
    AppendLittleEndian(bytes, static_cast<std::uint8_t>(attribute.name.size()));
    AppendLittleEndian(bytes, static_cast<std::uint16_t>(attribute.value.size()));
    bytes.insert(bytes.end(), attribute.name.begin(), attribute.name.end());
    bytes.push_back(0);
    bytes.insert(bytes.end(), attribute.value.begin(), attribute.value.end());
    bytes.resize(bytes.size() + (aligned - length));
  }
  return bytes.size() <= kMaximumExtendedAttributes;
}

}  // namespace

win32::DWORD NtfsVolume::GetReparse(FileId file, Bytes& data) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (node->reparse.empty()) return win32::ERROR_NOT_A_REPARSE_POINT;
  data = node->reparse;
  return 0;
}

win32::DWORD NtfsVolume::SetReparse(FileId file, ByteView data) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (data.size() < kReparseHeader || data.size() > kMaximumReparse) return win32::ERROR_INVALID_REPARSE_DATA;
  const bool isMountPoint = LoadLittleEndian<std::uint32_t>(data, 0) == win32::IO_REPARSE_TAG_MOUNT_POINT;
  if (isMountPoint && !node->IsDirectory()) return win32::ERROR_DIRECTORY;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  if (ntfs_set_ntfs_reparse_data(inode.get(), Chars(data), data.size(), 0) != 0) {
    return errno == EINVAL ? win32::ERROR_INVALID_REPARSE_DATA : ntfs::LastError();
  }
  if (const win32::DWORD error = Refresh(*node, inode.get())) return error;
  return inode.Close();
}

win32::DWORD NtfsVolume::RemoveReparse(FileId file) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (node->reparse.empty()) return win32::ERROR_NOT_A_REPARSE_POINT;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  if (ntfs_remove_ntfs_reparse_data(inode.get()) != 0) return ntfs::LastError();
  if (const win32::DWORD error = Refresh(*node, inode.get())) return error;
  return inode.Close();
}

win32::DWORD NtfsVolume::GetExtendedAttributes(FileId file, std::vector<ExtendedAttribute>& attributes) {
  Enter();
  attributes.clear();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (!node->hasExtendedAttributes) return 0;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  const int size = ntfs_get_ntfs_ea(inode.get(), nullptr, 0);
  if (size < 0) return ntfs::ErrorFrom(-size);
  Bytes bytes(static_cast<std::size_t>(size));
  if (size == 0) return 0;
  if (ntfs_get_ntfs_ea(inode.get(), reinterpret_cast<char*>(bytes.data()), bytes.size()) != size)
    return win32::ERROR_FILE_CORRUPT;
  return UnpackExtendedAttributes(bytes, attributes) ? 0 : win32::ERROR_FILE_CORRUPT;
}

win32::DWORD NtfsVolume::SetExtendedAttributes(FileId file, const std::vector<ExtendedAttribute>& attributes) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  Bytes bytes;
  if (!PackExtendedAttributes(attributes, bytes)) return win32::ERROR_INVALID_EA_NAME;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  if (bytes.empty()) {
    if (!node->hasExtendedAttributes) return 0;
    if (ntfs_remove_ntfs_ea(inode.get()) != 0) return ntfs::LastError();
  } else {
    // The library reads 8 bytes of an EA_INFORMATION that it would make with fewer.
    const std::uint8_t information[8] = {};
    if (!ntfs_attr_exist(inode.get(), AT_EA_INFORMATION, AT_UNNAMED, 0) &&
        ntfs_attr_add(inode.get(), AT_EA_INFORMATION, AT_UNNAMED, 0, information, sizeof information) != 0) {
      return ntfs::LastError();
    }
    const int result = ntfs_set_ntfs_ea(inode.get(), Chars(bytes), bytes.size(), 0);
    if (result != 0) {
      if (!node->hasExtendedAttributes) ntfs_attr_remove(inode.get(), AT_EA_INFORMATION, AT_UNNAMED, 0);
      return result < -1 ? ntfs::ErrorFrom(-result) : ntfs::LastError();
    }
  }
  node->hasExtendedAttributes = !bytes.empty();
  return inode.Close();
}

win32::DWORD NtfsVolume::GetObjectId(FileId file, Bytes& id) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (!node->hasObjectId) return win32::ERROR_FILE_NOT_FOUND;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  id.assign(kObjectIdSize, 0);
  const int size = ntfs_get_ntfs_object_id(inode.get(), reinterpret_cast<char*>(id.data()), id.size());
  if (size < 0) return ntfs::ErrorFrom(-size);
  return size >= static_cast<int>(kBareObjectIdSize) ? 0 : win32::ERROR_FILE_CORRUPT;
}

win32::DWORD NtfsVolume::SetObjectId(FileId file, ByteView id) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (id.size() != kObjectIdSize) return win32::ERROR_INVALID_PARAMETER;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  if (ntfs_set_ntfs_object_id(inode.get(), Chars(id), id.size(), 0) != 0) return ntfs::LastError();
  node->hasObjectId = true;
  return inode.Close();
}

}  // namespace emulated
