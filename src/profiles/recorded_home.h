// The profiles folder that the product's configuration recorded: where profiles come back to.
#pragma once

#include <string>

class CQBConfig;

// "DefaultProfilePath" of a loaded configuration, without blanks around it. Where it has none, or one that was made
// anew while new profiles went elsewhere names that place, the folder that was noted then. Empty when nothing tells.
std::u16string RecordedProfilesFolder(const CQBConfig& config);

// The same of the configuration on the disk; without the product's service, which it belongs to, ReadProfilesHome.
// False (logged) when it cannot be read, or has none.
bool ReadRecordedProfilesFolder(std::u16string& folder);
// The folder that Windows itself keeps profiles in, by its profile list: the one that it names, or had named when
// profiles were redirected from there. False (logged) when that cannot be told.
bool ReadProfilesHome(std::u16string& folder);
