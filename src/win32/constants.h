// Windows' constants, under Windows' own names.
#pragma once

#include "win32/types.h"

namespace win32 {

#define WIN32_CONSTANT(type, name, value) inline constexpr type name = static_cast<type>(value);
#include "win32/constants.inc"
#undef WIN32_CONSTANT

}  // namespace win32
