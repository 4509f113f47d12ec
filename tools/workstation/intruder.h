// Somebody else at work on the machine while the program runs.
#pragma once

#include <cstdint>
#include <string>

#include "win32/emulated/machine.h"

namespace workstation {

// A user who is no administrator makes a junction of a folder, in the moment before a call of the program's.
struct Intrusion {
  std::string call;          // its name; empty: any
  std::uint64_t number = 1;  // which of them, from 1
  std::u16string folder, target;
};

// "CALL|NUMBER|FOLDER|TARGET"; false for another text.
bool ParseIntrusion(const std::string& text, Intrusion& intrusion);

// Has it happen, once, as far as the access lists and the sharing of open files let such a user delete what is in the
// folder and change its attributes. `happened` (may be null) is told.
void Intrude(emulated::Machine& machine, const Intrusion& intrusion, bool* happened = nullptr);

}  // namespace workstation
