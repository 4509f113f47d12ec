// Renames and deletions that wait for the next start of Windows.
#pragma once

#include "win32/constants.h"

namespace emulated {

// Notes the rename of `from` to `to` (null: the deletion of `from`) in SYSTEM\CurrentControlSet\Control\Session
// Manager, value PendingFileRenameOperations: what MoveFileExW does with MOVEFILE_DELAY_UNTIL_REBOOT. `flags` are
// MOVEFILE_*; with MOVEFILE_REPLACE_EXISTING the rename takes the place of a file. 0, 2 or 3 when `from` is not there,
// 5 when the caller is no administrator, 87 for MOVEFILE_COPY_ALLOWED.
win32::DWORD RegisterDelayedRename(const char16_t* from, const char16_t* to, win32::DWORD flags);

}  // namespace emulated
