// CopyFileW's work, which MoveFileExW does too when it moves a file to another volume.
#pragma once

#include <string_view>

#include "win32/types.h"

namespace emulated {

// Copies a file: data, named streams, extended attributes, attributes and last write time; the descriptor is what the
// target's directory gives. `linkItself`: a symbolic link is copied as one. 80 when the target exists and may not.
win32::DWORD CopyWholeFile(std::u16string_view from, std::u16string_view to, bool failIfExists, bool linkItself);

}  // namespace emulated
