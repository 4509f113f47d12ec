// The deletion of a tree's contents. Links are removed as links, mounted volumes are unmounted; neither is entered.
#pragma once

#include <string>
#include <vector>

#include "fsops/file_list.h"

// Deletes everything below `root`. stopOnFailure 0: what cannot be deleted is left, the answer is still 1. Otherwise
// read-only items go too, a directory that is not empty yet is tried again once after five seconds, and the first item
// that cannot be deleted ends the run with 0. A root that is a link or a mounted volume is itself removed or unmounted.
int DeleteDirectoryTree(const char16_t* root, int stopOnFailure);

// Has every item below `root` deleted at the next restart. 0 when one could not be registered.
int DeleteDirectoryTreeAtReboot(const char16_t* root);

// The same for the entries of a listing. Windows then passes over a folder that is not empty.
int DeleteEntriesAtReboot(const std::vector<TreeEntry>& entries);

// Deletes the entries of a listing, the last first, as DeleteDirectoryTree does.
int DeleteEntries(const std::vector<TreeEntry>& entries, int stopOnFailure);
// Deletes one file, link or empty directory, read-only or not, as stopOnFailure does. 0 when it cannot.
int DeleteEntry(const TreeEntry& entry);
