#include "win32/emulated/files/volume_names.h"

#include "win32/emulated/files/reparse.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

constexpr std::u16string_view kLiteral = u"\\\\?\\", kNt = u"\\??\\";

bool IsLetter(char16_t unit) { return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z'); }

}  // namespace

std::u16string NtPath(std::u16string_view fullPath) {
  if (fullPath.starts_with(kLiteral))
    fullPath.remove_prefix(kLiteral.size());
  else if (fullPath.starts_with(u"\\\\"))
    return std::u16string(kNt) + u"UNC" + std::u16string(fullPath.substr(1));
  return std::u16string(kNt) + std::u16string(fullPath);
}

bool IsVolumeName(std::u16string_view name) {
  constexpr std::u16string_view kStart = u"\\\\?\\Volume";
  return StartsWithAsciiNoCase(name, kStart) && name.ends_with(u'\\') &&
         IsGuidText(name.substr(kStart.size(), name.size() - kStart.size() - 1));
}

std::u16string RootPath(const MountedVolume& volume) {
  return volume.letter != 0 ? std::u16string(1, volume.letter) + u":\\" : volume.guidName;
}

MountedVolume* VolumeOfRoot(std::u16string_view path, bool* isRoot) {
  Machine& machine = Machine::Current();
  const bool name = IsVolumeName(path);
  if (!name && path.starts_with(kLiteral)) path.remove_prefix(kLiteral.size());
  const bool letter = path.size() == 3 && IsLetter(path[0]) && path[1] == u':' && (path[2] == u'\\' || path[2] == u'/');
  if (isRoot) *isRoot = name || letter;
  return name ? machine.FindByGuidName(path) : letter ? machine.FindByLetter(path[0]) : nullptr;
}

// REPARSE_DATA_BUFFER of IO_REPARSE_TAG_MOUNT_POINT ([MS-FSCC] 2.1.2.5); the mount manager leaves the print name empty.
Bytes MountPointData(std::u16string_view volumeName) {
  const std::u16string substitute = std::u16string(kNt) + std::u16string(volumeName.substr(kLiteral.size()));
  const auto bytes = static_cast<std::uint16_t>(substitute.size() * sizeof(char16_t));
  Bytes data;
  AppendLittleEndian(data, std::uint32_t{win32::IO_REPARSE_TAG_MOUNT_POINT});
  AppendLittleEndian(data, static_cast<std::uint16_t>(8 + bytes + 4));
  AppendLittleEndian(data, std::uint16_t{0});
  AppendLittleEndian(data, std::uint16_t{0});
  AppendLittleEndian(data, bytes);
  AppendLittleEndian(data, static_cast<std::uint16_t>(bytes + 2));
  AppendLittleEndian(data, std::uint16_t{0});
  for (const char16_t unit : substitute) AppendLittleEndian(data, unit);
  AppendLittleEndian(data, std::uint32_t{0});
  return data;
}

std::optional<std::u16string> MountedVolumeName(ByteView reparseData) {
  LinkTarget target;
  if (ParseLink(reparseData, target) != 0 || target.tag != win32::IO_REPARSE_TAG_MOUNT_POINT) return std::nullopt;
  if (!target.substituteName.starts_with(kNt)) return std::nullopt;
  std::u16string name = std::u16string(kLiteral) + target.substituteName.substr(kNt.size());
  return IsVolumeName(name) ? std::optional(std::move(name)) : std::nullopt;
}

}  // namespace emulated
