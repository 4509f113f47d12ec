// The rules for a source or a target folder by itself. The table is their order.
#include <exception>
#include <string_view>

#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "validate/validate.h"
#include "win32/win32.h"

namespace {

using PathLine = FormatFor<const char16_t*>;

constexpr PathLine kNetworkPath =
    u"#ERROR: The selected folder %ls is a UNC path representing a network resource. Browse to a different location.";

bool IsNotDriveRelative(const char16_t* path) {
  const std::u16string_view text = path;
  return text.size() < 2 || text[1] != u':' || text.substr(2).starts_with(u'\\');
}

// A path without a drive letter never gets as far as the rules that would name what it is, so its kind is told here.
void LogWhyThereIsNoDrive(const char16_t* path) {
  if (win32::PathIsUNCW(path))
    Log(kNetworkPath, path);
  else if (win32::PathGetDriveNumberW(path) < 0 && IsRelativePath(path))
    Log(line::kRelativePath, path);
}

bool IsNotDriveRoot(const char16_t* path) { return !IsDriveRoot(path); }
bool IsNotNetworkPath(const char16_t* path) { return !IsNetworkPath(path); }
bool IsDirectory(const char16_t* path) { return win32::PathIsDirectoryW(path) != win32::FALSE; }

bool IsDirectoryOrFree(const char16_t* path) {
  if (PathExists(path)) return IsDirectory(path);
  Log(u"#INFO: The selected target folder %ls does not exist. Ignoring PathIsDirectory validation.", path);
  return true;
}

bool IsShortEnough(const char16_t* path) { return std::u16string_view(path).size() < kPathLengthLimit; }
bool IsNotRelative(const char16_t* path) { return !IsRelativePath(path); }

// To which paths a rule applies.
enum class Of {
  Every,
  Existing,        // that must be there
  ExistingFolder,  // that must be there and must not be a drive's root
  New,             // that need not be there
};

struct PathRule {
  bool (*holds)(const char16_t* path);
  Of paths;
  PathLine line;  // when it does not hold
  bool withSystemError = false;
  void (*moreToSay)(const char16_t* path) = nullptr;
};

constexpr PathRule kRules[] = {
    {[](const char16_t* path) { return PathExists(path); }, Of::Existing,
     u"#ERROR: The selected folder %ls does not exist.", true},
    {IsNotDriveRelative, Of::Every, line::kInvalidPath},
    {DriveExists, Of::Every, u"#ERROR: %ls - The specified drive does not exists.", false, LogWhyThereIsNoDrive},
    {IsNotDriveRoot, Of::ExistingFolder, line::kFolderRequired},
    {IsOnNtfs, Of::Every, u"#ERROR: Folder %ls must be on NTFS formatted volume. Browse to a different location."},
    {IsNotNetworkPath, Of::Every, kNetworkPath},
    {IsDirectory, Of::Existing, line::kNotADirectory},
    {IsDirectoryOrFree, Of::New, line::kNotADirectory},
    {IsShortEnough, Of::Every, line::kPathTooLong},
    {IsNotRelative, Of::Every, line::kRelativePath},
    {IsOnFixedOrRemovableDrive, Of::Every,
     u"#ERROR: Folder %ls must be on fixed or removable drive. Browse to a different location."},
};

bool Holds(const PathRule& rule, const char16_t* path) {
  if (rule.holds(path)) return true;
  if (rule.withSystemError)
    LogWithSystemError(rule.line, path);
  else
    Log(rule.line, path);
  if (rule.moreToSay) rule.moreToSay(path);
  return false;
}

bool Applies(Of paths, const TargetPathOptions& options) {
  switch (paths) {
    case Of::Existing:
      return options.mustExist;
    case Of::ExistingFolder:
      return options.mustExist && !options.allowDriveRoot;
    case Of::New:
      return !options.mustExist;
    case Of::Every:
      break;
  }
  return true;
}

}  // namespace

// The rules about Windows' own folders come last, and only for a path that must be there.
int ValidateTargetPath(const char16_t* path, const TargetPathOptions& options) try {
  if (!path) return LogFailure(line::kInputPathMissing);
  for (const PathRule& rule : kRules)
    if (Applies(rule.paths, options) && !Holds(rule, path)) return 0;
  return options.mustExist && IsSystemFolder(path, options.systemFolder) ? 0 : 1;
} catch (const std::exception&) {
  return 0;
}

// A source must be there, and a drive is no folder.
int ValidateSourcePath(const char16_t* path, const SystemFolderOptions& options) {
  return ValidateTargetPath(path, {.mustExist = true, .systemFolder = options});
}
