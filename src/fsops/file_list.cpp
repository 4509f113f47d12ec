#include "fsops/file_list.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "links/mounted_folder.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

std::uint64_t TreeListing::TotalSize() const {
  std::uint64_t total = 0;
  for (const TreeEntry& entry : entries) total += entry.size;
  return total;
}

namespace {

void PutShortNames(bool first, std::vector<TreeEntry>& entries) {
  const auto mayBeShort = [](const TreeEntry& entry) {
    const std::u16string_view path = entry.path;
    return MayBeShortName(path.substr(path.rfind(u'\\') + 1));
  };
  if (std::ranges::none_of(entries, mayBeShort)) return;
  // An entry's key is its place in the listing behind the places of the folders that it is in.
  using Key = std::vector<std::size_t>;
  std::map<std::u16string, Key, std::less<>> folders;
  std::vector<std::pair<Key, TreeEntry>> sorted;
  for (TreeEntry& entry : entries) {
    const std::u16string_view path = WithoutExtendedPrefix(entry.path);
    const auto folder = folders.find(path.substr(0, path.rfind(u'\\')));
    Key key = folder == folders.end() ? Key{} : folder->second;
    key.push_back(sorted.size() + (mayBeShort(entry) == first ? 0 : entries.size()));
    if (entry.IsDirectory()) folders.emplace(std::u16string(path), key);
    sorted.emplace_back(std::move(key), std::move(entry));
  }
  std::ranges::sort(sorted, {}, &std::pair<Key, TreeEntry>::first);
  for (std::size_t at = 0; at < entries.size(); ++at) entries[at] = std::move(sorted[at].second);
}

}  // namespace

void PutShortNamesFirst(std::vector<TreeEntry>& entries) { PutShortNames(true, entries); }
void PutShortNamesLast(std::vector<TreeEntry>& entries) { PutShortNames(false, entries); }

bool IsSystemFolderName(std::u16string_view name) {
  return EqualPaths(name, u"$RECYCLE.BIN") || EqualPaths(name, u"System Volume Information");
}

namespace {

// The form in which every call reaches the item. The plain form ends at 259 characters, it loses a dot or blank at the
// end of a name, and it takes some names for devices. A path under a "\\?\" one keeps the prefix, so the copy and the
// deletion name the same items.
std::u16string ReachablePath(std::u16string path) {
  const bool plainFormReaches =
      path.size() < win32::MAX_PATH && path.back() != u'.' && path.back() != u' ' && !IsDeviceName(LastComponent(path));
  return plainFormReaches ? path : WithExtendedPrefix(path);
}

TreeEntry EntryOf(std::u16string path, const win32::WIN32_FIND_DATAW& found) {
  TreeEntry entry;
  entry.path = std::move(path);
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
  TreeEntry entry = EntryOf(ReachablePath(JoinPath(folder.path, name)), folder.found);
  if (entry.IsDirectory() && !entry.IsLink() && IsSystemFolderName(name)) {
    listing.systemFolders.push_back(std::move(entry.path));
    return std::nullopt;
  }
  if (entry.IsLink()) listing.links.push_back(entry);
  const bool isEntered = entry.IsDirectory() && !entry.IsLink() && !entry.LivesElsewhere();
  auto entered = isEntered ? std::optional(entry.path) : std::nullopt;
  listing.entries.push_back(std::move(entry));
  return entered;
}

// The error is that of the last call.
bool IsUnreadable(const std::u16string& folder, TreeListing& listing) {
  listing.error = win32::GetLastError();
  listing.unreadable = folder;
  return false;
}

// Depth first, in the order in which the file system names the entries. Not recursive: a tree may be thousands deep.
bool ListFolder(const std::u16string& root, TreeListing& listing, const EnterFolder& mayEnter) {
  std::vector<OpenFolder> open(1);
  if (mayEnter && !mayEnter(root)) return true;
  if (!Open(root, open.back())) return IsUnreadable(root, listing);
  while (!open.empty()) {
    if (!open.back().hasEntry) {
      open.pop_back();
      continue;
    }
    const std::optional<std::u16string> enter = TakeEntry(open.back(), listing);
    if (!Advance(open.back())) return IsUnreadable(open.back().path, listing);
    if (!enter || (mayEnter && !mayEnter(*enter))) continue;
    if (!Open(*enter, open.emplace_back())) return IsUnreadable(*enter, listing);
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
  std::u16string name = folder;
  while (!name.empty() && name.back() == u'\\') name.pop_back();
  win32::WIN32_FIND_DATAW found{};
  if (IsVolumeRoot(name)) return EntryOf(folder, found);
  const win32::UniqueFind find{win32::FindFirstFileW(name.c_str(), &found)};
  if (!find) return std::nullopt;
  return EntryOf(folder, found);
}

// Tells the log of every symbolic link in the listing, and of what kept it from being read.
void LogListing(const TreeListing& listing) {
  if (!listing.unreadable.empty()) {
    win32::SetLastError(listing.error);
    LogWithSystemError(u"#ERROR: Unable to list the folder %ls. ", listing.unreadable);
  }
  for (const TreeEntry& link : listing.links)
    if (link.IsSymbolicLink()) IsSymbolicLink(link.path.c_str());
}

int List(const std::u16string& folder, TreeListing& listing, const EnterFolder& mayEnter = {}) try {
  listing = {};
  if (folder.empty()) return 0;
  const std::u16string root = ReachablePath(folder);
  const std::optional<TreeEntry> read = RootEntry(root);
  if (!read) return IsUnreadable(root, listing);
  const TreeEntry& entry = *read;
  // The record decides together with IsJunction, which cannot read a junction that somebody holds open.
  const bool isJunction = entry.IsJunction() || (entry.IsReparsePoint() && ::IsJunction(root.c_str()));
  if (entry.IsSymbolicLink() || (isJunction && !IsVolumeMountPoint(root.c_str()))) {
    listing.entries.push_back(entry);
    listing.links.push_back(entry);
    return 1;
  }
  if (entry.LivesElsewhere()) {
    listing.entries.push_back(entry);
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
  LogListing(listing);
  return listed;
}

bool HasItsContents(const TreeEntry& entry) {
  if (!entry.LivesElsewhere()) return true;
  return LogFailure(
      u"#ERROR: %ls - Its contents are kept elsewhere (reparse tag 0x%08X), by a cloud service, deduplication or a "
      u"storage tier. Bring them back to this disk and try again.",
      entry.path, entry.reparseTag);
}

bool HasItsContents(const std::u16string& path) {
  const std::optional<TreeEntry> entry = RootEntry(path);
  return !entry || HasItsContents(*entry);
}

bool HasAllContents(const TreeListing& listing) {
  bool all = true;
  for (const TreeEntry& entry : listing.entries)
    if (!HasItsContents(entry)) all = false;
  return all;
}

bool IsEmptyFolder(const std::u16string& folder) {
  TreeListing listing;
  return List(folder, listing) && listing.entries.empty() && listing.systemFolders.empty();
}

const TreeListing* FolderTree::Get() const {
  if (state_ == State::NotRead) state_ = path_ && List(path_, listing_) ? State::Read : State::Failed;
  return state_ == State::Read ? &listing_ : nullptr;
}

const TreeListing* FolderTree::GetAndLog() const {
  const TreeListing* const listing = Get();
  LogListing(listing_);
  return listing;
}
