#include "profiles/shared_profiles_return.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <set>

#include "fsops/backup_copy.h"
#include "fsops/backwards.h"
#include "fsops/delete_tree.h"
#include "fsops/file_facts.h"
#include "fsops/file_list.h"
#include "fsops/folder_itself.h"
#include "fsops/folders.h"
#include "fsops/move_tree.h"
#include "links/junction.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "profiles/shared_profiles_rules.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/stop_request.h"
#include "text/path_text.h"
#include "validate/free_space.h"
#include "win32/win32.h"

namespace {

struct ItemFacts : TreeEntry {
  bool found = false;
  std::uint64_t lastWrite = 0;
};

// False when Windows does not tell, not even that nothing is there.
bool ReadFacts(const std::u16string& path, ItemFacts& facts) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  if (!find) {
    facts = {};
    return MeansGone(win32::GetLastError());
  }
  facts = {
      {path, found.dwFileAttributes, found.dwReserved0, std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow},
      true,
      std::uint64_t{found.ftLastWriteTime.dwHighDateTime} << 32 | found.ftLastWriteTime.dwLowDateTime};
  return true;
}

bool IsPlainFile(const TreeEntry& entry) { return !entry.IsDirectory() && !entry.IsReparsePoint(); }

// "C:\x\letter.doc" as "C:\x\letter (old).doc", or "(old 2)" and so on, a long name cut: one that is free below `root`
// and below `otherRoot`. Empty, with the last error, when all these are taken. "LETTER~1.TXT" becomes
// "(old) LETTER~1.TXT": with the mark behind, a volume could give it the name that is to be free as its short one.
std::u16string NameAside(const std::u16string& path, const std::u16string& root, const std::u16string& otherRoot) {
  const std::size_t name = path.rfind(u'\\') + 1;
  const std::size_t dot = path.rfind(u'.');
  const std::size_t end = dot == std::u16string::npos || dot <= name ? path.size() : dot;
  const bool isShort = MayBeShortName(std::u16string_view(path).substr(name));
  constexpr int kTries = 999;  // any user may make such names in the Public profile
  constexpr std::size_t kLongestName = 255;
  for (int number = 1; number <= kTries; ++number) {
    const std::u16string mark = number == 1 ? u" (old)" : FormatText(u" (old %d)", number);
    const std::size_t others = mark.size() + path.size() - end;
    if (others >= kLongestName) break;
    const std::u16string start = path.substr(name, std::min(end - name, kLongestName - others));
    const std::u16string marked = isShort ? mark.substr(1) + u" " + start : start + mark;
    std::u16string aside(ExtendedPath(path.substr(0, name) + marked + path.substr(end)));
    if (IsGone(aside) && IsGone(PathBelow(aside, root, otherRoot))) return aside;
  }
  win32::SetLastError(win32::ERROR_ALREADY_EXISTS);
  return {};
}

}  // namespace

SharedProfileReturn::SharedProfileReturn(ProfileFolder which, const ProfileFolderValue& value, SharedProfileNote note,
                                         CarriedAlong carried)
    : which_(which), note_(std::move(note)), carried_(carried), created_(note_.original), change_(which, value) {}

bool SharedProfileReturn::MakeRoot() {
  const FolderMade made = MakeFolder(original(), ProtectedDescriptor(ReadDescriptor(copy())));
  if (made == FolderMade::StoodThere) return IsFolderAndNoLink(original());
  madeRoot_ = made == FolderMade::New;
  if (!madeRoot_) Log(line::kTargetFolderNotCreated, original());
  return madeRoot_;
}

// Somebody may have deleted it; a drive that is not connected still has it. False: logged.
bool SharedProfileReturn::FindCopy(bool& isThere) const {
  isThere = !IsGone(copy());
  if (isThere) return true;
  if (IsVolumeThere(copy(), note_.volume)) {
    Log(u"#INFO: The folder %ls is not there any more. Nothing comes back from it.", copy());
    return true;
  }
  return LogFailure(
      u"#ERROR: The volume with the folder %ls is not there. Connect it, and try again. (If it is lost for good, make "
      u"an empty folder of that name first.)",
      copy());
}

