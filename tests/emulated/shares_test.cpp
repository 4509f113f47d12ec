// The server's shares: the calls, and what they leave in the registry.
#include "emulated/on_machine.h"
#include "win32/net.h"

namespace {

using namespace win32;
using Entries = std::vector<std::pair<std::u16string, std::u16string>>;

constexpr std::u16string_view kShares = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares";
const std::u16string kSecurity = std::u16string(kShares) + u"\\Security";

class Shares : public test::OnWindows {
 protected:
  // The parameter at fault is in `member`.
  DWORD Add(std::u16string name, std::u16string path, PSECURITY_DESCRIPTOR descriptor = nullptr,
            DWORD type = STYPE_DISKTREE) {
    std::u16string remark = u"a remark";
    SHARE_INFO_502 info{name.data(), type, remark.data(), 0, 10, 0, path.data(), nullptr, 0, descriptor};
    return NetShareAdd(nullptr, 502, reinterpret_cast<BYTE*>(&info), &member);
  }
  static DWORD Delete(std::u16string name) { return NetShareDel(nullptr, name.data(), 0); }

  // Calls `visit` with each share at this level.
  template <typename Visit>
  static DWORD ForEach(DWORD level, const Visit& visit) {
    BYTE* buffer = nullptr;
    DWORD read = 0, total = 0;
    if (const DWORD error = NetShareEnum(nullptr, level, &buffer, MAX_PREFERRED_LENGTH, &read, &total, nullptr))
      return error;
    EXPECT_EQ(read, total);
    const std::size_t record = level == 2 ? 56 : 72;
    for (DWORD i = 0; i < read; ++i) {
      SHARE_INFO_502 info{};
      std::memcpy(&info, buffer + i * record, record);
      visit(info);
    }
    EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);
    return 0;
  }
  static Entries All(DWORD level = 502) {
    Entries shares;
    EXPECT_EQ(ForEach(level, [&](const auto& info) { shares.emplace_back(info.shi502_netname, info.shi502_path); }),
              0u);
    return shares;
  }

  DWORD member = 0;
};

TEST_F(Shares, AreListedWithTheAdministrativeOnes) {
  const Entries expected = {
      {u"ADMIN$", u"C:\\Windows"}, {u"C$", u"C:\\"}, {u"D$", u"D:\\"}, {u"docs", u"C:\\Users"}, {u"IPC$", u""}};
  ASSERT_EQ(Add(u"docs", u"C:\\Users\\"), NERR_Success);
  for (const DWORD level : {2u, 502u}) EXPECT_EQ(All(level), expected);
  // They come in parts when there is little room.
  DWORD resume = 0, read = 0, total = 0, seen = 0, result = ERROR_MORE_DATA;
  while (result == ERROR_MORE_DATA) {
    BYTE* buffer = nullptr;
    result = NetShareEnum(nullptr, 502, &buffer, 200, &read, &total, &resume);
    EXPECT_EQ(total, 5 - seen);
    seen += read;
    EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);
    ASSERT_NE(read, 0u);
  }
  EXPECT_EQ(result, NERR_Success);
  EXPECT_EQ(seen, 5u);
  EXPECT_EQ(Delete(u"DOCS"), NERR_Success);
  EXPECT_EQ(All().size(), 4u);
  EXPECT_EQ(Delete(u"docs"), NERR_NetNameNotFound);
}

TEST_F(Shares, AreKeptAsWindowsKeepsThem) {
  emulated::Bytes descriptor = *emulated::DescriptorFromText(u"O:BAG:BAD:(A;;FA;;;BA)(A;;0x1200a9;;;WD)");
  ASSERT_EQ(Add(u"docs", u"C:\\Users", descriptor.data()), NERR_Success);
  const auto value = registry().Query(kShares, u"docs"), security = registry().Query(kSecurity, u"docs");
  ASSERT_TRUE(value && security);
  EXPECT_EQ(value->type, REG_MULTI_SZ);
  EXPECT_EQ(value->data, emulated::RegistryMultiText({u"CSCFlags=0", u"MaxUses=10", u"Path=C:\\Users", u"Permissions=0",
                                                      u"Remark=a remark", u"ShareName=docs", u"Type=0"}));
  EXPECT_EQ(security->type, REG_BINARY);
  EXPECT_EQ(security->data, descriptor);
  // Taken away and put back with another path, by its own record, as a move does it.
  EXPECT_EQ(ForEach(502,
                    [&](SHARE_INFO_502 record) {
                      if (std::u16string_view(record.shi502_netname) != u"docs") return;
                      EXPECT_EQ(record.shi502_max_uses, 10u);
                      EXPECT_EQ(std::u16string_view(record.shi502_remark), u"a remark");
                      EXPECT_EQ(NetShareDel(nullptr, record.shi502_netname, 0), NERR_Success);
                      EXPECT_FALSE(registry().Query(kSecurity, u"docs"));
                      std::u16string path = u"D:\\";
                      record.shi502_path = path.data();
                      EXPECT_EQ(NetShareAdd(nullptr, 502, reinterpret_cast<BYTE*>(&record), nullptr), NERR_Success);
                    }),
            0u);
  EXPECT_EQ(registry().Query(kSecurity, u"docs")->data, descriptor);
  EXPECT_EQ(All(2)[3].second, u"D:\\");
}

TEST_F(Shares, WhatIsRefused) {
  ASSERT_EQ(Add(u"docs", u"C:\\Users"), NERR_Success);
  const struct {
    std::u16string name, path;
    DWORD error;
  } cases[] = {
      {u"Docs", u"C:\\Users", NERR_DuplicateShare},   {u"c$", u"C:\\Users", NERR_DuplicateShare},
      {u"other", u"C:\\missing", NERR_UnknownDevDir}, {u"other", u"C:\\Windows\\win.ini", NERR_UnknownDevDir},
      {u"a:b", u"C:\\Users", ERROR_INVALID_NAME},     {std::u16string(81, u'x'), u"C:\\Users", ERROR_INVALID_NAME},
      {u"other", u"Users", ERROR_INVALID_PARAMETER}};
  for (const auto& one : cases) EXPECT_EQ(Add(one.name, one.path), one.error) << emulated::Utf8(one.name + one.path);
  EXPECT_EQ(member, 8u) << "the path";
  EXPECT_EQ(Add(u"other", u"C:\\Users", nullptr, 1), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(member, 3u) << "the type";
  EXPECT_EQ(NetShareAdd(nullptr, 1, reinterpret_cast<BYTE*>(&member), nullptr), ERROR_INVALID_LEVEL);
  EXPECT_EQ(NetApiBufferFree(&member), ERROR_INVALID_PARAMETER);
  LoseElevation();
  EXPECT_EQ(Add(u"other", u"C:\\Users"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Delete(u"docs"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ForEach(502, [](const auto&) {}), ERROR_ACCESS_DENIED);
}

// The value is whatever somebody wrote into the registry.
TEST_F(Shares, DamagedValuesAreReadAsFarAsTheyGo) {
  registry().Set(kShares, u"odd", REG_MULTI_SZ, emulated::Bytes{'P', 0, 'a', 0, 't', 0, 'h'});
  registry().Set(kShares, u"number", REG_MULTI_SZ,
                 emulated::RegistryMultiText({u"Type=99999999999", u"Path=C:\\x", u"no equals"}));
  registry().SetText(kShares, u"text", u"Path=C:\\y");
  const Entries all = All();
  ASSERT_EQ(all.size(), 6u);
  EXPECT_EQ(Entries(all.begin() + 4, all.end()), (Entries{{u"number", u"C:\\x"}, {u"odd", u""}}));
}

}  // namespace
