#include "fsops/move_tree.h"

#include <exception>
#include <optional>
#include <set>

#include "fsops/backwards.h"
#include "fsops/delete_tree.h"
#include "fsops/file_list.h"
#include "links/junction.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/progress.h"
#include "report/stop_request.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

using PathSet = std::set<std::u16string>;

void LogNotDeleted(const std::u16string& path) {
  Log(u"ERROR: An exception occurred while trying to delete directory path = %ls.", path);
}

TreeEntry EntryAt(const std::u16string& path, const TreeEntry& original) {
  return {path, original.attributes, original.reparseTag, original.size};
}

// Paths that stay, and the folders that hold them, however each is written: one of 260 characters begins with "\\?\",
// and the folder above it need not.
class PathsThatStay {
 public:
  void Add(std::u16string_view path) {
    std::u16string folder(WithoutExtendedPrefix(path));
    while (!folder.empty() && paths_.insert(folder).second) folder = ParentPath(folder);
  }
  bool Contain(std::u16string_view path) const { return paths_.contains(std::u16string(WithoutExtendedPrefix(path))); }

 private:
  PathSet paths_;
};

// Takes away what a copy made of the item. That Windows does not tell whether it is there is no sign that it is gone.
bool TakeAway(const CopiedItem& item) {
  const Look look = LookAt(item.target);
  if (look.IsGone()) return true;
  // By the attribute: IsJunction cannot read one that somebody holds open.
  if (item.becameLink) return (look.IsThere() && !look.IsReparsePoint()) || DeleteJunction(item.target.c_str());
  return !item.created || DeleteEntry(EntryAt(item.target, item.source));
}

// Removes what a copy made at the target, the last first, except the paths of `keep` and the folders that hold them.
// What stood there is then as it was. The folders above one that cannot be removed are not tried: each would be waited
// for, and none would be empty.
bool RemoveCopied(const CopyRecord& record, const PathSet& keep) {
  PathsThatStay staying;
  for (const std::u16string& path : keep) staying.Add(path);
  bool all = true;
  for (const CopiedItem& item : Backwards(record.items)) {
    if (staying.Contain(item.target) || TakeAway(item)) continue;
    staying.Add(item.target);
    all = false;
  }
  for (const SavedLink& link : record.stoodLinks)
    if (!keep.contains(link.source) && !RestoreLink(link)) {
      Log(u"#ERROR: Unable to restore link %ls.", link.source);
      all = false;
    }
  record.stood.PutBack(keep);
  return all;
}

// The links whose reparse point was taken off at the source while they were copied, or that were made again there with
// another text. Those that cannot be made again stay at the target and go into `keep`.
bool RestoreLinks(const CopyRecord& record, PathSet& keep) {
  bool all = true;
  for (const SavedLink& link : record.links) {
    if (RestoreLink(link)) {
      keep.erase(link.target);
      continue;
    }
    // Its old text could not even be read, so no other was written there. (A link with another text stays at both
    // places: it may lead to where nothing will be any more.)
    if (link.reparseData.empty() && IsReparsePoint(link.source)) continue;
    Log(u"#ERROR: Unable to restore link %ls. It stays at %ls.", link.source, link.target);
    keep.insert(link.target);
    all = false;
  }
  return all;
}

void DeleteSharesOf(const std::u16string& folder, CopyRecord& record) {
  const ShareList shares = ShareList::Read();
  for (const win32::SHARE_INFO_502* share : shares.FindByPath(folder))
    if (DeleteShare(*share)) record.deletedShares.push_back({shares, share});
}

// Is it still what was copied? Whoever writes to a file, or puts something in its place, after its copy has it nowhere
// else; a folder that has become a link leads to what is not in this tree. (Links are away already, or empty.)
bool IsAsCopied(const CopiedItem& item) {
  const TreeEntry& source = item.source;
  if (source.IsLink()) return true;
  if (source.IsDirectory()) {
    if (source.IsReparsePoint() || LookAt(source.path).IsPlainDirectory()) return true;
  } else if (const std::optional<FileVersion> now = VersionOf(source.path); now && now == item.version) {
    return true;
  }
  return LogFailure(u"#ERROR: %ls is not deleted: it is not what was copied any more, or that cannot be told.",
                    source.path);
}

