// Directories: looking up, listing, and making, linking, renaming and removing names.
#include <algorithm>
#include <array>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_attributes.h"
#include "win32/emulated/storage/ntfs_volume.h"

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated {
namespace {

constexpr std::size_t kMaximumName = 255;
constexpr std::uint32_t kMaximumLinks = 1024;

struct Found {
  FileId id = 0;
  std::u16string name;
  int type = 0;  // its namespace
};

int Collect(void* context, const ntfschar* name, const int length, const int type, const s64 /*position*/,
            const MFT_REF file, const unsigned /*kind*/) {
  Found found{file, std::u16string(static_cast<std::size_t>(length), u'\0'), type};
  std::memcpy(found.name.data(), name, found.name.size() * 2);
  if (found.name != u"." && found.name != u"..") static_cast<std::vector<Found>*>(context)->push_back(std::move(found));
  return 0;
}

// NTFS may hold names that differ in case only (other systems make them). All are listed; only the first is found by
// name, as on Windows. The others' keys end in this mark, which no name can hold.
constexpr char16_t kShadow = u'\0';

std::u16string_view NameOf(std::u16string_view key) { return key.substr(0, key.find(kShadow)); }

}  // namespace

std::u16string NtfsVolume::UpCased(std::u16string_view name) const {
  std::u16string upper(name);
  for (char16_t& unit : upper) unit = upCase_[unit];
  return upper;
}

bool NtfsVolume::EqualNames(std::u16string_view a, std::u16string_view b) const {
  return SameName{upCase_.data()}(a, b);
}

bool NtfsVolume::SameName::operator()(std::u16string_view a, std::u16string_view b) const {
  return a == b ||
         std::ranges::equal(a, b, [this](char16_t one, char16_t other) { return upCase[one] == upCase[other]; });
}

// Asked for with every path: it needs no memory of its own.
std::size_t NtfsVolume::NameHash::operator()(std::u16string_view name) const {
  std::array<char16_t, kMaximumName> upper;
  name = name.substr(0, upper.size());
  std::ranges::transform(name, upper.begin(), [this](char16_t unit) { return upCase[unit]; });
  return std::hash<std::u16string_view>{}({upper.data(), name.size()});
}

bool NtfsVolume::IsLegalName(std::u16string_view name) {
  if (name.empty() || name.size() > kMaximumName || name == u"." || name == u"..") return false;
  return std::ranges::none_of(name, [](char16_t unit) {
    return unit < u' ' || std::u16string_view(u"\\/:*?\"<>|").find(unit) != std::u16string_view::npos;
  });
}

// The library itself would take a second spelling of a name that is there, even of one of its own files in the root.
win32::DWORD NtfsVolume::CheckNewName(const Directory& entries, FileId directory, std::u16string_view name) const {
  static constexpr std::u16string_view kMetafiles[] = {u"$MFT",     u"$MFTMIRR", u"$LOGFILE", u"$VOLUME",
                                                       u"$ATTRDEF", u"$BITMAP",  u"$BOOT",    u"$BADCLUS",
                                                       u"$SECURE",  u"$UPCASE",  u"$EXTEND"};
  if (Find(entries, name)) return win32::ERROR_ALREADY_EXISTS;
  const bool isReserved = directory == root_ && std::ranges::find(kMetafiles, UpCased(name)) != std::end(kMetafiles);
  return isReserved ? win32::ERROR_ACCESS_DENIED : 0;
}

win32::DWORD NtfsVolume::GetDirectory(FileId file, Directory*& directory) {
  if (const auto known = directories_.find(file); known != directories_.end()) {
    directory = &known->second;
    return 0;
  }
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (!node->IsDirectory()) return win32::ERROR_DIRECTORY;
  const ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  std::vector<Found> found;
  s64 position = 0;
  if (ntfs_readdir(inode.get(), &position, &found, Collect) != 0) return ntfs::LastError();

  Directory loaded(upCase_.data());
  loaded.entries.reserve(found.size());
  std::unordered_map<FileId, std::u16string> shortNames;
  for (Found& entry : found) {
    if (entry.type == FILE_NAME_DOS) shortNames[entry.id] = entry.name;
  }
  for (Found& entry : found) {
    if (entry.type == FILE_NAME_DOS) continue;
    std::u16string& key = entry.name;
    while (loaded.entries.contains(key)) key += kShadow;
    Entry known{entry.id, nullptr};
    // Of several links in one directory one has the short name.
    if (const auto shortName = shortNames.find(entry.id);
        shortName != shortNames.end() && entry.type == FILE_NAME_WIN32) {
      known.shortName = std::make_unique<std::u16string>(shortName->second);
      loaded.shortNames[shortName->second] = key;
    }
    loaded.entries.emplace(std::move(key), std::move(known));
  }
  entries_ += loaded.entries.size();
  largestDirectory_ = std::max(largestDirectory_, loaded.entries.size());
  directory = &directories_.emplace(file, std::move(loaded)).first->second;
  return 0;
}

const NtfsVolume::KnownEntry* NtfsVolume::Find(const Directory& directory, std::u16string_view name) {
  if (const auto entry = directory.entries.find(name); entry != directory.entries.end()) return &*entry;
  const auto shortName = directory.shortNames.find(name);
  if (shortName == directory.shortNames.end()) return nullptr;
  const auto entry = directory.entries.find(shortName->second);
  return entry == directory.entries.end() ? nullptr : &*entry;
}

void NtfsVolume::Remember(Directory& directory, std::u16string_view name, FileId file) {
  directory.entries.emplace(std::u16string(name), Entry{file, nullptr});
  ++entries_;
  largestDirectory_ = std::max(largestDirectory_, directory.entries.size());
}

void NtfsVolume::Forget(Directory& directory, std::u16string_view name) {
  const auto entry = directory.entries.find(name);
  if (entry == directory.entries.end()) return;
  if (entry->second.shortName) directory.shortNames.erase(*entry->second.shortName);
  directory.entries.erase(entry);
  --entries_;
  const auto marked = directory.entries.find(std::u16string(name) + kShadow);
  if (marked == directory.entries.end()) return;
  auto shadow = directory.entries.extract(marked);
  shadow.key().pop_back();
  if (shadow.mapped().shortName) directory.shortNames[*shadow.mapped().shortName] = shadow.key();
  directory.entries.insert(std::move(shadow));
}

win32::DWORD NtfsVolume::Lookup(FileId directory, std::u16string_view name, FileId& file, std::u16string* storedName,
                                std::u16string* shortName) {
  Enter();
  Directory* entries = nullptr;
  if (const win32::DWORD error = GetDirectory(directory, entries)) return error;
  const KnownEntry* const entry = Find(*entries, name);
  if (!entry) return win32::ERROR_FILE_NOT_FOUND;
  file = entry->second.id;
  if (storedName) *storedName = NameOf(entry->first);
  if (shortName) *shortName = entry->second.shortName ? *entry->second.shortName : std::u16string();
  return 0;
}

win32::DWORD NtfsVolume::Stat(FileId file, FileInfo& info) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  info = node->info;
  return 0;
}

