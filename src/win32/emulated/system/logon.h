// Users at the desktop.
#pragma once

#include <string_view>

#include "win32/emulated/machine.h"

namespace emulated {

// The user logs on: his hives are loaded as SID and SID_Classes below HKEY_USERS, and his desktop, a process
// "explorer.exe", runs with a token of his. A user without a profile, or whose hives cannot be loaded, gets the process
// alone. The process's id; one who is logged on stays so.
win32::DWORD LogOn(Machine& machine, std::u16string_view sid);
// His desktop ends and his hives are unloaded, unless the program that runs is his. False when something of one is
// still open (it stays loaded).
bool LogOff(Machine& machine, std::u16string_view sid);

}  // namespace emulated
