// Automatic redirection: new user profiles are created at another place. docs/profiles.md has the order of the steps.
#pragma once

// Each answers the exit code, 0 for success, and says on the console how it went; the log has the reasons of a failure.

// withSharedProfiles: the Default and Public profiles go there, too.
int SetAutoRedirection(const char16_t* location, bool withSharedProfiles);
int RemoveAutoRedirection();
int ShowAutoRedirection();
