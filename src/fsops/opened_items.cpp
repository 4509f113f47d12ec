#include "fsops/opened_items.h"

#include "fsops/folder_itself.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"

bool OpenedItems::Open(const std::u16string& path, bool isFolder) {
  const FolderDescriptor own = ReadDescriptor(path);
  const FolderDescriptor opened = own.empty() ? FolderDescriptor() : OpenToAdministrators(own);
  if (opened.empty() || !WriteDescriptor(path, opened))
    return LogSystemFailure(u"#ERROR: Unable to let administrators into %ls. ", path);
  items_.push_back({path, own, isFolder});
  return true;
}

bool OpenedItems::List(const std::u16string& root, TreeListing& listing) {
  const ImpersonatedCaller caller;
  const FileRights full(kFullControl);
  const auto enter = [&](const std::u16string& folder) {
    const bool isOpen = HasAccess(caller.token(), folder, full) || Open(folder, true);
    if (!isOpen) whole_ = false;
    return isOpen;
  };
  if (!GetFileList(root, listing, enter)) return false;
  for (const TreeEntry& entry : listing.entries)
    if (!entry.IsDirectory() && !entry.IsLink() && !HasAccess(caller.token(), entry.path, full))
      Open(entry.path, false);  // where that is refused, the copy says what cannot be read
  return true;
}

void OpenedItems::GiveBack(const Place& where) const {
  for (const Item& item : items_) {
    const std::u16string place = where(item.path, item.isFolder);
    if (!place.empty() && LookAt(place).IsThere() && !WriteDescriptor(place, item.descriptor))
      Log(line::kSecurityNotRestored, place);
  }
}
