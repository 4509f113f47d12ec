#include "fsops/file_list.h"

#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include "links/mounted_folder.h"
#include "text/path_text.h"
#include "win32/win32.h"

std::uint64_t TreeListing::TotalSize() const {
  std::uint64_t total = 0;
  for (const TreeEntry& entry : entries) total += entry.size;
  return total;
}

bool IsSystemFolderName(std::u16string_view name) {
  return EqualPaths(name, u"$RECYCLE.BIN") || EqualPaths(name, u"System Volume Information");
}

namespace {

// The form in which every call reaches the item. The plain form ends at 259 characters, and it loses a dot or blank at
// the end of a name. A path under a "\\?\" one keeps the prefix, so the copy and the deletion name the same items.
std::u16string ReachablePath(std::u16string path) {
  const bool plainFormReaches = path.size() < win32::MAX_PATH && path.back() != u'.' && path.back() != u' ';
  return plainFormReaches ? path : WithExtendedPrefix(path);
}

TreeEntry EntryOf(const std::u16string& folder, const win32::WIN32_FIND_DATAW& found) {
  TreeEntry entry;
  entry.path = ReachablePath(JoinPath(folder, found.cFileName));
  entry.attributes = found.dwFileAttributes;
  entry.reparseTag = entry.IsReparsePoint() ? found.dwReserved0 : 0;
  if (!entry.IsDirectory()) entry.size = (std::uint64_t{found.nFileSizeHigh} << 32) | found.nFileSizeLow;
  return entry;
}

// A folder in the middle of being listed.
struct OpenFolder {
  std::u16string path;
  win32::UniqueFind find;
  win32::WIN32_FIND_DATAW found{};
  bool hasEntry = false;  // `found` is the next entry
};

// Both answer false when the folder could not be read: what a listing that breaks off does not show would be neither
// examined nor copied.
bool Open(const std::u16string& path, OpenFolder& folder) {
  std::u16string pattern = path;
  while (!pattern.empty() && pattern.back() == u'\\') pattern.pop_back();
  pattern += u"\\*.*";
  folder.path = path;
  folder.find.reset(win32::FindFirstFileW(ExtendedPath(pattern).c_str(), &folder.found));
  folder.hasEntry = static_cast<bool>(folder.find);
  // Only a drive's root can be without any entry.
  return folder.hasEntry || win32::GetLastError() == win32::ERROR_FILE_NOT_FOUND;
}

bool Advance(OpenFolder& folder) {
  folder.hasEntry = win32::FindNextFileW(folder.find.get(), &folder.found) != win32::FALSE;
  return folder.hasEntry || win32::GetLastError() == win32::ERROR_NO_MORE_FILES;
}

// Puts an entry in the listing; the folder that is to be entered next, if it is one.
std::optional<std::u16string> TakeEntry(const OpenFolder& folder, TreeListing& listing) {
  const std::u16string_view name = folder.found.cFileName;
  if (name == u"." || name == u"..") return std::nullopt;
  TreeEntry entry = EntryOf(folder.path, folder.found);
  if (entry.IsDirectory() && !entry.IsLink() && IsSystemFolderName(name)) {
    listing.systemFolders.push_back(std::move(entry.path));
    return std::nullopt;
  }
  listing.entries.push_back(entry);
  if (entry.IsLink()) {
    listing.links.push_back(std::move(entry));
    return std::nullopt;
  }
  return entry.IsDirectory() ? std::optional(std::move(entry.path)) : std::nullopt;
}

// Depth first, in the order in which the file system names the entries. Not recursive: a tree may be thousands deep.
bool ListFolder(const std::u16string& root, TreeListing& listing, const EnterFolder& mayEnter) {
  std::vector<OpenFolder> open(1);
  if (mayEnter && !mayEnter(root)) return true;
  if (!Open(root, open.back())) return false;
  while (!open.empty()) {
    if (!open.back().hasEntry) {
      open.pop_back();
      continue;
    }
    const std::optional<std::u16string> enter = TakeEntry(open.back(), listing);
    if (!Advance(open.back())) return false;
    if (!enter || (mayEnter && !mayEnter(*enter))) continue;
    if (!Open(*enter, open.emplace_back())) return false;
  }
  return true;
}

// "C:" or a volume's name, without the backslash at its end: such a root has no record of its own and is no link.
bool IsVolumeRoot(std::u16string_view name) {
  name = WithoutExtendedPrefix(name);
  return (name.size() == 2 && name[1] == u':') || (name.starts_with(u"Volume{") && name.find(u'\\') == name.npos);
}

// The root's own record; nothing when it cannot be read, for then nobody knows whether the root is a link.
std::optional<TreeEntry> RootEntry(const std::u16string& folder) {
  TreeEntry entry;
  entry.path = folder;
  std::u16string name = folder;
  while (!name.empty() && name.back() == u'\\') name.pop_back();
  if (IsVolumeRoot(name)) return entry;
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(name.c_str(), &found)};
  if (!find) return std::nullopt;
  entry.attributes = found.dwFileAttributes;
  entry.reparseTag = entry.IsReparsePoint() ? found.dwReserved0 : 0;
  return entry;
}

// Tells the log of every symbolic link in the listing.
void LogLinks(const TreeListing& listing) {
  for (const TreeEntry& link : listing.links)
    if (link.IsSymbolicLink()) IsSymbolicLink(link.path.c_str());
}

int List(const std::u16string& folder, TreeListing& listing, const EnterFolder& mayEnter = {}) try {
  listing = {};
  if (folder.empty()) return 0;
  const std::u16string root = ReachablePath(folder);
  const std::optional<TreeEntry> read = RootEntry(root);
  if (!read) return 0;
  const TreeEntry& entry = *read;
  // The record decides together with IsJunction, which cannot read a junction that somebody holds open.
  const bool isJunction = entry.IsJunction() || (entry.IsReparsePoint() && ::IsJunction(root.c_str()));
  if (entry.IsSymbolicLink() || (isJunction && !IsVolumeMountPoint(root.c_str()))) {
    listing.entries.push_back(entry);
    listing.links.push_back(entry);
    return 1;
  }
  // Not even when it is asked for by its own name: whoever moves it must be told that it is not to be moved.
  if (IsSystemFolderName(LastComponent(WithoutTrailingBackslash(folder)))) {
    listing.systemFolders.push_back(root);
    return 1;
  }
  return ListFolder(root, listing, mayEnter) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

}  // namespace

int GetFileList(const std::u16string& folder, TreeListing& listing) { return GetFileList(folder, listing, nullptr); }

int GetFileList(const std::u16string& folder, TreeListing& listing, const EnterFolder& enter) {
  const int listed = List(folder, listing, enter);
  LogLinks(listing);
  return listed;
}

bool IsEmptyFolder(const std::u16string& folder) {
  TreeListing listing;
  return GetFileList(folder, listing) && listing.entries.empty() && listing.systemFolders.empty();
}

const TreeListing* FolderTree::Get() const {
  if (state_ == State::NotRead) state_ = path_ && List(path_, listing_) ? State::Read : State::Failed;
  return state_ == State::Read ? &listing_ : nullptr;
}

const TreeListing* FolderTree::GetAndLog() const {
  const TreeListing* const listing = Get();
  if (listing) LogLinks(*listing);
  return listing;
}
