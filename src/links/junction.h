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

// Opens a directory itself, not what its reparse point leads to, for this caller alone. Enables SeRestorePrivilege
// (forWrite) or SeBackupPrivilege first. Without a path, or when the privilege cannot be enabled, nothing is opened.
win32::UniqueFile OpenReparseDirectory(const char16_t* path, int forWrite);

// Makes `junction` (a directory, made if it does not exist) lead to `target`, a folder that exists. 0: nothing is left
// at `junction` that was empty before. A target of more than 255 characters does not fit the reparse data and is
// refused.
int CreateJunction(const char16_t* junction, const char16_t* target);

// Has a junction lead to another folder; its security, attributes and times stay. 0: it leads where it led. (What is no
// junction, or a mounted volume's folder, stays as it is.)
int ChangeJunctionTarget(const char16_t* junction, const char16_t* target);

// Takes the reparse point off a junction; an empty folder stays behind. 0 for anything that is not a junction.
int DeleteJunction(const char16_t* path);

// 1 for a directory with a mount-point reparse point. Folders on which a volume is mounted count unless
// excludeMountedVolume is set. A junction that somebody else holds open cannot be read and answers 0.
int IsJunction(const char16_t* path, int excludeMountedVolume);

// 1 for a symbolic link to a file or to a directory.
int IsSymbolicLink(const char16_t* path);

// The reparse tag of a junction, mounted volume or symbolic link, from its find record; 0 for everything else.
win32::DWORD LinkTagAt(const std::u16string& path);

// Where a junction leads, as its reparse data say (at most 259 characters).
int GetJunctionTarget(const char16_t* path, std::u16string& target);

// The drive-letter path (at most 259 characters) of what is reached when every link in `path` is followed.
int GetFinalTargetPath(const char16_t* path, std::u16string& target);
// The same, for who can do without: the log does not tell that there is no such path.
int FindFinalTargetPath(const char16_t* path, std::u16string& target);
// The same below the name of the volume ("\\?\Volume{...}\x"), which every local volume has, and just one.
int FindFinalVolumePath(const char16_t* path, std::u16string& target);

// Makes a symbolic link: to a directory when the target is one and forceFileLink is 0, else to a file. Logs nothing.
int CreateSymbolicLinkEntry(const char16_t* link, const char16_t* target, int forceFileLink);
