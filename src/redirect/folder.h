// Folder redirection: a folder's contents live elsewhere, a junction stays in its place.
#pragma once

// Moves the contents of `source` to `target`\<source's name>, makes `source` a junction to it and records the pair.
// copyNtfsPermissions: with security, streams and times; copyShares: network shares follow.
// 0 on success. 1 on failure: everything is back at its place, or the log says where the data is.
int RedirectFolder(const char16_t* source, const char16_t* target, int copyNtfsPermissions, int copyShares);

// Moves the contents back, takes the junction and the record away. `target` is the folder that holds the contents or,
// as with RedirectFolder, the folder it was made in. Results as above.
int RemoveFolderRedirection(const char16_t* source, const char16_t* target, int copyNtfsPermissions, int copyShares);
