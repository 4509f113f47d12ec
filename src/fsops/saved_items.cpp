#include "fsops/saved_items.h"

#include "fsops/backwards.h"
#include "fsops/file_list.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "links/reparse_data.h"
#include "report/lines.h"
#include "report/log.h"
#include "win32/win32.h"

std::size_t SavedItems::DescriptorHash::operator()(const FolderDescriptor& descriptor) const {
  return std::hash<std::string_view>{}({reinterpret_cast<const char*>(descriptor.data()), descriptor.size()});
}

SavedItems::Item SavedItems::ItemOf(const win32::BY_HANDLE_FILE_INFORMATION& information,
                                    const FolderDescriptor* descriptor) {
  return {.descriptor = descriptor,
          .attributes = information.dwFileAttributes,
          .creation = information.ftCreationTime,
          .lastAccess = information.ftLastAccessTime,
          .lastWrite = information.ftLastWriteTime};
}

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
  descriptor.shrink_to_fit();  // it was read into more than it needs, and there are many
  items_[item].descriptor = &*descriptors_.insert(std::move(descriptor)).first;
  return true;
}

SavedItems::Item SavedItems::Keep(const CopiedSource& told) {
  if (!told.information || told.descriptor.empty()) return {};
  return ItemOf(*told.information, &*descriptors_.insert(told.descriptor).first);
}

bool SavedItems::SaveFile(const std::u16string& file) {
  if (!SaveDescriptor(file)) return false;
  const win32::UniqueFile opened = OpenForAttributes(file, LastLink::Itself);
  win32::BY_HANDLE_FILE_INFORMATION information{};
  if (!opened || !win32::GetFileInformationByHandle(opened.get(), &information))
    return LogSystemFailure(u"#ERROR: Unable to read the attributes and times of %ls. ", file);
  Item& item = items_[file];
  item = ItemOf(information, item.descriptor);
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

bool SavedItems::PutBack(const std::u16string& path, const Item& item) {
  const bool secured = WriteWholeDescriptor(path, *item.descriptor) || WriteDescriptor(path, *item.descriptor);
  if (item.attributes == win32::INVALID_FILE_ATTRIBUTES) return secured;
  const bool attributed = win32::SetFileAttributesW(path.c_str(), item.attributes) != win32::FALSE;
  const win32::UniqueFile file{win32::CreateFileW(path.c_str(), win32::FILE_WRITE_ATTRIBUTES, kShareAll, nullptr,
                                                  win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)};
  return file && win32::SetFileTime(file.get(), &item.creation, &item.lastAccess, &item.lastWrite) && secured &&
         attributed;
}

void SavedItems::PutBackFile(const std::u16string& path, const Item& item) {
  if (!IsGone(path) && !PutBack(path, item) && !PutBack(path, item)) Log(line::kItselfNotRestored, path);
}

// The items' descriptors last: a folder below one whose access list was replaced was saved with what it had inherited
// from that.
void SavedItems::PutBack(const Paths& except) const {
  const auto isWanted = [&](const std::u16string& path) { return !except.contains(path) && !IsGone(path); };
  for (const auto& [path, item] : items_)
    if (item.attributes != win32::INVALID_FILE_ATTRIBUTES && !except.contains(path)) PutBackFile(path, item);
  for (const auto& [folder, saved] : Backwards(folders_))
    if (isWanted(folder) && !saved.Restore()) Log(line::kItselfNotRestored, folder);
  for (const auto& [path, item] : items_)
    if (item.attributes == win32::INVALID_FILE_ATTRIBUTES && isWanted(path) && !PutBack(path, item))
      LogWithSystemError(line::kDescriptorNotRestored, path);
}
