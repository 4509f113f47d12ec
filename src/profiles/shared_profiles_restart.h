// What Windows still has to delete or rename at the next restart (PendingFileRenameOperations).
#pragma once

#include <string>
#include <vector>

enum class RestartOwed { No, Yes, Unknown };

// Is anything at one of these places, or below one (by the paths as they are written or really are), to be deleted,
// renamed or put there at the next restart? Yes and Unknown (the registry does not tell) have their line in the log.
RestartOwed IsRestartOwed(const std::vector<std::u16string>& places);
