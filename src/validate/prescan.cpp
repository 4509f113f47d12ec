#include "validate/prescan.h"

#include <exception>
#include <string_view>
#include <unordered_set>

#include "fsops/security.h"
#include "probes/locked_handles.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/stop_request.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// The locked paths, found without going through them for each item. Both an item and a locked path may have the "\\?\"
// of long paths, or not.
class LockedSet {
 public:
  explicit LockedSet(const LockedPaths* locked) {
    for (int index = 0; locked && index < locked->count; ++index) keys_.insert(Key(locked->At(index)));
  }
  bool Holds(std::u16string_view path) const { return !keys_.empty() && keys_.contains(Key(path)); }

 private:
  static std::u16string Key(std::u16string_view path) { return LowerAscii(WithoutExtendedPrefix(path)); }
  std::unordered_set<std::u16string> keys_;
};

class Scan {
 public:
  Scan(const LockedPaths* locked, bool allowSpecialCase) : locked_(locked), allowSpecialCase_(allowSpecialCase) {}

  void Examine(const TreeEntry& item) {
    // Nothing more is asked of it: an open could bring its contents here.
    if (!HasItsContents(item)) {
      passed_ = false;
      return;
    }
    CheckAccess(item);
    const bool locked = IsLocked(item);
    const bool accessible = item.IsDirectory() || IsAccessible(item);
    if (locked || !accessible)
      Log(u"#ERROR: %ls - File or folder is used by another process.  Close any application that might be using the "
          u"file or folder and try again.",
          item.path);
  }
  bool Passed() const { return passed_; }

 private:
  void CheckAccess(const TreeEntry& item) {
    if (HasAccess(caller_.token(), item.path, readAndExecute_)) return;
    if (const OnlyLooks* const look = OnlyLooks::Current(); look && look->IsTakenAsOpened(item.path)) return;
    if (allowSpecialCase_ && item.IsDirectory()) {
      Log(u"#INFO: %ls - Insufficient permissions but allowing it anyways (special case).", item.path);
      return;
    }
    Log(u"#ERROR: %ls - Insufficient permissions. The minimum permissions requirement is read & execute.", item.path);
    if (IsCompatibilityLink(item))
      Log(u"#INFO: %ls - Windows keeps this hidden link for old programs, and nobody may list what it leads to. "
          u"Redirect the whole user profile instead, or remove the link.",
          item.path);
    passed_ = false;
  }

  // As Windows makes them in profiles.
  static bool IsCompatibilityLink(const TreeEntry& item) {
    return item.IsJunction() && item.Has(win32::FILE_ATTRIBUTE_HIDDEN) && item.Has(win32::FILE_ATTRIBUTE_SYSTEM);
  }

  bool IsLocked(const TreeEntry& item) {
    if (!locked_.Holds(item.path) && !IsFolderThatCannotGo(item)) return false;
    if (allowSpecialCase_ && item.IsDirectory()) {
      Log(u"#INFO: %ls - Folder locked but allowing it anyways (special case).", item.path);
      return false;
    }
    Log(u"#INFO: %ls - File or Folder is locked.", item.path);
    passed_ = false;
    return true;
  }

  // The list of what is held open is not complete. What is let through anyway is not asked.
  bool IsFolderThatCannotGo(const TreeEntry& item) const {
    return item.IsDirectory() && !allowSpecialCase_ && !IsDeletable(item.path);
  }

  bool IsAccessible(const TreeEntry& item) {
    // An open of a link to be alone with it would be one of what it leads to, and one of a read-only file is refused.
    const bool oneOpenTells = !item.IsReparsePoint() && !item.Has(win32::FILE_ATTRIBUTE_READONLY);
    if (oneOpenTells ? IsFileFree(item.path, item.attributes)
                     : IsFileNotLocked(item.path, item.attributes) && IsDeletable(item.path))
      return true;
    Log(u"#INFO: %ls - File is not accessible.", item.path);
    passed_ = false;
    return false;
  }

  const LockedSet locked_;
  const bool allowSpecialCase_;
  const ImpersonatedCaller caller_;  // one token for the whole scan
  const FileRights readAndExecute_{kReadAndExecute};
  bool passed_ = true;
};

}  // namespace

int PreScanListing(const TreeListing& listing, const LockedPaths* locked, bool allowSpecialCase) try {
  Scan scan(locked, allowSpecialCase);
  for (const TreeEntry& item : listing.entries) {
    if (IsStopRequested()) return 0;
    scan.Examine(item);
  }
  return scan.Passed() ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int PreScanSource(const FolderTree& source, const char16_t* target, const PreScanOptions& options) try {
  if (!source.path()) return LogFailure(u"#ERROR: Source path is missing.");
  const TreeListing* const listing = source.GetAndLog();
  if (!listing) return LogFailure(line::kNoListing, source.path());
  if (!options.checkLocks) return PreScanListing(*listing, nullptr, options.allowSpecialCase);
  LockedPaths locked;
  GetLockedFilesAndFoldersList(source.path(), target, locked);
  return PreScanListing(*listing, &locked, options.allowSpecialCase);
} catch (const std::exception&) {
  return 0;
}
