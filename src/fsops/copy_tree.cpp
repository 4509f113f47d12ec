#include "fsops/copy_tree.h"

#include <exception>
#include <map>
#include <set>
#include <utility>

#include "fsops/backup_copy.h"
#include "fsops/copy_roots.h"
#include "fsops/copy_watch.h"
#include "fsops/delete_tree.h"
#include "fsops/security.h"
#include "fsops/target_names.h"
#include "links/junction.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/progress.h"
#include "report/stop_request.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// By the find record: IsJunction cannot read a junction that somebody holds open. Nothing when it is not told.
std::optional<bool> IsLinkAt(const std::u16string& path) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  if (!find) return std::nullopt;
  return IsJunctionRecord(found.dwFileAttributes, found.dwReserved0) ||
         IsSymbolicLinkRecord(found.dwFileAttributes, found.dwReserved0);
}

bool IsPlainFile(const TreeEntry& entry) {
  return !entry.IsDirectory() && !entry.IsReparsePoint() && !entry.IsEncrypted();
}

// A symbolic link that waited for the other links could find its name taken, as the short one of a file.
bool MustComeFirst(const TreeEntry& link) { return link.IsSymbolicLink() && MayBeShortName(LastComponent(link.path)); }

// Takes the read-only bit off a target that was there before, and gives it its attributes back at the end.
class TargetAttributes {
 public:
  TargetAttributes(const std::u16string& path, const Look& look) : path_(path), look_(look) {
    if (look_.Has(win32::FILE_ATTRIBUTE_READONLY))
      win32::SetFileAttributesW(path_.c_str(), look_.attributes & ~win32::FILE_ATTRIBUTE_READONLY);
  }
  ~TargetAttributes() {
    if (look_.IsThere()) win32::SetFileAttributesW(path_.c_str(), look_.attributes);
  }
  TargetAttributes(const TargetAttributes&) = delete;
  TargetAttributes& operator=(const TargetAttributes&) = delete;

 private:
  const std::u16string& path_;
  const Look look_;
};

// How the copy goes on after an item.
enum class Step { Next, Failed, Ended };
// Who has refused the copy of an item: Windows, by the last call's error, or the rules of this copy.
enum class Why { Windows, Ours };

class TreeCopy {
 public:
  TreeCopy(const CopyFlags& flags, CopyRecord& record, const std::optional<CopySelection>& selection)
      : flags_(flags), record_(record), selection_(selection), bringsBack_(selection && selection->bringsBack) {
    record_.flags = flags;
  }

  int Run(const std::u16string& sourceRoot, const std::u16string& targetRoot);

 private:
  bool SystemFoldersPermit(const TreeListing& listing) const;

  CopiedItem& AddItem(CopiedItem item);
  CopiedItem* FindLink(const TreeEntry& entry);
  Step CopyEntry(const TreeEntry& entry);
  bool SaveRoots();
  bool SaveSource(const TreeEntry& entry);
  bool SaveStanding(const TreeEntry& entry, const std::u16string& target, const Look& look);
  bool MayMerge(const TreeListing& listing) const;
  bool MayStandOn(const TreeEntry& entry, const std::u16string& target, const Look& look) const;
  bool MayReplace(const TreeEntry& link, const std::u16string& newLink, const Look& look) const;
  bool IsTaken(const TreeEntry& entry, const std::u16string& target, const Look& look) const;
  bool IsForAnother(const TreeEntry& entry, const std::u16string& target, const Look& look);
  bool CopyItem(const TreeEntry& entry, const std::u16string& target, const Look& look, CopiedSource& told);
  bool CopyWithoutBackup(const TreeEntry& entry, const std::u16string& target, const Look& look);
  CopyWatch WatchOf(const Look& target) { return {&*progress_, !bringsBack_ && target.IsGone()}; }
  // Not of a tree that is brought back.
  bool IsStopped() const { return !bringsBack_ && IsStopRequested(); }

