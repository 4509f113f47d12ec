// What the rules ask Windows about one path. What a refusal is called is in single_path.cpp.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// A path of this many characters or more is refused, although the messages speak of 248. Deliberate.
inline constexpr std::size_t kPathLengthLimit = 247;

bool DriveExists(const char16_t* path);
// "C:\" or "C:", with "\\?\" before it or without, whether there is such a drive or not.
bool IsDriveRoot(const char16_t* path);
bool IsNetworkPath(const char16_t* path);  // a UNC path, a path without a drive, or one on a network drive
bool IsOnFixedOrRemovableDrive(const char16_t* path);
bool IsRelativePath(const char16_t* path);  // blanks around it and quotes do not count
// The path without the blanks around it and without its quotes.
std::u16string TrimAndUnquote(std::u16string_view path);
// The path begins with "\\?\" and a drive. A link could not lead to what is so named, and no rule would see what it is.
bool IsExtendedDrivePath(std::u16string_view path);
// May the path stand in a redirection as it is written? No "." or "..", no odd separators or blanks, no "\\?\C:"; a
// refusal has its line in the log.
bool IsUsablePath(const std::u16string& path);
// The same for a profile. The names of devices, "\\?\C:" among them, would be other places than those that all the
// rules speak of.
bool IsOrdinaryPath(const std::u16string& path);
// Is the path shorter than kPathLengthLimit? A refusal has its line in the log.
bool HasAllowedLength(const std::u16string& path);

// The path's drive, or the volume that it is, has the file system NTFS. False also when that cannot be told.
bool IsOnNtfs(const char16_t* path);

struct SystemFolderOptions {
  bool insideProductOnly = false;  // of Windows and Program Files, let through the product's own folders alone
  bool quiet = false;              // no warning on the console about a folder below them
};
// 1 refuses the path: it is a system folder, or not one of the product's own where only those are let through, or
// Windows does not say which are its own.
int IsSystemFolder(const char16_t* path, const SystemFolderOptions& options = {});

// Neither "$RECYCLE.BIN" nor "System Volume Information" is above the path, as it is written or really is: Windows
// empties these when it likes, or lets nobody in. A refusal has its line in the log.
bool IsOutsideSystemFolders(const std::u16string& path);

// The path cut at its last backslash; 0 when it has none.
int GetParentDirPath(const char16_t* path, std::u16string& parent);
