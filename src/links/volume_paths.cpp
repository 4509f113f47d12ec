#include "links/volume_paths.h"

#include <array>
#include <exception>
#include <utility>

#include "win32/win32.h"

int VolumePathToNormalPath(std::u16string& path, std::u16string& out) try {
  const std::u16string given = std::exchange(path, {});
  constexpr std::size_t kPrefixLength = 11;  // "\\?\Volume{"
  const std::size_t brace = given.find(u'}', kPrefixLength);
  if (brace == std::u16string::npos) return 0;
  std::u16string volumeName = given.substr(0, brace + 2);
  const std::u16string rest = given.substr(volumeName.size());
  if (volumeName.back() != u'\\') volumeName += u'\\';

  std::array<char16_t, 260> mountPaths{};
  win32::DWORD length = 0;
  if (!win32::GetVolumePathNamesForVolumeNameW(volumeName.c_str(), mountPaths.data(), 260, &length)) return 0;
  const std::u16string mountPath = mountPaths.data();  // the first of the list
  if (mountPath.empty()) return 0;                     // mounted nowhere
  out = mountPath + rest;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int NormalPathToVolumePath(std::u16string& path, std::u16string& out) try {
  const std::u16string given = std::exchange(path, {});
  const std::size_t backslash = given.find(u'\\');
  if (backslash == std::u16string::npos) return 0;
  std::array<char16_t, 1000> volumeName{};
  if (!win32::GetVolumeNameForVolumeMountPointW(given.substr(0, backslash + 1).c_str(), volumeName.data(), 1000))
    return 0;
  out = volumeName.data() + given.substr(backslash + 1);
  return 1;
} catch (const std::exception&) {
  return 0;
}

std::u16string VolumeThatHolds(const std::u16string& path) {
  constexpr win32::DWORD kBuffer = 261;
  std::array<char16_t, kBuffer> root{}, name{};
  if (!win32::GetVolumePathNameW(path.c_str(), root.data(), kBuffer) ||
      !win32::GetVolumeNameForVolumeMountPointW(root.data(), name.data(), kBuffer))
    return {};
  return name.data();
}
