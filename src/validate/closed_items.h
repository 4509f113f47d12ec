// The listing of a tree in which an administrator may not read everything.
#pragma once

#include "fsops/file_list.h"
#include "fsops/security.h"

// GetFileList for a tree that an administrator moves, whoever it belongs to. Every item - links themselves included -
// that `token` may not read & execute has its descriptor saved and is opened up. So that nothing is lost, what lies
// below such a folder is saved, too, and every link: a copy does not bring along all that a link's descriptor says. 0
// also when a descriptor could not be saved, and for a file with several names (hard links), which would stay open
// under the others (logged). `saved` tells in any case what was opened so far.
int GetFileList(const std::u16string& folder, TreeListing& listing, win32::HANDLE token, SavedSecurityMap& saved);
