#include "redirect/folder_steps.h"

#include "cli/console.h"
#include "log/log.h"
#include "redirect/path_text.h"
#include "win32/win32.h"

namespace {

constexpr unsigned kTargetExists = 183;

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

void SayThatTargetExists(const std::u16string& target) { ConsoleFormatString(kTargetExists, target); }

void LogMoveFailed(const std::u16string& source, const std::u16string& target) {
  Log(u"#ERROR: Unable to move files and folders from Source = %ls to Target = %ls.", source, target);
}
