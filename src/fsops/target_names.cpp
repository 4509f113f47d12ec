#include "fsops/target_names.h"

#include "links/presence.h"
#include "links/real_path.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

void TargetNames::Add(const TreeEntry& source, const std::u16string& target, bool isNew) {
  if (!madeFolders_.contains(ParentPath(source.path))) targets_.insert(LowerAscii(target));
  if (!isNew) targets_.insert(LowerAscii(AsStored(target)));
  if (isNew && source.IsDirectory()) madeFolders_.insert(source.path);
}

bool TargetNames::IsTaken(const TreeEntry& source, const std::u16string& target) const {
  return madeFolders_.contains(ParentPath(source.path)) || IsOther(target);
}

bool TargetNames::IsOther(const std::u16string& target) const {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(target.c_str(), &found)};
  if (!find || targets_.contains(LowerAscii(JoinPath(ParentPath(target), found.cFileName)))) return true;
  const std::u16string name = LastComponent(target);
  return !MayBeOneName(found.cFileName, name) && MayBeOneName(found.cAlternateFileName, name);
}
