#include "fsops/descriptor.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "text/ascii_case.h"
#include "win32/win32.h"

namespace {

// Of a self-relative descriptor (MS-DTYP 2.4.6).
constexpr std::size_t kOwnerOffset = 4, kDaclOffset = 16, kFixedPart = 20;
constexpr win32::DWORD kOwnerAndDacl = win32::OWNER_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION;
constexpr win32::DWORD kAllParts = kOwnerAndDacl | win32::GROUP_SECURITY_INFORMATION;

template <typename Value>
Value ValueAt(const FolderDescriptor& descriptor, std::size_t offset) {
  Value value{};
  std::memcpy(&value, descriptor.data() + offset, sizeof value);
  return value;
}

// Null without one: everybody may do everything. `sound`: the descriptor is one.
win32::ACL* DaclOf(FolderDescriptor& descriptor, bool& sound) {
  sound = descriptor.size() >= kFixedPart;
  if (!sound) return nullptr;
  const auto at = ValueAt<win32::DWORD>(descriptor, kDaclOffset);
  if (at == 0) return nullptr;
  sound = at <= descriptor.size() - sizeof(win32::ACL);
  return sound ? reinterpret_cast<win32::ACL*>(descriptor.data() + at) : nullptr;
}

std::u16string SidText(void* sid) {
  char16_t* text = nullptr;
  if (!win32::ConvertSidToStringSidW(sid, &text)) return {};
  const win32::UniqueLocalMemory memory{text};
  return text;
}

// Nobody that a user could be: the system, Administrators, TrustedInstaller, and those that stand for the owner.
bool IsTrusted(std::u16string_view sid, std::u16string_view user) {
  constexpr std::array<std::u16string_view, 6> kTrusted{
      u"S-1-5-18", u"S-1-5-32-544", u"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
      u"S-1-3-0",  u"S-1-3-1",      u"S-1-3-4"};
  return std::ranges::find(kTrusted, sid) != kTrusted.end() || (!user.empty() && EqualIgnoringAsciiCase(sid, user));
}

// The entry of this number in the text of a DACL.
std::u16string EntryText(const std::u16string& dacl, win32::DWORD index) {
  std::size_t begin = dacl.find(u'(');
  for (; index > 0 && begin != std::u16string::npos; --index) begin = dacl.find(u'(', begin + 1);
  return begin == std::u16string::npos ? dacl : dacl.substr(begin, dacl.find(u')', begin) + 1 - begin);
}

bool Gives(const win32::ACE_HEADER& header, win32::DWORD rights, std::u16string_view user) {
  constexpr win32::BYTE kAllowed = 0, kAllowedCallback = 9;
  if ((header.AceType != kAllowed && header.AceType != kAllowedCallback) ||
      (header.AceFlags & win32::INHERIT_ONLY_ACE) != 0)
    return false;
  const auto& entry = reinterpret_cast<const win32::ACCESS_ALLOWED_ACE&>(header);
  win32::GENERIC_MAPPING mapping{win32::FILE_GENERIC_READ, win32::FILE_GENERIC_WRITE, win32::FILE_GENERIC_EXECUTE,
                                 win32::FILE_ALL_ACCESS};
  win32::DWORD mask = entry.Mask;
  win32::MapGenericMask(&mask, &mapping);
  return (mask & rights) != 0 && !IsTrusted(SidText(const_cast<win32::DWORD*>(&entry.SidStart)), user);
}

}  // namespace

std::u16string DescriptorText(FolderDescriptor descriptor, win32::DWORD parts) {
  char16_t* text = nullptr;
  if (descriptor.empty() ||
      !win32::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), 1, parts, &text, nullptr))
    return {};
  const win32::UniqueLocalMemory memory{text};
  return text;
}

FolderDescriptor DescriptorFromText(const std::u16string& text) {
  win32::UniqueLocalMemory memory;
  win32::ULONG size = 0;
  if (!win32::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), 1, memory.put(), &size)) return {};
  const auto* const bytes = static_cast<const win32::BYTE*>(memory.get());
  return {bytes, bytes + size};
}

FolderDescriptor OpenToAdministrators(const FolderDescriptor& descriptor) {
  std::u16string text = DescriptorText(descriptor, kAllParts);
  const std::size_t dacl = text.find(u"D:");
  if (dacl == std::u16string::npos) return {};
  return DescriptorFromText(text.insert(std::min(text.find(u'(', dacl), text.size()), u"(A;;FA;;;BA)"));
}

bool SayTheSame(const FolderDescriptor& a, const FolderDescriptor& b) {
  const auto meaning = [](const FolderDescriptor& descriptor) {
    std::u16string text = DescriptorText(descriptor, kOwnerAndDacl);
    const std::size_t dacl = text.find(u"D:");
    if (dacl == std::u16string::npos) return text;
    // Without what Windows notes about how the DACL came to be.
    return text.erase(dacl + 2, std::min(text.find(u'(', dacl), text.size()) - dacl - 2);
  };
  return meaning(a) == meaning(b);
}

std::u16string EntryOfOthers(FolderDescriptor descriptor, win32::DWORD rights, std::u16string_view user,
                             Entries entries) {
  bool sound = false;
  win32::ACL* const dacl = DaclOf(descriptor, sound);
  if (!sound || !dacl) return u"D:NO_ACCESS_CONTROL";
  if (const auto at = ValueAt<win32::DWORD>(descriptor, kOwnerOffset); at != 0 && at < descriptor.size())
    if (const std::u16string owner = SidText(descriptor.data() + at); !IsTrusted(owner, user)) return u"O:" + owner;
  for (win32::DWORD index = 0; index < dacl->AceCount; ++index) {
    void* ace = nullptr;
    if (!win32::GetAce(dacl, index, &ace)) continue;
    const auto& header = *static_cast<const win32::ACE_HEADER*>(ace);
    if (entries == Entries::OwnOnly && (header.AceFlags & win32::INHERITED_ACE) != 0) continue;
    if (Gives(header, rights, user))
      return EntryText(DescriptorText(descriptor, win32::DACL_SECURITY_INFORMATION), index);
  }
  return {};
}
