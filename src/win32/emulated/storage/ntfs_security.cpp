// Times, attributes and security descriptors: set in the node, put down later.
#include <algorithm>
#include <unordered_set>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_attributes.h"
#include "win32/emulated/storage/ntfs_volume.h"

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated {
namespace {

// SECURITY_DESCRIPTOR (self-relative), SID and ACL as [MS-DTYP] 2.4 lays them out.
constexpr std::size_t kHeader = 20;
constexpr std::size_t kControl = 2, kOwner = 4, kGroup = 8, kSacl = 12, kDacl = 16;
constexpr std::uint16_t kSelfRelative = 0x8000;
constexpr std::size_t kSidHeader = 8, kMaximumSubAuthorities = 15;
constexpr std::size_t kAclHeader = 8, kAceHeader = 4;

// The end of the SID at the offset; 0 when there is none.
std::size_t SidEnd(ByteView bytes, std::size_t offset) {
  if (offset < kHeader || offset > bytes.size() || bytes.size() - offset < kSidHeader) return 0;
  const std::size_t count = bytes[offset + 1];
  if (bytes[offset] != 1 || count > kMaximumSubAuthorities) return 0;
  const std::size_t end = offset + kSidHeader + 4 * count;
  return end <= bytes.size() ? end : 0;
}

// The same for an ACL, every entry of which must lie inside it.
std::size_t AclEnd(ByteView bytes, std::size_t offset) {
  if (offset < kHeader || offset > bytes.size() || bytes.size() - offset < kAclHeader) return 0;
  const std::size_t end = offset + LoadLittleEndian<std::uint16_t>(bytes, offset + 2);
  if (end > bytes.size()) return 0;
  std::size_t entry = offset + kAclHeader;
  for (std::size_t left = LoadLittleEndian<std::uint16_t>(bytes, offset + 4); left > 0; --left) {
    if (entry > end || end - entry < kAceHeader) return 0;
    const std::size_t length = LoadLittleEndian<std::uint16_t>(bytes, entry + 2);
    if (length < kAceHeader || length > end - entry) return 0;
    entry += length;
  }
  return end;
}

}  // namespace

std::size_t DescriptorLength(ByteView descriptor) {
  if (descriptor.size() < kHeader || descriptor[0] != 1) return 0;
  if (!(LoadLittleEndian<std::uint16_t>(descriptor, kControl) & kSelfRelative)) return 0;
  std::size_t length = kHeader;
  for (const std::size_t field : {kOwner, kGroup}) {
    const std::size_t end = SidEnd(descriptor, LoadLittleEndian<std::uint32_t>(descriptor, field));
    if (end == 0) return 0;
    length = std::max(length, end);
  }
  for (const std::size_t field : {kSacl, kDacl}) {
    const std::size_t offset = LoadLittleEndian<std::uint32_t>(descriptor, field);
    if (offset == 0) continue;
    const std::size_t end = AclEnd(descriptor, offset);
    if (end == 0) return 0;
    length = std::max(length, end);
  }
  return length;
}

win32::DWORD NtfsVolume::SetAttributes(FileId file, win32::DWORD attributes) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const win32::DWORD wanted =
      ShownAttributes((node->info.attributes & ~kSettableAttributes) | (attributes & kSettableAttributes));
  if (wanted == node->info.attributes) return 0;
  node->info.attributes = wanted;
  node->dirty = true;
  return Settle(*node);
}

win32::DWORD NtfsVolume::SetTimes(FileId file, const FileTimes& times) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  FileInfo& info = node->info;
  const auto set = [node](FileTime& to, FileTime from) {
    if (from == 0 || from == to) return;
    to = from;
    node->dirty = true;
  };
  set(info.creation, times.creation);
  set(info.lastAccess, times.lastAccess);
  set(info.lastWrite, times.lastWrite);
  set(info.change, times.change);
  return node->dirty ? Settle(*node) : 0;
}

std::uint32_t NtfsVolume::KnownId(ByteView descriptor) const {
  const auto known = descriptorIds_.find(descriptor);
  return known == descriptorIds_.end() ? 0 : known->second;
}

void NtfsVolume::RememberDescriptor(std::uint32_t id, Descriptor descriptor) {
  if (id == 0) return;
  descriptorIds_.emplace(descriptor, id);
  descriptors_.emplace(id, std::move(descriptor));
}

