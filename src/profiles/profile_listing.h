// The list of redirected user profiles.
#pragma once

// Prints every profile that is not in the recorded default profiles folder, "name   folder" a line below a header, by
// name; nothing when there is none. 0 when the configuration or the registry cannot be read (logged).
int ListRedirectedProfiles();
