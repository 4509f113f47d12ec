// Rimehold's state.
#pragma once

#include <optional>
#include <string>

// 1 not installed (or a text that is not known), 2 Frozen, 3 Thawed, 4 Thawed and Locked, 5 maintenance, 6 seed, 7
// applying a batch file, 8 applying Windows Update, 9 Thawed period; `message` says it in words.
int GetRHStatus(std::u16string& message);

// True only when Rimehold's service is installed and the status is Frozen.
bool IsRimeholdFrozen();
// The same for who must not take a question that failed for a no: nothing when Windows does not tell.
std::optional<bool> TellWhetherFrozen();

// The "RegRedirect" folder beside the executable of Rimehold's service. False without that service.
bool GetRegRedirectPath(std::u16string& path);
