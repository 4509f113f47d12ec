// Where paths really lead: one folder can be named in many ways - by a junction above it, a short name, a second
// folder that its volume is mounted on.
#pragma once

#include <optional>
#include <string>

#include "win32/handle.h"

// The nearest folder of the path that exists, the path itself first; empty when there is none.
std::u16string NearestFolder(std::u16string path);

// Where the opened item lies: no links on the way to it, below the name of its volume ("\\?\Volume{...}\x"), which
// every local volume has, and just one. Empty when Windows does not tell.
std::u16string PathOf(const win32::UniqueFile& item);

// The drive-letter path (at most 259 characters) of what is reached when every link in `path` is followed. 1, or 0 with
// a line in the log when there is none.
int GetFinalTargetPath(const char16_t* path, std::u16string& target);
// The same, for who can do without: the log is told nothing.
int FindFinalTargetPath(const char16_t* path, std::u16string& target);

// The path by the names that its existing part really has. As it is when it does not begin with a drive or a volume's
// name, and when Windows does not tell.
std::u16string RealPath(const std::u16string& path);

// The same with the name of the volume ("\\?\Volume{...}\x") for what it is mounted on: a volume may be mounted on
// several folders, and has one name.
std::u16string RealVolumePath(const std::u16string& path);

// IsSameOrBelow, by the paths as they are written or as they really are.
bool IsReallySameOrBelow(const std::u16string& path, const std::u16string& folder);
// Neither is the other, lies in it or holds it: by the paths as they are written and as they really are.
bool AreApart(const std::u16string& a, const std::u16string& b);

// What of `path` is behind `folder`, empty or from a backslash on, when it goes by the folder's own name: nothing when
// it does not, also when a link on the way leads into the folder or past it.
std::optional<std::u16string> BehindFolder(const std::u16string& path, const std::u16string& folder);
// Where the item itself is, be it a link: the real path of the folder that it is in, by the name of the volume, and its
// name.
std::u16string RealPlace(const std::u16string& path);

// What stands at the path bears another name, and has the path's last one as its short name only; or that is not told.
// For paths that are made of a folder and a name: whoever types a short name means the item.
bool IsShortNameOfAnother(const std::u16string& path);

// The path with every component that exists as the disk has it: the command may have written it in another letter case
// or as a short name. Links are not followed. What the disk does not tell stays as it is, and so does a path that
// Windows would not write so, or that does not begin with a drive.
std::u16string AsStored(const std::u16string& path);
