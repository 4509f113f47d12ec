// May profiles go to this place? Each operation that says no has its line in the log, and none changes anything.
#pragma once

#include <string>
#include <vector>

// A place for profiles by the rules for a target folder, which is apart from `home`, the folder that holds the profiles
// now. A drive's root will do where allowDriveRoot says so.
bool MayHoldProfiles(const std::u16string& location, const std::u16string& home, bool allowDriveRoot);

// Is the volume there that held this folder? `volume`: its name, where it was noted; otherwise the folder's path tells.
bool IsVolumeThere(const std::u16string& folder, const std::u16string& volume);

// Is there a folder here that is no link?
bool IsFolderAndNoLink(const std::u16string& folder);

// Do the contents of a folder or file that is redirected lie in here? They are one with a link elsewhere, and a copy of
// them would be nobody's. True also when the records cannot be read.
bool HoldsRedirectedData(const std::u16string& folder);

// The place for a copy is missing, or an empty folder.
bool IsFree(const std::u16string& folder);

// Has the volume of `location` room for all these trees together?
bool HasRoomFor(const std::vector<std::u16string>& trees, const std::u16string& location);
