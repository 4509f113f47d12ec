// The Default or the Public profile on its way back from its copy. The copy has been the live profile since it was
// made, so what is in it now comes back over what stayed in the old folder.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "profiles/shared_profiles_copy.h"

class SharedProfileReturn {
 public:
  // `value` names the copy; `original` is the folder that the profile goes back to.
  SharedProfileReturn(ProfileFolder which, const ProfileFolderValue& value, std::u16string original,
                      CarriedAlong carried);
  ~SharedProfileReturn() { TakeBack(); }
  SharedProfileReturn(const SharedProfileReturn&) = delete;
  SharedProfileReturn& operator=(const SharedProfileReturn&) = delete;

  // Each answers false with a line in the log.
  bool CopyBack();
  bool MakeLive();
  void Keep();
  // After Keep. Deletes of the copy what came back, and its folders as far as they are empty then; what is in use goes
  // at the next restart. What was changed or added since stays, and the log names it. True when a restart is owed.
  bool DeleteCopy();

  ProfileFolder which() const { return which_; }
  const std::u16string& original() const { return original_; }
  const std::u16string& copy() const { return change_.before().folder; }

 private:
  struct FoundFile {
    std::u16string path;
    win32::DWORD attributes;
  };

  bool MakeRoot();
  bool SetAside();
  bool UnmountSame(const std::u16string& path, const std::u16string& live, bool& unmounted);
  void LiftAttributes();
  void CarryAttributes() const;
  void TakeBack();
  void DeleteItem(const CopiedItem& item, std::vector<TreeEntry>& inUse) const;

  const ProfileFolder which_;
  const std::u16string original_;
  const CarriedAlong carried_;
  const CreatedFolders created_;
  bool begun_ = false, madeRoot_ = false;
  TreeListing listing_;                                               // of the copy
  std::vector<std::pair<std::u16string, std::u16string>> aside_;      // a path, the one that it got
  std::vector<std::pair<std::u16string, std::u16string>> unmounted_;  // a folder, the volume
  std::vector<FoundFile> lifted_;
  CopyRecord record_;
  FollowingShares shares_;
  FollowingRecords records_;
  ProfileFolderChange change_;
};
