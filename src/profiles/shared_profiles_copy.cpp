#include "profiles/shared_profiles_copy.h"

#include <exception>

#include "fsops/file_list.h"
#include "fsops/folders.h"
#include "fsops/move_tree.h"
#include "fsops/shares.h"
#include "links/volume_paths.h"
#include "profiles/redirection_notes.h"
#include "profiles/shared_profiles_rules.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"

std::u16string PathBelow(const std::u16string& path, const std::u16string& root, const std::u16string& newRoot) {
  const std::u16string moved = ReplaceFolder(WithoutExtendedPrefix(path), root, newRoot);
  return HasExtendedPrefix(path) ? WithExtendedPrefix(moved) : ExtendedPath(moved);
}

bool FollowingShares::Move(const std::u16string& from, const std::u16string& to, const TreeListing& listing) {
  const ShareList shares = ShareList::Read();
  if (!shares.IsWhole()) return LogFailure(line::kSharesNotRead, from);
  const auto move = [&](const std::u16string& folder) {
    if (shares.FindByPath(folder).empty()) return true;
    moved_.emplace_back(folder, ReplaceFolder(folder, from, to));
    return MoveShares(folder, moved_.back().second);
  };
  if (!move(from)) return false;
  for (const TreeEntry& entry : listing.entries)
    if (entry.IsDirectory() && !entry.IsLink() && !move(std::u16string(WithoutExtendedPrefix(entry.path))))
      return false;
  return true;
}

void FollowingShares::TakeBack() {
  for (; !moved_.empty(); moved_.pop_back()) MoveShares(moved_.back().second, moved_.back().first);
}

bool FollowingRecords::Move(const std::u16string& from, const std::u16string& to) {
  std::vector<JunctionRecord> moved;
  for (const int isFile : {0, 1}) {
    std::vector<JunctionRecord> records;
    if (!ReadJunctionRecords(isFile, records)) return LogFailure(line::kRecordsNotUpdated);
    for (JunctionRecord& record : records) {
      if (!IsSameOrBelow(record.source, from)) continue;
      saved_.push_back(record);
      record.source = ReplaceFolder(record.source, from, to);
      moved.push_back(std::move(record));
    }
  }
  if (RestoreJunctionRecords(moved)) return true;
  return LogFailure(line::kRecordsNotUpdated);
}

void FollowingRecords::TakeBack() {
  if (!RestoreJunctionRecords(saved_)) Log(line::kRecordsNotUpdated);
  saved_.clear();
}

SharedProfileCopy::SharedProfileCopy(ProfileFolder which, const ProfileFolderValue& value, std::u16string copy,
                                     CarriedAlong carried)
    : which_(which), copy_(std::move(copy)), carried_(carried), created_(copy_), change_(which, value) {}

bool SharedProfileCopy::MakeRoot() {
  begun_ = true;
  // Its own from the beginning, whoever may write where it lies.
  const FolderDescriptor descriptor = ProtectedDescriptor(ReadDescriptor(original()));
  if (descriptor.empty())
    return LogSystemFailure(u"#ERROR: Unable to give the folder %ls the access rights of %ls. ", copy_, original());
  const FolderMade made = MakeFolder(copy_, descriptor);
  stoodThere_ = made == FolderMade::StoodThere;
  if (made == FolderMade::Failed) Log(line::kTargetFolderNotCreated, copy_);
  if (made == FolderMade::Failed) return false;
  if (stoodThere_ && !emptyFolder_.Save(copy_)) return LogSystemFailure(line::kItselfNotRead, copy_);
  if (!WriteDescriptor(copy_, descriptor))
    return LogSystemFailure(u"#ERROR: Unable to give the folder %ls the access rights of %ls. ", copy_, original());
  // It may have come, or been filled, since it was looked at.
  return !stoodThere_ || IsFree(copy_);
}

bool SharedProfileCopy::CopyContents() {
  const CopyFlags flags{.useBackupCopy = carried_.ntfsPermissions,
                        .allowInheritance = true,
                        .keepInheritedAces = true,
                        .folderAccessLists = true,
                        .carryRoot = true};
  Log(line::kGoingToCopy, original(), copy_);
  if (!MakeRoot()) return false;
  if (!opened_.List(original(), listing_) || !opened_.IsWhole()) return LogFailure(line::kNoListingForCopy, original());
  // Of a selection, the copy leaves the shares alone: they stay with the live profile.
  if (CopyFiles(original(), copy_, flags, record_, CopySelection{.listing = listing_})) return true;
  return LogFailure(line::kCopyFailed, original(), copy_);
}

// What a user keeps to himself is opened to administrators only while it is copied.
bool SharedProfileCopy::Copy() {
  const bool copied = CopyContents();
  opened_.GiveBack([](const std::u16string& path, bool) { return path; });
  if (copied)
    opened_.GiveBack([&](const std::u16string& path, bool isFolder) {
      return carried_.ntfsPermissions || isFolder ? PathBelow(path, original(), copy_) : std::u16string();
    });
  return copied;
}

bool SharedProfileCopy::MakeLive() {
  if ((carried_.shares && !shares_.Move(original(), copy_, listing_)) || !records_.Move(original(), copy_))
    return false;
  noted_ = true;
  return WriteNote(which_, {original(), copy_, VolumeThatHolds(copy_)}) && change_.Set(copy_);
}

void SharedProfileCopy::Keep() {
  change_.Keep();
  begun_ = false;
}

// While the profile list still names the copy, users work in it: it stays.
void SharedProfileCopy::TakeBack() try {
  if (!begun_ || !change_.TakeBack()) return;
  begun_ = false;
  if (noted_) DropNote(which_);
  records_.TakeBack();
  shares_.TakeBack();
  if (!RemoveCopiedItems(record_)) Log(u"#ERROR: Unable to delete all of the copy %ls.", copy_);
  if (!stoodThere_)
    created_.RemoveIfEmpty();
  else if (!emptyFolder_.Restore())
    Log(line::kSecurityNotRestored, copy_);
} catch (const std::exception&) {
}