  Step CopyLink(const TreeEntry& link);
  Step CopyMount(const TreeEntry& link, const std::u16string& newLink);
  bool PrepareSymbolicLink(const TreeEntry& link, const std::u16string& newLink, bool& skip);
  bool RecreateLink(const TreeEntry& link, const std::u16string& newLink) const;

  DaclCopy CarryDacl(const std::u16string& source, const std::u16string& target, bool allowInheritance) const;
  bool CarryRoot() const;
  bool CarryFolderTimes() const;
  void MoveShares();
  Step Failed(const TreeEntry& entry, const std::u16string& target, Why why = Why::Ours) const;

  const CopyFlags flags_;
  CopyRecord& record_;
  const std::optional<CopySelection> selection_;
  const bool bringsBack_;
  CopyRoots roots_;
  std::optional<Progress> progress_;
  bool copyFileDenied_ = false;  // the last CopyFileWatched
  ShareList shares_;
  TargetNames names_;
  std::set<std::u16string> takenFolders_;                   // source paths of those that could not come, with all below
  std::set<std::u16string> mergedFolders_;                  // of those whose copies stood there; all below is saved
  std::map<std::u16string, std::size_t> linkItems_;         // path of a link to its place among the items
  std::map<std::u16string, std::u16string> sharedFolders_;  // entry to target
  // An item of each folder that received something, with its target: its parents' times are brought in line at the end,
  // once for each folder instead of once for each item.
  std::map<std::u16string, std::pair<std::u16string, std::u16string>> changedFolders_;
};

Step TreeCopy::Failed(const TreeEntry& entry, const std::u16string& target, Why why) const {
  if (why == Why::Windows)
    LogWithSystemError(u"#ERROR: Unable to copy from Source = %ls to Target = %ls. ", entry.path, target);
  else
    Log(u"#ERROR: Unable to copy from Source = %ls to Target = %ls.", entry.path, target);
  return flags_.continueOnError ? Step::Next : Step::Failed;
}

// A folder of Windows keeps the folder that holds it from being emptied - except at the root of a volume, which is not
// to go.
bool TreeCopy::SystemFoldersPermit(const TreeListing& listing) const {
  if (!flags_.refuseSystemFolders || listing.systemFolders.empty()) return true;
  const bool rootOfVolume = IsVolumeMountPoint(record_.sourceRoot.c_str()) != 0;
  for (const std::u16string& folder : listing.systemFolders) {
    const std::u16string_view path = WithoutExtendedPrefix(folder);
    if (rootOfVolume && path.rfind(u'\\') == roots_.sourceBase().size()) continue;
    return LogFailure(u"#ERROR: The folder %ls belongs to Windows and cannot be moved.", folder);
  }
  return true;
}

// May the entry be copied onto what is there? Not through a link into somebody else's folder, not onto another kind of
// item or link (which could not be given back), and a link only in the place of an empty folder.
bool TreeCopy::MayStandOn(const TreeEntry& entry, const std::u16string& target, const Look& look) const {
  if (!look.IsThere()) return look.IsGone();
  if (look.IsDirectory() != entry.IsDirectory() || IsTaken(entry, target, look)) return false;
  const std::optional<bool> targetIsLink = look.IsReparsePoint() ? IsLinkAt(target) : false;
  if (!targetIsLink) return false;
  if (look.IsReparsePoint() && !bringsBack_ && IsVolumeMountPoint(target.c_str())) return false;
  if (entry.IsLink()) return *targetIsLink ? LinkTagAt(target) == entry.reparseTag : IsEmptyFolder(target);
  return !*targetIsLink && (entry.IsDirectory() || !HasOtherNames(target));
}

// A symbolic link takes the place of another link only.
bool TreeCopy::MayReplace(const TreeEntry& link, const std::u16string& newLink, const Look& look) const {
  return !IsTaken(link, newLink, look) && LinkTagAt(newLink) != 0 && !IsVolumeMountPoint(newLink.c_str());
}

