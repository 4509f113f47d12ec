#include "regredirect/registry_data.h"

#include <array>
#include <exception>
#include <string_view>
#include <vector>

#include "fsops/mounted_folder.h"
#include "probes/rimehold_status.h"
#include "redirect/path_text.h"
#include "validate/file_list.h"
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

// Whoever may write to the location could have put a link there that leads to other people's files.
bool IsLink(const std::u16string& folder) { return LinkTagAt(ExtendedPath(folder)) != 0; }

}  // namespace

void CleanRegistryData(const std::u16string& location) try {
  const std::u16string product = JoinPath(location, u"Quillbay"), data = JoinPath(product, u"RegistryData");
  if (location.empty() || IsRimeholdFrozen() || !DirectoryExists(ExtendedPath(product).c_str())) return;
  if (IsLink(product) || IsLink(data)) return;
  for (const std::u16string& file : DataFiles(data)) win32::DeleteFileW(ExtendedPath(file).c_str());
  for (const std::u16string& folder : {JoinPath(data, u"KeyToDelete"), data, product})
    win32::RemoveDirectoryW(ExtendedPath(folder).c_str());
} catch (const std::exception&) {
}
