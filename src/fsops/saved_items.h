// What the items of a tree were like before a run changed them, to give it back when the run fails.
#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_set>

#include "fsops/backup_copy.h"
#include "fsops/folder_itself.h"
#include "win32/constants.h"

// Can be moved, not copied.
class SavedItems {
 public:
  SavedItems() = default;
  SavedItems(SavedItems&&) = default;
  SavedItems& operator=(SavedItems&&) = default;

  // A folder, or a link itself: all that it has of its own. The first time counts.
  // These answer false, with a line in the log, when something cannot be read.
  bool SaveFolder(const std::u16string& folder);
  // A file: owner, group, access list, audit entries, attributes and times.
  bool SaveFile(const std::u16string& file);
  // The file has stayed as it is: nothing is given back to it.
  void Forget(const std::u16string& file) { items_.erase(file); }
  // Of everything below a folder, which is not entered by links: owner, group, access list and audit entries.
  bool SaveDescriptorsBelow(const std::u16string& folder);

  // A file or what is only the descriptor of an item (then the attributes are INVALID_FILE_ATTRIBUTES).
  struct Item {
    const FolderDescriptor* descriptor = nullptr;
    win32::DWORD attributes = win32::INVALID_FILE_ATTRIBUTES;  // not saved
    win32::FILETIME creation{}, lastAccess{}, lastWrite{};
  };
  // What a copy has told of its file, for who keeps that himself: there are many files, and he has their paths. The
  // descriptor is here; null when not all was told.
  Item Keep(const CopiedSource& told);

  // Null when that folder was not saved.
  const SavedFolder* Find(const std::u16string& folder) const;
  const std::map<std::u16string, SavedFolder>& folders() const { return folders_; }

  using Paths = std::set<std::u16string>;
  // Gives back to each item that is there what it had; those of `except` are left as they are. The log names each for
  // which that could not be done.
  void PutBack(const Paths& except = {}) const;
  // The same with a file that was kept.
  static void PutBackFile(const std::u16string& path, const Item& item);

 private:
  struct DescriptorHash {
    std::size_t operator()(const FolderDescriptor& descriptor) const;
  };
  static Item ItemOf(const win32::BY_HANDLE_FILE_INFORMATION& information, const FolderDescriptor* descriptor);
  bool SaveDescriptor(const std::u16string& item);
  static bool PutBack(const std::u16string& path, const Item& item);

  std::map<std::u16string, SavedFolder> folders_;
  // Most items of a tree have one of a few descriptors.
  std::unordered_set<FolderDescriptor, DescriptorHash> descriptors_;
  std::map<std::u16string, Item> items_;
};
