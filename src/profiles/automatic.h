// Automatic redirection: new user profiles are created at another place. docs/profiles.md has the order of the steps.
#pragma once

#include <string>
#include <vector>

// What the console says of a volume as the location, and does no more.
inline constexpr char16_t kNotOnVolume[] = u"AutoRedirectNewUserProfile cannot be done on volume.";

// Each answers the exit code, 0 for success, and says on the console how it went; the log has the reasons of a failure.

// withSharedProfiles: the Default and Public profiles go there, too.
int SetAutoRedirection(const char16_t* location, bool withSharedProfiles);
// All that it asks before it changes anything; console or log have the reason of each refusal. `copied` gets the
// folders of the profiles that would go along.
bool MaySetAutoRedirection(const std::u16string& location, bool withSharedProfiles,
                           std::vector<std::u16string>& copied);
int RemoveAutoRedirection();
int ShowAutoRedirection();
