// Steps that the registry commands have in common.
#pragma once

#include <string>

#include "regredirect/service_config.h"

// The state of the location: 0 while none is set. False, and the log says so, when the file lacks it.
bool ReadLocation(const CQBConfig& config, int& status, std::u16string& location);
// Writes the file. A failure has its line in the log.
bool SaveConfiguration(CQBConfig& config);

// Prints the message of this number; 1, the exit code.
int SayAdministratorsOnly(unsigned message);
