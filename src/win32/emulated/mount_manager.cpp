#include "win32/emulated/mount_manager.h"

#include <cstdio>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

constexpr std::u16string_view kKey = u"HKLM\\SYSTEM\\MountedDevices";
constexpr std::u16string_view kVolumePrefix = u"\\??\\Volume";
constexpr std::u16string_view kLetterPrefix = u"\\DosDevices\\";

std::uint64_t NameHash(std::string_view name) {
  std::uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return hash;
}

std::u16string GuidFromIdentity(ByteView identity) {
  const auto signature = LoadLittleEndian<std::uint32_t>(identity, 0);
  const auto offset = LoadLittleEndian<std::uint64_t>(identity, 4);
  char text[48];
  std::snprintf(text, sizeof text, "{%08x-%04x-%04x-8%03x-%012llx}", signature,
                static_cast<unsigned>((offset >> 20) & 0xFFFF), 0x4000U | static_cast<unsigned>((offset >> 36) & 0xFFF),
                static_cast<unsigned>((offset >> 48) & 0xFFF),
                static_cast<unsigned long long>(offset & 0xFFFFFFFFFFFF));
  return Utf16(text);
}

}  // namespace

Bytes DeviceIdentity(const MountedVolume& mounted) {
  Bytes identity;
  AppendLittleEndian(identity, static_cast<std::uint32_t>(mounted.volume ? mounted.volume->SerialNumber() : 0));
  AppendLittleEndian(identity, NameHash(mounted.image) & ~std::uint64_t{0xFFFFF});  // partitions begin at whole MiB
  return identity;
}

void NameFromImage(MountedVolume& mounted) {
  std::u16string stem = Utf16(mounted.image);
  stem = stem.substr(0, stem.rfind(u'.'));
  if (stem.size() == 1 && ((stem[0] >= u'A' && stem[0] <= u'Z') || (stem[0] >= u'a' && stem[0] <= u'z')))
    mounted.letter = static_cast<char16_t>(stem[0] & ~0x20);
  const std::u16string guid = IsGuidText(stem) ? stem : GuidFromIdentity(DeviceIdentity(mounted));
  mounted.guidName = u"\\\\?\\Volume" + guid + u"\\";
}

void AssignNames(Machine& machine) {
  Registry& registry = machine.registry();
  const std::vector<RegistryValue> known = registry.Values(kKey);
  for (const auto& mounted : machine.volumes) {
    const Bytes identity = DeviceIdentity(*mounted);
    bool hasName = false, hasLetter = false;
    for (const RegistryValue& value : known) {
      if (value.data != identity) continue;
      if (StartsWithAsciiNoCase(value.name, kVolumePrefix)) {
        mounted->guidName = u"\\\\?\\" + value.name.substr(4) + u"\\";
        hasName = true;
      } else if (StartsWithAsciiNoCase(value.name, kLetterPrefix) && value.name.size() == kLetterPrefix.size() + 2) {
        mounted->letter = static_cast<char16_t>(value.name[kLetterPrefix.size()] & ~0x20);
        hasLetter = true;
      }
    }
    // A volume with a name but no letter had its letter taken away: it stays without one.
    if (hasName && !hasLetter && mounted.get() != machine.SystemVolume()) mounted->letter = 0;
    if (!hasName)
      registry.Set(kKey, std::u16string(kVolumePrefix) + mounted->guidName.substr(10, 38), win32::REG_BINARY, identity);
    if (!hasLetter && mounted->letter != 0)
      registry.Set(kKey, std::u16string(kLetterPrefix) + mounted->letter + u":", win32::REG_BINARY, identity);
  }
}

}  // namespace emulated
