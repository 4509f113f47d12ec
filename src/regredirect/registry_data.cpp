#include "regredirect/registry_data.h"

#include <exception>
#include <string_view>
#include <vector>

#include "links/presence.h"
#include "probes/rimehold_status.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

bool IsKept(std::u16string_view name) {
  for (const std::u16string_view log : {u"Quillbay.log", u"OutOfDiskSpace.txt", u"QuillbayService.log"})
    if (EqualPaths(name, log)) return true;
  return false;
}

// The names are collected before anything is deleted.
std::vector<std::u16string> DataFiles(const std::u16string& folder) {
  std::vector<std::u16string> files;
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(ExtendedPath(JoinPath(folder, u"*")).c_str(), &found)};
  if (!find) return files;
  do {
    constexpr win32::DWORD kNoFile = win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT;
    if (!(found.dwFileAttributes & kNoFile) && !IsKept(found.cFileName))
      files.push_back(JoinPath(folder, found.cFileName));
  } while (win32::FindNextFileW(find.get(), &found));
  return files;
}

// Whoever may write to the location could put a link there that leads to other people's files. While this is held the
// folder is neither renamed nor deleted, and nobody opens it for FILE_WRITE_DATA. Sharing does not keep off a handle
// with FILE_WRITE_ATTRIBUTES alone, by which a folder is made a link as well; what keeps that off is that Windows
// refuses it for a folder with contents. Who may also delete all that is in it is not held off.
win32::UniqueFile HoldPlainFolder(const std::u16string& folder) {
  win32::UniqueFile held{win32::CreateFileW(
      ExtendedPath(folder).c_str(), win32::GENERIC_READ, win32::FILE_SHARE_READ, nullptr, win32::OPEN_EXISTING,
      win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
  win32::BY_HANDLE_FILE_INFORMATION facts{};
  constexpr win32::DWORD kMask = win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT;
  if (held && (!win32::GetFileInformationByHandle(held.get(), &facts) ||
               (facts.dwFileAttributes & kMask) != win32::FILE_ATTRIBUTE_DIRECTORY))
    held.reset();
  return held;
}

}  // namespace

void CleanRegistryData(const std::u16string& location) try {
  const std::u16string product = JoinPath(location, u"Quillbay"), data = JoinPath(product, u"RegistryData");
  if (location.empty() || IsRimeholdFrozen() || !DirectoryExists(ExtendedPath(product))) return;
  {
    const win32::UniqueFile outer = HoldPlainFolder(product), inner = HoldPlainFolder(data);
    if (!outer) return;
    if (inner)
      for (const std::u16string& file : DataFiles(data)) win32::DeleteFileW(ExtendedPath(file).c_str());
  }
  for (const std::u16string& folder : {JoinPath(data, u"KeyToDelete"), data, product})
    win32::RemoveDirectoryW(ExtendedPath(folder).c_str());
} catch (const std::exception&) {
}
