#include "validate/validate.h"

#include <exception>

#include "fsops/file_list.h"
#include "fsops/security.h"
#include "probes/services.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "validate/prescan.h"
#include "validate/relations.h"
#include "win32/win32.h"

namespace {

// Whether the target alone can be read: for operations that leave the source as it is.
bool CheckTargetAccess(const char16_t* target, bool allowLockedSpecialCase) {
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

void StopMediaSharing() {
  OnlyLooks* const look = OnlyLooks::Current();
  if (!look)
    StopServiceIfRunning(kMediaSharingService);
  else if (IsServiceRunning(kMediaSharingService))
    look->Leave(u"What Windows' media sharing, which runs, holds open: the command stops it first.");
}

}  // namespace

int ValidateRedirectionPaths(const char16_t* source, const char16_t* target, const RedirectionOptions& options) try {
  const bool quiet = options.sourceIsRedirectedProfile || options.quietSystemFolder;
  if (!options.targetOnly && !ValidateSourcePath(source, {.quiet = quiet})) return 0;

  const FolderTree sourceTree(source);
  const bool targetPassed = ValidateTargetPath(target) != 0;
  bool passed = targetPassed;
  if (!CheckPathRelations(sourceTree, target,
                          {.skipTarget = !targetPassed,
                           .sourceIsRedirectedProfile = options.sourceIsRedirectedProfile,
                           .quietSystemFolder = options.quietSystemFolder,
                           .excludeMountedVolume = options.excludeMountedVolume,
                           .standIn = options.standIn}))
    passed = false;
  if (options.stopMediaSharing) StopMediaSharing();
  if (options.targetOnly && !CheckTargetAccess(target, options.allowLockedSpecialCase)) passed = false;
  if (!PreScanSource(sourceTree, target,
                     {.checkLocks = options.prescan, .allowSpecialCase = options.allowLockedSpecialCase}))
    passed = false;
  return passed ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}
