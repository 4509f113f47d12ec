// The keys of people's profiles below kProfileListPath, one a user, named by his SID.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "records/registry_text.h"

// The value that names the profile's folder.
inline constexpr const char16_t* kProfileImagePath = u"ProfileImagePath";

// Accounts of this machine and of domains, and those of a directory in the cloud. Services have others, and a key that
// Windows set aside ends with more than the SID.
bool IsSidOfPerson(std::u16string_view sid);
std::u16string ProfileKeyOf(const std::u16string& sid);  // below HKEY_LOCAL_MACHINE

// False when the registry did not tell all of them.
bool ReadSidsOfPeople(std::vector<std::u16string>& sids);

// Where the profiles of people are, and the Default and Public ones. False when the registry did not tell all of them.
bool ReadProfileFolders(std::vector<std::u16string>& folders);

// Is it one of these? False also when the registry does not tell.
bool IsProfileFolder(const std::u16string& folder);
