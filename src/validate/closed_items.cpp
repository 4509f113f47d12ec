#include "validate/closed_items.h"

#include <cstring>
#include <exception>
#include <utility>

#include "fsops/folder_itself.h"
#include "redirect/path_text.h"
#include "win32/win32.h"

namespace {

// An item whose descriptor is not to be read, either, is read with the rights of a backup.
int SaveAsBackup(const std::u16string& path, SecurityBlock& block) {
  const FolderDescriptor descriptor = ReadDescriptor(path);
  if (descriptor.empty()) return 0;
  SecurityBlock copy{win32::HeapAlloc(win32::GetProcessHeap(), win32::HEAP_ZERO_MEMORY, descriptor.size())};
  if (!copy) return 0;
  std::memcpy(copy.get(), descriptor.data(), descriptor.size());
  block = std::move(copy);
  return 1;
}

// The first descriptor counts: a folder above may have been opened up since.
bool SaveOnce(const std::u16string& path, SavedSecurityMap& saved) {
  if (saved.contains(path)) return true;
  SecurityBlock block;
  if (!SaveSecurityInfo(path, block) && !SaveAsBackup(path, block)) return false;
  saved[path] = std::move(block);
  return true;
}

// An opened folder has other entries for what is below it to inherit. Its contents stand right behind it in the list.
bool SaveBelow(const std::vector<TreeEntry>& entries, std::size_t folder, SavedSecurityMap& saved) {
  const std::u16string_view above = WithoutExtendedPrefix(entries[folder].path);
  for (std::size_t i = folder + 1; i < entries.size() && IsSameOrBelow(WithoutExtendedPrefix(entries[i].path), above);
       ++i)
    if (!SaveOnce(entries[i].path, saved)) return false;
  return true;
}

}  // namespace

int GetFileList(const std::u16string& folder, TreeListing& listing, win32::HANDLE token, SavedSecurityMap& saved) try {
  if (!GetFileList(folder, listing)) return 0;
  const std::vector<TreeEntry>& entries = listing.entries;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const TreeEntry& entry = entries[i];
    const bool readable = HasAccess(token, entry.path, kReadAndExecute) != 0;
    if ((entry.IsLink() || !readable) && !SaveOnce(entry.path, saved)) return 0;
    if (readable) continue;
    if (entry.IsDirectory() && !entry.IsLink() && !SaveBelow(entries, i, saved)) return 0;
    GrantEveryoneAndAdministrators(entry.path);  // where that is refused, the scan of the tree says so
  }
  return 1;
} catch (const std::exception&) {
  return 0;
}