win32::DWORD NtfsVolume::List(FileId directory, std::vector<DirectoryEntry>& entries) {
  Enter();
  Directory* known = nullptr;
  if (const win32::DWORD error = GetDirectory(directory, known)) return error;
  std::vector<std::pair<std::u16string, const KnownEntry*>> inOrder;
  inOrder.reserve(known->entries.size());
  for (const KnownEntry& entry : known->entries) inOrder.emplace_back(UpCased(entry.first), &entry);
  std::ranges::sort(inOrder);
  entries.clear();
  entries.reserve(inOrder.size());
  for (const auto& [upper, entry] : inOrder) {
    const auto& [key, content] = *entry;
    entries.push_back({std::u16string(NameOf(key)), content.shortName ? *content.shortName : u"", content.id});
  }
  return 0;
}

win32::DWORD NtfsVolume::Names(FileId file, std::vector<std::pair<FileId, std::u16string>>& names) {
  Enter();
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  names.clear();
  if (file == root_) return 0;
  Node read;
  if (node->names.empty()) {
    ntfs::Inode inode(inodes_, file);
    if (inode.error()) return inode.error();
    if (const win32::DWORD error = ReadAttributes(read, inode.get())) return error;
  }
  for (const Name& name : node->names.empty() ? read.names : node->names) {
    if (!name.isShort) names.emplace_back(name.directory, name.name);
  }
  return 0;
}

