// The folder that a user's profile moves to.
//
// With a volume as the target, the volume is mounted beside the profile folder ("C:\Users\anna.mount"). A profile that
// goes back to the very folder on which its volume is mounted is gathered beside it ("C:\Users\anna.temp"). Both take
// the former folder's place in the end: the profile keeps its path.
#pragma once

#include <string>

#include "fsops/folders.h"
#include "fsops/folder_itself.h"
#include "fsops/side_folder.h"
#include "profiles/standing_items.h"

class ProfilePlace {
 public:
  // `target`: the folder in which the profile's own is made, or a volume's name.
  ProfilePlace(const std::u16string& folder, const std::u16string& target);

  const std::u16string& path() const { return path_; }
  bool IsVolume() const { return !volume_.empty(); }
  bool KeepsPath() const { return keepsPath_; }
  bool StoodThere() const { return stoodThere_; }

  // Each answers false when it failed (logged); TakeAway then puts right what was done.
  // Without a volume it only asks whether the place is free: one beside the profile may hold nothing but what a run
  // that was cut off left there.
  bool Mount();
  // Could Mount and Make do their work, as far as a run that only looks can tell?
  bool MayBeMade();
  // What is there already and has the room that the place will have.
  std::u16string StandIn() const;
  // The folder that holds the place is made with it, as private as Windows' own profiles folder.
  bool Make();
  // Nobody but administrators, the system and the user (his SID) may have a hand in what stands in the place already.
  // ntfsPermissions: what the profile has, too, gets the profile's security.
  bool HoldsNothingOfOthers(const std::u16string& user, bool ntfsPermissions);
  // The place gets the profile folder's own descriptor, before anything in it inherits; on a volume the root gets it,
  // too. In a new place nothing of it comes from the folder above; one at home that says the same keeps what it has. A
  // new folder gets all else that the profile folder has of its own (streams, attributes, times), unless
  // descriptorOnly; one that is to take the former folder's place gets it in any case.
  bool BecomeLikeProfile(bool descriptorOnly, bool isHome);

  // Takes the former folder's place; nothing to do where the path changes. False (logged): the former folder may be
  // gone, and the contents are still at path().
  bool TakeFormerPlace();
  // Makes the former folder again as far as that took it away. False (logged): contents cannot go back there.
  bool MakeFormerFolderAgain() const;

  // The profile is not here: away with what was made, as far as nothing is in it.
  void TakeAway() const;
  // The profile has arrived: what stood in the place inherits from it.
  void CloseWhatStoodThere() const { standing_.InheritAnew(); }
  // The profile has arrived: the volume that it has left, if any, is mounted at its former folder no more.
  void LeaveFormerVolume() const;

 private:
  // The profile is gathered beside the folder that its volume is mounted on.
  bool IsGathered() const { return keepsPath_ && !IsVolume(); }
  bool MountBesideProfile();
  bool IsUsableMount() const;
  void OpenLeftFolder() const;
  bool RenameToFormerPlace() const;
  void Unmount() const;

  const std::u16string folder_;
  const std::u16string volume_;        // the target; empty when it is a folder
  const std::u16string formerVolume_;  // mounted at the profile folder; empty when none is
  const SideFolder side_;              // where the folder is to change places with another one
  const bool keepsPath_;
  const std::u16string path_;
  const CreatedFolders created_;
  bool stoodThere_ = false, mountedHere_ = false, lent_ = false;
  SavedFolder before_;
  StandingItems standing_;
  FolderDescriptor descriptor_;  // the profile folder's own
};
