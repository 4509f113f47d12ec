// The removal of a redirection onto a folder.
#pragma once

#include <string>

#include "fsops/carried_along.h"

// Moves the contents of `source`, a recorded junction, back from `target` (the folder that holds them, or the one in
// which that was made) and takes junction and record away. On false the log says what failed: the redirection is as it
// was, or everything is back but something else could not follow (a redirection inside this one, a share).
bool RemoveFolderFromFolder(const std::u16string& source, const std::u16string& target, CarriedAlong carried);