win32::DWORD NtfsVolume::Create(FileId directory, std::u16string_view name, bool isDirectory, win32::DWORD attributes,
                                ByteView descriptor, FileTime now, FileId& file) {
  Enter();
  if (!IsLegalName(name)) return win32::ERROR_INVALID_NAME;
  Directory* entries = nullptr;
  if (const win32::DWORD error = GetDirectory(directory, entries)) return error;
  if (const win32::DWORD error = CheckNewName(*entries, directory, name)) return error;
  const std::size_t length = DescriptorLength(descriptor);
  if (length == 0) return win32::ERROR_INVALID_SECURITY_DESCR;

  Node node;
  node.descriptor =
      std::make_shared<const Bytes>(descriptor.begin(), descriptor.begin() + static_cast<std::ptrdiff_t>(length));
  node.info.securityId = KnownId(*node.descriptor);
  if (node.info.securityId) node.descriptor = nullptr;

  ntfs::Inode folder(inodes_, directory);
  if (folder.error()) return folder.error();
  // Until its own descriptor is put down the record bears its parent's, or any: the library would make one without a
  // number, and another one of it later.
  std::uint32_t storedId = node.info.securityId;
  if (storedId == 0 && test_nino_flag(folder, v3_Extensions)) storedId = le32_to_cpu(folder->security_id);
  if (storedId == 0) storedId = secure_.AnyId();
  ntfs::Inode inode(ntfs_create(folder.get(), cpu_to_le32(storedId), ntfs::Units(name), static_cast<u8>(name.size()),
                                isDirectory ? S_IFDIR : S_IFREG));
  if (!inode.get()) return ntfs::LastError();
  node.info.id = file = MK_MREF(inode->mft_no, le16_to_cpu(inode->mrec->sequence_number));
  if (isDirectory)
    if (const win32::DWORD error = inode.CloseIn(folder.get())) return error;
  if (const win32::DWORD error = folder.Close()) return error;
  if (!isDirectory)
    if (const win32::DWORD error = inode.KeepIn(inodes_, file)) return error;

  node.info.attributes = ShownAttributes((attributes & kSettableAttributes) |
                                         (isDirectory ? win32::FILE_ATTRIBUTE_DIRECTORY : win32::DWORD{0}));
  node.info.creation = node.info.lastAccess = node.info.lastWrite = node.info.change = now;
  node.directory = directory;
  if (isDirectory) node.names.push_back({directory, std::u16string(name), false});
  if (!isDirectory) node.streams.push_back({});
  node.dirty = true;
  Remember(*entries, name, file);
  if (isDirectory) directories_.emplace(file, Directory(upCase_.data()));
  Node& kept = nodes_.insert_or_assign(file, std::move(node)).first->second;
  win32::DWORD error = Settle(kept);
  if (error == 0) error = GiveShortName(file, directory, name);
  if (error != 0) {
    RemoveName(file, directory, name);
    nodes_.erase(file);
    directories_.erase(file);
    return error;
  }
  return 0;
}

// The name into the index and into the record; the caches are the caller's.
win32::DWORD NtfsVolume::AddName(FileId file, FileId directory, std::u16string_view name) {
  for (const FileId changed : {file, directory}) {
    if (const win32::DWORD error = HoldTimes(changed)) return error;
  }
  ntfs::InodeInFolder opened(inodes_, file, directory);
  if (opened.error()) return opened.error();
  if (const win32::DWORD error = opened.Link(name)) return error;
  if (const win32::DWORD error = opened.folder.Close()) return error;
  return opened.inode.Close();
}

// `name` as the directory spells it. The caches follow when the last name goes; otherwise they are the caller's.
win32::DWORD NtfsVolume::RemoveName(FileId file, FileId directory, std::u16string_view name) {
  if (const win32::DWORD error = HoldTimes(directory)) return error;
  if (const auto known = nodes_.find(file); known == nodes_.end() || known->second.info.links > 1) {
    if (const win32::DWORD error = HoldTimes(file)) return error;
  }
  ntfs::Inode inode(inodes_, file);
  if (inode.error()) return inode.error();
  ntfs::Inode folder(inodes_, directory);
  if (folder.error()) return folder.error();
  const std::u16string spelling(name);  // `name` may be the cache's own
  // How many names it has says the record: the node is behind it in a rename.
  if (const auto known = nodes_.find(file); known != nodes_.end() && known->second.IsPlainFile() &&
                                            !NInoAttrList(inode.get()) && le16_to_cpu(inode->mrec->link_count) == 1) {
    if (const win32::DWORD error = ntfs::DeletePlainFile(inode, folder, spelling)) return error;
  } else if (ntfs_delete(volume_, nullptr, inode.release(), folder.release(), ntfs::Units(spelling),
                         static_cast<u8>(spelling.size())) != 0) {
    return ntfs::LastError();
  }
  if (const auto entries = directories_.find(directory); entries != directories_.end())
    Forget(entries->second, spelling);
  return 0;
}

