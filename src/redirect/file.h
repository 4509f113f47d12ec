// File redirection: a file lives elsewhere, and a symbolic link in its place leads there.
//
// A run that is cut off leaves the file complete at its old place or at the new one; between the two there may be
// neither file nor link at the old place. The log names the new place before the old one is touched. What a redirected
// file was to replace is then beside it, with ".kept1" (or the next free number) behind its name; on the way back,
// ".copy1" marks a copy that is not in its place yet, and may be unfinished.
#pragma once

// Moves the file `source` into the folder `target`, leaves a symbolic link and records the pair. A file of its name in
// the folder is replaced. copyNtfsPermissions: with owner and access entries; times and attributes always.
// 0 on success. 1 on failure: the file is back at its place, or the log says where it is.
int RedirectFile(const char16_t* source, const char16_t* target, int copyNtfsPermissions);
// All that RedirectFile asks before it touches the file; for a run that only looks.
bool MayRedirectFile(const char16_t* source, const char16_t* target);

// Moves the file back in the place of the link `source` and takes the record away. `target` is the file, or the folder
// that it is in. Results as above; a file that is complete at its old place stays there even when a later step fails.
// Afterwards the product's service is switched off if it has no work left.
int RemoveFileRedirection(const char16_t* source, const char16_t* target);