// What overwrites files is not taken back: whatever stands in the way of a merge is looked for before. (Two items of
// the source that become one are met on the way, and so is whatever comes into a root that was made for this copy.)
bool TreeCopy::MayMerge(const TreeListing& listing) const {
  if (flags_.continueOnError || bringsBack_ || flags_.carryRoot) return true;
  std::set<std::u16string, std::less<>> merged{roots_.sourceBase()};  // folders of the source that stand at the target
  for (const TreeEntry& entry : listing.entries) {
    if (!merged.contains(WithoutExtendedPrefix(ParentPath(entry.path)))) continue;
    const std::u16string target = roots_.TargetOf(entry.path);
    const Look look = LookAt(target);
    if (look.IsGone()) continue;
    if (!look.IsThere() ||
        !(entry.IsSymbolicLink() ? MayReplace(entry, target, look) : MayStandOn(entry, target, look))) {
      Failed(entry, target);
      return false;
    }
    if (entry.IsDirectory() && !entry.IsLink()) merged.emplace(WithoutExtendedPrefix(entry.path));
  }
  return true;
}

bool TreeCopy::IsTaken(const TreeEntry& entry, const std::u16string& target, const Look& look) const {
  if (flags_.continueOnError || !look.IsThere() || !names_.IsTaken(entry, target)) return false;
  return !LogFailure(line::kNameTaken, entry.path, target);
}

// In a tree that is brought back: what stands there has come since, and has this name, or that of a folder above, as
// its short one only.
bool TreeCopy::IsForAnother(const TreeEntry& entry, const std::u16string& target, const Look& look) {
  const std::u16string path(WithoutExtendedPrefix(entry.path));
  const bool isTaken = takenFolders_.contains(ParentPath(path)) || (look.IsThere() && IsShortNameOfAnother(target));
  if (isTaken && entry.IsDirectory()) takenFolders_.insert(path);
  return isTaken;
}

CopiedItem& TreeCopy::AddItem(CopiedItem item) {
  names_.Add(item.source, item.target, item.created);
  if (item.source.IsLink()) linkItems_[item.source.path] = record_.items.size();
  return record_.items.emplace_back(std::move(item));
}

CopiedItem* TreeCopy::FindLink(const TreeEntry& entry) {
  const auto found = linkItems_.find(entry.path);
  return found == linkItems_.end() ? nullptr : &record_.items[found->second];
}

// Of a tree that is moved, whatever does not stay where it is in the source. Files only when they are deleted: nothing
// of them changes before.
bool TreeCopy::SaveSource(const TreeEntry& entry) {
  return !flags_.removeSourceLinks || bringsBack_ || !(entry.IsDirectory() || entry.IsLink()) ||
         record_.source.SaveFolder(entry.path);
}

// A folder or link that stands at the target, before anything of it changes. Its new access list will be handed down to
// all that inherits from the folder.
bool TreeCopy::SaveStanding(const TreeEntry& entry, const std::u16string& target, const Look& look) {
  const bool isLink = look.IsReparsePoint() && entry.IsLink();  // nothing else may stand on a link
  if (!look.IsThere() || bringsBack_ || !(look.IsDirectory() || isLink)) return true;
  if (isLink) {
    SavedLink link = SaveLink(target, target, look.IsDirectory());
    if (link.reparseData.empty()) return false;
    record_.stoodLinks.push_back(std::move(link));
  } else if (flags_.useBackupCopy && !entry.IsLink()) {
    // With a folder above, all of it was saved.
    const bool isSaved = mergedFolders_.contains(ParentPath(entry.path));
    if (!isSaved && !record_.stood.SaveDescriptorsBelow(target)) return false;
    mergedFolders_.insert(entry.path);
  }
  return record_.stood.SaveFolder(target);
}

// The roots themselves: what becomes of their contents changes their times, and more of a root that is carried.
bool TreeCopy::SaveRoots() {
  return (!flags_.removeSourceLinks || bringsBack_ || record_.source.SaveFolder(record_.sourceRoot)) &&
         (bringsBack_ || IsGone(record_.targetRoot) || record_.stood.SaveFolder(record_.targetRoot));
}

