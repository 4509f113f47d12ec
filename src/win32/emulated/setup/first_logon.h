// What Windows does when an account logs on for the first time: it gets a profile.
#pragma once

#include <string>

#include "win32/emulated/security/accounts.h"

namespace emulated {

// Makes the profile of an account on a running machine: in the folder that the profile list's ProfilesDirectory names,
// a copy of the one that Default names, its hive included, with a descriptor of its own, its links led into it,
// pictures of the account in the folder that Public names (from Windows 8 on), and its key in the profile list. A name
// that is taken gets the domain's name behind it, then a number. 0 or an error: 183 for an account that has a profile,
// 2 when the default profile has no NTUSER.DAT, 1009 when that is no sound hive, 3 for a folder that is missing.
// `folder` is where it is.
win32::DWORD CreateUserProfile(Machine& machine, const Account& account, std::u16string& folder);

}  // namespace emulated
