// The command RedirectRegKey: the list of the registry keys whose data the product's service preserves.
#pragma once

#include <string>

// The key below HKEY_LOCAL_MACHINE where Windows keeps which profile is whose. It must be preserved while new user
// profiles are redirected.
inline constexpr const char16_t* kProfileListKey =
    u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

// Each answers the exit code, 0 for success, and says on the console how it went; the log has the reasons of a failure.
int AddRedirectedRegKey(const char16_t* name);
int RemoveRedirectedRegKey(const char16_t* name);
int PrintRedirectedRegKeys();

// The name begins with "HKEY_LOCAL_MACHINE\" (in any case of letters) and the key exists, be it closed to the user.
bool IsValidRegistryPath(const std::u16string& name);
// False for "HKEY_LOCAL_MACHINE\SOFTWARE" and "HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft" as a whole, also with a backslash
// at the end. What lies below them is allowed.
bool IsAllowedRegistryKey(const std::u16string& name);
