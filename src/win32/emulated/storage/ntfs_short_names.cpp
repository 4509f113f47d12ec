// Short names beside long ones, as NTFS keeps them: the long name is of the Win32 namespace then, the short one of
// DOS', and a name that is one of DOS in itself is of both.
#include <algorithm>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_attributes.h"
#include "win32/emulated/storage/ntfs_volume.h"
#include "win32/emulated/storage/short_names.h"

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated {
namespace {

// In the flags of $VOLUME_INFORMATION. The library's own function for them leaves this one out.
constexpr unsigned kShortNamesDisabled = 0x0080;

// In the record; the index follows when the file is closed in the directory.
void SetNamespace(ntfs_inode* file, const ntfs_inode* directory, std::u16string_view name,
                  FILE_NAME_TYPE_FLAGS nameSpace) {
  const ntfs::UniqueSearch search(ntfs_attr_get_search_ctx(file, nullptr));
  while (search && ntfs_attr_lookup(AT_FILE_NAME, nullptr, 0, CASE_SENSITIVE, 0, nullptr, 0, search.get()) == 0) {
    auto* const stored = reinterpret_cast<FILE_NAME_ATTR*>(reinterpret_cast<std::uint8_t*>(search->attr) +
                                                           le16_to_cpu(search->attr->value_offset));
    if (MREF_LE(stored->parent_directory) != directory->mft_no || stored->file_name_length != name.size() ||
        std::memcmp(stored->file_name, name.data(), name.size() * sizeof(char16_t)) != 0)
      continue;
    stored->file_name_type = nameSpace;
    ntfs_inode_mark_dirty(search->ntfs_ino);
    NInoFileNameSetDirty(file);
  }
}

}  // namespace

// To a name that is there already; `name` is how the directory spells it.
win32::DWORD NtfsVolume::GiveShortName(FileId file, FileId directory, std::u16string_view name) {
  if (!makesShortNames) return 0;
  Directory* entries = nullptr;
  if (const win32::DWORD error = GetDirectory(directory, entries)) return error;
  const bool isShort = IsShortName(name);
  std::u16string shortName = UpCased(name);
  for (ShortNames candidates(name); !isShort && (shortName = candidates.Next(), Find(*entries, shortName));) continue;
  // None for a name that Win32 makes by "\\?\" only, such as a device's.
  if (ntfs_forbidden_names(volume_, ntfs::Units(name), static_cast<int>(name.size()), FALSE) ||
      ntfs_forbidden_names(volume_, ntfs::Units(shortName), static_cast<int>(shortName.size()), TRUE))
    return 0;
  for (const FileId changed : {file, directory}) {
    if (const win32::DWORD error = HoldTimes(changed)) return error;
  }
  ntfs::InodeInFolder opened(inodes_, file, directory);
  if (opened.error()) return opened.error();
  if (!isShort)
    if (const win32::DWORD error = opened.Link(shortName)) return error;
  auto& [inode, folder] = opened;
  SetNamespace(inode.get(), folder.get(), name, isShort ? FILE_NAME_WIN32_AND_DOS : FILE_NAME_WIN32);
  if (!isShort) SetNamespace(inode.get(), folder.get(), shortName, FILE_NAME_DOS);
  if (const win32::DWORD error = inode.CloseIn(folder.get())) return error;
  if (const win32::DWORD error = folder.Close()) return error;
  if (!isShort) {
    const auto entry = entries->entries.find(name);
    entry->second.shortName = std::make_unique<std::u16string>(shortName);
    entries->shortNames[shortName] = entry->first;
  }
  return RefreshIfKnown(file);
}

// After a rename. One link of a file has the short name; the others go without, and so does a file that a full volume
// has no room for. (The library could not tell two links in one directory apart.)
void NtfsVolume::RenewShortName(FileId file, FileId directory, std::u16string_view name, bool hadOne) {
  if (!makesShortNames) return;
  const Node& node = nodes_.at(file);
  const auto linksElsewhere = std::ranges::count_if(
      node.names, [directory](const Name& link) { return !link.isShort && link.directory != directory; });
  if (node.info.links - linksElsewhere == 1 && (hadOne || node.info.links == 1)) GiveShortName(file, directory, name);
}

bool NtfsVolume::AllowsShortNames() const { return (le16_to_cpu(volume_->flags) & kShortNamesDisabled) == 0; }

win32::DWORD NtfsVolume::AllowShortNames(bool allow) {
  Enter();
  const ntfs::UniqueSearch search(ntfs_attr_get_search_ctx(volume_->vol_ni, nullptr));
  if (!search || ntfs_attr_lookup(AT_VOLUME_INFORMATION, AT_UNNAMED, 0, CASE_SENSITIVE, 0, nullptr, 0, search.get()))
    return ntfs::LastError();
  auto* const record = reinterpret_cast<std::uint8_t*>(search->attr);
  const ByteView value = ResidentValue({record, le32_to_cpu(search->attr->length)});
  if (value.size() < offsetof(VOLUME_INFORMATION, flags) + sizeof volume_->flags) return win32::ERROR_FILE_CORRUPT;
  std::uint16_t flags = le16_to_cpu(volume_->flags);
  flags = static_cast<std::uint16_t>(allow ? flags & ~kShortNamesDisabled : flags | kShortNamesDisabled);
  volume_->flags = cpu_to_le16(flags);
  std::memcpy(record + (value.data() - record) + offsetof(VOLUME_INFORMATION, flags), &volume_->flags,
              sizeof volume_->flags);
  ntfs_inode_mark_dirty(search->ntfs_ino);
  return ntfs_inode_sync(search->ntfs_ino) == 0 ? 0 : ntfs::LastError();
}

}  // namespace emulated
