#include "links/mounted_folder.h"

#include <array>
#include <exception>
#include <string_view>

#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr std::u16string_view kVolumeStart = u"\\\\?\\Volume{";

// As the mount manager's calls want it.
std::u16string WithTrailingBackslash(std::u16string path) {
  if (path.empty() || path.back() != u'\\') path += u'\\';
  return path;
}

}  // namespace

bool IsVolumePath(const char16_t* path) { return path && StartsWithIgnoringAsciiCase(path, kVolumeStart); }

bool IsExactVolumePath(std::u16string_view path) { return path.starts_with(kVolumeStart); }

int IsVolumeMountPoint(const char16_t* folder, std::u16string* volumeName) try {
  if (!folder) return 0;
  // A drive's root names a volume, too, but nothing is mounted on a folder there.
  constexpr std::size_t kShortestFolder = 4;  // "C:\x"
  if (std::u16string_view(folder).size() < kShortestFolder) return 0;
  constexpr win32::DWORD kNameBuffer = 260;
  std::array<char16_t, kNameBuffer> name{};
  const std::u16string path = ExtendedPath(WithTrailingBackslash(folder));
  if (!win32::GetVolumeNameForVolumeMountPointW(path.c_str(), name.data(), kNameBuffer)) return 0;
  if (volumeName) *volumeName = name.data();
  return 1;
} catch (const std::exception&) {
  return 0;
}

bool MountVolume(const std::u16string& folder, const std::u16string& volume) {
  return win32::SetVolumeMountPointW(WithTrailingBackslash(folder).c_str(), WithTrailingBackslash(volume).c_str()) !=
         win32::FALSE;
}

bool UnmountVolume(const std::u16string& folder) {
  return win32::DeleteVolumeMountPointW(WithTrailingBackslash(folder).c_str()) != win32::FALSE;
}

bool IsMountedOn(const std::u16string& folder, const std::u16string& volume) {
  std::u16string mounted;
  return IsVolumeMountPoint(folder.c_str(), &mounted) && EqualPaths(mounted, volume);
}
