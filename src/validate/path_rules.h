// What the rules ask Windows about one path. What a refusal is called is in single_path.cpp.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// A path of this many characters or more is refused, although the messages speak of 248. Deliberate.
inline constexpr std::size_t kPathLengthLimit = 247;

bool DriveExists(const char16_t* path);
bool IsDriveRoot(
    const char16_t* path);  // "C:\" or "C:", with "\\?\" before it or without, whether there is such a drive or not
bool IsNetworkPath(const char16_t* path);  // a UNC path, a path without a drive, or one on a network drive
bool IsOnFixedOrRemovableDrive(const char16_t* path);
bool IsRelativePath(const char16_t* path);  // blanks around it and quotes do not count
// The path without the blanks around it and without its quotes.
std::u16string TrimAndUnquote(std::u16string_view path);
// May the path stand in a redirection as it is written? No "." or "..", no odd separators or blanks; a refusal has its
// line in the log.
bool IsUsablePath(const std::u16string& path);
// The same for a profile. The names of devices, "\\?\C:" among them, would be other places than those that all the
// rules speak of.
bool IsOrdinaryPath(const std::u16string& path);

// 1 for NTFS, 0 for FAT, -1 for every other file system and when it cannot be told.
int GetFileSystemType(const char16_t* path);

// 1 refuses the path: a system folder, or with insideProductOnly a folder of Windows or Program Files outside the
// product's own. Otherwise, unless a quiet flag is set, a folder below Windows or Program Files brings a warning on the
// console.
int IsSystemFolder(const char16_t* path, int insideProductOnly, int quiet1, int quiet2);

// The path cut at its last backslash; 0 when it has none.
int GetParentDirPath(const char16_t* path, std::u16string& parent);
