// Texts, modules, marks and other services of the system.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

using System = FileTest;

TEST_F(System, MessagesHaveATextAndEndWithALineBreak) {
  constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
  UniqueLocalMemory owner;
  char16_t *text = nullptr, little[4];
  const DWORD length = FormatMessageW(kFlags | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, ERROR_ACCESS_DENIED, 0,
                                      reinterpret_cast<char16_t*>(&text), 0);
  owner.reset(text);
  ASSERT_GT(length, 2u);
  const std::u16string message(text);
  EXPECT_TRUE(message.size() == length && message.ends_with(u"\r\n"));
  EXPECT_EQ(ErrorOf(FormatMessageW(kFlags, nullptr, 0x2FFFFFFF, 0, little, 4)), ERROR_MR_MID_NOT_FOUND);
  if (OnWine()) return;  // it has no netmsg.dll with texts, nor Windows' own words
  // A Windows of another language may have no English texts.
  if (message != u"Access is denied.\r\n") GTEST_SKIP() << "not an English Windows";
  const UniqueLibrary library{LoadLibraryExW(u"netmsg.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE)};
  char16_t ofNetwork[100] = {};
  FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, library.get(), NERR_NetNameNotFound, 0,
                 ofNetwork, 100);
  EXPECT_TRUE(std::u16string_view(ofNetwork) == u"This shared resource does not exist.\r\n");
}

TEST_F(System, ModulesAreFoundByNameAndTheProgramsPathIsCutWhenThereIsTooLittleRoom) {
  const HMODULE kernel = GetModuleHandleW(u"Kernel32.dll");
  ASSERT_TRUE(kernel);
  EXPECT_EQ(ErrorOf(GetProcAddress(kernel, "NoSuchFunction")), ERROR_PROC_NOT_FOUND);
  EXPECT_EQ(ErrorOf(LoadLibraryW(u"no such library.dll")), ERROR_MOD_NOT_FOUND);
  char16_t path[300], little[5];
  const DWORD length = GetModuleFileNameW(nullptr, path, 300);
  EXPECT_EQ(std::u16string_view(path).size(), length);
  EXPECT_EQ(GetModuleFileNameW(nullptr, little, 5), 5u);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_TRUE(std::u16string_view(little, 4) == std::u16string_view(path).substr(0, 4));
  EXPECT_TRUE(OnWine() || little[4] == u'\0');  // it leaves the cut text without an end
}

TEST_F(System, AMutexIsAMarkThatOthersSeeUntilItsLastHandleGoes) {
  SECURITY_DESCRIPTOR descriptor;
  ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
  ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
  SECURITY_ATTRIBUTES forEverybody{sizeof forEverybody, &descriptor, FALSE};
  const auto mark = [](const char16_t* name, SECURITY_ATTRIBUTES* attributes = nullptr) {
    UniqueKernelHandle handle{CreateMutexW(attributes, FALSE, name)};
    EXPECT_TRUE(handle);
    return handle;
  };
  UniqueKernelHandle first = mark(u"Local\\contract test mark", &forEverybody);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  UniqueKernelHandle second = mark(u"contract test mark");
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  first.reset();
  mark(u"contract test mark");
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  second.reset();
  second = mark(u"contract test mark");
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_TRUE(OnWine() || (mark(u"Global\\contract test mark") && GetLastError() == 0));  // it has one name space
}

TEST_F(System, WindowsVersionIsToldInTwoFormsOnly) {
  OSVERSIONINFOEXW version{};
  for (const DWORD size : {0u, 150u, 276u, 284u}) {
    version.dwOSVersionInfoSize = size;
    EXPECT_EQ(GetVersionExW(&version) != 0, size >= 276);
  }
  RecordProperty("Windows", std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwBuildNumber));
}

TEST_F(System, SharesAreToldWithTheirPathsAndOnesThatAreNotAreNotDeleted) {
  SKIP_ON_WINE("NetShareEnum fails with 50");
  BYTE* block = nullptr;
  DWORD read = 0, total = 0;
  ASSERT_EQ(NetShareEnum(nullptr, 502, &block, MAX_PREFERRED_LENGTH, &read, &total, nullptr), NERR_Success);
  const auto* const shares = reinterpret_cast<const SHARE_INFO_502*>(block);
  for (DWORD i = 0; i < total; ++i) EXPECT_TRUE(read == total && shares[i].shi502_netname && shares[i].shi502_path);
  EXPECT_EQ(NetApiBufferFree(block), NERR_Success);
  char16_t unknown[] = u"contract test, none";
  EXPECT_EQ(NetShareDel(nullptr, unknown, 0), NERR_NetNameNotFound);
}

// What is said to a debugger changes the last error where nobody listens: a failure's error is read before.
TEST_F(System, WhatADebuggerIsToldChangesTheLastError) {
  SetLastError(0xDEAD);
  OutputDebugStringW(u"contract test\n");
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(System, AConsoleHasATitleAndRoutinesForWhatItsUserAsks) {
  const PHANDLER_ROUTINE routine = [](DWORD) { return TRUE; };
  for (const DWORD error : {DWORD{0}, DWORD{ERROR_INVALID_PARAMETER}}) {
    EXPECT_TRUE(error != 0 || SetConsoleCtrlHandler(routine, TRUE));
    EXPECT_EQ(ErrorOf(SetConsoleCtrlHandler(routine, FALSE)), error);
  }
  Put(Path(u"file"));
  DWORD mode = 0;
  EXPECT_EQ(ErrorOf(GetConsoleMode(Open(Path(u"file"), GENERIC_READ, 0).get(), &mode)), ERROR_INVALID_HANDLE);
  char16_t before[512] = {}, now[512] = {};
  SetLastError(ERROR_SUCCESS);
  if (GetConsoleTitleW(before, 512) == 0 && GetLastError() != ERROR_SUCCESS) return;  // there is none
  EXPECT_TRUE(SetConsoleTitleW(u"37 % of 12 items") && GetConsoleTitleW(now, 512) == 16);
  EXPECT_TRUE(std::u16string_view(now) == u"37 % of 12 items" && SetConsoleTitleW(before));
}

TEST_F(System, TextBecomesBytesOfACodePage) {
  char bytes[16] = {};
  BOOL usedDefault = FALSE;
  EXPECT_EQ(WideCharToMultiByte(437, 0, u"a\u00e9", 2, bytes, 16, nullptr, &usedDefault), 2);
  EXPECT_EQ(std::string(bytes, 2), "a\x82");
  EXPECT_FALSE(usedDefault);
  EXPECT_EQ(WideCharToMultiByte(437, 0, u"\u4e2d", 1, bytes, 16, nullptr, &usedDefault), 1);
  EXPECT_TRUE(bytes[0] == '?' && usedDefault);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\u00e9", -1, nullptr, 0, nullptr, nullptr), 3);
  // Too little room takes the characters that fit in whole, and tells of these whether one was replaced.
  for (const auto& [page, text, room, fill] : {std::tuple(437u, u"ab\u4e2d", 2, "ab"),
                                               {437u, u"\u4e2db", 1, "?"},
                                               {65001u, u"a\u00e9", 2, "a"},
                                               {65001u, u"\u00e9", 2, "\xC3\xA9"}}) {
    std::memset(bytes, 0, sizeof bytes);
    BOOL* const used = page == CP_UTF8 ? nullptr : &usedDefault;
    EXPECT_EQ(ErrorOf(WideCharToMultiByte(page, 0, text, -1, bytes, room, nullptr, used)), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_STREQ(bytes, fill);
    EXPECT_TRUE(!used || usedDefault == (*fill == '?'));
  }
}

}  // namespace
