// The console's bytes for a terminal of the host.
#pragma once

#include <string>
#include <string_view>

#include "win32/types.h"

namespace emulated {

// Bytes of an OEM code page as UTF-8; the bytes themselves when the page is not known.
std::string OemToUtf8(std::string_view bytes, win32::UINT codePage);

}  // namespace emulated
