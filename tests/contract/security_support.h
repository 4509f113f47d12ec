// Descriptors as texts, and what is in them.
#pragma once

#include "contract/fixture.h"

namespace contract {

// The descriptor of a text; null for one that is refused.
inline win32::UniqueLocalMemory Parse(const char16_t* text) {
  win32::UniqueLocalMemory descriptor;
  win32::ULONG size = 0;
  if (!win32::ConvertStringSecurityDescriptorToSecurityDescriptorW(text, win32::SECURITY_DESCRIPTOR_REVISION,
                                                                   descriptor.put(), &size))
    return {};
  EXPECT_GE(size, 20u);
  return descriptor;
}

inline std::u16string TextOf(win32::PSECURITY_DESCRIPTOR descriptor, win32::DWORD parts) {
  char16_t* text = nullptr;
  if (!win32::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, win32::SECURITY_DESCRIPTOR_REVISION,
                                                                   parts, &text, nullptr))
    return u"(none)";
  const win32::UniqueLocalMemory owner{text};
  return text;
}

// What the header of a self-relative descriptor points to: the owner (4), the DACL (16).
template <typename Part>
Part* PartOf(const win32::UniqueLocalMemory& descriptor, std::size_t field) {
  auto* const bytes = static_cast<win32::BYTE*>(descriptor.get());
  win32::DWORD offset = 0;
  std::memcpy(&offset, bytes + field, sizeof offset);
  return offset == 0 ? nullptr : reinterpret_cast<Part*>(bytes + offset);
}
inline win32::ACL* DaclOf(const win32::UniqueLocalMemory& descriptor) { return PartOf<win32::ACL>(descriptor, 16); }

}  // namespace contract
