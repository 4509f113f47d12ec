#include "fsops/saved_items.h"

#include "fsops/backwards.h"
#include "fsops/file_list.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "win32/win32.h"

bool SavedItems::SaveFolder(const std::u16string& folder) {
  if (folders_.contains(folder)) return true;
  SavedFolder saved;
  if (!saved.Save(folder))
    return LogSystemFailure(u"#ERROR: Unable to read the security, attributes and times of %ls. ", folder);
  folders_.emplace(folder, std::move(saved));
  return true;
}

bool SavedItems::SaveDescriptor(const std::u16string& item) {
  if (items_.contains(item)) return true;
  FolderDescriptor descriptor = ReadWholeDescriptor(item);
  if (descriptor.empty()) descriptor = ReadDescriptor(item);
  if (descriptor.empty()) return LogSystemFailure(u"#ERROR: Unable to read the security of %ls. ", item);
  items_[item] = &*descriptors_.insert(std::move(descriptor)).first;
  return true;
}

bool SavedItems::SaveDescriptorsBelow(const std::u16string& folder) {
  TreeListing listing;
  if (!GetFileList(folder, listing)) return LogFailure(line::kNoListing, folder);
  for (const TreeEntry& entry : listing.entries)
    if (!SaveDescriptor(entry.path)) return false;
  return true;
}

const SavedFolder* SavedItems::Find(const std::u16string& folder) const {
  const auto found = folders_.find(folder);
  return found == folders_.end() ? nullptr : &found->second;
}

// The items' descriptors last: a folder below one whose access list was replaced was saved with what it had inherited
// from that.
void SavedItems::PutBack(const Paths& except) const {
  const auto isWanted = [&](const std::u16string& path) { return !except.contains(path) && !IsGone(path); };
  for (const auto& [folder, saved] : Backwards(folders_))
    if (isWanted(folder) && !saved.Restore()) Log(line::kItselfNotRestored, folder);
  for (const auto& [item, descriptor] : items_)
    if (isWanted(item) && !WriteWholeDescriptor(item, *descriptor) && !WriteDescriptor(item, *descriptor))
      LogWithSystemError(line::kDescriptorNotRestored, item);
}
