#include "fsops/created_folders.h"

#include "links/presence.h"
#include "text/path_text.h"
#include "win32/file.h"

CreatedFolders::CreatedFolders(std::u16string folder) {
  for (; !folder.empty() && !PathExists(folder); folder = ParentPath(folder)) missing_.push_back(folder);
}

void CreatedFolders::RemoveIfEmpty() const {
  for (const std::u16string& folder : missing_)
    if (PathExists(folder) && !RemoveEmptyFolder(folder)) return;
}

bool RemoveEmptyFolder(const std::u16string& folder) {
  if (win32::RemoveDirectoryW(folder.c_str())) return true;
  const Look look = LookAt(folder);
  if (!look.Has(win32::FILE_ATTRIBUTE_READONLY)) return false;
  win32::SetFileAttributesW(folder.c_str(), look.attributes & ~win32::FILE_ATTRIBUTE_READONLY);
  if (win32::RemoveDirectoryW(folder.c_str())) return true;
  win32::SetFileAttributesW(folder.c_str(), look.attributes);
  return false;
}
