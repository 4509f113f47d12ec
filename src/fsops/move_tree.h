// The move of a tree's contents: copy, empty the source, and take everything back when that fails.
//
// After a failure each file exists complete at its old place or, where it could not be brought back, at its new one,
// and the log names those.
#pragma once

#include <string>

#include "fsops/copy_tree.h"

// Moves everything below `source` into `target`, which exists. 1 when all was copied and the source is empty.
int MoveDirectoryTree(const std::u16string& source, const std::u16string& target, int useBackupCopy, int moveShares,
                      int copyOnly, int keepInheritedAces);

// The same for a caller who may have to take a successful move back. targetIsNew: the caller has just made `target`, so
// with useBackupCopy it also gets the descriptor, streams, attributes and times of `source` itself.
int MoveDirectoryTree(const std::u16string& source, const std::u16string& target, int useBackupCopy, int moveShares,
                      int copyOnly, int keepInheritedAces, int targetIsNew, CopyRecord& record);

// Takes back a move (a successful one included): what is missing at the source is copied back, links get their old
// reparse data, and what the move made in the target is removed - except what could not be brought back, which the log
// names. What stood in the target before the move stays. 1 when everything is back. The source must be an ordinary
// folder, or gone.
int UndoMove(const CopyRecord& record);

// Removes from the target what a copy made there: links, files, then the directories that are empty. 0 when some
// stayed.
int RemoveCopiedItems(const CopyRecord& record);
