// Steps that the registry commands have in common.
#pragma once

#include "configuration/service_config.h"

// Writes the file. A failure has its line in the log.
bool SaveConfiguration(CQBConfig& config);
