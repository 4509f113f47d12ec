// SIDs and accounts.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

using Accounts = FileTest;

std::u16string TextOf(PSID sid) {
  UniqueLocalMemory owner;
  char16_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) return u"error";
  owner.reset(text);
  return text;
}

TEST_F(Accounts, ASidIsWrittenAsItIsRead) {
  for (const auto& [text, written] : {std::pair{u"S-1-12-1-1-2-3-4294967295", u"S-1-12-1-1-2-3-4294967295"},
                                      {u"s-1-5-18", u"S-1-5-18"},
                                      {u"BA", u"S-1-5-32-544"}}) {
    UniqueLocalMemory sid;
    EXPECT_TRUE(ConvertStringSidToSidW(text, sid.put()));
    EXPECT_EQ(TextOf(sid.get()), written);
  }
  std::vector<const char16_t*> bad{u"S-1", u"S-1-5", u"S-1-5-", u"S-1-5-18x", u"anna", u"QQ", u"BAx"};
  if (!OnWine()) bad.insert(bad.end(), {u"", u"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"});  // it takes both
  PSID none = nullptr;
  for (const char16_t* const text : bad) EXPECT_EQ(ErrorOf(ConvertStringSidToSidW(text, &none)), ERROR_INVALID_SID);
  BYTE damaged[28] = {9, 5};
  EXPECT_EQ(TextOf(damaged), u"error");
  EXPECT_EQ(GetLastError(), ERROR_INVALID_SID);
}

TEST_F(Accounts, AnAccountIsFoundByNameAndBySidInBuffersThatAreMeasuredFirst) {
  SID_NAME_USE use{};
  DWORD sidSize = 0, domainSize = 0, nameSize = 0;
  for (const auto& [asked, expected] : {std::pair{u"Everyone", u"S-1-1-0"},
                                        {u"nt authority\\system", u"S-1-5-18"},
                                        {u"Administrators", u"S-1-5-32-544"}}) {
    sidSize = domainSize = nameSize = 0;
    EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, asked, nullptr, &sidSize, nullptr, &domainSize, &use)),
              ERROR_INSUFFICIENT_BUFFER);
    std::vector<DWORD> sid(sidSize / 4 + 1);
    std::u16string domain(domainSize, u'#');
    ASSERT_TRUE(LookupAccountNameW(nullptr, asked, sid.data(), &sidSize, domain.data(), &domainSize, &use));
    EXPECT_EQ(TextOf(sid.data()), expected);

    domainSize = 0;
    EXPECT_EQ(ErrorOf(LookupAccountSidW(nullptr, sid.data(), nullptr, &nameSize, nullptr, &domainSize, &use)),
              ERROR_INSUFFICIENT_BUFFER);
    std::u16string name(nameSize, u'#'), domainOfSid(domainSize, u'#');
    ASSERT_TRUE(LookupAccountSidW(nullptr, sid.data(), name.data(), &nameSize, domainOfSid.data(), &domainSize, &use));
    EXPECT_EQ(std::u16string(domainOfSid.c_str()), domain.c_str());
    EXPECT_TRUE(std::u16string_view(asked).ends_with(u"system") || std::u16string_view(asked) == name.c_str());
  }
  // Those that nobody knows are said to be unmapped.
  EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, u"nobody of that name", nullptr, &sidSize, nullptr, &domainSize, &use)),
            ERROR_NONE_MAPPED);
  UniqueLocalMemory unknown;
  ASSERT_TRUE(ConvertStringSidToSidW(u"S-1-5-21-1-2-3-1001", unknown.put()));
  EXPECT_EQ(ErrorOf(LookupAccountSidW(nullptr, unknown.get(), nullptr, &nameSize, nullptr, &domainSize, &use)),
            ERROR_NONE_MAPPED);
}

}  // namespace
