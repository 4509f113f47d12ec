#include "fsops/folders.h"

#include "fsops/backup_copy.h"
#include "links/presence.h"
#include "report/log.h"
#include "win32/win32.h"

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
