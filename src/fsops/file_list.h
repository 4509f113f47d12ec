// The listing of a tree: what validation examines, and what the copy and the deletion of a tree work through.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "links/junction.h"

// One file or folder of a tree, as the find record showed it.
struct TreeEntry {
  std::u16string path;  // full; begins with "\\?\" where the plain form could not be opened
  win32::DWORD attributes = 0;
  win32::DWORD reparseTag = 0;
  std::uint64_t size = 0;

  bool Has(win32::DWORD attribute) const { return (attributes & attribute) != 0; }
  bool IsDirectory() const { return Has(win32::FILE_ATTRIBUTE_DIRECTORY); }
  bool IsReparsePoint() const { return Has(win32::FILE_ATTRIBUTE_REPARSE_POINT); }  // links and every other tag
  bool IsEncrypted() const { return Has(win32::FILE_ATTRIBUTE_ENCRYPTED); }
  bool IsJunction() const { return IsDirectory() && IsJunctionRecord(attributes, reparseTag); }  // or a mounted volume
  bool IsSymbolicLink() const { return IsSymbolicLinkRecord(attributes, reparseTag); }
  bool IsLink() const { return IsJunction() || IsSymbolicLink(); }
  bool LivesElsewhere() const { return IsReparsePoint() && !IsWholeInItsStreams(reparseTag); }
};

// "$RECYCLE.BIN" or "System Volume Information".
bool IsSystemFolderName(std::u16string_view name);

struct TreeListing {
  std::vector<TreeEntry> entries;  // a directory before its contents; links are here too, never what lies behind them
  std::vector<TreeEntry> links;
  // The folders of such names that were met: they belong to Windows and are not in the listing.
  std::vector<std::u16string> systemFolders;
  // After a failure: the folder that could not be read to its end, and Windows' error.
  std::u16string unreadable;
  win32::DWORD error = win32::ERROR_SUCCESS;

  std::uint64_t TotalSize() const;  // bytes of the files' main streams
};

// Names that other items could get as their short ones come before what is beside them: where they are made first, the
// volume gives the others short names that are free. Or behind it: where they go last, none of the others takes one. A
// folder still comes before its contents.
void PutShortNamesFirst(std::vector<TreeEntry>& entries);
void PutShortNamesLast(std::vector<TreeEntry>& entries);

// Lists everything below `folder`, which itself is not in the list - unless it is a junction or a symbolic link: then
// it is the only entry. A mounted volume is entered when it is `folder`, and is a link below it. 0 when any folder
// could not be read to its end: the log names that folder, and the listing is not to be used then. A folder whose
// contents live elsewhere is listed and not entered, either.
int GetFileList(const std::u16string& folder, TreeListing& listing);
// The same; `enter` is asked before a folder is listed (`folder` is the first), and passes over what is in it with no.
using EnterFolder = std::function<bool(const std::u16string& path)>;
int GetFileList(const std::u16string& folder, TreeListing& listing, const EnterFolder& enter);

// False, and a line in the log, when the contents of the item (of any item of the listing) live elsewhere: a copy would
// be an empty shell. A path that leads to nothing is not what this refuses.
bool HasItsContents(const TreeEntry& entry);
bool HasItsContents(const std::u16string& path);
bool HasAllContents(const TreeListing& listing);

// Nothing at all is in the folder. False also when it cannot be listed, and for a link.
bool IsEmptyFolder(const std::u16string& folder);

// A folder by its path, and what is below it: that is listed when it is first asked for, and once, so the rules that
// are given the same FolderTree read the same listing. A path will do where only one of them is asked. The path's text
// is the caller's.
class FolderTree {
 public:
  FolderTree(const char16_t* path) : path_(path) {}
  const char16_t* path() const { return path_; }
  // Null when the tree cannot be listed. The log is told nothing of the links in it.
  const TreeListing* Get() const;
  // The same, and the log is told what GetFileList tells it.
  const TreeListing* GetAndLog() const;

 private:
  const char16_t* const path_;
  mutable TreeListing listing_;
  mutable enum class State { NotRead, Read, Failed } state_ = State::NotRead;
};
