// Folders on which volumes are mounted: asked about by the rules, made and undone by the commands and engines.
#pragma once

#include <string>
#include <string_view>

// The path names a volume by its GUID: it begins with "\\?\Volume{", in any case of letters.
bool IsVolumePath(const char16_t* path);
// The same to the letter, for who takes every other spelling for a folder.
bool IsExactVolumePath(std::u16string_view path);

// 1 when a volume is mounted on the folder; its name ("\\?\Volume{...}\") then goes to volumeName (when given). A path
// of fewer than 4 characters, a drive's root, never is.
int IsVolumeMountPoint(const char16_t* folder, std::u16string* volumeName = nullptr);

// Mounts the volume, named by its GUID, on an empty folder (both with or without a backslash at the end). False with
// the last error: the folder is as it was.
bool MountVolume(const std::u16string& folder, const std::u16string& volume);
// Takes the mounted volume off; the folder under it, empty, stays. False with the last error: it is still mounted.
bool UnmountVolume(const std::u16string& folder);

// Is it this volume ("\\?\Volume{...}\") that is mounted on the folder?
bool IsMountedOn(const std::u16string& folder, const std::u16string& volume);
