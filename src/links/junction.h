// Junctions (directories that carry a mount-point reparse point) and symbolic links.
//
// All operations answer 1 (success, yes) or 0 (failure, no), leave a line in the log when they fail and never throw.
#pragma once

#include <string>

#include "win32/handle.h"

// What the file system tells of an item in a find record, and what a link is to this program: the reparse attribute
// with the tag of a junction (or mounted volume) or of a symbolic link. Other tags (compressed, deduplicated, cloud
// files) mark ordinary files and folders.
inline bool IsJunctionRecord(win32::DWORD attributes, win32::DWORD reparseTag) {
  return (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0 && reparseTag == win32::IO_REPARSE_TAG_MOUNT_POINT;
}
inline bool IsSymbolicLinkRecord(win32::DWORD attributes, win32::DWORD reparseTag) {
  return (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0 && reparseTag == win32::IO_REPARSE_TAG_SYMLINK;
}

// Is an item with this reparse tag whole in its own streams? Links are, Windows' compressed files, and what apps and
// the Linux subsystem mark. Of a cloud provider's, deduplicated or tiered file the streams are an empty shell, and of
// an unknown tag nobody can tell.
bool IsWholeInItsStreams(win32::DWORD reparseTag);

struct ReparseOpenOptions {
  bool forWrite = false;  // read and written; else only read
};
// Opens a directory itself, not what its reparse point leads to, for this caller alone. Enables SeRestorePrivilege
// (forWrite) or SeBackupPrivilege first. Without a path, or when the privilege cannot be enabled, nothing is opened.
win32::UniqueFile OpenReparseDirectory(const char16_t* path, const ReparseOpenOptions& options = {});

// Makes `junction` (a directory, made if it does not exist) lead to `target`, a folder that exists. A target of more
// than 255 characters does not fit the reparse data and is refused. On failure a folder that could be opened and is
// empty is removed, even one that stood there before; one that could not be opened stays.
int CreateJunction(const char16_t* junction, const char16_t* target);

// Has a junction lead to another folder; all else that it has stays, in its data, too (LedTo). 0: it leads where it
// led. (What is no junction, or a mounted volume's folder, stays as it is.)
int ChangeJunctionTarget(const char16_t* junction, const char16_t* target);

// Takes the reparse point off a junction; an empty folder stays behind. 0 for anything that is not a junction.
int DeleteJunction(const char16_t* path);

struct JunctionTestOptions {
  bool excludeMountedVolume = false;  // a folder on which a volume is mounted does not count
};
// 1 for a directory with a mount-point reparse point. A junction that somebody else holds open cannot be read and
// answers 0.
int IsJunction(const char16_t* path, const JunctionTestOptions& options = {});

// 1 for a symbolic link to a file or to a directory.
int IsSymbolicLink(const char16_t* path);

// The reparse tag of a junction, mounted volume or symbolic link, from its find record; 0 for everything else.
win32::DWORD LinkTagAt(const std::u16string& path);

// Where a junction leads, as its reparse data say (at most 259 characters).
int GetJunctionTarget(const char16_t* path, std::u16string& target);

struct SymbolicLinkOptions {
  bool forceFileLink = false;       // a link to a file, whatever the target is
  bool forceDirectoryLink = false;  // a link to a directory
};
// Makes a symbolic link: to a directory when the target is one, else to a file. Logs nothing.
int CreateSymbolicLinkEntry(const char16_t* link, const char16_t* target, const SymbolicLinkOptions& options = {});