Step TreeCopy::CopyEntry(const TreeEntry& entry) {
  // Of a file its own open tells whether it is still there.
  const bool openTells = flags_.useBackupCopy && IsPlainFile(entry);
  const Look source = openTells ? Look{Presence::There, entry.attributes} : LookAt(entry.path);
  if (source.IsGone()) return Step::Next;
  // What has become a link since it was listed leads to what is not in this tree.
  const bool isAnother = source.IsReparsePoint() && !entry.IsReparsePoint();
  if (isAnother || !SaveSource(entry)) return Failed(entry, roots_.TargetOf(entry.path));
  if (entry.IsSymbolicLink()) {  // made again with the links
    IsSymbolicLink(entry.path.c_str());
    return MustComeFirst(entry) ? CopyLink(entry) : Step::Next;
  }

  const std::u16string target = roots_.TargetOf(entry.path);
  const Look look = LookAt(target);
  if (flags_.continueOnError && IsForAnother(entry, target, look)) return Failed(entry, target);
  if (look.IsThere() && flags_.continueOnError && !entry.IsDirectory()) return Step::Next;
  if (source.presence == Presence::NotTold || !MayStandOn(entry, target, look) || !SaveStanding(entry, target, look))
    return openTells && IsGone(entry.path) ? Step::Next : Failed(entry, target);

  const bool becomesLink = entry.IsJunction() && look.IsThere() && !look.IsReparsePoint();
  CopiedItem& item = AddItem({entry, target, look.IsGone(), becomesLink, false});
  // A folder that is still where it came from never lost its security and streams.
  if (bringsBack_ && entry.IsDirectory() && look.IsThere()) {
    item.complete = true;
  } else {
    const TargetAttributes attributes(target, look);
    CopiedSource told;
    const bool willGo = flags_.removeSourceLinks && !bringsBack_ && !entry.IsDirectory();
    if (willGo && !openTells) item.version = VersionOf(entry.path);
    item.complete = CopyItem(entry, target, look, told);
    if (willGo && openTells && told.information) item.version = VersionOf(*told.information);
    if (willGo && openTells) item.before = record_.source.Keep(told);
    if (told.targetIsTaken) item.created = false;
    if (openTells && told.isGone) {
      record_.items.pop_back();
      return Step::Next;
    }
    // Without backup copies only a file whose copy is refused may fail, except when a tree is brought back: what can be
    // saved then is saved.
    const auto mayFail = [&] { return flags_.useBackupCopy || bringsBack_ || copyFileDenied_; };
    if (!item.complete && (Failed(entry, target, Why::Windows) == Step::Failed || !mayFail())) return Step::Failed;
  }
  if (entry.IsDirectory() && !shares_.FindByPath(WithoutExtendedPrefix(entry.path)).empty())
    sharedFolders_.emplace(WithoutExtendedPrefix(entry.path), WithoutExtendedPrefix(target));
  return roots_.ShowProgress(entry, target) ? Step::Next : Step::Ended;
}

bool TreeCopy::CopyItem(const TreeEntry& entry, const std::u16string& target, const Look& look, CopiedSource& told) {
  if (!flags_.useBackupCopy) return CopyWithoutBackup(entry, target, look);
  const bool copied = BackupCopy(entry.path, target,
                                 {.isDirectory = entry.IsDirectory(),
                                  .isReparsePoint = entry.IsReparsePoint(),
                                  .isEncrypted = entry.IsEncrypted(),
                                  .targetIsNew = look.IsGone(),
                                  .leaveParentTimes = true,
                                  .watch = WatchOf(look),
                                  .told = &told}) != 0;
  if (!copied && !flags_.continueOnError) return false;
  const win32::DWORD error = win32::GetLastError();
  // A link's own DACL came with the backup copy, as one that cannot be written; what is brought back gets the one that
  // it had.
  if (!entry.IsLink() && !bringsBack_ && CarryDacl(entry.path, target, flags_.allowInheritance) == DaclCopy::NotRead)
    return false;
  changedFolders_.try_emplace(ParentPath(entry.path), entry.path, target);
  if (!copied) win32::SetLastError(error);
  return copied;
}

