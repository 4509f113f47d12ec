// One user's profile on its way to another place, and back again when something fails. docs/profiles.md has the order
// of the steps and what each failure leaves.
#pragma once

#include <string>

#include "fsops/move_tree.h"
#include "fsops/security.h"
#include "profiles/profile_list.h"
#include "profiles/profile_place.h"
#include "profiles/profile_records.h"
#include "profiles/user_profile.h"

class ProfileMove {
 public:
  ProfileMove(const UserProfile& profile, const std::u16string& target, const ProfileMoveFlags& flags);

  // False: everything is as it was, or the log says where the profile is.
  bool Run();
  // All that Run asks before the contents move, for a run that only looks. Each refusal has its line in the log.
  bool MayRun();

 private:
  bool IsAllowed() const;
  bool IsNoRedirectedData() const;
  bool IsOnADrive() const;
  bool IsNobodyElses() const;
  bool List();
  bool MayMove();
  bool IsFitForIt();
  bool MoveContents();
  bool Follow();
  bool RestoreSecurity() const;
  void Finish() const;

  void TakeBack() noexcept;
  bool SomethingStayed() const;

  const UserProfile profile_;
  const std::u16string target_;
  const ProfileMoveFlags flags_;
  ProfilePlace place_;
  ProfileRecords records_;
  SavedSecurityMap savedSecurity_;
  MoveRecord moved_;
  bool contentsMoved_ = false;
};
