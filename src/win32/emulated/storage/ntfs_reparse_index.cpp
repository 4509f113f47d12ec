// The index of all reparse points of a volume, $Extend\$Reparse.
#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_volume.h"

#include "win32/emulated/storage/ntfs_library.h"

extern "C" {
#include <ntfs-3g/index.h>
}

namespace emulated {

namespace {

struct PutIndexContext {
  void operator()(ntfs_index_context* context) const { ntfs_index_ctx_put(context); }
};

}  // namespace

win32::DWORD NtfsVolume::ReparsePoints(std::vector<FileId>& files) {
  Enter();
  files.clear();
  ntfs::Inode inode(ntfs_pathname_to_inode(volume_, nullptr, "$Extend/$Reparse"));
  if (!inode.get()) return errno == ENOENT ? 0 : ntfs::LastError();  // a volume of before NTFS 3.0 has none
  constexpr std::u16string_view kIndex = u"$R";
  const std::unique_ptr<ntfs_index_context, PutIndexContext> context(
      ntfs_index_ctx_get(inode.get(), ntfs::Units(kIndex), kIndex.size()));
  if (!context) return ntfs::LastError();
  // No key is as small as this one: the look-up stops before the first.
  REPARSE_INDEX_KEY key{};
  if (ntfs_index_lookup(&key, sizeof key, context.get()) != 0 && errno != ENOENT) return ntfs::LastError();
  for (INDEX_ENTRY* entry = context->entry; entry; entry = ntfs_index_next(entry, context.get())) {
    if ((entry->ie_flags & INDEX_ENTRY_END) || le16_to_cpu(entry->key_length) < sizeof key) continue;
    REPARSE_INDEX_KEY found;
    std::memcpy(&found, &entry->key, sizeof found);
    files.push_back(le64_to_cpu(found.file_id));
  }
  return 0;
}

}  // namespace emulated
