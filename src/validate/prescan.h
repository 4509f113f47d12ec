// The scan of a source tree before it is moved.
#pragma once

#include "fsops/file_list.h"

// Examines every item below `source`: may the user read it, and does nobody else use it? 1 when every item passed. Each
// item that did not has its lines in the log. `target` may be null. checkLocks: also ask which items processes hold
// open. allowSpecialCase: folders that fail a test are let through.
int PreScanSource(const char16_t* source, const char16_t* target, int checkLocks, int allowSpecialCase);

// The same on a listing of the source that was made before (null: it could not be made).
int PreScanListing(const char16_t* source, const char16_t* target, const TreeListing* listing, int checkLocks,
                   int allowSpecialCase);

struct LockedPaths;
// The examination itself, against paths that are known to be locked (null: nobody was asked).
int PreScanListing(const TreeListing& listing, const LockedPaths* locked, int allowSpecialCase);
