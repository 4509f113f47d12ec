// Folder redirection: a folder's contents live elsewhere. In its place a junction leads to them, or the volume that
// holds them is mounted.
#pragma once

#include "fsops/carried_along.h"

// Moves the contents of `source` to `target`\<source's name>, makes `source` a junction to it and records the pair.
// With a volume's name as the target, the contents move to the volume, which is then mounted at `source`.
// 0 on success. 1 on failure: everything is back at its place, or the log says where the data is.
int RedirectFolder(const char16_t* source, const char16_t* target, CarriedAlong carried);
// All that RedirectFolder asks before it changes anything. Each refusal has its line in the log.
bool MayRedirectFolder(const char16_t* source, const char16_t* target);

// Moves the contents back, takes the junction (the mount) and the record away. `target` is the folder that holds the
// contents, the folder it was made in, or the volume. Results as above.
int RemoveFolderRedirection(const char16_t* source, const char16_t* target, CarriedAlong carried);