DaclCopy TreeCopy::CarryDacl(const std::u16string& source, const std::u16string& target, bool allowInheritance) const {
  const DaclCopy copied = CopyReadableDacl(
      source, target, {.allowInheritance = allowInheritance, .keepInheritedAces = flags_.keepInheritedAces});
  if (copied == DaclCopy::NotRead) LogWithSystemError(u"#ERROR: Unable to read the access rights of %ls. ", source);
  return copied;
}

bool TreeCopy::CopyWithoutBackup(const TreeEntry& entry, const std::u16string& target, const Look& look) {
  copyFileDenied_ = false;
  const Look source = LookAt(entry.path);
  if (entry.IsDirectory()) {
    // CreateDirectoryW's plain form ends earlier than that of other calls.
    if (look.IsGone() && !win32::CreateDirectoryW(target.c_str(), nullptr) &&
        (HasExtendedPrefix(target) || !win32::CreateDirectoryW(WithExtendedPrefix(target).c_str(), nullptr)))
      return LogFailure(u"#ERROR: Unable to create target directory for path %ls.", target);
    if (flags_.folderAccessLists && look.IsGone() && !entry.IsLink() &&
        CarryDacl(entry.path, target, flags_.allowInheritance) != DaclCopy::Written)
      return false;
  } else if (entry.IsReparsePoint()) {
    Log(u"CopyFiles(). It's a reparse point: %ls.", entry.path);
    if (!BackupCopyEx(entry.path, target)) return LogFailure(u"CopyFiles(). BackupCopyEx failed for: %ls.", entry.path);
  } else if (!CopyFileWatched(entry.path, target, /*failIfExists=*/false, WatchOf(look))) {
    copyFileDenied_ = win32::GetLastError() == win32::ERROR_ACCESS_DENIED;
    return false;
  }
  if (source.IsThere()) win32::SetFileAttributesW(target.c_str(), source.attributes);
  CopyFileTimesAndAttributes(entry.path, target, {.isReparsePoint = entry.IsReparsePoint()});
  return true;
}

// Every link arrives: made again with its text (led to the new root where it led to the old one), or else - it dangles,
// it leads to a network share - carried over byte for byte. A link left out here would be lost for good when the source
// is emptied, and one that leads to where nothing will be any more is no better. In a tree that is brought back, links
// get their old data in the end.
Step TreeCopy::CopyLink(const TreeEntry& link) {
  const std::u16string newLink = roots_.TargetOf(link.path);
  if (link.IsJunction() && IsVolumeMountPoint(link.path.c_str())) return CopyMount(link, newLink);
  bool skip = false;
  if (link.IsSymbolicLink() && !PrepareSymbolicLink(link, newLink, skip)) return Failed(link, newLink);
  CopiedItem* item = FindLink(link);
  if (skip || !item) return Step::Next;

  record_.links.push_back(SaveLink(link.path, newLink, link.IsDirectory()));
  // A symbolic link that is to keep its text keeps all of it: what it finally leads to may have another name than the
  // one that it bears (a volume with a letter and a folder), which need not last.
  item->complete = !(flags_.copyOnly && link.IsSymbolicLink()) && RecreateLink(link, newLink);
  if (item->complete) {
    // A junction's came with its backup copy; a symbolic link made by its text is as new as any.
    if (link.IsSymbolicLink() && flags_.useBackupCopy)
      CopyFileTimesAndAttributes(link.path, newLink, {.isReparsePoint = true});
    if (flags_.removeSourceLinks && link.IsJunction()) DeleteJunction(link.path.c_str());
  } else if (flags_.copyOnly || bringsBack_ ||
             !MustChangeWithTree(link.path, record_.links.back().reparseData, roots_.sourceBase())) {
    item->complete = BackupCopyEx(link.path, newLink,
                                  {.isDirectory = link.IsDirectory(),
                                   .isReparsePoint = true,
                                   .isEncrypted = false,
                                   .leaveParentTimes = true}) != 0;
  }
  if (flags_.useBackupCopy) changedFolders_.try_emplace(ParentPath(link.path), link.path, newLink);
  return item->complete ? Step::Next : Failed(link, newLink, Why::Windows);
}

