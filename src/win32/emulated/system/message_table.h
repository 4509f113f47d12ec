// The English texts of Windows' message tables.
#pragma once

#include <string_view>

#include "win32/types.h"

namespace emulated {

// A text as the table has it, its line break at the end included; empty for a number without one.
std::u16string_view SystemMessage(win32::DWORD id);   // the system's own
std::u16string_view NetworkMessage(win32::DWORD id);  // of netmsg.dll (NERR_*)

}  // namespace emulated
