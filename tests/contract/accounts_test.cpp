// SIDs and accounts.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

class Accounts : public FileTest {
 protected:
  static std::u16string TextOf(PSID sid) {
    UniqueLocalMemory owner;
    char16_t* text = nullptr;
    if (!ConvertSidToStringSidW(sid, &text)) return {};
    owner.reset(text);
    return text;
  }
};

TEST_F(Accounts, ASidIsWrittenAsItIsRead) {
  const struct {
    const char16_t *text, *written;
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
  if (!OnWine()) texts.insert(texts.end(), {u"", u"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"});  // it takes both
  PSID sid = nullptr;
  for (const char16_t* const text : texts)
    EXPECT_EQ(ErrorOf(ConvertStringSidToSidW(text, &sid)), ERROR_INVALID_SID) << testing::PrintToString(text);
  BYTE damaged[28] = {9, 5};
  char16_t* text = nullptr;
  EXPECT_EQ(ErrorOf(ConvertSidToStringSidW(damaged, &text)), ERROR_INVALID_SID);
}

TEST_F(Accounts, AnAccountIsFoundByNameAndBySidInBuffersThatAreMeasuredFirst) {
  SID_NAME_USE use{};
  for (const auto& [asked, expected] : {std::pair{u"Everyone", u"S-1-1-0"},
                                        {u"SYSTEM", u"S-1-5-18"},
                                        {u"nt authority\\system", u"S-1-5-18"},
                                        {u"Administrators", u"S-1-5-32-544"}}) {
    SCOPED_TRACE(testing::PrintToString(asked));
    DWORD sidSize = 0, domainSize = 0, nameSize = 0;
    EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, asked, nullptr, &sidSize, nullptr, &domainSize, &use)),
              ERROR_INSUFFICIENT_BUFFER);
    std::vector<DWORD> sid(sidSize / 4 + 1);
    std::u16string domain(domainSize, u'#');
    ASSERT_TRUE(LookupAccountNameW(nullptr, asked, sid.data(), &sidSize, domain.data(), &domainSize, &use));
    EXPECT_EQ(TextOf(sid.data()), expected);
    domain.resize(domainSize);  // now without the terminator

    domainSize = 0;
    EXPECT_EQ(ErrorOf(LookupAccountSidW(nullptr, sid.data(), nullptr, &nameSize, nullptr, &domainSize, &use)),
              ERROR_INSUFFICIENT_BUFFER);
    std::u16string name(nameSize, u'#'), domainOfSid(domainSize, u'#');
    ASSERT_TRUE(LookupAccountSidW(nullptr, sid.data(), name.data(), &nameSize, domainOfSid.data(), &domainSize, &use));
    name.resize(nameSize);
    domainOfSid.resize(domainSize);
    EXPECT_EQ(domainOfSid, domain);
    EXPECT_TRUE(std::u16string_view(asked).ends_with(u"system") || name == asked);
  }
  // Those that nobody knows are said to be unmapped.
  DWORD sidSize = 0, nameSize = 0, domainSize = 0;
  EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, u"nobody of that name", nullptr, &sidSize, nullptr, &domainSize, &use)),
            ERROR_NONE_MAPPED);
  UniqueLocalMemory unknown;
  ASSERT_TRUE(ConvertStringSidToSidW(u"S-1-5-21-1-2-3-1001", unknown.put()));
  EXPECT_EQ(ErrorOf(LookupAccountSidW(nullptr, unknown.get(), nullptr, &nameSize, nullptr, &domainSize, &use)),
            ERROR_NONE_MAPPED);
}

}  // namespace