// A mounted volume is not a link to be made again. A backup copy has carried the mount with the folder's reparse data;
// otherwise the volume is mounted on the copy, or nothing would lead to it any more.
Step TreeCopy::CopyMount(const TreeEntry& link, const std::u16string& newLink) {
  std::u16string volumeName;
  CopiedItem* const item = FindLink(link);
  if (!item || !IsVolumeMountPoint(link.path.c_str(), &volumeName) || IsVolumeMountPoint(newLink.c_str()))
    return Step::Next;
  item->complete = MountVolume(newLink, volumeName);
  return item->complete ? Step::Next : Failed(link, newLink, Why::Windows);
}

// Clears the place of a symbolic link and notes it as an item. A link of that name is overwritten like any file.
bool TreeCopy::PrepareSymbolicLink(const TreeEntry& link, const std::u16string& newLink, bool& skip) {
  const Look look = LookAt(newLink);
  if (look.presence == Presence::NotTold) return false;
  if (look.IsThere()) {
    if (flags_.continueOnError) {
      skip = true;
      return true;
    }
    TreeEntry old{newLink, look.attributes, 0, 0};
    if (!MayReplace(link, newLink, look) || !SaveStanding(link, newLink, look) || !DeleteEntry(old)) return false;
  }
  AddItem({link, newLink, true, false, false});
  return true;
}

bool TreeCopy::RecreateLink(const TreeEntry& link, const std::u16string& newLink) const {
  std::u16string text;
  const bool isSymbolicLink = link.IsSymbolicLink();
  if (!(isSymbolicLink ? GetFinalTargetPath(link.path.c_str(), text) : GetJunctionTarget(link.path.c_str(), text)))
    return false;
  // Windows would write the device into a link. A mount point of a volume that is not there now: its text has lost the
  // backslash that makes it the volume's root.
  if (text.empty() || (isSymbolicLink && IsDeviceName(LastComponent(text))) ||
      (text.starts_with(u"Volume{") && text.find(u'\\') == std::u16string::npos)) {
    win32::SetLastError(win32::ERROR_INVALID_NAME);
    return false;
  }
  if (!flags_.copyOnly) text = ReplaceFolder(text, roots_.sourceBase(), roots_.targetBase());
  if (text.back() == u':') text += u'\\';  // the root of a drive, not the current folder on it
  // Of the kind that it is, whatever it leads to: a link to a file is deleted as a file, by whoever comes next, too.
  const SymbolicLinkOptions kind{.forceFileLink = !link.IsDirectory(), .forceDirectoryLink = link.IsDirectory()};
  if (isSymbolicLink ? CreateSymbolicLinkEntry(newLink.c_str(), text.c_str(), kind)
                     : CreateJunction(newLink.c_str(), text.c_str()))
    return true;
  return LogFailure(u"#ERROR: Failed to create a %s %s with target path %s. Error code:%d.",
                    isSymbolicLink ? u"symbolic link" : u"junction", newLink, text, win32::GetLastError());
}

