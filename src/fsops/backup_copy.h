// One item copied with what a plain copy loses: security, named streams, extended attributes, object id, reparse data,
// sparse ranges, times and attributes. All answer 1 on success, 0 on failure.
//
// The process is expected to have SeBackupPrivilege and SeRestorePrivilege enabled.
#pragma once

#include <optional>
#include <string>

#include "fsops/copy_watch.h"
#include "fsops/descriptor.h"
#include "win32/file.h"

// What a backup copy learned of its source on the way, so that nobody has to ask again.
struct CopiedSource {
  bool isGone = false;         // the copy has failed: there was nothing to open
  bool targetIsTaken = false;  // the copy has failed: something stood at a target that was to be new
  // As they were when the copy began; nothing of an item that was copied in another way.
  std::optional<win32::BY_HANDLE_FILE_INFORMATION> information = std::nullopt;
  FolderDescriptor descriptor = {};  // owner, group, access list and audit entries; empty where it was not met
};

struct BackupCopyOptions {
  bool isDirectory = false;
  // Windows is asked about the source where the caller does not know.
  std::optional<bool> isReparsePoint = std::nullopt, isEncrypted = std::nullopt;
  // Nothing stood at a file's target when the caller looked: what stands there now is somebody's, and stays as it is.
  bool targetIsNew = false;
  // The times of the parent folder are not brought back in line: a tree copy does that once for each folder.
  bool leaveParentTimes = false;
  CopyWatch watch = {};  // of the bytes of a file
  CopiedSource* told = nullptr;
};

// Copies an item in large chunks; a directory is created first. An existing file is overwritten in place.
int BackupCopy(const std::u16string& source, const std::u16string& target, const BackupCopyOptions& options = {});

// Copies an item stream by stream, looking at every stream's header; the way of reparse points.
int BackupCopyEx(const std::u16string& source, const std::u16string& target, const BackupCopyOptions& options = {});

// Copies what a folder has of its own to another one that exists: security, named streams, extended attributes,
// attributes, times. Neither what it contains nor its reparse data: of a folder with a volume mounted on it, the folder
// is copied and not the mount.
int BackupCopyFolderItself(const std::u16string& source, const std::u16string& target);

struct TimesCopyOptions {
  std::optional<bool> isReparsePoint = std::nullopt;  // Windows is asked where the caller does not know
};
int CopyFileTimesAndAttributes(const std::u16string& source, const std::u16string& target,
                               const TimesCopyOptions& options = {});
// The same for the folders that hold the two items; nothing to do, and 1, when one of them is a drive's root.
int CopyParentDirectoryTimes(const std::u16string& source, const std::u16string& target);