bool SharedProfileReturn::CopyBack() {
  begun_ = true;
  bool isThere = false;
  if (!FindCopy(isThere)) return false;
  if (!isThere) return IsFolderAndNoLink(original());
  Log(line::kGoingToCopy, copy(), original());
  if (!IsFolderAndNoLink(copy()) || !MakeRoot()) return false;
  TreeListing old;
  if (!openedLive_.List(copy(), listing_)) return LogFailure(line::kNoListingForCopy, copy());
  if (!openedOld_.List(original(), old)) return LogFailure(line::kNoListingForCopy, original());
  if (!SetAside()) return false;
  const CopyFlags flags{.useBackupCopy = carried_.ntfsPermissions,
                        .allowInheritance = true,
                        .keepInheritedAces = true,
                        .folderAccessLists = true,
                        .carryRoot = madeRoot_};
  if (!CopyFiles(copy(), original(), flags, record_, CopySelection{.listing = listing_})) {
    return LogFailure(line::kCopyFailed, copy(), original());
  }
  return carried_.ntfsPermissions || CarryDescriptors();
}

// No file in the old folder is written into: it may have other names (hard links), where whoever made this one may not
// write. So each is put out of the way first. Programs that knew the old folder may have gone on writing there: what is
// newer than what comes back, or of another kind, is kept beside it.
bool SharedProfileReturn::SetAside() {
  const bool roomForBoth = HasRoomForBoth();
  std::vector<TreeEntry> entries = listing_.entries;
  PutShortNamesLast(entries);
  for (const TreeEntry& entry : entries) {
    if (IsStopRequested()) return false;
    const std::u16string path = PathBelow(entry.path, copy(), original());
    ItemFacts old, live;
    if (!ReadFacts(path, old) || !ReadFacts(entry.path, live))
      return LogSystemFailure(u"#ERROR: Unable to compare %ls with %ls. ", entry.path, path);
    if (!old.found || !live.found) continue;
    if (IsShortNameOfAnother(path)) return LogFailure(line::kNameTaken, entry.path, path);
    bool unmounted = false;
    if (old.IsLink() && !UnmountSame(path, entry.path, unmounted)) return false;
    if (unmounted) continue;
    const bool mounted = old.IsLink() && IsVolumeMountPoint(path.c_str());
    const bool sameKind = !mounted && old.IsDirectory() == entry.IsDirectory() && old.IsLink() == entry.IsLink();
    if (sameKind && entry.IsDirectory()) continue;
    const bool isReplaced = sameKind && (entry.IsLink() || old.lastWrite <= live.lastWrite);
    if (isReplaced && !roomForBoth && DropBeforehand(entry, path)) continue;
    if (!MoveAside(entry, {path, {}, old.attributes, old.reparseTag, isReplaced})) return false;
  }
  return true;
}

// For all that comes back beside all that it replaces.
bool SharedProfileReturn::HasRoomForBoth() const {
  const std::optional<std::uint64_t> available = AvailableBytes(original());
  return !available || *available > listing_.TotalSize();
}

// The copy holds what is live. An old file that is no newer goes before that comes, though a failure cannot bring it
// back - but not one whose access rights its successor is to get.
bool SharedProfileReturn::DropBeforehand(const TreeEntry& live, const std::u16string& old) const {
  if (!IsPlainFile(live) || !carried_.ntfsPermissions) return false;
  const std::optional<FileFacts> facts = FactsOf(old);
  return facts && facts->linkCount == 1 && DeleteEntry({old, live.attributes, 0, 0});
}

bool SharedProfileReturn::MoveAside(const TreeEntry& live, Aside old) {
  old.name = NameAside(old.path, original(), copy());
  if (old.name.empty() || !win32::MoveFileW(old.path.c_str(), old.name.c_str()))
    return LogSystemFailure(u"#ERROR: %ls stands where %ls is to come back, and cannot be renamed. ", old.path,
                            live.path);
  if (!old.isReplaced)
    Log(u"#INFO: %ls is newer than %ls, or of another kind. It is kept as %ls.", old.path, live.path, old.name);
  aside_.push_back(std::move(old));
  return true;
}

