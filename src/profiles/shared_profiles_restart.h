// What Windows still has to delete or rename at the next restart (PendingFileRenameOperations).
#pragma once

#include <string>
#include <vector>

enum class RestartOwed { No, Yes, Unknown };

// Is anything at one of these places, or below one, to be deleted, renamed or put there at the next restart? Yes and
// Unknown (the registry does not tell) have their line in the log.
RestartOwed IsRestartOwed(const std::vector<std::u16string>& places);
