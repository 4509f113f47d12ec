// Items of a tree that keep administrators out, opened to them for a while: an entry that lets them in stands in front
// of their own. Nobody else is let in, and what lies below inherits nothing of it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fsops/descriptor.h"
#include "fsops/file_list.h"

class OpenedItems {
 public:
  OpenedItems() = default;
  OpenedItems(const OpenedItems&) = delete;
  OpenedItems& operator=(const OpenedItems&) = delete;

  // GetFileList, and every file and folder in it, `root` included, is open to administrators; links are left alone. A
  // folder that could not be opened is in the list without its contents, and the log names it. False: no list.
  bool List(const std::u16string& root, TreeListing& listing);
  // Every folder could be opened, and is listed whole.
  bool IsWhole() const { return whole_; }

  // Writes each item's own descriptor to where the item is now, as `where` says (empty: nowhere), if something is
  // there. A failure has its line in the log.
  using Place = std::function<std::u16string(const std::u16string& path, bool isFolder)>;
  void GiveBack(const Place& where) const;

 private:
  bool Open(const std::u16string& path, bool isFolder);

  struct Item {
    std::u16string path;
    FolderDescriptor descriptor;
    bool isFolder = false;
  };
  std::vector<Item> items_;
  bool whole_ = true;
};
