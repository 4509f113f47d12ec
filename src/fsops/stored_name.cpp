#include "fsops/stored_name.h"

#include "text/path_text.h"
#include "win32/file.h"
#include "win32/handle.h"

std::u16string AsStored(const std::u16string& path) {
  const std::u16string name = LastComponent(path);
  const bool isPlain = name.size() < path.size() && name.find_first_of(u"*?:") == std::u16string::npos &&
                       IsPlainPath(path) && !HasDotComponents(path);
  if (name.empty() || !isPlain) return path;
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  return find ? JoinPath(ParentPath(path), found.cFileName) : path;
}