win32::DWORD NtfsVolume::StoreDescriptor(_ntfs_inode* inode, const Bytes& descriptor, std::uint32_t& id) {
  id = KnownId(descriptor);
  if (id != 0 && test_nino_flag(inode, v3_Extensions) &&
      !ntfs_attr_exist(inode, AT_SECURITY_DESCRIPTOR, AT_UNNAMED, 0)) {
    inode->security_id = cpu_to_le32(id);
    NInoSetDirty(inode);
    return 0;
  }
  SECURITY_CONTEXT context{};
  context.vol = volume_;
  secure_.ForgetWhatWasRead();
  if (ntfs_set_ntfs_acl(&context, inode, reinterpret_cast<const char*>(descriptor.data()), descriptor.size(), 0) != 0) {
    return ntfs::LastError();
  }
  id = test_nino_flag(inode, v3_Extensions) ? le32_to_cpu(inode->security_id) : 0;
  return 0;
}

// The descriptor of that number; nothing when the library is to be asked.
std::optional<Bytes> NtfsVolume::StoredDescriptor(std::uint32_t id) {
  auto stored = secure_.Read(id);
  const std::size_t size = stored ? DescriptorLength(*stored) : 0;
  if (size == 0) return std::nullopt;
  stored->resize(size);
  return stored;
}

// The new descriptors of these files into $Secure, all at once. What cannot be done so is done file by file.
void NtfsVolume::EnterDescriptors(const std::vector<std::pair<FileId, FileId>>& files) {
  std::unordered_set<Descriptor, BytesHash, SameBytes> seen;
  std::vector<ntfs::SecureFile::NewDescriptor> added;
  for (const auto& [parent, file] : files) {
    const Descriptor& descriptor = nodes_.at(file).descriptor;
    if (descriptor && KnownId(*descriptor) == 0 && seen.insert(descriptor).second) added.push_back({descriptor});
  }
  secure_.Enter(added);
  for (const auto& [descriptor, id] : added) RememberDescriptor(id, descriptor);
}

win32::DWORD NtfsVolume::GetSecurity(FileId file, Bytes& descriptor) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (node->descriptor) {
    descriptor = *node->descriptor;
    return 0;
  }
  if (const auto known = descriptors_.find(node->info.securityId); known != descriptors_.end()) {
    descriptor = *known->second;
    return 0;
  }
  if (auto stored = StoredDescriptor(node->info.securityId)) {
    descriptor = std::move(*stored);
    RememberDescriptor(node->info.securityId, std::make_shared<const Bytes>(descriptor));
    return 0;
  }
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  SECURITY_CONTEXT context{};
  context.vol = volume_;
  descriptor.resize(512);
  int size = ntfs_get_ntfs_acl(&context, inode.get(), reinterpret_cast<char*>(descriptor.data()), descriptor.size());
  if (size > static_cast<int>(descriptor.size())) {
    descriptor.resize(static_cast<std::size_t>(size));
    size = ntfs_get_ntfs_acl(&context, inode.get(), reinterpret_cast<char*>(descriptor.data()), descriptor.size());
  }
  if (size < 0) return ntfs::ErrorFrom(-size);
  descriptor.resize(static_cast<std::size_t>(size));
  RememberDescriptor(node->info.securityId, std::make_shared<const Bytes>(descriptor));
  return 0;
}

win32::DWORD NtfsVolume::SetSecurity(FileId file, ByteView descriptor) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  const std::size_t length = DescriptorLength(descriptor);
  if (length == 0) return win32::ERROR_INVALID_SECURITY_DESCR;
  auto wanted =
      std::make_shared<const Bytes>(descriptor.begin(), descriptor.begin() + static_cast<std::ptrdiff_t>(length));
  const std::uint32_t id = KnownId(*wanted);
  if (!node->descriptor && id != 0 && id == node->info.securityId) return 0;
  const Descriptor previous = std::exchange(node->descriptor, std::move(wanted));
  const std::uint32_t previousId = std::exchange(node->info.securityId, id);
  if (const win32::DWORD error = Settle(*node)) {
    node->descriptor = previous;
    node->info.securityId = previousId;
    return error;
  }
  return 0;
}

}  // namespace emulated
