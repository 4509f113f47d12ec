// The Default or the Public profile on its way back from its copy. The copy has been the live profile since it was
// made, so what is in it now comes back over what stayed in the old folder.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "profiles/redirection_notes.h"
#include "profiles/shared_profiles_copy.h"

class SharedProfileReturn {
 public:
  // `value` names the copy, as `note` does, which also tells where the profile goes back to.
  SharedProfileReturn(ProfileFolder which, const ProfileFolderValue& value, SharedProfileNote note,
                      CarriedAlong carried);
  ~SharedProfileReturn() { TakeBack(); }
  SharedProfileReturn(const SharedProfileReturn&) = delete;
  SharedProfileReturn& operator=(const SharedProfileReturn&) = delete;

  // Each answers false with a line in the log.
  bool CopyBack();
  bool MakeLive();
  void Keep();
  // After Keep. Deletes what was replaced in the old folder, then of the copy what came back, and its folders as far as
  // they are empty then - all but the account pictures. What was changed or added since stays, and the log names it.
  void LeaveCopy();
  // After LeaveCopy. Deletes the rest; what is in use goes at the next restart. True when a restart is owed.
  bool DeleteCopy();

  ProfileFolder which() const { return which_; }
  const std::u16string& original() const { return note_.original; }
  const std::u16string& copy() const { return change_.before().folder; }

 private:
  // What stood in the way of something that comes back.
  struct Aside {
    std::u16string path;
    std::u16string name;  // the path that it has now
    win32::DWORD attributes = 0, reparseTag = 0;
    bool isReplaced = false;  // it goes when all is done; otherwise it is kept
  };

  bool MakeRoot();
  bool FindCopy(bool& isThere) const;
  bool SetAside();
  bool HasRoomForBoth() const;
  bool DropBeforehand(const TreeEntry& live, const std::u16string& old) const;
  bool MoveAside(const TreeEntry& live, Aside old);
  bool UnmountSame(const std::u16string& path, const std::u16string& live, bool& unmounted);
  bool CarryDescriptors() const;
  void DropReplaced();
  void CloseOpenedItems(bool cameBack);
  void TakeBack();
  void RemoveWhatCameBack();
  bool IsAccountPicture(const CopiedItem& item) const;
  template <typename Condition>
  void DeleteItems(Condition condition);
  void DeleteItem(const CopiedItem& item);

  const ProfileFolder which_;
  const SharedProfileNote note_;
  const CarriedAlong carried_;
  const CreatedFolders created_;
  bool begun_ = false, madeRoot_ = false;
  TreeListing listing_;  // of the copy
  OpenedItems openedLive_, openedOld_;
  std::vector<Aside> aside_;
  std::vector<std::pair<std::u16string, std::u16string>> unmounted_;  // a folder, the volume
  CopyRecord record_;
  std::vector<TreeEntry> inUse_;  // of the copy, a folder behind its contents
  FollowingShares shares_;
  FollowingRecords records_;
  ProfileFolderChange change_;
};
