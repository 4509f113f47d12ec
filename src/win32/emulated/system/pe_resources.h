// The resources of a portable executable file (the published PE/COFF format), read without trusting it.
#pragma once

#include <cstdint>
#include <optional>

#include "win32/emulated/bytes.h"

namespace emulated {

// The first resource of that numeric type, whatever its name and language; a part of `image`. Nothing when there is
// none, or when the file is not one of the kind or is damaged.
std::optional<ByteView> FindPeResource(ByteView image, std::uint16_t type);

}  // namespace emulated
