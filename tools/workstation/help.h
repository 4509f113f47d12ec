// What the workstation tool says of itself. docs/man/workstation.1.scd has the same synopses; a check compares them.
#pragma once

#include <cstdio>

#include "workstation/command.h"

namespace workstation {

// Every command with its forms, and the exit codes.
void PrintHelp(std::FILE* to);

// The forms of one command.
void PrintHelp(std::FILE* to, const Command& command);

}  // namespace workstation
