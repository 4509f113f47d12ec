// CopyFileExW's work, which MoveFileExW does too when it moves a file to another volume.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "win32/types.h"

namespace emulated {

// Copies a file: data, named streams, extended attributes, attributes and last write time; the descriptor is what the
// target's directory gives. `linkItself`: a symbolic link is copied as one. 80 when the target exists and may not.
// `goesOn` is asked at the beginning of each stream and after each piece: false ends the copy with 1235.
using CopyGoesOn = std::function<bool(std::uint64_t total, std::uint64_t transferred)>;
win32::DWORD CopyWholeFile(std::u16string_view from, std::u16string_view to, bool failIfExists, bool linkItself,
                           const CopyGoesOn& goesOn = {});

}  // namespace emulated
