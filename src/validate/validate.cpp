#include "validate/validate.h"

#include <exception>

#include "fsops/file_list.h"
#include "fsops/security.h"
#include "probes/services.h"
#include "report/log.h"
#include "validate/prescan.h"
#include "validate/relations.h"
#include "win32/win32.h"

namespace {

void StopMediaSharing() {
  if (IsServiceRunning(kMediaSharingService)) ControlServiceAndWait(kMediaSharingService, win32::SERVICE_CONTROL_STOP);
}

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

}  // namespace

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
  if (stopMediaSharing) StopMediaSharing();
  if (targetOnly && !CheckTargetAccess(target, allowLockedSpecialCase != 0)) result = 0;
  if (!PreScanListing(source, target, source ? sourceTree.GetAndLog() : nullptr, prescanFlag, allowLockedSpecialCase))
    result = 0;
  return result;
} catch (const std::exception&) {
  return 0;
}
