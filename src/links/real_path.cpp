#include "links/real_path.h"

#include <exception>

#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/reparse_data.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// What a volume is called in a final path.
constexpr win32::DWORD kByLetter = 0, kByVolumeName = 1;

// The name of the opened file that `path` leads to; empty when Windows cannot tell it.
std::u16string FinalPathName(const char16_t* path, win32::DWORD form, win32::DWORD room) {
  const win32::UniqueLibrary kernel{win32::LoadLibraryW(u"Kernel32.dll")};
  if (!kernel) return {};
  const auto getFinalPathName = reinterpret_cast<win32::GetFinalPathNameByHandleWFunction>(
      win32::GetProcAddress(kernel.get(), "GetFinalPathNameByHandleW"));
  if (!getFinalPathName) return {};
  const win32::UniqueFile file = OpenForAttributes(ExtendedPath(path), LastLink::Followed);
  if (!file) return {};
  std::u16string name(room, u'\0');
  const win32::DWORD length = getFinalPathName(file.get(), name.data(), room, form);
  return length < room ? name.substr(0, length) : std::u16string();
}

// Below the name of the volume ("\\?\Volume{...}\x"), which every local volume has, and just one.
int FindFinalVolumePath(const char16_t* path, std::u16string& target) try {
  constexpr win32::DWORD kRoom = 1024;  // the name of a volume is longer than its letter
  const std::u16string name = path ? FinalPathName(path, kByVolumeName, kRoom) : std::u16string();
  if (!IsVolumePath(name.c_str())) return 0;
  target = name;
  return 1;
} catch (const std::exception&) {
  return 0;
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

// By the names of volumes: one without a letter may be mounted on several folders.
bool IsReallySameOrBelow(const std::u16string& path, const std::u16string& folder) {
  return IsSameOrBelow(path, folder) ||
         IsSameOrBelow(Resolved(path, FindFinalVolumePath), Resolved(folder, FindFinalVolumePath));
}

bool AreApart(const std::u16string& a, const std::u16string& b) {
  return !IsReallySameOrBelow(a, b) && !IsReallySameOrBelow(b, a);
}

std::u16string AsStored(const std::u16string& path) {
  const std::u16string name = LastComponent(path);
  const bool isPlain = name.size() < path.size() && name.find_first_of(u"*?:") == std::u16string::npos &&
                       IsPlainPath(path) && !HasDotComponents(path);
  if (name.empty() || !isPlain) return path;
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  return find ? JoinPath(ParentPath(path), found.cFileName) : path;
}