// A volume that is mounted in both places is taken off the old one, where it will be mounted again as a part of what
// comes back. False: logged.
bool SharedProfileReturn::UnmountSame(const std::u16string& path, const std::u16string& live, bool& unmounted) {
  std::u16string volume, liveVolume;
  if (!IsVolumeMountPoint(path.c_str(), &volume) || !IsVolumeMountPoint(live.c_str(), &liveVolume) ||
      !EqualPaths(volume, liveVolume))
    return true;
  unmounted = UnmountVolume(path);
  if (unmounted)
    unmounted_.emplace_back(path, volume);
  else
    LogWithSystemError(line::kMountNotTakenBack, path);
  return unmounted;
}

// Files that come back without their own security keep that of the files that they replace.
bool SharedProfileReturn::CarryDescriptors() const {
  for (const Aside& old : aside_) {
    if (!old.isReplaced || IsGone(old.path)) continue;
    const Look look = LookAt(old.path);
    const bool isReadOnly = look.Has(win32::FILE_ATTRIBUTE_READONLY);
    if (isReadOnly) win32::SetFileAttributesW(old.path.c_str(), look.attributes & ~win32::FILE_ATTRIBUTE_READONLY);
    const bool written = WriteDescriptor(old.path, ReadDescriptor(old.name));
    if (!written) LogWithSystemError(u"#ERROR: Unable to give the file %ls the access rights that it had. ", old.path);
    if (isReadOnly) win32::SetFileAttributesW(old.path.c_str(), look.attributes);
    if (!written) return false;
  }
  return true;
}

// Of a file with other names just this one goes; to clear its read-only mark would clear it there, too.
void SharedProfileReturn::DropReplaced() {
  for (const Aside& old : aside_) {
    if (!old.isReplaced) continue;
    bool done = false;
    if (IsGone(old.path)) {  // what was to replace it was deleted in the copy just then
      done = win32::MoveFileW(old.name.c_str(), old.path.c_str());
    } else {
      const std::optional<FileFacts> facts = FactsOf(old.name);
      done = facts && facts->linkCount == 1 ? DeleteEntry({old.name, old.attributes, old.reparseTag, 0}) != 0
                                            : win32::DeleteFileW(old.name.c_str()) != 0;
    }
    if (!done) LogWithSystemError(u"#INFO: The former file %ls stays as %ls. ", old.path, old.name);
  }
  // The folders came back with their times; what went from them since has changed those again.
  std::set<std::u16string> folders;
  for (const Aside& old : aside_)
    if (carried_.ntfsPermissions && old.isReplaced && folders.insert(ParentPath(old.path)).second)
      CopyParentDirectoryTimes(PathBelow(old.path, original(), copy()), old.path);
}

bool SharedProfileReturn::MakeLive() {
  return (!carried_.shares || shares_.Move(copy(), original(), listing_)) && records_.Move(copy(), original()) &&
         change_.Set(original());
}

void SharedProfileReturn::Keep() {
  TellReplacedAccessLists(record_);
  change_.Keep();
  DropNote(which_);
  begun_ = false;
}

// What keeps administrators out was opened to them only for the way back. An old item that came back has the security
// of the one that was copied to it.
void SharedProfileReturn::CloseOpenedItems(bool cameBack) {
  std::set<std::u16string> back;
  if (cameBack)
    for (const CopiedItem& item : record_.items)
      if (item.complete && (carried_.ntfsPermissions || item.created)) back.insert(item.target);
  openedOld_.GiveBack([&](const std::u16string& path, bool) {
    if (carried_.ntfsPermissions && back.contains(path)) return std::u16string();
    for (const Aside& old : aside_)
      if (IsSameOrBelow(path, old.path) && !old.isReplaced) return ReplaceFolder(path, old.path, old.name);
    return path;
  });
  openedLive_.GiveBack([](const std::u16string& path, bool) { return path; });
  if (cameBack)
    openedLive_.GiveBack([&](const std::u16string& path, bool isFolder) {
      const std::u16string target = PathBelow(path, copy(), original());
      const bool isRoot = EqualPaths(path, copy());
      const bool carried = isRoot ? madeRoot_ : back.contains(target) && (carried_.ntfsPermissions || isFolder);
      return carried ? target : std::u16string();
    });
}