// The node anew from its record after a change of its names, with what is held back on top.
win32::DWORD NtfsVolume::RefreshIfKnown(FileId file) {
  const auto known = nodes_.find(file);
  if (known == nodes_.end()) return 0;
  ntfs::Inode inode(inodes_, file);
  return inode.error() ? inode.error() : Refresh(known->second, inode.get());
}

win32::DWORD NtfsVolume::Link(FileId file, FileId directory, std::u16string_view name) {
  Enter();
  if (!IsLegalName(name)) return win32::ERROR_INVALID_NAME;
  Directory* entries = nullptr;
  if (const win32::DWORD error = GetDirectory(directory, entries)) return error;
  Node* node = nullptr;
  if (const win32::DWORD error = GetNode(file, node)) return error;
  if (node->IsDirectory()) return win32::ERROR_ACCESS_DENIED;
  if (const win32::DWORD error = CheckNewName(*entries, directory, name)) return error;
  if (node->info.links >= kMaximumLinks) return win32::ERROR_TOO_MANY_LINKS;
  if (const win32::DWORD error = AddName(file, directory, name)) return error;
  Remember(*entries, name, file);
  return RefreshIfKnown(file);
}

win32::DWORD NtfsVolume::Unlink(FileId directory, std::u16string_view name) {
  Enter();
  Directory* entries = nullptr;
  if (const win32::DWORD error = GetDirectory(directory, entries)) return error;
  const KnownEntry* const entry = Find(*entries, name);
  if (!entry) return win32::ERROR_FILE_NOT_FOUND;
  const FileId file = entry->second.id;
  if (const auto children = directories_.find(file);
      children != directories_.end() && !children->second.entries.empty()) {
    return win32::ERROR_DIR_NOT_EMPTY;
  }
  if (const win32::DWORD error = RemoveName(file, directory, NameOf(entry->first))) return error;
  const auto node = nodes_.find(file);
  if (node != nodes_.end() && node->second.info.links > 1) return RefreshIfKnown(file);
  nodes_.erase(file);
  directories_.erase(file);
  return 0;
}

win32::DWORD NtfsVolume::Rename(FileId fromDirectory, std::u16string_view fromName, FileId toDirectory,
                                std::u16string_view toName) {
  Enter();
  if (!IsLegalName(toName)) return win32::ERROR_INVALID_NAME;
  Directory* from = nullptr;
  Directory* to = nullptr;
  if (const win32::DWORD error = GetDirectory(fromDirectory, from)) return error;
  if (const win32::DWORD error = GetDirectory(toDirectory, to)) return error;
  from = &directories_.at(fromDirectory);
  const KnownEntry* const old = Find(*from, fromName);
  if (!old) return win32::ERROR_FILE_NOT_FOUND;
  const FileId file = old->second.id;
  const std::u16string oldName(NameOf(old->first));
  const bool hadShortName = old->second.shortName != nullptr;
  if (file == toDirectory) return win32::ERROR_INVALID_PARAMETER;
  const KnownEntry* const existing = Find(*to, toName);
  if (existing != old) {
    if (const win32::DWORD error = CheckNewName(*to, toDirectory, toName)) return error;
  }
  if (oldName == toName && fromDirectory == toDirectory) return 0;

  std::u16string intermediate;
  std::u16string_view current = oldName;
  if (existing) {
    // The index takes no second spelling of a name beside the first: by way of a name that nobody has.
    for (unsigned number = 0; intermediate.empty() || Find(*to, intermediate); ++number) {
      intermediate = u"$RENAME" + std::u16string(1 + number, u'~');
    }
    if (const win32::DWORD error = AddName(file, toDirectory, intermediate)) return error;
    if (const win32::DWORD error = RemoveName(file, fromDirectory, oldName)) return error;
    current = intermediate;
  }
  win32::DWORD error = AddName(file, toDirectory, toName);
  if (error != 0 && !existing) return error;
  // When the new spelling does not fit, back to the old one; when that does not either, the file keeps what it has.
  const std::u16string_view result = error != 0 ? std::u16string_view(oldName) : toName;
  if (error != 0 && AddName(file, toDirectory, oldName) != 0) {
    Remember(*to, current, file);
    RefreshIfKnown(file);
    return error;
  }
  if (const win32::DWORD failure = RemoveName(file, fromDirectory, current)) return failure;
  Remember(*to, result, file);
  if (const win32::DWORD failure = RefreshIfKnown(file)) return failure;
  RenewShortName(file, toDirectory, result, hadShortName);
  return error;
}

}  // namespace emulated
