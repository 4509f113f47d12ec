// What names the folder of a user's profile, and follows when it moves: ProfileImagePath, the records of redirections,
// junctions from elsewhere that lead into it, the desktop's wallpaper.
#pragma once

#include <string>
#include <vector>

#include "links/link_data.h"
#include "profiles/profile_list.h"
#include "records/records.h"

class ProfileRecords {
 public:
  ProfileRecords(const UserProfile& profile, const std::u16string& newFolder)
      : profile_(profile), newFolder_(newFolder) {}

  // Reads how things stand and asks whether they could be changed. Nothing has changed when this says no (logged).
  bool CanFollow();
  // The contents are in the new folder. False (logged): TakeBack puts right what was changed.
  bool Follow();
  // Back to what CanFollow read, but for ProfileImagePath. Should that fail, the log tells.
  void TakeBack();

  // ProfileImagePath: as CanFollow read it, or the new folder. Should the registry refuse, the log tells.
  void NameOldFolder();
  void NameNewFolder();

 private:
  // A junction of another redirection, whose contents lie in the profile.
  struct Junction {
    SavedLink before;
    std::u16string oldTarget, newTarget;
    bool changed = false;
  };

  bool IsInProfile(const std::u16string& path) const;
  bool FindJunctions();
  bool NoFileLinksLeadIn() const;
  bool RecordPair();
  std::vector<JunctionRecord> RecordsOfWayHere() const;

  const UserProfile profile_;
  const std::u16string newFolder_;
  RegistryValue imagePath_;
  std::vector<JunctionRecord> folders_, files_;
  std::vector<JunctionRecord> deleted_;
  std::vector<Junction> junctions_;
  bool pairAdded_ = false, recordsChanged_ = false, wallpaperChanged_ = false;
};