// While the profile list names the old folder, that is the live profile: what came back stays.
void SharedProfileReturn::TakeBack() try {
  if (!begun_) return;
  const bool staysBack = !change_.TakeBack();
  if (!staysBack) RemoveWhatCameBack();
  CloseOpenedItems(staysBack);
} catch (const std::exception&) {
}

void SharedProfileReturn::RemoveWhatCameBack() {
  begun_ = false;
  records_.TakeBack();
  shares_.TakeBack();
  if (!RemoveCopiedItems(record_)) Log(u"#ERROR: Unable to delete all that was copied to %ls.", original());
  if (madeRoot_) created_.RemoveIfEmpty();
  for (const auto& [folder, volume] : unmounted_)
    if (!IsVolumeMountPoint(folder.c_str()) && !MountVolume(folder, volume))
      LogWithSystemError(line::kVolumeNotMounted, folder);
  // Where a copy that is not the live one is in the way, the file keeps its other name.
  for (const Aside& old : Backwards(aside_))
    if (!IsGone(old.path) || !win32::MoveFileW(old.name.c_str(), old.path.c_str()))
      Log(u"#ERROR: Unable to rename %ls to %ls again.", old.name, old.path);
  std::erase_if(aside_, [](const Aside& old) { return IsGone(old.name); });
}

void SharedProfileReturn::DeleteItem(const CopiedItem& item) {
  const TreeEntry& entry = item.source;
  const auto isInIt = [&](const TreeEntry& other) {
    return IsSameOrBelow(WithoutExtendedPrefix(other.path), WithoutExtendedPrefix(entry.path));
  };
  if (entry.IsDirectory() && !entry.IsLink()) {
    if (!RemoveEmptyFolder(entry.path) && std::ranges::any_of(inUse_, isInIt)) inUse_.push_back(entry);
    return;
  }
  if (IsPlainFile(entry)) {
    ItemFacts live, back;
    const bool known = ReadFacts(entry.path, live) && ReadFacts(item.target, back);
    if (known && !live.found) return;
    if (!known || !back.found || live.size != back.size || live.lastWrite != back.lastWrite) {
      Log(u"#INFO: The file %ls was changed after it had been copied back. It stays.", entry.path);
      return;
    }
  }
  if (!DeleteEntry(entry)) inUse_.push_back(entry);
}

// Some programs wait for the account pictures to follow, a minute and more: by then no file may be there twice.
void SharedProfileReturn::LeaveCopy() {
  DropReplaced();
  DeleteItems([&](const CopiedItem& item) { return !IsAccountPicture(item); });
  CloseOpenedItems(true);
  aside_.clear();
}

// The service is still told where they were.
bool SharedProfileReturn::IsAccountPicture(const CopiedItem& item) const {
  return which_ == ProfileFolder::Public &&
         IsSameOrBelow(WithoutExtendedPrefix(item.source.path), JoinPath(copy(), u"AccountPictures"));
}

template <typename Condition>
void SharedProfileReturn::DeleteItems(Condition condition) {
  for (const CopiedItem& item : Backwards(record_.items))
    if (item.complete && condition(item)) DeleteItem(item);
}

bool SharedProfileReturn::DeleteCopy() {
  if (IsGone(copy())) return false;
  DeleteItems([&](const CopiedItem& item) { return IsAccountPicture(item); });
  if (IsVolumeMountPoint(copy().c_str()) || RemoveEmptyFolder(copy())) return false;
  if (inUse_.empty()) {
    Log(u"#INFO: The folder %ls is not empty. It stays.", copy());
    return false;
  }
  inUse_.push_back({copy(), win32::FILE_ATTRIBUTE_DIRECTORY, 0, 0});
  std::ranges::reverse(inUse_);
  if (DeleteEntriesAtReboot(inUse_)) {
    Log(u"#INFO: The folder %ls is in use. It will be deleted at the next restart.", copy());
    return true;
  }
  Log(u"#ERROR: The folder %ls is in use and cannot be deleted at the next restart either. It stays.", copy());
  return false;
}
