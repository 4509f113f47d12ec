// The server's shares: the calls, and what they leave in the registry.
#include <gtest/gtest.h>

#include <cstring>

#include "support/installed_machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/file.h"
#include "win32/net.h"

namespace {

using namespace win32;

constexpr std::u16string_view kShares = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares";

class Shares : public ::testing::Test {
 protected:
  Shares() : machine(test::InstalledMachine()) {}

  DWORD Add(std::u16string name, std::u16string path, DWORD* member = nullptr,
            PSECURITY_DESCRIPTOR descriptor = nullptr, DWORD type = STYPE_DISKTREE) {
    std::u16string remark = u"a remark";
    SHARE_INFO_502 info{name.data(), type, remark.data(), 0, 10, 0, path.data(), nullptr, 0, descriptor};
    return NetShareAdd(nullptr, 502, reinterpret_cast<BYTE*>(&info), member);
  }

  // Name and path of each share at this level.
  std::vector<std::pair<std::u16string, std::u16string>> All(DWORD level) {
    BYTE* buffer = nullptr;
    DWORD read = 0, total = 0;
    EXPECT_EQ(NetShareEnum(nullptr, level, &buffer, MAX_PREFERRED_LENGTH, &read, &total, nullptr), NERR_Success);
    EXPECT_EQ(read, total);
    std::vector<std::pair<std::u16string, std::u16string>> shares;
    const std::size_t record = level == 2 ? 56 : 72;
    for (DWORD i = 0; i < read; ++i) {
      SHARE_INFO_502 info{};
      std::memcpy(&info, buffer + i * record, record);
      shares.emplace_back(info.shi502_netname, info.shi502_path);
    }
    EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);
    return shares;
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(Shares, AreListedWithTheAdministrativeOnes) {
  const std::vector<std::pair<std::u16string, std::u16string>> expected = {
      {u"ADMIN$", u"C:\\Windows"}, {u"C$", u"C:\\"}, {u"D$", u"D:\\"}, {u"docs", u"C:\\Users"}, {u"IPC$", u""}};
  ASSERT_EQ(Add(u"docs", u"C:\\Users\\"), NERR_Success);
  EXPECT_EQ(All(502), expected);
  EXPECT_EQ(All(2), expected);
  EXPECT_EQ(NetShareDel(nullptr, std::u16string(u"DOCS").data(), 0), NERR_Success);
  EXPECT_EQ(All(502).size(), 4u);
  EXPECT_EQ(NetShareDel(nullptr, std::u16string(u"docs").data(), 0), NERR_NetNameNotFound);
}

TEST_F(Shares, AreKeptAsWindowsKeepsThem) {
  emulated::Bytes descriptor = *emulated::DescriptorFromText(u"O:BAG:BAD:(A;;FA;;;BA)(A;;0x1200a9;;;WD)");
  ASSERT_EQ(Add(u"docs", u"C:\\Users", nullptr, descriptor.data()), NERR_Success);
  const auto value = machine->registry().Query(kShares, u"docs");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->type, REG_MULTI_SZ);
  EXPECT_EQ(value->data, emulated::RegistryMultiText({u"CSCFlags=0", u"MaxUses=10", u"Path=C:\\Users", u"Permissions=0",
                                                      u"Remark=a remark", u"ShareName=docs", u"Type=0"}));
  const auto security = machine->registry().Query(std::u16string(kShares) + u"\\Security", u"docs");
  ASSERT_TRUE(security);
  EXPECT_EQ(security->type, REG_BINARY);
  EXPECT_EQ(security->data, descriptor);

