// How programs, reparse points and the registry name volumes and what is on them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "win32/constants.h"
#include "win32/emulated/machine.h"

namespace emulated {

// The object manager's name of a full path: \??\C:\x for C:\x and for \\?\C:\x.
std::u16string NtPath(std::u16string_view fullPath);

// u"\\\\?\\Volume{GUID}\\" and nothing behind it.
bool IsVolumeName(std::u16string_view name);

// The root of the volume as a program reaches it: u"D:\\", or its name when it has no letter.
std::u16string RootPath(const MountedVolume& volume);

// The volume whose root the path is: u"X:\\" (with or without \\?\) or a volume name. Null when it is no root or there
// is no such volume; `isRoot` tells which.
MountedVolume* VolumeOfRoot(std::u16string_view path, bool* isRoot = nullptr);

// The reparse buffer of a folder on which the volume is mounted, and the volume name that such a buffer leads to:
// nothing for a junction, a symbolic link and what is malformed.
Bytes MountPointData(std::u16string_view volumeName);
std::optional<std::u16string> MountedVolumeName(ByteView reparseData);

}  // namespace emulated
