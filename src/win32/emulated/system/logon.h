// Users at the desktop.
#pragma once

#include <string_view>

#include "win32/emulated/machine.h"

namespace emulated {

// The user logs on: his hive is loaded below HKEY_USERS and his desktop, a process "explorer.exe", runs with a token of
// his. A user without a profile, or whose hive cannot be loaded, gets the process alone. The process's id; one who is
// logged on stays so.
win32::DWORD LogOn(Machine& machine, std::u16string_view sid);
// His desktop ends and his hive is unloaded, unless the program that runs is his. False when something of the hive is
// still open (it stays loaded).
bool LogOff(Machine& machine, std::u16string_view sid);

}  // namespace emulated
