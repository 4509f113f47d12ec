// One item copied with what a plain copy loses: security, named streams, extended attributes, object id, reparse data,
// sparse ranges, times and attributes. All answer 1 on success, 0 on failure.
//
// The process is expected to have SeBackupPrivilege and SeRestorePrivilege enabled.
#pragma once

#include <string>

#include "win32/types.h"

// What is known of an item before it is copied, so that Windows need not be asked again.
struct ItemKind {
  bool isDirectory = false;
  bool isReparsePoint = false;
  bool isEncrypted = false;
};

// Copies an item in large chunks; a directory is created first. An existing file is overwritten in place.
int BackupCopy(const std::u16string& source, const std::u16string& target, int isDirectory);
// The same for a known kind of item, and without bringing the parent folder's times back in line: a tree copy does that
// once for each folder.
int BackupCopyItem(const std::u16string& source, const std::u16string& target, ItemKind kind);

// Copies an item stream by stream, looking at every stream's header; the way of reparse points.
int BackupCopyEx(const std::u16string& source, const std::u16string& target, int isDirectory);
int BackupCopyItemEx(const std::u16string& source, const std::u16string& target, ItemKind kind);

// Copies what a folder has of its own to another one that exists: security, named streams, extended attributes,
// attributes, times. Neither what it contains nor its reparse data: of a folder with a volume mounted on it, the folder
// is copied and not the mount.
int BackupCopyFolderItself(const std::u16string& source, const std::u16string& target);

// What an encrypted item needs instead of a backup copy.
enum class EncryptedCopy : int { Copied = 0, Failed = 1, NotEncrypted = 2 };
EncryptedCopy CopyEncryptedItem(const std::u16string& source, const std::u16string& target, int isDirectory);

int CopyFileTimesAndAttributes(const std::u16string& source, const std::u16string& target);
int CopyFileTimesAndAttributes(const std::u16string& source, const std::u16string& target, bool isReparsePoint);
// The same for the folders that hold the two items; nothing to do, and 1, when one of them is a drive's root.
int CopyParentDirectoryTimes(const std::u16string& source, const std::u16string& target);
