// Accounts and the people who use them.
#pragma once

#include <string>

// The SID of the account with this name ("anna", "CORP\maria", "maria@corp.example") as text; empty when there is no
// such user.
std::u16string SidOfAccount(const std::u16string& name);
// The name of the account, without its domain; empty when nobody knows the SID.
std::u16string NameOfAccount(const std::u16string& sid);

// Does a process "Explorer.exe" of this user run? The user is named as for GetUserProfile.
bool IsUserLoggedOn(const std::u16string& user);