  // Taken away and put back with another path, by its own record, as a move does it.
  BYTE* buffer = nullptr;
  DWORD read = 0, total = 0;
  ASSERT_EQ(NetShareEnum(nullptr, 502, &buffer, MAX_PREFERRED_LENGTH, &read, &total, nullptr), NERR_Success);
  SHARE_INFO_502 record{};
  for (DWORD i = 0; i < read; ++i) {
    SHARE_INFO_502 each;
    std::memcpy(&each, buffer + i * sizeof each, sizeof each);
    if (std::u16string_view(each.shi502_netname) == u"docs") record = each;
  }
  ASSERT_TRUE(record.shi502_security_descriptor);
  EXPECT_EQ(record.shi502_max_uses, 10u);
  EXPECT_EQ(std::u16string_view(record.shi502_remark), u"a remark");
  EXPECT_EQ(NetShareDel(nullptr, record.shi502_netname, 0), NERR_Success);
  EXPECT_FALSE(machine->registry().Query(std::u16string(kShares) + u"\\Security", u"docs"));
  std::u16string path = u"D:\\";
  record.shi502_path = path.data();
  EXPECT_EQ(NetShareAdd(nullptr, 502, reinterpret_cast<BYTE*>(&record), nullptr), NERR_Success);
  EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);
  EXPECT_EQ(machine->registry().Query(std::u16string(kShares) + u"\\Security", u"docs")->data, descriptor);
  EXPECT_EQ(All(2)[3].second, u"D:\\");
}

TEST_F(Shares, WhatIsRefused) {
  DWORD member = 0;
  ASSERT_EQ(Add(u"docs", u"C:\\Users"), NERR_Success);
  EXPECT_EQ(Add(u"Docs", u"C:\\Users"), NERR_DuplicateShare);
  EXPECT_EQ(Add(u"c$", u"C:\\Users"), NERR_DuplicateShare);
  EXPECT_EQ(Add(u"other", u"C:\\missing", &member), NERR_UnknownDevDir);
  EXPECT_EQ(Add(u"other", u"C:\\Windows\\win.ini"), NERR_UnknownDevDir);
  EXPECT_EQ(Add(u"a:b", u"C:\\Users"), ERROR_INVALID_NAME);
  EXPECT_EQ(Add(std::u16string(81, u'x'), u"C:\\Users"), ERROR_INVALID_NAME);
  EXPECT_EQ(Add(u"other", u"Users", &member), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(member, 8u) << "the path";
  EXPECT_EQ(Add(u"other", u"C:\\Users", &member, nullptr, 1), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(member, 3u) << "the type";
  EXPECT_EQ(NetShareAdd(nullptr, 1, reinterpret_cast<BYTE*>(&member), nullptr), ERROR_INVALID_LEVEL);
  machine->process.token = emulated::MakeFilteredAdministratorToken(machine->process.token->user);
  EXPECT_EQ(Add(u"other", u"C:\\Users"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(NetShareDel(nullptr, std::u16string(u"docs").data(), 0), ERROR_ACCESS_DENIED);
  BYTE* buffer = nullptr;
  DWORD read = 0, total = 0;
  EXPECT_EQ(NetShareEnum(nullptr, 502, &buffer, MAX_PREFERRED_LENGTH, &read, &total, nullptr), ERROR_ACCESS_DENIED);
  EXPECT_EQ(NetApiBufferFree(&member), ERROR_INVALID_PARAMETER);
}

TEST_F(Shares, ComeInPartsWhenThereIsLittleRoom) {
  DWORD resume = 0, read = 0, total = 0, seen = 0, result = ERROR_MORE_DATA;
  while (result == ERROR_MORE_DATA) {
    BYTE* buffer = nullptr;
    result = NetShareEnum(nullptr, 502, &buffer, 200, &read, &total, &resume);
    EXPECT_EQ(total, 4 - seen);
    seen += read;
    EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);
    ASSERT_NE(read, 0u);
  }
  EXPECT_EQ(result, NERR_Success);
  EXPECT_EQ(seen, 4u);
}

// The value is whatever somebody wrote into the registry.
TEST_F(Shares, DamagedValuesAreReadAsFarAsTheyGo) {
  machine->registry().Set(kShares, u"odd", REG_MULTI_SZ, emulated::Bytes{'P', 0, 'a', 0, 't', 0, 'h'});
  machine->registry().Set(kShares, u"number", REG_MULTI_SZ,
                          emulated::RegistryMultiText({u"Type=99999999999", u"Path=C:\\x", u"no equals"}));
  machine->registry().SetText(kShares, u"text", u"Path=C:\\y");
  const auto all = All(502);
  ASSERT_EQ(all.size(), 6u);
  EXPECT_EQ(all[4], (std::pair<std::u16string, std::u16string>(u"number", u"C:\\x")));
  EXPECT_EQ(all[5], (std::pair<std::u16string, std::u16string>(u"odd", u"")));
}

}  // namespace
