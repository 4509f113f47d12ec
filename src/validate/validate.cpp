#include "validate/validate.h"

#include <exception>
#include <string_view>

#include "fsops/security.h"
#include "log/log.h"
#include "probes/services.h"
#include "redirect/path_text.h"
#include "validate/prescan.h"
#include "validate/relations.h"
#include "win32/win32.h"

namespace {

// The rules, one each: true when the path passes, else false with the rule's line in the log.

bool Exists(const char16_t* path) {
  if (win32::PathFileExistsW(path)) return true;
  LogWithSystemError(u"#ERROR: The selected folder %ls does not exist.", path);
  return false;
}

bool IsNotDriveRelative(const char16_t* path) {
  const std::u16string_view text = path;
  if (text.size() < 2 || text[1] != u':' || (text.size() > 2 && text[2] == u'\\')) return true;
  Log(u"#ERROR:Invalid path : %ls", path);
  return false;
}

void LogNetworkPath(const char16_t* path) {
  Log(u"#ERROR: The selected folder %ls is a UNC path representing a network resource. Browse to a different location.",
      path);
}
void LogRelativePath(const char16_t* path) {
  Log(u"#ERROR: The selected folder %ls is a relative path. Browse to a different location", path);
}

// A path without a drive letter never gets as far as the rules that would name what it is, so its kind is told here.
bool HasExistingDrive(const char16_t* path) {
  if (DriveExists(path)) return true;
  Log(u"#ERROR: %ls - The specified drive does not exists.", path);
  if (win32::PathIsUNCW(path))
    LogNetworkPath(path);
  else if (win32::PathGetDriveNumberW(path) < 0 && IsRelativePath(path))
    LogRelativePath(path);
  return false;
}

bool IsNotDriveRoot(const char16_t* path) {
  if (!IsDriveRoot(path)) return true;
  Log(u"#ERROR: %ls - A folder is required for folder redirection. Browse to a different location.", path);
  return false;
}

bool IsOnNtfs(const char16_t* path) {
  if (GetFileSystemType(path) == 1) return true;
  Log(u"#ERROR: Folder %ls must be on NTFS formatted volume. Browse to a different location.", path);
  return false;
}

bool IsLocal(const char16_t* path) {
  if (!IsNetworkPath(path)) return true;
  LogNetworkPath(path);
  return false;
}

bool IsDirectory(const char16_t* path) {
  if (win32::PathIsDirectoryW(path)) return true;
  Log(u"#ERROR: The specified path %ls is not a valid directory path.", path);
  return false;
}

bool IsDirectoryOrToBeMade(const char16_t* path, bool mustExist) {
  if (mustExist || win32::PathFileExistsW(path)) return IsDirectory(path);
  Log(u"#INFO: The selected target folder %ls does not exist. Ignoring PathIsDirectory validation.", path);
  return true;
}

bool IsShortEnough(const char16_t* path) {
  if (std::u16string_view(path).size() < kPathLengthLimit) return true;
  Log(u"#ERROR: The specified path %ls exceeds the system-defined maximum length of 248 characters. Browse to a "
      u"different "
      u"location.",
      path);
  return false;
}

bool IsNotRelative(const char16_t* path) {
  if (!IsRelativePath(path)) return true;
  LogRelativePath(path);
  return false;
}

bool IsOnUsableDrive(const char16_t* path) {
  if (IsOnFixedOrRemovableDrive(path)) return true;
  Log(u"#ERROR: Folder %ls must be on fixed or removable drive. Browse to a different location.", path);
  return false;
}

// Whether the target alone can be read: for operations that leave the source as it is.
bool CheckTargetAccess(const char16_t* target, int allowLockedSpecialCase) {
  const bool isDirectory = target && win32::PathIsDirectoryW(target);
  if (isDirectory && allowLockedSpecialCase) {
    Log(u"##INFO: %ls - Folder locked but allowing it anyways (special case).", target);
    return true;
  }
  bool passed = true;
  if (!target || !HasAccess(ImpersonatedCaller().token(), target, kReadAndExecute)) {
    Log(u"##ERROR: %ls - Insufficient permissions. The minimum permissions requirement is read & execute.", target);
    passed = false;
  }
  if (target && !isDirectory && !IsFileNotLocked(target)) {
    Log(u"##INFO: %ls - File is not accessible.", target);
    passed = false;
  }
  return passed;
}

}  // namespace

int ValidateSourcePath(const char16_t* path, int quiet1, int quiet2) try {
  if (!path) {
    Log(u"#ERROR: Input path missing.");
    return 0;
  }
  return Exists(path) && IsNotDriveRelative(path) && HasExistingDrive(path) && IsNotDriveRoot(path) && IsOnNtfs(path) &&
                 IsLocal(path) && IsDirectory(path) && IsShortEnough(path) && IsNotRelative(path) &&
                 IsOnUsableDrive(path) && !IsSystemFolder(path, 0, quiet1, quiet2)
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}

int ValidateTargetPath(const char16_t* path, int mustExist, int allowDriveRoot, int quiet1, int quiet2) try {
  if (!path) {
    Log(u"#ERROR: Input path missing.");
    return 0;
  }
  const bool must = mustExist != 0;
  return (!must || Exists(path)) && IsNotDriveRelative(path) && HasExistingDrive(path) &&
                 (!must || allowDriveRoot || IsNotDriveRoot(path)) && IsOnNtfs(path) && IsLocal(path) &&
                 IsDirectoryOrToBeMade(path, must) && IsShortEnough(path) && IsNotRelative(path) &&
                 IsOnUsableDrive(path) && (!must || !IsSystemFolder(path, allowDriveRoot, quiet1, quiet2))
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}

int ValidateRedirectionPaths(const char16_t* source, const char16_t* target, int prescanFlag,
                             int sourceIsRedirectedProfile, int excludeMountedVolume, int quietSystemFolder,
                             int stopMediaSharing, int allowLockedSpecialCase, int targetOnly) try {
  if (!targetOnly && !ValidateSourcePath(source, sourceIsRedirectedProfile, quietSystemFolder)) return 0;

  LazyListing sourceTree(source);
  const bool targetPassed = ValidateTargetPath(target, 0, 0, 0, 0) != 0;
  int result = targetPassed ? 1 : 0;
  if (!CheckPathRelations(source, target, !targetPassed, sourceIsRedirectedProfile, excludeMountedVolume,
                          quietSystemFolder, sourceTree))
    result = 0;
  if (stopMediaSharing && IsServiceRunning(kMediaSharingService))
    ControlServiceAndWait(kMediaSharingService, win32::SERVICE_CONTROL_STOP);
  if (targetOnly && !CheckTargetAccess(target, allowLockedSpecialCase)) result = 0;
  if (!PreScanListing(source, target, source ? sourceTree.Get() : nullptr, prescanFlag, allowLockedSpecialCase))
    result = 0;
  return result;
} catch (const std::exception&) {
  return 0;
}
