#include "fsops/created_folders.h"

#include "text/path_text.h"
#include "win32/file.h"
#include "win32/shell.h"

CreatedFolders::CreatedFolders(std::u16string folder) {
  for (; !folder.empty() && !win32::PathFileExistsW(folder.c_str()); folder = ParentPath(folder))
    missing_.push_back(folder);
}

void CreatedFolders::RemoveIfEmpty() const {
  for (const std::u16string& folder : missing_)
    if (win32::PathFileExistsW(folder.c_str()) && !RemoveEmptyFolder(folder)) return;
}

bool RemoveEmptyFolder(const std::u16string& folder) {
  if (win32::RemoveDirectoryW(folder.c_str())) return true;
  const win32::DWORD attributes = win32::GetFileAttributesW(folder.c_str());
  if (attributes == win32::INVALID_FILE_ATTRIBUTES || !(attributes & win32::FILE_ATTRIBUTE_READONLY)) return false;
  win32::SetFileAttributesW(folder.c_str(), attributes & ~win32::FILE_ATTRIBUTE_READONLY);
  if (win32::RemoveDirectoryW(folder.c_str())) return true;
  win32::SetFileAttributesW(folder.c_str(), attributes);
  return false;
}
