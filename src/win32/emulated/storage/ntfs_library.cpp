#include "win32/emulated/storage/ntfs_library.h"

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

win32::DWORD InodeInFolder::Link(std::u16string_view name) {
  if (ntfs_link(inode.get(), folder.get(), Units(name), static_cast<u8>(name.size())) == 0) return 0;
  const win32::DWORD error = LastError();
  folder.Close();  // before the file
  return error;
}

}  // namespace emulated::ntfs
