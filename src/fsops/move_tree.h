// The move of a tree's contents: copy, empty the source, and take everything back when that fails.
//
// After a failure each file exists complete at its old place or, where it could not be brought back, at its new one,
// and the log names those.
#pragma once

#include <string>

#include "fsops/carried_along.h"
#include "fsops/copy_tree.h"

struct MoveFlags {
  CarriedAlong carried = {};
  bool copyOnly = false;           // as of a copy
  bool keepInheritedAces = false;  // as of a copy
  // The caller has just made the target: with ntfsPermissions it also gets the descriptor, streams, attributes and
  // times of the source itself.
  bool targetIsNew = false;
};

enum class MoveOutcome {
  NothingDone,  // the source was not touched, and nothing of the move is left at the target
  Undone,       // the source is as it was again
  Split,        // items may be at either place, or copies could not be removed from the target; the log names them
  Moved,
};

// What a move did, for a caller who may have to take it back.
struct MoveRecord : CopyRecord {
  MoveOutcome outcome = MoveOutcome::NothingDone;
};

// Moves everything below `source` into `target`, which exists. 1 when all was copied and the source is empty (the log
// names each folder there whose access list was replaced); else 0, and the record's outcome says how the two were left.
int MoveDirectoryTree(const std::u16string& source, const std::u16string& target, const MoveFlags& flags,
                      MoveRecord& record);

// Takes back a move (a successful one included): what is missing at the source is copied back, links get their old
// reparse data, and what the move made in the target is removed - except what could not be brought back, which the log
// names. What stood in the target before the move stays, its folders as they were. All that is back has the security,
// streams, attributes and times that it had. 1 when everything is back. The source must be an ordinary folder, or gone.
int UndoMove(MoveRecord& record);

// For a command that an exception ends: the log says where the contents are.
void LogWhereContentsAre(const MoveRecord& record) noexcept;

// Removes from the target what a copy made there: links, files, then the directories that are empty. Folders that stood
// there are as they were again. 0 when some stayed.
int RemoveCopiedItems(const CopyRecord& record);

// For a copy that is there to stay: the log names each folder that stood in the target and has another access list now.
// Strangers' items in it inherit from that. (A move tells it itself.)
void TellReplacedAccessLists(const CopyRecord& record);
