// Steps that the registry commands have in common.
#pragma once

#include <string>

#include "configuration/service_config.h"

// Writes the file. A failure has its line in the log.
bool SaveConfiguration(CQBConfig& config);

// Prints the message of this number; 1, the exit code.
int SayAdministratorsOnly(unsigned message);