// Deletes just what was copied: an item that came in the meantime, or was passed over, is in no other place.
bool EmptySource(CopyRecord& record) try {
  // What lies behind a link that a folder has become is not of this tree: its files would go before the folder.
  for (const CopiedItem& item : record.items)
    if (item.complete && item.source.IsDirectory() && !IsAsCopied(item)) return false;
  Progress progress(ProgressOf::Deleting, {record.items.size(), 0});
  for (CopiedItem& item : Backwards(record.items)) {
    if (IsStopRequested()) return false;
    progress.ItemDone(0);
    if (!item.complete) continue;
    // Of folders and links it was saved before.
    const bool isFile = !item.source.IsDirectory() && !item.source.IsLink();
    if (!IsAsCopied(item)) return false;
    item.saved = isFile && item.before.descriptor;
    if (isFile && !item.saved && !record.source.SaveFile(item.source.path)) return false;
    if (!DeleteEntry(item.source)) {
      item.saved = false;  // it stays, with all that somebody has changed of it
      record.source.Forget(item.source.path);
      return false;
    }
    item.deleted = true;
  }
  TreeListing left;
  if (!GetFileList(record.sourceRoot, left)) return false;
  const bool rootOfVolume = IsVolumeMountPoint(record.sourceRoot.c_str()) != 0;  // where Windows keeps its own folders
  return left.entries.empty() && (left.systemFolders.empty() || rootOfVolume);
} catch (const std::exception&) {
  return false;  // what was deleted is noted
}

// What a move copied, as a listing of the target.
TreeListing CopiedListing(const CopyRecord& record) {
  TreeListing listing;
  for (const CopiedItem& item : record.items) {
    if (!item.complete) continue;
    listing.entries.push_back(EntryAt(item.target, item.source));
    if (item.source.IsLink()) listing.links.push_back(listing.entries.back());
  }
  return listing;
}

// The items of the move that are not complete at the source again; the log names each. A file of which only a part was
// brought back is taken away again, so that nobody takes it for the whole. For an item that was deleted it is not
// enough that something stands in its place: somebody may have put it there since.
PathSet NotBroughtBack(const CopyRecord& move, const CopyRecord& back) {
  PathSet incomplete, broughtBack;
  for (const CopiedItem& item : Backwards(back.items))
    if (!item.complete) {
      incomplete.insert(item.source.path);
      if (item.created && !IsGone(item.target)) DeleteEntry(EntryAt(item.target, item.source));
    } else {
      broughtBack.insert(item.source.path);
    }
  PathSet missing;
  for (const CopiedItem& item : move.items)
    if (item.complete && (incomplete.contains(item.target) || IsGone(item.source.path) ||
                          (item.deleted && !broughtBack.contains(item.target)))) {
      Log(u"#ERROR: Unable to move %ls back. It stays at %ls.", item.source.path, item.target);
      missing.insert(item.target);
    }
  return missing;
}

// The source's root may be gone: a junction that could not be made takes the empty folder with it. False without a
// root.
bool MakeSourceRoot(const MoveRecord& record) {
  if (LookAt(record.sourceRoot).IsThere()) return true;
  if (!win32::CreateDirectoryW(record.sourceRoot.c_str(), nullptr))
    return win32::GetLastError() == win32::ERROR_ALREADY_EXISTS;  // only the question had failed
  if (const SavedFolder* const root = record.source.Find(record.sourceRoot)) root->Restore();
  return true;
}

// What is back has all that it had, and so has what came back only in part and could not be removed. Anything else in
// the place of an item that stays at the target is somebody else's.
void PutSourceBack(const CopyRecord& move, const CopyRecord& back, const PathSet& keep) {
  PathSet others;
  for (const CopiedItem& item : move.items)
    if (keep.contains(item.target)) others.insert(item.source.path);
  for (const CopiedItem& item : back.items)
    if (item.created) others.erase(item.target);
  for (const CopiedItem& item : move.items)
    if (item.saved && !others.contains(item.source.path)) SavedItems::PutBackFile(item.source.path, item.before);
  move.source.PutBack(others);
}

}  // namespace

