// Tokens, privileges and AccessCheck.
#include "contract/security_support.h"

namespace {

using namespace contract;
using namespace win32;

class Tokens : public FileTest {
 protected:
  ~Tokens() override { RevertToSelf(); }

  static UniqueKernelHandle ProcessToken(DWORD access) {
    UniqueKernelHandle token;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), access, token.put()));
    return token;
  }

  static DWORD Enable(HANDLE token, const char16_t* privilege, DWORD attributes = SE_PRIVILEGE_ENABLED) {
    TOKEN_PRIVILEGES wish{1, {{{}, attributes}}};
    EXPECT_TRUE(LookupPrivilegeValueW(nullptr, privilege, &wish.Privileges[0].Luid));
    SetLastError(0xDEAD);
    EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &wish, 0, nullptr, nullptr));
    return GetLastError();
  }
};

TEST_F(Tokens, InformationTellsItsSizeFirstAndPointsIntoItsBuffer) {
  const UniqueKernelHandle token = ProcessToken(TOKEN_QUERY);
  DWORD needed = 0;
  EXPECT_EQ(ErrorOf(GetTokenInformation(token.get(), TOKEN_INFORMATION_CLASS::TokenGroups, nullptr, 0, &needed)),
            ERROR_INSUFFICIENT_BUFFER);
  std::vector<std::uint64_t> buffer(needed / 8 + 1);
  ASSERT_TRUE(GetTokenInformation(token.get(), TOKEN_INFORMATION_CLASS::TokenGroups, buffer.data(), needed, &needed));
  const auto* const groups = reinterpret_cast<const TOKEN_GROUPS*>(buffer.data());
  const auto* const begin = reinterpret_cast<const BYTE*>(buffer.data());
  ASSERT_GT(groups->GroupCount, 0u);
  for (DWORD i = 0; i < groups->GroupCount; ++i) {
    const auto* const sid = static_cast<const BYTE*>(groups->Groups[i].Sid);
    EXPECT_TRUE(sid > begin && sid < begin + needed && sid[0] == 1);
  }
  for (const auto& [text, isMember] : {std::pair{u"S-1-5-32-544", TRUE}, {u"S-1-5-21-1-2-3-4", FALSE}}) {
    UniqueLocalMemory group;
    BOOL member = !isMember;
    ASSERT_TRUE(ConvertStringSidToSidW(text, group.put()));
    EXPECT_TRUE(CheckTokenMembership(nullptr, group.get(), &member));
    EXPECT_EQ(member, isMember);
  }
}

TEST_F(Tokens, AdjustingSucceedsAndSaysInTheLastErrorWhetherAllWereHeld) {
  const UniqueKernelHandle token = ProcessToken(TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES);
  EXPECT_EQ(Enable(token.get(), u"SeBackupPrivilege"), ERROR_SUCCESS);
  EXPECT_EQ(Enable(token.get(), u"SeBackupPrivilege", 0), ERROR_SUCCESS);
  LUID luid;
  EXPECT_EQ(ErrorOf(LookupPrivilegeValueW(nullptr, u"SeNoSuchPrivilege", &luid)), ERROR_NO_SUCH_PRIVILEGE);
  EXPECT_TRUE(OnWine() || Enable(token.get(), u"SeCreateTokenPrivilege") == ERROR_NOT_ALL_ASSIGNED);
  const UniqueKernelHandle queryOnly = ProcessToken(TOKEN_QUERY);
  TOKEN_PRIVILEGES none{};
  EXPECT_EQ(ErrorOf(AdjustTokenPrivileges(queryOnly.get(), FALSE, &none, 0, nullptr, nullptr)), ERROR_ACCESS_DENIED);
}

TEST_F(Tokens, AccessCheckWantsAnImpersonationTokenAndMappedRights) {
  const UniqueLocalMemory descriptor = Parse(u"O:SYG:SYD:(A;;FR;;;WD)");
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  PRIVILEGE_SET privileges{};
  DWORD length = sizeof privileges, granted = 0;
  BOOL allowed = FALSE;
  const auto check = [&](HANDLE token, DWORD desired) {
    length = sizeof privileges;
    return AccessCheck(descriptor.get(), token, desired, &mapping, &privileges, &length, &granted, &allowed);
  };
  const UniqueKernelHandle primary = ProcessToken(TOKEN_QUERY);
  EXPECT_EQ(ErrorOf(check(primary.get(), FILE_READ_DATA)), ERROR_NO_IMPERSONATION_TOKEN);

  UniqueKernelHandle token;  // which a thread has only while it impersonates
  EXPECT_EQ(ErrorOf(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())), ERROR_NO_TOKEN);
  ASSERT_TRUE(ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL::SecurityImpersonation));
  ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put()));
  EXPECT_TRUE(check(token.get(), FILE_READ_DATA));
  EXPECT_TRUE(allowed);
  EXPECT_EQ(granted, FILE_READ_DATA);
  EXPECT_TRUE(check(token.get(), FILE_READ_DATA | FILE_WRITE_DATA));
  EXPECT_FALSE(allowed);
  EXPECT_EQ(granted, 0u);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(check(token.get(), GENERIC_READ)), ERROR_GENERIC_NOT_MAPPED);
}

}  // namespace
