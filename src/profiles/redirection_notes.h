// What automatic redirection and the commands on the Default and Public profiles made, and what stood there before
// (32-bit view, SOFTWARE\Velmora\Quillbay\ProfileRedirection): a removal takes back just that, and the way home is
// known even when the configuration was lost.
//
// A note is made before what it tells of, and dropped after that was taken back. So it counts only where Windows or the
// configuration names the place that it tells of.
#pragma once

#include <optional>
#include <string>

#include "profiles/profile_folders.h"

// New user profiles are created elsewhere.
struct NewProfilesNote {
  std::u16string home;                // the profiles folder before
  std::u16string location;            // the profiles folder since
  bool setsRegistryLocation = false;  // the location for registry data was set with it
  bool monitorsProfileList = false;   // so was the monitored key
};

// The Default or the Public profile is elsewhere.
struct SharedProfileNote {
  std::u16string original;
  std::u16string copy;
  std::u16string volume;  // the name of the one that holds the copy; empty when Windows did not tell
};

// Each answers false, with a line in the log, when the registry does not tell or refuses. No note is no failure.
bool ReadNote(std::optional<NewProfilesNote>& note);
bool WriteNote(const NewProfilesNote& note);
bool ReadNote(ProfileFolder which, std::optional<SharedProfileNote>& note);
bool WriteNote(ProfileFolder which, const SharedProfileNote& note);

// Drops the note on new profiles (ProfilesDirectory), or on one of the two. Should the registry refuse, the log tells.
void DropNote(ProfileFolder which);
