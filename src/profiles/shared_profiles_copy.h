// The Default or the Public profile on its way to another place and back. It is in use, so it is copied and not moved:
// the copy is the live one once Windows' profile list names it. What is not kept is taken back by the destructors.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "fsops/carried_along.h"
#include "fsops/copy_tree.h"
#include "fsops/folders.h"
#include "fsops/folder_itself.h"
#include "fsops/opened_items.h"
#include "profiles/profile_folders.h"
#include "records/records.h"

// The path below another root; one that needs "\\?\" keeps it.
std::u16string PathBelow(const std::u16string& path, const std::u16string& root, const std::u16string& newRoot);

// The shares in a tree that follow it.
class FollowingShares {
 public:
  // Those of `from` and of the folders below it now show the same places in `to`. False (logged): not all do.
  bool Move(const std::u16string& from, const std::u16string& to, const TreeListing& listing);
  void TakeBack();

 private:
  std::vector<std::pair<std::u16string, std::u16string>> moved_;  // folder, new folder
};

// The records of folders and files in a tree that are redirected from there: their links are in the copy, too.
class FollowingRecords {
 public:
  // Those that name a place in `from` as their source now name the same place in `to`. False (logged): not all do.
  bool Move(const std::u16string& from, const std::u16string& to);
  void TakeBack();

 private:
  std::vector<JunctionRecord> saved_;
};

// To another place.
class SharedProfileCopy {
 public:
  // `value` names the folder that the profile is in.
  SharedProfileCopy(ProfileFolder which, const ProfileFolderValue& value, std::u16string copy, CarriedAlong carried);
  ~SharedProfileCopy() { TakeBack(); }
  SharedProfileCopy(const SharedProfileCopy&) = delete;
  SharedProfileCopy& operator=(const SharedProfileCopy&) = delete;

  // Each answers false with a line in the log.
  bool Copy();
  bool MakeLive();
  void Keep();

  ProfileFolder which() const { return which_; }
  const std::u16string& original() const { return change_.before().folder; }
  const std::u16string& copy() const { return copy_; }

 private:
  bool MakeRoot();
  bool CopyContents();
  void TakeBack();

  const ProfileFolder which_;
  const std::u16string copy_;
  const CarriedAlong carried_;
  const CreatedFolders created_;
  bool begun_ = false, stoodThere_ = false, noted_ = false;
  SavedFolder emptyFolder_;  // the folder that stood there, as it was
  TreeListing listing_;
  OpenedItems opened_;
  CopyRecord record_;
  FollowingShares shares_;
  FollowingRecords records_;
  ProfileFolderChange change_;
};
