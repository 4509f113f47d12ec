#include "validate/prescan.h"

#include <exception>

#include "fsops/security.h"
#include "log/log.h"
#include "probes/locked_handles.h"
#include "redirect/path_text.h"
#include "win32/win32.h"

namespace {

struct Counters {
  int notReadable = 0;
  int locked = 0;
  int notAccessible = 0;
};

class Scan {
 public:
  Scan(bool checkLocks, bool allowSpecialCase, const LockedPaths& locked)
      : checkLocks_(checkLocks), allowSpecialCase_(allowSpecialCase), locked_(locked) {}

  void Examine(const TreeEntry& item) {
    CheckAccess(item);
    const bool locked = IsLocked(item);
    const bool accessible = item.IsDirectory() || IsAccessible(item);
    if (locked || !accessible)
      Log(u"#ERROR: %ls - File or folder is used by another process.  Close any application that might be using the "
          u"file or "
          u"folder and try again.",
          item.path);
  }
  bool Passed() const { return counters_.notReadable + counters_.locked + counters_.notAccessible == 0; }

 private:
  void CheckAccess(const TreeEntry& item) {
    if (HasAccess(caller_.token(), item.path, kReadAndExecute)) return;
    if (allowSpecialCase_ && item.IsDirectory()) {
      Log(u"#INFO: %ls - Insufficient permissions but allowing it anyways (special case).", item.path);
      return;
    }
    Log(u"#ERROR: %ls - Insufficient permissions. The minimum permissions requirement is read & execute.", item.path);
    ++counters_.notReadable;
  }

  bool IsInLockedList(const TreeEntry& item) const {
    if (!checkLocks_) return false;
    for (int index = 0; index < locked_.count; ++index)
      if (EqualPaths(item.path, locked_.At(index))) return true;
    return false;
  }

  bool IsLocked(const TreeEntry& item) {
    if (!IsInLockedList(item)) return false;
    if (allowSpecialCase_ && item.IsDirectory()) {
      Log(u"#INFO: %ls - Folder locked but allowing it anyways (special case).", item.path);
      return false;
    }
    Log(u"#INFO: %ls - File or Folder is locked.", item.path);
    ++counters_.locked;
    return true;
  }

  bool IsAccessible(const TreeEntry& item) {
    if (IsFileNotLocked(item.path, item.attributes)) return true;
    Log(u"#INFO: %ls - File is not accessible.", item.path);
    ++counters_.notAccessible;
    return false;
  }

  const bool checkLocks_;
  const bool allowSpecialCase_;
  const LockedPaths& locked_;
  const ImpersonatedCaller caller_;  // one token for the whole scan
  Counters counters_;
};

}  // namespace

int PreScanListing(const char16_t* source, const char16_t* target, const TreeListing* listing, int checkLocks,
                   int allowSpecialCase) try {
  if (!source) {
    Log(u"#ERROR: Source path is missing.");
    return 0;
  }
  LockedPaths locked;
  if (!listing) {
    Log(u"#ERROR: Unable to get list of files for path = %ls.", source);
    return 0;
  }
  if (checkLocks) GetLockedFilesAndFoldersList(source, target, locked);
  Scan scan(checkLocks != 0, allowSpecialCase != 0, locked);
  for (const TreeEntry& item : listing->entries) scan.Examine(item);
  return scan.Passed() ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int PreScanSource(const char16_t* source, const char16_t* target, int checkLocks, int allowSpecialCase) try {
  TreeListing listing;
  const bool listed = source && GetFileList(source, listing);
  return PreScanListing(source, target, listed ? &listing : nullptr, checkLocks, allowSpecialCase);
} catch (const std::exception&) {
  return 0;
}
