// SIDs and accounts.
#include <vector>

#include "contract/fixture.h"

namespace {

using namespace win32;

class Accounts : public contract::FileTest {
 protected:
  static UniqueLocalMemory SidOf(const char16_t* text) {
    PSID sid = nullptr;
    EXPECT_TRUE(ConvertStringSidToSidW(text, &sid));
    return UniqueLocalMemory(sid);
  }
  static std::u16string TextOf(PSID sid) {
    char16_t* text = nullptr;
    if (!ConvertSidToStringSidW(sid, &text)) return {};
    const UniqueLocalMemory owner(text);
    return text;
  }
};

TEST_F(Accounts, ASidIsWrittenAsItIsRead) {
  const struct {
    const char16_t* text;
    const char16_t* written;
    int subAuthorities;
  } cases[] = {
      {u"S-1-5-21-1004336348-1177238915-682003330-500", u"S-1-5-21-1004336348-1177238915-682003330-500", 5},
      {u"S-1-12-1-1-2-3-4294967295", u"S-1-12-1-1-2-3-4294967295", 5},
      {u"S-1-1-0", u"S-1-1-0", 1},
      {u"s-1-5-18", u"S-1-5-18", 1},
      {u"BA", u"S-1-5-32-544", 2},
      {u"SY", u"S-1-5-18", 1},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(testing::PrintToString(one.text));
    PSID sid = nullptr;
    ASSERT_TRUE(ConvertStringSidToSidW(one.text, &sid));
    const UniqueLocalMemory owner(sid);
    EXPECT_EQ(static_cast<const SID*>(sid)->SubAuthorityCount, one.subAuthorities);
    EXPECT_EQ(TextOf(sid), one.written);
  }
}

TEST_F(Accounts, WhatIsNoSidIsRefused) {
  std::vector<const char16_t*> texts{u"S", u"S-1", u"S-1-5", u"S-1-5-", u"S-1-5-18x", u"anna", u"QQ", u"BAx"};
  if (!contract::OnWine()) {  // it takes both
    texts.push_back(u"");
    texts.push_back(u"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16");
  }
  for (const char16_t* const text : texts) {
    SCOPED_TRACE(testing::PrintToString(text));
    PSID sid = nullptr;
    EXPECT_FALSE(ConvertStringSidToSidW(text, &sid));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_SID);
  }
  BYTE damaged[28] = {9, 5};
  char16_t* text = nullptr;
  EXPECT_FALSE(ConvertSidToStringSidW(damaged, &text));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_SID);
}

TEST_F(Accounts, AnAccountIsFoundByNameAndBySidInBuffersThatAreMeasuredFirst) {
  const struct {
    const char16_t* name;
    const char16_t* sid;
  } cases[] = {
      {u"Everyone", u"S-1-1-0"},
      {u"SYSTEM", u"S-1-5-18"},
      {u"nt authority\\system", u"S-1-5-18"},
      {u"Administrators", u"S-1-5-32-544"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(testing::PrintToString(one.name));
    DWORD sidSize = 0, domainSize = 0;
    SID_NAME_USE use{};
    EXPECT_FALSE(LookupAccountNameW(nullptr, one.name, nullptr, &sidSize, nullptr, &domainSize, &use));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    std::vector<DWORD> sid(sidSize / 4 + 1);
    std::u16string domain(domainSize, u'#');
    ASSERT_TRUE(LookupAccountNameW(nullptr, one.name, sid.data(), &sidSize, domain.data(), &domainSize, &use));
    EXPECT_EQ(TextOf(sid.data()), one.sid);
    domain.resize(domainSize);  // now without the terminator

    DWORD nameSize = 0;
    domainSize = 0;
    EXPECT_FALSE(LookupAccountSidW(nullptr, sid.data(), nullptr, &nameSize, nullptr, &domainSize, &use));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    std::u16string name(nameSize, u'#'), domainOfSid(domainSize, u'#');
    ASSERT_TRUE(LookupAccountSidW(nullptr, sid.data(), name.data(), &nameSize, domainOfSid.data(), &domainSize, &use));
    name.resize(nameSize);
    domainOfSid.resize(domainSize);
    EXPECT_EQ(domainOfSid, domain);
    EXPECT_TRUE(std::u16string_view(one.name).ends_with(u"system") || name == one.name);
  }
}

TEST_F(Accounts, UnknownAccountsAreSaidToBeUnmapped) {
  DWORD sidSize = 0, nameSize = 0, domainSize = 0;
  SID_NAME_USE use{};
  EXPECT_FALSE(LookupAccountNameW(nullptr, u"nobody of that name", nullptr, &sidSize, nullptr, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_NONE_MAPPED);
  const auto unknown = SidOf(u"S-1-5-21-1-2-3-1001");
  EXPECT_FALSE(LookupAccountSidW(nullptr, unknown.get(), nullptr, &nameSize, nullptr, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_NONE_MAPPED);
}

}  // namespace
