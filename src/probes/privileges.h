// Who runs the program, and with which privileges.
#pragma once

#include "resources/string_ids.h"
#include "win32/handle.h"

// The built-in Administrators group, S-1-5-32-544. Empty when it cannot be made.
win32::UniqueSid AdministratorsSid();

// True when the token (the thread's, else the process's) lists the Administrators group, whatever its attributes: a
// deny-only entry of a token that is not elevated counts, too. The test of the start-up.
bool IsUserAdministrator();

// True when the token is a member of the Administrators group in effect: the test of the commands.
bool IsMemberOfAdministrators();

// Enables the privileges with which files are read, written and owned past their security: SeSecurityPrivilege,
// SeBackupPrivilege, SeRestorePrivilege, SeDebugPrivilege, SeTakeOwnershipPrivilege. One that the account lacks does no
// harm. False when a name is not known or Windows refused the whole request.
bool EnablePrivileges();

// Enables one privilege of the process. A privilege that the account lacks counts as Enabled: Windows reports it apart.
enum class PrivilegeResult { Enabled, NotFound, NotAdjusted };
PrivilegeResult EnablePrivilege(const char16_t* name);

// Does the token (the thread's, else the process's) have the privilege, enabled or not? False when Windows does not
// tell.
bool HoldsPrivilege(const char16_t* name);

// Is the caller an administrator in effect? The console tells one who is not, with this text.
bool IsAdministrator(StringId refusal = StringId::NeedsAdministrator);