void TellReplacedAccessLists(const CopyRecord& record) try {
  for (const auto& [folder, before] : record.stood.folders()) {
    SavedFolder now;
    if (!record.flags.useBackupCopy || folder == record.targetRoot || !LookAt(folder).IsPlainDirectory() ||
        !now.Save(folder) || HaveSameDacl(before.descriptor(), now.descriptor()))
      continue;
    Log(u"#INFO: The folder %ls was there already. Its access list was replaced by that of the folder that was merged "
        u"into it.",
        folder);
  }
} catch (const std::exception&) {
}

int RemoveCopiedItems(const CopyRecord& record) try {
  return RemoveCopied(record, {}) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int UndoMove(MoveRecord& record) try {
  record.outcome = MoveOutcome::Split;
  const CopyFlags flags{.useBackupCopy = record.flags.useBackupCopy,
                        .moveShares = record.flags.moveShares,
                        .removeSourceLinks = true,
                        .continueOnError = true,
                        .allowInheritance = true};
  const TreeListing copied = CopiedListing(record);
  CopyRecord back;
  if (!MakeSourceRoot(record) || !CopyFiles(record.targetRoot, record.sourceRoot, flags, back,
                                            CopySelection{.listing = copied, .bringsBack = true})) {
    Log(u"#ERROR: Unable to move files and folders back to %ls. They stay at %ls.", record.sourceRoot,
        record.targetRoot);
    return 0;
  }
  PathSet keep = NotBroughtBack(record, back);
  RestoreLinks(record, keep);
  const bool removed = RemoveCopied(record, keep);
  PutSourceBack(record, back, keep);
  if (!removed) LogNotDeleted(record.targetRoot);
  for (const std::u16string& name : record.addedShares) DeleteShare(name);
  for (const DeletedShare& deleted : record.deletedShares) AddShareAgain(*deleted.share);
  if (!removed || !keep.empty()) return 0;
  record.outcome = MoveOutcome::Undone;
  return 1;
} catch (const std::exception&) {
  LogWhereContentsAre(record);
  return 0;
}

int MoveDirectoryTree(const std::u16string& source, const std::u16string& target, const MoveFlags& flags,
                      MoveRecord& record) try {
  record = {};
  record.outcome = MoveOutcome::Split;
  if (!CopyFiles(source, target,
                 {.useBackupCopy = flags.carried.ntfsPermissions,
                  .moveShares = flags.carried.shares,
                  .removeSourceLinks = true,
                  .copyOnly = flags.copyOnly,
                  .allowInheritance = true,
                  .keepInheritedAces = flags.keepInheritedAces,
                  .carryRoot = flags.targetIsNew,
                  .refuseSystemFolders = true},
                 record)) {
    PathSet keep;
    const bool linksRestored = RestoreLinks(record, keep);
    const bool removed = RemoveCopied(record, keep);
    PutSourceBack(record, {}, keep);
    if (removed && linksRestored)
      record.outcome = MoveOutcome::NothingDone;
    else
      LogNotDeleted(target);
    return 0;
  }
  if (!flags.carried.shares) DeleteSharesOf(record.sourceRoot, record);
  if (IsSymbolicLink(source.c_str())) {  // nothing behind it was copied
    record.outcome = MoveOutcome::NothingDone;
    return 0;
  }
  if (EmptySource(record)) {
    record.outcome = MoveOutcome::Moved;
    TellReplacedAccessLists(record);
    return 1;
  }
  LogNotDeleted(source);
  UndoMove(record);
  return 0;
} catch (const std::exception&) {
  LogWhereContentsAre(record);
  return 0;
}

void LogWhereContentsAre(const MoveRecord& record) noexcept {
  switch (record.outcome) {
    case MoveOutcome::NothingDone:
    case MoveOutcome::Undone:
      if (record.sourceRoot.empty())
        Log(u"#ERROR: The command could not go on. No file and no folder has been moved.");
      else
        Log(u"#ERROR: The command could not go on. The files and folders are in %ls.", record.sourceRoot);
      break;
    case MoveOutcome::Split:
    case MoveOutcome::Moved:
      Log(u"#ERROR: The command could not go on. The files and folders are in %ls, in %ls, or partly in both.",
          record.targetRoot, record.sourceRoot);
      break;
  }
}