// Before the contents, so that these inherit from it; the times come last. The root of a mounted volume is entered, so
// its mount folder's reparse point is not what is copied.
bool TreeCopy::CarryRoot() const {
  if (!flags_.carryRoot || (!flags_.useBackupCopy && !flags_.keepInheritedAces)) return true;
  const std::u16string &source = record_.sourceRoot, &target = record_.targetRoot;
  if (flags_.useBackupCopy &&
      !BackupCopy(source, target, {.isDirectory = true, .isReparsePoint = false, .leaveParentTimes = true}))
    return false;
  // A root that keeps its entries is protected: what the folder above the copy lets in is not let in here.
  const DaclCopy copied = CarryDacl(source, target, flags_.allowInheritance && !flags_.keepInheritedAces);
  return copied == DaclCopy::Written || (copied == DaclCopy::NotWritten && !flags_.keepInheritedAces);
}

bool TreeCopy::CarryFolderTimes() const {
  bool all = true;
  for (const auto& [folder, item] : changedFolders_)
    if (!CopyParentDirectoryTimes(item.first, item.second)) {
      Log(line::kTimesNotCopied, folder);
      all = false;
    }
  return all || flags_.continueOnError;
}

void TreeCopy::MoveShares() {
  for (const auto& [folder, target] : sharedFolders_)
    for (const win32::SHARE_INFO_502* share : shares_.FindByPath(folder)) {
      if (DeleteShare(*share)) record_.deletedShares.push_back({shares_, share});
      if (flags_.moveShares && AddShare(*share, target)) record_.addedShares.push_back(share->shi502_netname);
    }
}

int TreeCopy::Run(const std::u16string& sourceRoot, const std::u16string& targetRoot) {
  TreeListing listing;
  if (!roots_.Resolve(sourceRoot, targetRoot)) return 0;
  record_.sourceRoot = roots_.source();
  record_.targetRoot = roots_.target();
  if (selection_)
    listing = selection_->listing;
  else if (!GetFileList(record_.sourceRoot, listing))
    return LogFailure(line::kNoListingForCopy, record_.sourceRoot);
  if (!bringsBack_ && !HasAllContents(listing)) return 0;
  if (!listing.links.empty() && roots_.IsSource(listing.links.front().path)) {
    // The root itself is a link, and nothing behind it is copied. That is an end for a symbolic link; a junction is
    // none that anybody should take for a copied tree.
    if (listing.links.front().IsSymbolicLink()) return 1;
    return LogFailure(line::kRedirectedAlready, record_.sourceRoot);
  }
  if (!SystemFoldersPermit(listing) || !MayMerge(listing)) return 0;
  PutShortNamesFirst(listing.entries);
  shares_ = ShareList::Read();
  if (!SaveRoots() || !CarryRoot()) return 0;
  record_.items.reserve(listing.entries.size());
  if (flags_.carryRoot) names_.AddMadeFolder(WithoutExtendedPrefix(record_.sourceRoot));
  progress_.emplace(bringsBack_ ? ProgressOf::TakingBack : ProgressOf::Copying,
                    ProgressCounts{listing.entries.size(), listing.TotalSize()});
  for (TreeEntry& entry : listing.entries) {
    if (IsStopped()) return 0;
    const Step step = CopyEntry(entry);
    if (step != Step::Next) return step == Step::Ended ? 1 : 0;
    progress_->ItemDone(entry.size);
    entry.path = {};  // its item has it, and there are many
  }
  // Symbolic links first: they may lead through junctions, which are taken off at the source.
  for (const bool symbolic : {true, false})
    for (const TreeEntry& link : listing.links)
      if (link.IsSymbolicLink() == symbolic && !MustComeFirst(link) && (IsStopped() || CopyLink(link) == Step::Failed))
        return 0;
  if (!CarryFolderTimes()) return 0;
  // Of a tree that is brought back, the caller puts the shares right: it knows which were there before.
  if (!selection_ && !(flags_.copyOnly && flags_.moveShares)) MoveShares();
  return 1;
}

}  // namespace

int CopyFiles(const std::u16string& sourceRoot, const std::u16string& targetRoot, const CopyFlags& flags,
              CopyRecord& record, const std::optional<CopySelection>& selection) try {
  return TreeCopy(flags, record, selection).Run(sourceRoot, targetRoot);
} catch (const std::exception&) {
  return 0;
}
