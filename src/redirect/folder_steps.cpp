#include "redirect/folder_steps.h"

#include "fsops/backup_copy.h"
#include "links/junction.h"
#include "links/mounted_folder.h"
#include "report/console.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr unsigned kTargetExists = 183;
constexpr std::u16string_view kSeeManual = u"See \"After a power failure, folder form\" in what-is-refused.md.";

// A folder that is there: is it a reparse point, or an ordinary one?
enum class FolderKind { None, Ordinary, ReparsePoint };
FolderKind KindOf(const std::u16string& path) {
  const win32::DWORD attributes = win32::GetFileAttributesW(path.c_str());
  if (attributes == win32::INVALID_FILE_ATTRIBUTES || !(attributes & win32::FILE_ATTRIBUTE_DIRECTORY))
    return FolderKind::None;
  return attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT ? FolderKind::ReparsePoint : FolderKind::Ordinary;
}

}  // namespace

bool IsUsablePath(const std::u16string& path) {
  // With "..", the last component would not be the folder's name, and a folder inside another would not look like it.
  if (HasDotComponents(path)) {
    Log(u"#ERROR: The selected folder %ls is a relative path. Browse to a different location", path);
    return false;
  }
  // Windows itself would take the odd parts away, but not from the path that a junction holds: it would lead nowhere.
  if (!IsPlainPath(path)) {
    Log(u"#ERROR:Invalid path : %ls", path);
    return false;
  }
  return true;
}

bool PathExists(const std::u16string& path) { return win32::PathFileExistsW(path.c_str()) != win32::FALSE; }

bool AreThere(const std::u16string& source, const std::u16string& target) {
  if (!PathExists(source)) {
    Log(u"#ERROR: Source = %ls Path Does Not Exist.", source);
    return false;
  }
  if (PathExists(target)) return true;
  Log(u"#ERROR: Target = %ls Path Does Not Exist.", target);
  return false;
}

FolderMade MakeFolder(const std::u16string& folder) {
  switch (static_cast<win32::DWORD>(win32::SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr))) {
    case win32::ERROR_SUCCESS:
      return FolderMade::New;
    case win32::ERROR_ALREADY_EXISTS:
    case win32::ERROR_FILE_EXISTS:
      return FolderMade::StoodThere;
    default:
      return FolderMade::Failed;
  }
}

bool MakeFolderLike(const std::u16string& path, const std::u16string& like) {
  return PathExists(path) || (win32::CreateDirectoryW(path.c_str(), nullptr) && BackupCopyFolderItself(like, path));
}

bool Rename(const std::u16string& from, const std::u16string& to) {
  if (win32::MoveFileW(from.c_str(), to.c_str())) return true;
  LogWithSystemError(u"#ERROR: Unable to rename folder %ls. ", from);
  return false;
}

bool IsMountedOn(const std::u16string& folder, const std::u16string& volume) {
  std::u16string mounted;
  return IsVolumeMountPoint(folder.c_str(), &mounted) && EqualPaths(mounted, volume);
}

void SayThatTargetExists(const std::u16string& target) { ConsoleFormatString(kTargetExists, target); }

void LogMoveFailed(const std::u16string& source, const std::u16string& target) {
  Log(u"#ERROR: Unable to move files and folders from Source = %ls to Target = %ls.", source, target);
}

std::u16string RealTargetOf(const std::u16string& source, const std::u16string& target) {
  return source.find(u'\\') == std::u16string::npos ? target : JoinPath(target, LastComponent(source));
}

bool UpdateRecords(const std::u16string& oldPath, const std::u16string& newPath, std::vector<JunctionRecord>& records) {
  bool all = UpdateJunctionRegKeys(oldPath.c_str(), newPath.c_str(), 0) != 0;
  if (!ReadJunctionRecords(0, records)) all = false;
  for (const JunctionRecord& record : records) {
    if (!IsSameOrBelow(record.source, oldPath) && !IsSameOrBelow(record.target, oldPath)) continue;
    Log(u"#INFO: The record of Source = %ls and Target = %ls names a folder that is now in %ls.", record.source,
        record.target, newPath);
    all = false;
  }
  if (!all) Log(u"#ERROR: Unable to update redirected folder path in registry.");
  return all;
}

void TellIfRemovalWasCutOff(const std::u16string& source, const std::u16string& target) {
  if (KindOf(source) != FolderKind::Ordinary) return;
  Log(u"#INFO: The folder %ls is no junction, although its redirection is recorded: its removal was cut off, or "
      u"somebody has put a folder in the junction's place. Its files and folders are in it, in %ls, or partly in both; "
      u"nothing has been changed now. %ls",
      source, target, kSeeManual);
}

void TellIfRedirectionWasCutOff(const std::u16string& source, const std::u16string& target) {
  std::u16string text;
  if (KindOf(source) != FolderKind::ReparsePoint || IsSymbolicLink(source.c_str()) ||
      !GetJunctionTarget(source.c_str(), text) || !EqualPaths(text, target))
    return;
  for (const JunctionRecord& record : SaveJunctionRecords(0))
    if (EqualPaths(record.source, source)) return;
  Log(u"#INFO: The folder %ls is a junction to %ls, but no redirection is recorded: it was cut off at its very end. "
      u"All "
      u"files and folders are in the second folder; nothing has been changed now. To go on, put an empty folder in the "
      u"junction's place (rmdir, mkdir) and run the redirection again. %ls",
      source, target, kSeeManual);
}
