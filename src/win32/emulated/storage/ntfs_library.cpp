#include "win32/emulated/storage/ntfs_library.h"

#include <algorithm>
#include <cstring>

namespace emulated::ntfs {
namespace {

le32 ReparseTag(ntfs_inode* inode) {
  le32 tag = 0;
  if ((inode->flags & FILE_ATTR_REPARSE_POINT) == 0) return tag;
  const UniqueAttribute data(ntfs_attr_open(inode, AT_REPARSE_POINT, AT_UNNAMED, 0));
  if (!data || ntfs_attr_pread(data.get(), 0, sizeof tag, &tag) != sizeof tag) return 0;
  return tag;
}

// What a directory's index says of a file beside its name, after what the record says.
void FillEntry(FILE_NAME_ATTR& entry, const ntfs_inode& inode, FILE_NAME_TYPE_FLAGS type, le32 reparseTag) {
  const bool isDirectory = (inode.mrec->flags & MFT_RECORD_IS_DIRECTORY) != 0;
  entry.file_attributes = static_cast<FILE_ATTR_FLAGS>((entry.file_attributes & ~FILE_ATTR_VALID_FLAGS) |
                                                       (inode.flags & FILE_ATTR_VALID_FLAGS));
  entry.allocated_size = static_cast<sle64>(isDirectory ? 0 : inode.allocated_size);
  entry.data_size = static_cast<sle64>(isDirectory ? 0 : inode.data_size);
  entry.reparse_point_tag = reparseTag;
  entry.creation_time = inode.creation_time;
  entry.last_data_change_time = inode.last_data_change_time;
  entry.last_mft_change_time = inode.last_mft_change_time;
  entry.last_access_time = inode.last_access_time;
  entry.file_name_type = type;
}

win32::DWORD UpdateEntries(ntfs_inode* inode, ntfs_inode* directory) {
  const UniqueSearch search(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!search) return win32::ERROR_NOT_ENOUGH_MEMORY;
  const le32 reparseTag = ReparseTag(inode);
  win32::DWORD result = 0;
  while (ntfs_attr_lookup(AT_FILE_NAME, nullptr, 0, CASE_SENSITIVE, 0, nullptr, 0, search.get()) == 0) {
    auto* const name = reinterpret_cast<FILE_NAME_ATTR*>(reinterpret_cast<std::uint8_t*>(search->attr) +
                                                         le16_to_cpu(search->attr->value_offset));
    if (MREF_LE(name->parent_directory) != directory->mft_no) continue;
    const UniqueIndex index(ntfs_index_ctx_get(directory, NTFS_INDEX_I30, 4));
    if (!index) return win32::ERROR_NOT_ENOUGH_MEMORY;
    if (ntfs_index_lookup(name, sizeof *name, index.get()) != 0 ||
        MREF_LE(index->entry->indexed_file) != inode->mft_no) {
      result = win32::ERROR_FILE_CORRUPT;
      continue;
    }
    auto& entry = *static_cast<FILE_NAME_ATTR*>(index->data);
    FillEntry(entry, *inode, name->file_name_type, reparseTag);
    name->allocated_size = entry.allocated_size;
    ntfs_inode_mark_dirty(search->ntfs_ino);
    ntfs_index_entry_mark_dirty(index.get());
  }
  return result != 0 || errno == ENOENT ? result : LastError();
}

// The next name of the file that is spelt so, in that folder; nothing (and errno) when there is none.
const ATTR_RECORD* FindName(ntfs_attr_search_ctx& search, std::uint64_t folder, std::u16string_view name) {
  while (ntfs_attr_lookup(AT_FILE_NAME, nullptr, 0, CASE_SENSITIVE, 0, nullptr, 0, &search) == 0) {
    const auto& stored = *reinterpret_cast<const FILE_NAME_ATTR*>(reinterpret_cast<const std::uint8_t*>(search.attr) +
                                                                  le16_to_cpu(search.attr->value_offset));
    if (MREF_LE(stored.parent_directory) == folder && stored.file_name_length == name.size() &&
        std::memcmp(stored.file_name, name.data(), name.size() * sizeof(char16_t)) == 0)
      return search.attr;
  }
  return nullptr;
}

// The clusters of everything that lies outside the record.
win32::DWORD FreeClusters(ntfs_inode* inode) {
  const UniqueSearch search(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!search) return win32::ERROR_NOT_ENOUGH_MEMORY;
  win32::DWORD result = 0;
  while (ntfs_attrs_walk(search.get()) == 0) {
    if (!search->attr->non_resident) continue;
    runlist* const clusters = ntfs_mapping_pairs_decompress(inode->vol, search->attr, nullptr);
    if ((!clusters || ntfs_cluster_free_from_rl(inode->vol, clusters) != 0) && result == 0) result = LastError();
    free(clusters);
  }
  return result != 0 || errno == ENOENT ? result : LastError();
}

void ForgetChanges(ntfs_inode* inode) {
  for (const unsigned change : {NI_Dirty, NI_AttrListDirty, NI_FileNameDirty}) ClearState(inode->state, change);
}

}  // namespace

// What cannot be written is given up. The library would keep the record open, or close it and answer the same.
win32::DWORD Inode::Close() {
  ntfs_inode* const inode = release();
  if (!inode) return 0;
  if ((!NInoDirty(inode) && !NInoAttrListDirty(inode)) || ntfs_inode_sync(inode) == 0)
    return ntfs_inode_close(inode) == 0 ? 0 : LastError();
  const win32::DWORD error = LastError();
  for (s32 extent = 0; extent < inode->nr_extents; ++extent) ForgetChanges(inode->extent_nis[extent]);
  ForgetChanges(inode);
  ntfs_inode_real_close(inode);
  return error;
}

win32::DWORD Inode::CloseIn(ntfs_inode* directory) {
  const win32::DWORD error = NInoFileNameDirty(inode_) ? UpdateEntries(inode_, directory) : 0;
  ClearState(inode_->state, NI_FileNameDirty);
  const win32::DWORD closing = Close();
  return error ? error : closing;
}

win32::DWORD Inode::KeepIn(KeptInodes& kept, MFT_REF file) {
  const bool isFile =
      MREF(file) >= FILE_first_user && (inode_->mrec->flags & (MFT_RECORD_IS_DIRECTORY | MFT_RECORD_IS_4)) == 0;
  ClearState(inode_->state, NI_FileNameDirty);
  if (!isFile || inode_->nr_extents != 0) return Close();
  kept.Keep(file, release());
  return 0;
}

_ntfs_inode* KeptInodes::Take(FileId file) {
  const auto kept = std::ranges::find(kept_, file, &std::pair<FileId, _ntfs_inode*>::first);
  if (kept == kept_.end()) return nullptr;
  _ntfs_inode* const inode = kept->second;
  kept_.erase(kept);
  return inode;
}

win32::DWORD KeptInodes::CloseAll() {
  win32::DWORD result = 0;
  for (const auto& [file, inode] : kept_) {
    const win32::DWORD error = Inode(inode).Close();
    if (result == 0) result = error;
  }
  kept_.clear();
  return result;
}

win32::DWORD DeletePlainFile(Inode& file, Inode& folder, std::u16string_view name) {
  {
    const UniqueSearch search(ntfs_attr_get_search_ctx(file.get(), nullptr));
    const ATTR_RECORD* const found = search ? FindName(*search, folder->mft_no, name) : nullptr;
    if (!found) return LastError();
    const auto* const key = reinterpret_cast<const std::uint8_t*>(found) + le16_to_cpu(found->value_offset);
    if (ntfs_index_remove(folder.get(), file.get(), key, static_cast<int>(le32_to_cpu(found->value_length))) != 0)
      return LastError();
  }
  // The name is gone: what goes wrong from here on is told, and the rest is done.
  file->mrec->link_count = 0;
  win32::DWORD result = FreeClusters(file.get());
  if (ntfs_mft_record_free(file->vol, file.get()) == 0) {
    file.release();
  } else if (result == 0) {
    result = LastError();
  }
  const win32::DWORD closed = folder.Close();
  return result ? result : closed;
}

win32::DWORD InodeInFolder::Link(std::u16string_view name) {
  if (ntfs_link(inode.get(), folder.get(), Units(name), static_cast<u8>(name.size())) == 0) return 0;
  const win32::DWORD error = LastError();
  folder.Close();  // before the file
  return error;
}

}  // namespace emulated::ntfs
