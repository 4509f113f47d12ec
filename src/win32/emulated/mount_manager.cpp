#include "win32/emulated/mount_manager.h"

#include <algorithm>
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

// What a volume is known by that no other machine has named: disk signature (4 bytes) and partition offset (8 bytes),
// the form for disks with a master boot record. The signature is the volume's serial number, the offset stands for the
// image's name, so copies of one image are told apart.
Bytes OwnIdentity(const MountedVolume& mounted) {
  Bytes identity;
  AppendLittleEndian(identity, static_cast<std::uint32_t>(mounted.volume ? mounted.volume->SerialNumber() : 0));
  AppendLittleEndian(identity, NameHash(mounted.image) & ~std::uint64_t{0xFFFFF});  // partitions begin at whole MiB
  return identity;
}

std::u16string LetterValue(char16_t letter) { return std::u16string(kLetterPrefix) + letter + u":"; }

// The letter's value where another machine's Windows has written it: our own would have our offset.
const RegistryValue* ForeignLetter(const std::vector<RegistryValue>& known, char16_t letter, ByteView own) {
  const auto value = std::ranges::find_if(
      known, [&](const RegistryValue& one) { return EqualAsciiNoCase(one.name, LetterValue(letter)); });
  const bool isForeign =
      value != known.end() && !value->data.empty() &&
      !(value->data.size() == own.size() && std::ranges::equal(ByteView(value->data).subspan(4), own.subspan(4)));
  return isForeign ? &*value : nullptr;
}

Bytes IdentityOf(const MountedVolume& mounted, const std::vector<RegistryValue>& known) {
  Bytes own = OwnIdentity(mounted);
  const auto* const foreign = mounted.letter != 0 ? ForeignLetter(known, mounted.letter, own) : nullptr;
  const bool isKnown = std::ranges::any_of(known, [&](const RegistryValue& value) { return value.data == own; });
  return foreign && !isKnown ? foreign->data : own;
}

// The names that MountedDevices has for the identity.
struct KnownNames {
  std::u16string guidName;
  char16_t letter = 0;
};

KnownNames NamesOf(const Bytes& identity, const std::vector<RegistryValue>& known) {
  KnownNames names;
  for (const RegistryValue& value : known) {
    if (value.data != identity) continue;
    if (StartsWithAsciiNoCase(value.name, kVolumePrefix))
      names.guidName = u"\\\\?\\" + value.name.substr(4) + u"\\";
    else if (StartsWithAsciiNoCase(value.name, kLetterPrefix) && value.name.size() == kLetterPrefix.size() + 2)
      names.letter = static_cast<char16_t>(value.name[kLetterPrefix.size()] & ~0x20);
  }
  return names;
}

}  // namespace

void NameFromImage(MountedVolume& mounted) {
  std::u16string stem = Utf16(mounted.image);
  stem = stem.substr(0, stem.rfind(u'.'));
  if (stem.size() == 1 && ((stem[0] >= u'A' && stem[0] <= u'Z') || (stem[0] >= u'a' && stem[0] <= u'z')))
    mounted.letter = static_cast<char16_t>(stem[0] & ~0x20);
  const std::u16string guid = IsGuidText(stem) ? stem : GuidFromIdentity(OwnIdentity(mounted));
  mounted.guidName = u"\\\\?\\Volume" + guid + u"\\";
}

void AssignNames(Machine& machine) {
  Registry& registry = machine.registry();
  const std::vector<RegistryValue> known = registry.Values(kKey);
  const bool wasDirty = registry.IsDirty(kKey);
  for (const auto& mounted : machine.volumes) {
    mounted->identity = IdentityOf(*mounted, known);
    const KnownNames names = NamesOf(mounted->identity, known);
    if (!names.guidName.empty()) mounted->guidName = names.guidName;
    // A volume with a name but no letter had its letter taken away: it stays without one.
    if (names.letter != 0 || (!names.guidName.empty() && mounted.get() != machine.SystemVolume()))
      mounted->letter = names.letter;
    if (names.guidName.empty() || names.letter != mounted->letter) RecordNames(machine, *mounted);
  }
  registry.SetDirty(kKey, wasDirty);
}

void RecordNames(Machine& machine, const MountedVolume& mounted) {
  const auto set = [&](const std::u16string& name) {
    machine.registry().Set(kKey, name, win32::REG_BINARY, mounted.identity);
  };
  set(std::u16string(kVolumePrefix) + mounted.guidName.substr(10, 38));
  if (mounted.letter != 0) set(LetterValue(mounted.letter));
}

}  // namespace emulated
