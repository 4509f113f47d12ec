#include "links/real_path.h"

#include "links/junction.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "text/path_text.h"

std::u16string NearestFolder(std::u16string path) {
  while (!path.empty() && !PathExists(FolderForm(path))) path = ParentPath(path);
  return FolderForm(path);
}

namespace {

// The path by what `find` says of its existing part.
std::u16string Resolved(const std::u16string& path, int (*find)(const char16_t* path, std::u16string& target)) {
  const bool onDrive = path.size() > 1 && path[1] == u':';
  if (!onDrive && !IsVolumePath(path.c_str())) return path;
  const std::u16string nearest = NearestFolder(path);
  std::u16string real;
  if (nearest.empty() || !find(nearest.c_str(), real)) return path;
  const std::u16string rest = path.size() > nearest.size() ? path.substr(nearest.size()) : std::u16string();
  return rest.empty() ? real : WithoutTrailingBackslash(real) + (rest.starts_with(u'\\') ? u"" : u"\\") + rest;
}

}  // namespace

std::u16string RealPath(const std::u16string& path) { return Resolved(path, FindFinalTargetPath); }

// By the names of volumes: one without a letter may be mounted on several folders.
bool IsReallySameOrBelow(const std::u16string& path, const std::u16string& folder) {
  return IsSameOrBelow(path, folder) ||
         IsSameOrBelow(Resolved(path, FindFinalVolumePath), Resolved(folder, FindFinalVolumePath));
}

bool AreApart(const std::u16string& a, const std::u16string& b) {
  return !IsReallySameOrBelow(a, b) && !IsReallySameOrBelow(b, a);
}
