#include "profiles/shared_profiles_return.h"

#include <algorithm>
#include <exception>
#include <ranges>

#include "fsops/delete_tree.h"
#include "fsops/mounted_folder.h"
#include "fsops/move_tree.h"
#include "log/log.h"
#include "profiles/shared_profiles_rules.h"
#include "redirect/folder_steps.h"
#include "redirect/junction.h"
#include "redirect/path_text.h"
#include "win32/win32.h"

namespace {

constexpr win32::DWORD kHinders =
    win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM;

struct ItemFacts {
  bool found = false;
  win32::DWORD attributes = 0;
  win32::DWORD reparseTag = 0;
  std::uint64_t size = 0, lastWrite = 0;

  bool IsDirectory() const { return (attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsLink() const {
    return IsJunctionRecord(attributes, reparseTag) || IsSymbolicLinkRecord(attributes, reparseTag);
  }
};

// False when Windows does not tell, not even that nothing is there.
bool ReadFacts(const std::u16string& path, ItemFacts& facts) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  facts = {};
  if (!find) {
    const win32::DWORD error = win32::GetLastError();
    return error == win32::ERROR_FILE_NOT_FOUND || error == win32::ERROR_PATH_NOT_FOUND;
  }
  facts = {true, found.dwFileAttributes, found.dwReserved0,
           std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow,
           std::uint64_t{found.ftLastWriteTime.dwHighDateTime} << 32 | found.ftLastWriteTime.dwLowDateTime};
  return true;
}

bool IsPlainFile(const TreeEntry& entry) { return !entry.IsDirectory() && !entry.IsReparsePoint(); }

// The path below another root; one that needs "\\?\" keeps it.
std::u16string Below(const std::u16string& path, const std::u16string& root, const std::u16string& newRoot) {
  const std::u16string moved = ReplaceFolder(WithoutExtendedPrefix(path), root, newRoot);
  return HasExtendedPrefix(path) ? u"\\\\?\\" + moved : ExtendedPath(moved);
}

// "C:\x\letter.doc" as "C:\x\letter (old).doc", or "(old 2)" and so on: a name that is free below `root` and
// below `otherRoot`. Empty when all these are taken.
std::u16string NameAside(const std::u16string& path, const std::u16string& root, const std::u16string& otherRoot) {
  const std::size_t name = path.rfind(u'\\') + 1;
  const std::size_t dot = path.rfind(u'.');
  const std::size_t end = dot == std::u16string::npos || dot <= name ? path.size() : dot;
  constexpr char16_t kTries = u'9';
  for (char16_t number = u'1'; number <= kTries; ++number) {
    const std::u16string mark = number == u'1' ? std::u16string(u" (old)") : std::u16string(u" (old ") + number + u')';
    std::u16string aside = path.substr(0, end) + mark + path.substr(end);
    if (IsAbsent(aside) && IsAbsent(Below(aside, root, otherRoot))) return aside;
  }
  return {};
}

}  // namespace

SharedProfileReturn::SharedProfileReturn(ProfileFolder which, const ProfileFolderValue& value, std::u16string original,
                                         CarriedAlong carried)
    : which_(which), original_(std::move(original)), carried_(carried), created_(original_), change_(which, value) {}

bool SharedProfileReturn::MakeRoot() {
  const FolderMade made = MakeFolder(original_);
  if (made == FolderMade::StoodThere) return IsPlainFolder(original_);
  madeRoot_ = made == FolderMade::New;
  if (!madeRoot_) Log(u"#ERROR: Failed To Create Target Folder: %ls", original_);
  return madeRoot_;
}

bool SharedProfileReturn::CopyBack() {
  begun_ = true;
  if (IsAbsent(copy())) {
    Log(u"#INFO: The folder %ls is not there any more. Nothing comes back from it.", copy());
    return IsPlainFolder(original_);
  }
  Log(u"#INFO: Going to copy files and folders from Source = %ls to Target = %ls.", copy(), original_);
  if (!IsPlainFolder(copy()) || !MakeRoot()) return false;
  if (!GetFileList(copy(), listing_)) {
    Log(u"#ERROR: There was an error during path validation. Error message: Unable to get list of files for path = "
        u"%ls.",
        copy());
    return false;
  }
  if (!SetAside()) return false;
  LiftAttributes();
  const CopyFlags flags{.useBackupCopy = carried_.ntfsPermissions,
                        .allowInheritance = true,
                        .keepInheritedAces = true,
                        .carryRoot = madeRoot_};
  if (!CopyTree(copy(), original_, flags, record_, &listing_)) {
    Log(u"#ERROR: Unable to copy files and folders from Source = %ls to Target = %ls.", copy(), original_);
    return false;
  }
  CarryAttributes();
  return true;
}

// Nothing that came to the old folder while the copy was the live profile is overwritten: programs that knew it may
// have gone on writing there. What is in the way, or newer than what comes back, is kept beside it.
bool SharedProfileReturn::SetAside() {
  for (const TreeEntry& entry : listing_.entries) {
    const std::u16string path = Below(entry.path, copy(), original_);
    ItemFacts old, live;
    if (!ReadFacts(path, old) || !ReadFacts(entry.path, live)) {
      LogWithSystemError(u"#ERROR: Unable to compare %ls with %ls. ", entry.path, path);
      return false;
    }
    if (!old.found || !live.found) continue;
    bool unmounted = false;
    if (old.IsLink() && !UnmountSame(path, entry.path, unmounted)) return false;
    if (unmounted) continue;
    const bool mounted = old.IsLink() && IsVolumeMountPoint(path.c_str());
    const bool sameKind = !mounted && old.IsDirectory() == entry.IsDirectory() && old.IsLink() == entry.IsLink();
    if (sameKind && (!IsPlainFile(entry) || old.lastWrite <= live.lastWrite)) continue;
    const std::u16string aside = NameAside(path, original_, copy());
    if (aside.empty() || !win32::MoveFileW(path.c_str(), aside.c_str())) {
      LogWithSystemError(u"#ERROR: %ls stands where %ls is to come back, and cannot be renamed. ", path, entry.path);
      return false;
    }
    Log(u"#INFO: %ls is newer than %ls, or of another kind. It is kept as %ls.", path, entry.path, aside);
    aside_.emplace_back(path, aside);
  }
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
    LogWithSystemError(u"#ERROR: Failed to unmount the volume from the folder %ls. ", path);
  return unmounted;
}

// What a copy onto a file would be refused for, or leave as it was.
void SharedProfileReturn::LiftAttributes() {
  for (const TreeEntry& entry : listing_.entries) {
    if (!IsPlainFile(entry)) continue;
    std::u16string old = Below(entry.path, copy(), original_);
    const win32::DWORD attributes = win32::GetFileAttributesW(old.c_str());
    if (attributes == win32::INVALID_FILE_ATTRIBUTES || !(attributes & kHinders)) continue;
    if (win32::SetFileAttributesW(old.c_str(), attributes & ~kHinders)) lifted_.push_back({std::move(old), attributes});
  }
}

void SharedProfileReturn::CarryAttributes() const {
  for (const FoundFile& file : lifted_) {
    const win32::DWORD live = win32::GetFileAttributesW(Below(file.path, original_, copy()).c_str());
    win32::SetFileAttributesW(file.path.c_str(), live == win32::INVALID_FILE_ATTRIBUTES ? file.attributes : live);
  }
}

bool SharedProfileReturn::MakeLive() {
  return (!carried_.shares || shares_.Move(copy(), original_, listing_)) && records_.Move(copy(), original_) &&
         change_.Set(original_);
}

void SharedProfileReturn::Keep() {
  change_.Keep();
  begun_ = false;
}

// While the profile list names the old folder, that is the live profile: what came back stays.
void SharedProfileReturn::TakeBack() try {
  if (!begun_ || !change_.TakeBack()) return;
  begun_ = false;
  records_.TakeBack();
  shares_.TakeBack();
  if (!RemoveCopiedItems(record_)) Log(u"#ERROR: Unable to delete all that was copied to %ls.", original_);
  if (madeRoot_) created_.RemoveIfEmpty();
  for (const auto& [folder, volume] : unmounted_)
    if (!IsVolumeMountPoint(folder.c_str()) && !MountVolume(folder, volume))
      LogWithSystemError(u"#ERROR: Failed to Mount Volume on Target Folder: %ls", folder);
  for (const FoundFile& file : lifted_) win32::SetFileAttributesW(file.path.c_str(), file.attributes);
  // Where a copy that is not the live one is in the way, the file keeps the name that the log tells.
  for (const auto& [path, aside] : aside_)
    if (IsAbsent(path)) win32::MoveFileW(aside.c_str(), path.c_str());
} catch (const std::exception&) {
}

void SharedProfileReturn::DeleteItem(const CopiedItem& item, std::vector<TreeEntry>& inUse) const {
  const TreeEntry& entry = item.source;
  const auto isInIt = [&](const TreeEntry& other) {
    return IsSameOrBelow(WithoutExtendedPrefix(other.path), WithoutExtendedPrefix(entry.path));
  };
  if (entry.IsDirectory() && !entry.IsLink()) {
    if (!RemoveEmptyFolder(entry.path) && std::ranges::any_of(inUse, isInIt)) inUse.push_back(entry);
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
  if (!DeleteEntry(entry)) inUse.push_back(entry);
}

bool SharedProfileReturn::DeleteCopy() {
  if (IsAbsent(copy())) return false;
  std::vector<TreeEntry> inUse;  // a folder behind its contents
  for (const CopiedItem& item : record_.items | std::views::reverse)
    if (item.complete) DeleteItem(item, inUse);
  if (IsVolumeMountPoint(copy().c_str()) || RemoveEmptyFolder(copy())) return false;
  if (inUse.empty()) {
    Log(u"#INFO: The folder %ls is not empty. It stays.", copy());
    return false;
  }
  inUse.push_back({copy(), win32::FILE_ATTRIBUTE_DIRECTORY, 0, 0});
  std::ranges::reverse(inUse);
  if (DeleteEntriesAtReboot(inUse)) {
    Log(u"#INFO: The folder %ls is in use. It will be deleted at the next restart.", copy());
    return true;
  }
  Log(u"#ERROR: The folder %ls is in use and cannot be deleted at the next restart either. It stays.", copy());
  return false;
}
