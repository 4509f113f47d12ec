// The deletion of a tree's contents. Links are removed as links, mounted volumes are unmounted; neither is entered.
#pragma once

#include <vector>

#include "fsops/file_list.h"

struct DeleteOptions {
  // Read-only items go too, a directory that is not empty yet is tried again once after five seconds, and the first
  // item that cannot be deleted ends the run with 0. Else what cannot be deleted is left, and the answer is still 1.
  bool stopOnFailure = false;
};
// Deletes everything below `root`; one that is a link or a mounted volume is itself removed or unmounted. 0 for a root
// that is not there or cannot be listed.
int DeleteDirectoryTree(const char16_t* root, const DeleteOptions& options = {});

// Has every item below `root` deleted at the next restart. 0 when one could not be registered.
int DeleteDirectoryTreeAtReboot(const char16_t* root);
// The same for the entries of a listing. Windows then passes over a folder that is not empty.
int DeleteEntriesAtReboot(const std::vector<TreeEntry>& entries);

// Deletes one file, link or empty directory, read-only or not, as stopOnFailure does. 0 when it cannot.
int DeleteEntry(const TreeEntry& entry);
