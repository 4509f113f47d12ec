#include "links/real_path.h"

#include <algorithm>
#include <exception>
#include <memory>

#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/reparse_data.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// What a volume is called in a final path.
constexpr win32::DWORD kByLetter = 0, kByVolumeName = 1;

// The name of what is opened; empty when Windows cannot tell it, or it needs more room.
std::u16string FinalPathName(const win32::UniqueFile& file, win32::DWORD form, win32::DWORD room) {
  const win32::UniqueLibrary kernel{win32::LoadLibraryW(u"Kernel32.dll")};
  if (!kernel) return {};
  const auto getFinalPathName = reinterpret_cast<win32::GetFinalPathNameByHandleWFunction>(
      win32::GetProcAddress(kernel.get(), "GetFinalPathNameByHandleW"));
  if (!getFinalPathName || !file) return {};
  const auto name = std::make_unique_for_overwrite<char16_t[]>(room);
  const win32::DWORD length = getFinalPathName(file.get(), name.get(), room, form);
  return length < room ? std::u16string(name.get(), length) : std::u16string();
}

std::u16string FinalPathName(const char16_t* path, win32::DWORD form, win32::DWORD room) {
  return FinalPathName(OpenForAttributes(ExtendedPath(path), LastLink::Followed), form, room);
}

int FindFinalVolumePath(const char16_t* path, std::u16string& target) try {
  if (!path) return 0;
  target = PathOf(OpenForAttributes(ExtendedPath(path), LastLink::Followed));
  return target.empty() ? 0 : 1;
} catch (const std::exception&) {
  return 0;
}

// Of "C:\", with "\\?\" before it or without; 0 for what does not begin so.
std::size_t RootLength(std::u16string_view path) {
  const std::size_t letter = HasExtendedPrefix(path) ? 4 : 0;
  return path.size() > letter + 2 && path[letter + 1] == u':' && path[letter + 2] == u'\\' ? letter + 3 : 0;
}

std::u16string WithLetterInCapitals(std::u16string root) {
  char16_t& letter = root[root.size() - 3];
  if (letter >= u'a' && letter <= u'z') letter = static_cast<char16_t>(letter - (u'a' - u'A'));
  return root;
}

// The names of what stands at the path as its folder has them; none, and the last error, when they are not told.
struct StoredNames {
  std::u16string name, shortName;
};
std::optional<StoredNames> NamesAt(const std::u16string& path) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(ExtendedPath(path).c_str(), &found)};
  return find ? std::optional<StoredNames>({found.cFileName, found.cAlternateFileName}) : std::nullopt;
}

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

std::u16string PathOf(const win32::UniqueFile& item) {
  constexpr win32::DWORD kRoom = 0x8000;  // characters: no path is longer
  const std::u16string name = FinalPathName(item, kByVolumeName, kRoom);
  return IsVolumePath(name.c_str()) ? name : std::u16string();
}

std::u16string NearestFolder(std::u16string path) {
  while (!path.empty() && !PathExists(FolderForm(path))) path = ParentPath(path);
  return FolderForm(path);
}

int FindFinalTargetPath(const char16_t* path, std::u16string& target) try {
  std::u16string name = path ? FinalPathName(path, kByLetter, win32::MAX_PATH) : std::u16string();
  const bool longEnough = name.size() > kNativePrefix.size();
  if (name.starts_with(kNativePrefix) || HasExtendedPrefix(name)) name.erase(0, kNativePrefix.size());
  if (!name.empty() && name.back() == u'\\') name.pop_back();
  // Without a drive letter (a network share, a volume that has none) what is left behind the prefix is no path at all.
  if (!longEnough || name.size() < 2 || name[1] != u':') return 0;
  target = name;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int GetFinalTargetPath(const char16_t* path, std::u16string& target) {
  if (FindFinalTargetPath(path, target)) return 1;
  return LogFailure(u"#ERROR: Unable to obtain a valid target path");
}

std::u16string RealPath(const std::u16string& path) { return Resolved(path, FindFinalTargetPath); }

std::u16string RealVolumePath(const std::u16string& path) { return Resolved(path, FindFinalVolumePath); }

bool IsReallySameOrBelow(const std::u16string& path, const std::u16string& folder) {
  return IsSameOrBelow(path, folder) || IsSameOrBelow(RealVolumePath(path), RealVolumePath(folder));
}

bool AreApart(const std::u16string& a, const std::u16string& b) {
  return !IsReallySameOrBelow(a, b) && !IsReallySameOrBelow(b, a);
}

std::u16string RealPlace(const std::u16string& path) {
  const std::u16string folder = ParentPath(path);
  if (folder.empty()) return RealVolumePath(FolderForm(path));
  const std::u16string place = JoinPath(RealVolumePath(FolderForm(folder)), LastComponent(path));
  if (!MayBeShortName(LastComponent(path)) || !IsVolumePath(place.c_str())) return place;
  const std::optional<StoredNames> stored = NamesAt(place);
  return stored ? JoinPath(ParentPath(place), stored->name) : place;
}

std::optional<std::u16string> BehindFolder(const std::u16string& path, const std::u16string& folder) {
  if (IsSameOrBelow(path, folder)) return path.substr(folder.size() - (folder.ends_with(u'\\') ? 1 : 0));
  const std::u16string real = WithoutTrailingBackslash(RealVolumePath(folder));
  for (std::u16string step = WithoutTrailingBackslash(path); !step.empty(); step = ParentPath(step))
    if (EqualPaths(WithoutTrailingBackslash(RealPlace(step)), real)) return path.substr(step.size());
  return std::nullopt;
}

bool IsShortNameOfAnother(const std::u16string& path) {
  const std::u16string name = LastComponent(path);
  if (!MayBeShortName(name)) return false;
  const std::optional<StoredNames> stored = NamesAt(path);
  if (!stored) return !MeansGone(win32::GetLastError());
  return !MayBeOneName(stored->name, name) && MayBeOneName(stored->shortName, name);
}

std::u16string AsStored(const std::u16string& path) {
  const std::size_t root = RootLength(path);
  const std::u16string_view names = std::u16string_view(path).substr(root);
  if (root == 0 || !IsPlainPath(path) || HasDotComponents(path) || names.find_first_of(u"*?:") != names.npos)
    return path;
  std::u16string stored = WithLetterInCapitals(path.substr(0, root));
  for (std::size_t at = root; at < path.size();) {
    const std::size_t end = std::min(path.find(u'\\', at), path.size());
    const std::u16string given = path.substr(at, end - at);
    const std::optional<StoredNames> found = NamesAt(stored + given);
    if (!found && MeansGone(win32::GetLastError())) return stored + path.substr(at);
    stored += found ? found->name : given;
    if (end < path.size()) stored += u'\\';
    at = end + 1;
  }
  return stored;
}
