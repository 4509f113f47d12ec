// The scan of a source tree before it is moved.
#pragma once

#include "fsops/file_list.h"

struct PreScanOptions {
  bool checkLocks = false;        // also ask which items processes hold open
  bool allowSpecialCase = false;  // folders that fail a test are let through
};
// Examines every item below `source`: may the user read it, and does nobody else use it? 1 when every item passed. Each
// item that did not has its lines in the log. `target` may be null.
int PreScanSource(const FolderTree& source, const char16_t* target, const PreScanOptions& options);

struct LockedPaths;
// The examination itself, against paths that are known to be locked (null: nobody was asked).
int PreScanListing(const TreeListing& listing, const LockedPaths* locked, bool allowSpecialCase);
