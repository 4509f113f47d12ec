// The copy of a whole tree.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fsops/file_facts.h"
#include "fsops/file_list.h"
#include "fsops/saved_items.h"
#include "fsops/shares.h"
#include "links/link_data.h"

struct CopyFlags {
  bool useBackupCopy = false;  // items keep security, streams, times; else CreateDirectoryW and CopyFileExW
  bool moveShares = false;     // shares on copied folders move to the copies; else they are only deleted
  // A junction made again at the target is taken off at the source, which will be emptied: what its folders and links
  // have of their own is saved first.
  bool removeSourceLinks = false;
  bool continueOnError = false;  // go on after a failed item, and never overwrite a file
  bool copyOnly = false;         // links keep their text; with moveShares, shares are left alone
  bool allowInheritance = false;
  bool keepInheritedAces = false;
  // Without useBackupCopy: folders that the copy makes get the access lists of theirs, as CopyDacl carries them.
  bool folderAccessLists = false;
  // The target's root was made for this copy: with useBackupCopy it also gets the source root's descriptor, streams,
  // attributes and times. With keepInheritedAces it gets the source root's DACL in any case, all entries as its own,
  // and is protected against the folder above.
  bool carryRoot = false;
  // Folders of Windows ("$RECYCLE.BIN", ...) in the source are never copied; a copy that is to become a move fails at
  // once.
  bool refuseSystemFolders = false;
};

// One item that a copy made or overwrote.
struct CopiedItem {
  TreeEntry source;
  std::u16string target;
  bool created = false;     // nothing stood there before
  bool becameLink = false;  // an empty folder stood there and was made the junction
  bool complete = false;    // all of it arrived
  bool saved = false;       // of a file: `before` is to be given back to it
  bool deleted = false;     // the move then deleted it at the source
  // Of a file that a move will delete: what its copy holds, and what that has told of it.
  std::optional<FileVersion> version = std::nullopt;
  SavedItems::Item before = {};
};

// What a tree copy did. It is what every roll-back goes by: nothing but what is named here is taken away again, so that
// what stood in the target before is safe. Can be moved, not copied.
struct CopyRecord {
  std::u16string sourceRoot;
  std::u16string targetRoot;
  CopyFlags flags;
  std::vector<CopiedItem> items;  // in the order of the copy: a directory before its contents
  std::vector<SavedLink> links;
  SavedItems source;  // what a move will have to give back to the source's folders and links
  // Folders and links that stood at the target, and what inherits from those folders, as they were.
  SavedItems stood;
  std::vector<SavedLink> stoodLinks;
  std::vector<DeletedShare> deletedShares;
  std::vector<std::u16string> addedShares;  // names
};

// Not the whole source, but just these entries of it. Their shares are left alone.
struct CopySelection {
  const TreeListing& listing;
  bool bringsBack = false;  // to the tree that they came from: folders that are still there are left as they are
};

// Copies what is below sourceRoot into targetRoot (both may be volume paths). 1 on success; with continueOnError also
// when items failed. Nothing is taken back on failure; `record`, empty before, says what was done. Shows how far it is,
// and fails when the command is to end (IsStopRequested), unless it brings a tree back.
//
// An item whose access list cannot be read is not copied with useBackupCopy: nobody could tell to whom the copy is
// open.
int CopyFiles(const std::u16string& sourceRoot, const std::u16string& targetRoot, const CopyFlags& flags,
              CopyRecord& record, const std::optional<CopySelection>& selection = std::nullopt);
