#include "win32/emulated/storage/ntfs_volume.h"

#include <algorithm>
#include <array>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_attributes.h"
#include "win32/emulated/storage/ntfs_library.h"

namespace emulated {
namespace {

// How much is remembered before all of it is forgotten. A move goes through its source three times, always in one
// order: what does not fit as a whole is of no use. Each has its bytes, without what the host's allocation adds.
constexpr std::size_t kMaximumNodes = 250'000;    // 230 B, with the entry of the one stream
constexpr std::size_t kMaximumEntries = 250'000;  // 100 B; and twice the largest directory: every call may ask for it
constexpr std::size_t kMaximumDescriptors = 16'000;  // 300 B

// Below this, and a little for each change that waits, nothing is held back: who makes a change that does not fit is
// told at once.
constexpr std::uint64_t kReserve = 1024 * 1024;
constexpr std::uint64_t kReservePerChange = 2048;

FileTime TimeFrom(ntfs_time stored) { return static_cast<FileTime>(le64_to_cpu(stored)); }
ntfs_time StoredTime(FileTime time) { return cpu_to_le64(static_cast<u64>(time)); }

}  // namespace

win32::DWORD Volume::Mount(BlockDevice& device, std::unique_ptr<Volume>& volume) {
  auto mounted = std::make_unique<NtfsVolume>(device);
  if (const win32::DWORD error = mounted->Open()) return error;
  volume = std::move(mounted);
  return 0;
}

win32::DWORD NtfsVolume::Open() {
  if (const win32::DWORD error = ntfs::MountDevice(state_, volume_)) return error;
  inodes_.SetVolume(volume_);
  upCase_.resize(0x10000);
  for (std::size_t unit = 0; unit < upCase_.size(); ++unit) {
    upCase_[unit] = static_cast<char16_t>(unit < volume_->upcase_len ? le16_to_cpu(volume_->upcase[unit]) : unit);
  }

  constexpr std::uint64_t kSerialNumberOffset = 0x48;
  std::array<std::uint8_t, 8> serial{};
  if (!state_.device->Read(kSerialNumberOffset, serial)) return win32::ERROR_IO_DEVICE;
  serialNumber_ = LoadLittleEndian<std::uint64_t>(serial, 0);

  s64 size = 0;
  void* const label = ntfs_attr_readall(volume_->vol_ni, AT_VOLUME_NAME, nullptr, 0, &size);
  if (label && size > 0) {
    label_.resize(static_cast<std::size_t>(size) / 2);
    std::memcpy(label_.data(), label, label_.size() * 2);
  }
  free(label);

  const ntfs::Inode root(ntfs_inode_open(volume_, FILE_root));
  if (!root.get()) return win32::ERROR_FILE_CORRUPT;
  root_ = MK_MREF(FILE_root, le16_to_cpu(root->mrec->sequence_number));
  isMarkedForCheck_ = (volume_->flags & VOLUME_IS_DIRTY) != 0;
  isJournalClean_ = ReadJournalState();
  return 0;
}

bool NtfsVolume::ReadJournalState() {
  const ntfs::Inode journal(ntfs_inode_open(volume_, FILE_LogFile));
  const ntfs::UniqueAttribute data = journal.get() ? ntfs::OpenData(journal.get(), {}) : nullptr;
  RESTART_PAGE_HEADER* restart = nullptr;
  const bool isClean = data && ntfs_check_logfile(data.get(), &restart) && ntfs_is_logfile_clean(data.get(), restart);
  free(restart);
  return isClean;
}

win32::DWORD NtfsVolume::DiscardJournal() {
  if (ntfs_logfile_reset(volume_) != 0) return ntfs::LastError();
  isJournalClean_ = true;
  return 0;
}

NtfsVolume::~NtfsVolume() {
  if (!volume_) return;
  Flush();
  if (ntfs_umount(volume_, FALSE) != 0) ntfs_umount(volume_, TRUE);
}

std::uint64_t NtfsVolume::TotalBytes() const {
  return static_cast<std::uint64_t>(volume_->nr_clusters) * volume_->cluster_size;
}

std::uint64_t NtfsVolume::FreeBytes() const {
  return static_cast<std::uint64_t>(std::max<s64>(volume_->free_clusters, 0)) * volume_->cluster_size;
}

std::uint32_t NtfsVolume::ClusterSize() const { return volume_->cluster_size; }

bool NtfsVolume::IsNearlyFull(std::uint64_t wanted) const {
  return FreeBytes() < kReserve + dirty_.size() * kReservePerChange + wanted;
}

// What is held back goes down before something takes the space that it needs.
win32::DWORD NtfsVolume::MakeRoomFor(std::uint64_t wanted) {
  return !dirty_.empty() && IsNearlyFull(wanted) ? PutDownAll() : 0;
}

// What every call begins with, before it holds anything of the caches.
void NtfsVolume::Enter() {
  const bool areTooMany = nodes_.size() > kMaximumNodes;
  if (areTooMany || inodes_.IsFull()) {
    const std::vector<FileId> changed = dirty_;
    Lost(PutDownAll());
    ForgetFiles(changed);
    if (areTooMany) nodes_.clear();
  }
  if (entries_ > kMaximumEntries + 2 * largestDirectory_) {
    directories_.clear();
    entries_ = largestDirectory_ = 0;
  }
  if (descriptors_.size() > kMaximumDescriptors) {
    descriptors_.clear();
    descriptorIds_.clear();
  }
}

// What was made is not asked for again when it has been put down: there is more room for what is read. What could not
// be put down stays for the next time.
void NtfsVolume::ForgetFiles(const std::vector<FileId>& files) {
  for (const FileId file : files) {
    const auto known = nodes_.find(file);
    if (known == nodes_.end()) continue;
    const Node& node = known->second;
    if (!node.IsDirectory() && !node.dirty && !node.descriptor) nodes_.erase(known);
  }
}

win32::DWORD NtfsVolume::GetNode(FileId file, Node*& node) {
  if (const auto known = nodes_.find(file); known != nodes_.end()) {
    node = &known->second;
    return 0;
  }
  if (MREF(file) < FILE_first_user && file != root_) return win32::ERROR_FILE_NOT_FOUND;
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  Node loaded;
  loaded.info.id = file;
  if (const win32::DWORD error = Refresh(loaded, inode.get())) return error;
  node = &nodes_.emplace(file, std::move(loaded)).first->second;
  return 0;
}

win32::DWORD NtfsVolume::Refresh(Node& node, _ntfs_inode* inode) {
  const FileInfo held = node.info;
  if (const win32::DWORD error = ReadAttributes(node, inode)) return error;

  FileInfo& info = node.info;
  win32::DWORD attributes = le32_to_cpu(inode->flags) & kStoredAttributes;
  if (!node.dirty) {
    info.creation = TimeFrom(inode->creation_time);
    info.lastAccess = TimeFrom(inode->last_access_time);
    info.lastWrite = TimeFrom(inode->last_data_change_time);
    info.change = TimeFrom(inode->last_mft_change_time);
  } else {
    attributes = (attributes & ~kSettableAttributes) | (held.attributes & kSettableAttributes);
  }
  if (inode->mrec->flags & MFT_RECORD_IS_DIRECTORY) attributes |= win32::FILE_ATTRIBUTE_DIRECTORY;
  attributes &= ~win32::FILE_ATTRIBUTE_REPARSE_POINT;
  info.reparseTag = 0;
  if (node.reparse.size() >= sizeof info.reparseTag) {
    attributes |= win32::FILE_ATTRIBUTE_REPARSE_POINT;
    info.reparseTag = LoadLittleEndian<std::uint32_t>(node.reparse, 0);
  }
  info.attributes = ShownAttributes(attributes);
  if (!node.descriptor) info.securityId = test_nino_flag(inode, v3_Extensions) ? le32_to_cpu(inode->security_id) : 0;
  info.links = static_cast<std::uint32_t>(std::ranges::count(node.names, false, &Name::isShort));
  const auto isInFirst = [&node](const Name& name) { return name.directory == node.names.front().directory; };
  node.directory = !node.names.empty() && std::ranges::all_of(node.names, isInFirst) ? node.names.front().directory : 0;
  if (!node.IsDirectory() && node.names.size() == 1) node.names = {};
  RefreshTotals(node);
  return 0;
}

// What the record's attributes say, in place of what the node said.
win32::DWORD NtfsVolume::ReadAttributes(Node& node, _ntfs_inode* inode) {
  node.names.clear();
  node.streams.clear();
  node.reparse.clear();
  node.hasExtendedAttributes = node.hasObjectId = false;
  const ntfs::UniqueSearch search(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!search) return win32::ERROR_NOT_ENOUGH_MEMORY;
  while (ntfs_attrs_walk(search.get()) == 0) ReadAttribute(node, inode, search->attr);
  return errno == ENOENT ? 0 : ntfs::LastError();
}

// One attribute of a record. The library has checked that its header and its value lie inside the record.
void NtfsVolume::ReadAttribute(Node& node, _ntfs_inode* inode, const void* record) {
  const auto* const attribute = static_cast<const ATTR_RECORD*>(record);
  if (attribute->non_resident && sle64_to_cpu(attribute->lowest_vcn) != 0) return;
  const ByteView bytes(static_cast<const std::uint8_t*>(record), le32_to_cpu(attribute->length));
  switch (attribute->type) {
    case AT_FILE_NAME: {
      const auto name = FileNameFrom(ResidentValue(bytes));
      if (name) node.names.push_back({name->directory, name->name, name->isShort});
      break;
    }
    case AT_DATA:
      node.streams.push_back(StreamFrom(bytes));
      break;
    case AT_EA:
      node.hasExtendedAttributes = true;
      break;
    case AT_OBJECT_ID:
      node.hasObjectId = true;
      break;
    case AT_REPARSE_POINT: {
      const int size = ntfs_get_ntfs_reparse_data(inode, nullptr, 0);
      if (size <= 0) break;
      node.reparse.resize(static_cast<std::size_t>(size));
      if (ntfs_get_ntfs_reparse_data(inode, reinterpret_cast<char*>(node.reparse.data()), node.reparse.size()) !=
          size) {
        node.reparse.clear();
      }
      break;
    }
    default:
      break;
  }
}

// What FileInfo says of the unnamed stream.
void NtfsVolume::RefreshTotals(Node& node) {
  node.info.size = node.info.allocated = 0;
  for (StreamInfo& stream : node.streams) {
    if (!stream.name.empty()) continue;
    if (node.info.attributes & win32::FILE_ATTRIBUTE_SPARSE_FILE) stream.sparse = true;
    node.info.size = stream.size;
    node.info.allocated = stream.allocated;
  }
}

win32::DWORD NtfsVolume::PutDown(Node& node, _ntfs_inode* directory) {
  ntfs::Inode inode(inodes_, node.info.id);
  if (inode.error()) return inode.error();
  if (node.descriptor) {
    std::uint32_t id = 0;
    if (const win32::DWORD error = StoreDescriptor(inode.get(), *node.descriptor, id)) return error;
    RememberDescriptor(id, std::move(node.descriptor));
    node.descriptor = nullptr;
    node.info.securityId = id;
  }
  if (node.dirty) {
    const win32::DWORD kept = le32_to_cpu(inode->flags) & ~(kSettableAttributes | win32::FILE_ATTRIBUTE_NORMAL);
    const win32::DWORD own = node.info.attributes & (kSettableAttributes | win32::FILE_ATTRIBUTE_SPARSE_FILE);
    inode->flags = static_cast<FILE_ATTR_FLAGS>(cpu_to_le32(kept | own));
    inode->creation_time = StoredTime(node.info.creation);
    inode->last_access_time = StoredTime(node.info.lastAccess);
    inode->last_data_change_time = StoredTime(node.info.lastWrite);
    inode->last_mft_change_time = StoredTime(node.info.change);
    NInoFileNameSetDirty(inode.get());
    NInoSetDirty(inode.get());
    node.dirty = false;
  }
  return Lost(directory ? inode.CloseIn(directory) : inode.Close());
}

// An error by which something is lost that callers were told is done: no flush succeeds any more.
win32::DWORD NtfsVolume::Lost(win32::DWORD error) {
  if (lateError_ == 0) lateError_ = error;
  return error;
}

void NtfsVolume::ListDirty(Node& node) {
  if (!std::exchange(node.isListed, true)) dirty_.push_back(node.info.id);
}

// The library sets times of its own when it adds or removes names: what the node says is put down afterwards.
win32::DWORD NtfsVolume::HoldTimes(FileId file) {
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  node->dirty = true;
  ListDirty(*node);
  return 0;
}

// A change that could fail for want of space is not held back on a volume that is nearly full.
win32::DWORD NtfsVolume::Settle(Node& node) {
  ListDirty(node);
  return MakeRoomFor(0);
}

// Directory by directory, so that each parent's index is opened once. A file with names in several directories comes
// alone: the library would look for all its names in the directory that is open.
win32::DWORD NtfsVolume::PutDownAll() {
  std::vector<std::pair<FileId, FileId>> files;  // parent, file
  for (const FileId file : dirty_) {
    const auto node = nodes_.find(file);
    if (node == nodes_.end()) continue;
    node->second.isListed = false;
    if (!node->second.dirty && !node->second.descriptor) continue;
    files.emplace_back(node->second.directory, file);
  }
  dirty_.clear();
  std::ranges::sort(files);
  files.erase(std::unique(files.begin(), files.end()), files.end());
  EnterDescriptors(files);

  win32::DWORD result = 0;
  for (auto first = files.begin(); first != files.end();) {
    const FileId parent = first->first;
    const auto last = std::find_if(first, files.end(), [parent](const auto& file) { return file.first != parent; });
    // The root is in itself; so may be others on a damaged volume.
    const bool isIn =
        std::any_of(first, last, [parent](const auto& file) { return MREF(file.second) == MREF(parent); });
    ntfs::Inode directory(isIn || parent == 0 ? ntfs::Inode(nullptr) : ntfs::Inode(inodes_, parent));
    for (; first != last; ++first) {
      Node& node = nodes_.at(first->second);
      const win32::DWORD error = PutDown(node, directory.get());
      if (error == 0) continue;
      if (result == 0) result = error;
      ListDirty(node);
    }
    if (const win32::DWORD error = Lost(directory.Close()); result == 0) result = error;
  }
  if (const win32::DWORD error = Lost(inodes_.CloseAll()); result == 0) result = error;
  return result;
}

win32::DWORD NtfsVolume::Flush() {
  win32::DWORD result = PutDownAll();
  if (lateError_ != 0) result = lateError_;
  if (!state_.written) return result;
  // A journal that Windows left would be replayed over what was written since.
  if (!NVolLogFileEmpty(volume_) && ntfs_logfile_reset(volume_) != 0 && result == 0) result = ntfs::LastError();
  for (ntfs_inode* const inode : {volume_->secure_ni, volume_->mft_ni, volume_->lcnbmp_ni, volume_->mftmirr_ni}) {
    if (inode && NInoDirty(inode) && ntfs_inode_sync(inode) != 0 && result == 0) result = ntfs::LastError();
  }
  return result;
}

}  // namespace emulated
