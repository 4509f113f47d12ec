#include "support/shares.h"

#include <gtest/gtest.h>

#include "win32/net.h"

namespace test {

namespace {

constexpr win32::DWORD kLimit = 7;

std::u16string RemarkOf(std::u16string_view name) { return u"remark of " + std::u16string(name); }

}  // namespace

void Share(std::u16string name, std::u16string path) {
  std::u16string remark = RemarkOf(name);
  win32::SHARE_INFO_502 info{};
  info.shi502_netname = name.data();
  info.shi502_type = win32::STYPE_DISKTREE;
  info.shi502_remark = remark.data();
  info.shi502_max_uses = kLimit;
  info.shi502_path = path.data();
  ASSERT_EQ(win32::NetShareAdd(nullptr, 502, reinterpret_cast<win32::BYTE*>(&info), nullptr), win32::NERR_Success);
}

std::map<std::u16string, std::u16string> Shares() {
  win32::BYTE* block = nullptr;
  win32::DWORD count = 0, total = 0;
  win32::NetShareEnum(nullptr, 502, &block, win32::MAX_PREFERRED_LENGTH, &count, &total, nullptr);
  std::map<std::u16string, std::u16string> shares;
  for (win32::DWORD i = 0; i < count; ++i) {
    const auto& share = reinterpret_cast<const win32::SHARE_INFO_502*>(block)[i];
    if (share.shi502_max_uses == kLimit && share.shi502_remark == RemarkOf(share.shi502_netname))
      shares[share.shi502_netname] = share.shi502_path;
  }
  win32::NetApiBufferFree(block);
  return shares;
}

}  // namespace test
