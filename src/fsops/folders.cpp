#include "fsops/folders.h"

#include "fsops/backup_copy.h"
#include "links/presence.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

FolderMade MakeFolder(const std::u16string& folder, FolderDescriptor descriptor) {
  win32::SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.data(), win32::FALSE};
  switch (static_cast<win32::DWORD>(
      win32::SHCreateDirectoryExW(nullptr, folder.c_str(), descriptor.empty() ? nullptr : &attributes))) {
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
  return LogSystemFailure(u"#ERROR: Unable to rename folder %ls. ", from);
}

CreatedFolders::CreatedFolders(std::u16string folder) {
  for (; !folder.empty() && !PathExists(folder); folder = ParentPath(folder)) missing_.push_back(folder);
}

void CreatedFolders::RemoveIfEmpty() const {
  for (const std::u16string& folder : missing_)
    if (PathExists(folder) && !RemoveEmptyFolder(folder)) return;
}

bool RemoveEmptyFolder(const std::u16string& folder) {
  if (win32::RemoveDirectoryW(folder.c_str())) return true;
  win32::DWORD error = win32::GetLastError();
  if (const Look look = LookAt(folder); look.Has(win32::FILE_ATTRIBUTE_READONLY)) {
    win32::SetFileAttributesW(folder.c_str(), look.attributes & ~win32::FILE_ATTRIBUTE_READONLY);
    if (win32::RemoveDirectoryW(folder.c_str())) return true;
    error = win32::GetLastError();
    win32::SetFileAttributesW(folder.c_str(), look.attributes);
  }
  win32::SetLastError(error);
  return false;
}
