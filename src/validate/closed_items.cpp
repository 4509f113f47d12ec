#include "validate/closed_items.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <optional>
#include <span>
#include <utility>

#include "fsops/file_facts.h"
#include "fsops/folder_itself.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// An item whose descriptor is not to be read, either, is read with the rights of a backup.
int SaveAsBackup(const std::u16string& path, SecurityBlock& block) {
  const FolderDescriptor descriptor = ReadDescriptor(path);
  if (descriptor.empty()) return 0;
  SecurityBlock copy{win32::HeapAlloc(win32::GetProcessHeap(), win32::HEAP_ZERO_MEMORY, descriptor.size())};
  if (!copy) return 0;
  std::memcpy(copy.get(), descriptor.data(), descriptor.size());
  KeepInheritanceMark(copy.get());
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

// The other names of a file would stay open when it has moved away: its old descriptor is then on the copy alone.
bool HasOneName(const TreeEntry& entry) {
  if (entry.IsDirectory()) return true;
  const std::optional<FileFacts> facts = FactsOf(entry.path, LastLink::Itself);
  if (!facts)
    LogWithSystemError(u"#ERROR: Unable to tell how many names the file %ls has. ", entry.path);
  else if (facts->linkCount > 1)
    Log(u"#ERROR: The file %ls has several names (hard links), and administrators may not read it or a folder that it "
        u"is in. Let them read both, or remove its other names, and try again.",
        entry.path);
  return facts && facts->linkCount <= 1;
}

// The index behind the item's contents, which stand right behind it in the list.
std::size_t EndOfTree(const std::vector<TreeEntry>& entries, std::size_t item) {
  const std::u16string_view above = WithoutExtendedPrefix(entries[item].path);
  std::size_t end = item + 1;
  while (end < entries.size() && IsSameOrBelow(WithoutExtendedPrefix(entries[end].path), above)) ++end;
  return end;
}

// An opened folder has other entries for what is below it to inherit. Nothing is saved unless all of it may be: what is
// saved may have to be opened just to be written back.
bool SaveTree(std::span<const TreeEntry> tree, SavedSecurityMap& saved) {
  return std::ranges::all_of(tree, HasOneName) &&
         std::ranges::all_of(tree, [&](const TreeEntry& entry) { return SaveOnce(entry.path, saved); });
}

// Where that is refused, the scan of the tree says so.
void OpenUp(const std::u16string& path) {
  OnlyLooks* const look = OnlyLooks::Current();
  if (!look) {
    GrantEveryoneAndAdministrators(path);
    return;
  }
  look->Leave(u"Whether administrators can be let into what is closed to them: its access rights would be changed.");
  look->TakeAsOpened(path);
}

}  // namespace

int GetFileList(const std::u16string& folder, TreeListing& listing, win32::HANDLE token, SavedSecurityMap& saved) try {
  if (!GetFileList(folder, listing) || !HasAllContents(listing)) return 0;
  const std::vector<TreeEntry>& entries = listing.entries;
  const FileRights readAndExecute(kReadAndExecute);
  std::size_t savedUpTo = 0;  // with a folder that was opened
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const TreeEntry& entry = entries[i];
    const bool readable = HasAccess(token, entry.path, readAndExecute) != 0;
    if (!readable && i >= savedUpTo) {
      savedUpTo = EndOfTree(entries, i);
      if (!SaveTree(std::span(entries).subspan(i, savedUpTo - i), saved)) return 0;
    }
    if (entry.IsLink() && !SaveOnce(entry.path, saved)) return 0;
    if (!readable) OpenUp(entry.path);
  }
  return 1;
} catch (const std::exception&) {
  return 0;
}
