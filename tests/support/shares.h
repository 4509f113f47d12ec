// Network shares for tests, made and told through the Windows interface alone.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "win32/win32.h"

namespace test {

inline constexpr const char16_t* kShareAccess = u"D:(A;;0x1200a9;;;WD)";

// Shares a folder under this name, with a remark, a limit and an access list of its own.
inline void Share(std::u16string name, std::u16string path) {
  win32::UniqueLocalMemory descriptor;
  ASSERT_TRUE(win32::ConvertStringSecurityDescriptorToSecurityDescriptorW(kShareAccess, 1, descriptor.put(), nullptr));
  std::u16string remark = u"remark of " + name;
  win32::SHARE_INFO_502 info{};
  info.shi502_netname = name.data();
  info.shi502_type = win32::STYPE_DISKTREE;
  info.shi502_remark = remark.data();
  info.shi502_max_uses = 7;
  info.shi502_path = path.data();
  info.shi502_security_descriptor = descriptor.get();
  ASSERT_EQ(win32::NetShareAdd(nullptr, 502, reinterpret_cast<win32::BYTE*>(&info), nullptr), win32::NERR_Success);
}

// Name and path of every share that Share made and that kept all else it was given.
inline std::map<std::u16string, std::u16string> Shares() {
  win32::BYTE* block = nullptr;
  win32::DWORD count = 0, total = 0;
  win32::NetShareEnum(nullptr, 502, &block, win32::MAX_PREFERRED_LENGTH, &count, &total, nullptr);
  std::map<std::u16string, std::u16string> shares;
  for (const auto* share = reinterpret_cast<const win32::SHARE_INFO_502*>(block); count > 0; ++share, --count) {
    if (share->shi502_max_uses != 7 || share->shi502_remark != u"remark of " + std::u16string(share->shi502_netname))
      continue;
    char16_t* text = nullptr;
    win32::ConvertSecurityDescriptorToStringSecurityDescriptorW(share->shi502_security_descriptor, 1,
                                                                win32::DACL_SECURITY_INFORMATION, &text, nullptr);
    const win32::UniqueLocalMemory owner{text};
    if (text && std::u16string_view(text) == kShareAccess) shares[share->shi502_netname] = share->shi502_path;
  }
  win32::NetApiBufferFree(block);
  return shares;
}

}  // namespace test
