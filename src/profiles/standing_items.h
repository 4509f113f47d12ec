// What stands in a folder that a profile is about to be moved into, and becomes a part of the profile.
#pragma once

#include <string>
#include <vector>

class StandingItems {
 public:
  // Reads what is in `folder`. replaced: what `profile`, the folder that moves, has at the same place gets the security
  // of that. False (logged): of something else somebody but administrators, the system and the user (his SID) is the
  // owner, or an entry of its own lets him write; he could plant there what the user then runs.
  bool Examine(const std::u16string& folder, const std::u16string& profile, const std::u16string& user, bool replaced);
  // When the folder has become the profile: has what is still there inherit from it what it inherits, not from what
  // the folder was before.
  void InheritAnew() const;

 private:
  std::vector<std::u16string> items_;
};
