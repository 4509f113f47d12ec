// What a test can script of the system: the clock, the console, modules, code pages, other processes' marks.
#include "emulated/on_machine.h"
#include "support/keelroom.h"
#include "win32/emulated/system/console.h"
#include "win32/emulated/system/mutex.h"
#include "win32/emulated/system/pe_resources.h"

namespace {

using namespace win32;
using contract::ErrorOf;
using emulated::Bytes;

using SystemServices = test::OnBareMachine;

TEST_F(SystemServices, VersionInformationComesFromTheModuleOrFromTheFileOnDisk) {
  const Bytes file = test::KeeldiskDriver("8.33");  // a program file as the Windows tools make it
  const auto version = emulated::FindPeResource(file, 16);
  ASSERT_TRUE(version);
  machine->module.resources.push_back({u"#16", u"#1", 0x409, *version});
  contract::Put(u"C:\\other.exe", {reinterpret_cast<const char*>(file.data()), file.size()});
  for (const char16_t* const path : {machine->module.path.c_str(), u"C:\\other.exe"}) {
    DWORD handle = 1;
    const DWORD size = GetFileVersionInfoSizeW(path, &handle);
    ASSERT_GT(size, 0u);
    std::vector<std::uint32_t> block(size / 4 + 1);
    EXPECT_FALSE(GetFileVersionInfoW(path, 0, size - 1, block.data()));
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, size, block.data()));
    void* value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(block.data(), u"\\", &value, &length));
    EXPECT_EQ(length, sizeof(VS_FIXEDFILEINFO));
    EXPECT_EQ(static_cast<VS_FIXEDFILEINFO*>(value)->dwFileVersionMS, 8u << 16 | 33);
    ASSERT_TRUE(VerQueryValueW(block.data(), u"\\stringfileinfo\\040904B0\\CompanyName", &value, &length));
    EXPECT_TRUE(std::u16string(static_cast<char16_t*>(value)) == u"Velmora" && length == 8);
    EXPECT_EQ(ErrorOf(VerQueryValueW(block.data(), u"\\StringFileInfo\\040704b0\\CompanyName", &value, &length)),
              ERROR_RESOURCE_TYPE_NOT_FOUND);
  }
  DWORD handle = 0;
  EXPECT_EQ(ErrorOf(GetFileVersionInfoSizeW(u"C:\\missing.exe", &handle)), ERROR_FILE_NOT_FOUND);
}

TEST_F(SystemServices, DamagedExecutablesAndVersionBlocksAreHarmless) {
  const Bytes file = test::KeeldiskDriver("8.33");
  const auto found = emulated::FindPeResource(file, 16);
  ASSERT_TRUE(found);
  EXPECT_FALSE(emulated::FindPeResource(file, 24).has_value());
  const Bytes version(found->begin(), found->end());
  const auto resources = static_cast<std::size_t>(found->data() - file.data());  // the directories stand before it
  unsigned random = 7;
  const auto next = [&] { return (random = random * 1103515245u + 12345u) >> 8; };
  for (int round = 0; round < 20000; ++round) {
    Bytes image = file, block = version;
    for (int i = 0; i < 4; ++i) {
      const std::size_t from = i % 2 == 0 ? 0 : resources - 0x60;
      image[from + next() % (i % 2 == 0 ? 0x260 : 0x60)] = static_cast<std::uint8_t>(next());
    }
    if (round % 3 == 0) image.resize(next() % image.size());
    emulated::FindPeResource(Bytes(image), 16);
    for (int i = 0; i < 4; ++i) block[2 + next() % (block.size() - 2)] = static_cast<std::uint8_t>(next());
    void* value = nullptr;
    UINT length = 0;
    if (VerQueryValueW(block.data(), u"\\StringFileInfo\\040904b0\\CompanyName", &value, &length)) {
      EXPECT_LE(static_cast<std::uint8_t*>(value) + length * 2, block.data() + block.size());
    }
  }
}

TEST_F(SystemServices, ResourcesAreFoundByTypeNameAndLanguage) {
  static constexpr std::uint8_t kNeutral[] = {1}, kGerman[] = {2, 2};
  machine->module.resources = {
      {u"#6", u"#1", 0, kNeutral}, {u"#6", u"#2", 0x407, kGerman}, {u"FILE", u"CONFIG", 0x409, kNeutral}};
  const auto size = [](HRSRC resource) { return SizeofResource(nullptr, resource); };
  const HRSRC german = FindResourceW(nullptr, MakeIntResource(2), MakeIntResource(RT_STRING));
  ASSERT_TRUE(german);
  EXPECT_EQ(size(german), 2u);
  EXPECT_EQ(static_cast<BYTE*>(LockResource(LoadResource(nullptr, german)))[0], 2);
  EXPECT_TRUE(FindResourceExW(nullptr, MakeIntResource(RT_STRING), MakeIntResource(1), 0));
  EXPECT_TRUE(FindResourceW(nullptr, u"config", u"file"));
  EXPECT_EQ(ErrorOf(FindResourceW(nullptr, MakeIntResource(1), MakeIntResource(99))), ERROR_RESOURCE_TYPE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(FindResourceW(nullptr, MakeIntResource(99), MakeIntResource(RT_STRING))),
            ERROR_RESOURCE_NAME_NOT_FOUND);
  EXPECT_EQ(ErrorOf(FindResourceExW(nullptr, MakeIntResource(RT_STRING), MakeIntResource(2), 0x40C)),
            ERROR_RESOURCE_LANG_NOT_FOUND);
  machine->module.resources.clear();
  EXPECT_EQ(ErrorOf(FindResourceW(nullptr, MakeIntResource(1), MakeIntResource(RT_STRING))),
            ERROR_RESOURCE_DATA_NOT_FOUND);
}

TEST_F(SystemServices, SleepingMovesTheClockAndLocalTimeFollowsIt) {
  machine->SetNow(132'000'000'000'000'000);  // 2019-04-17 18:40:00 UTC, a Wednesday
  machine->localTimeOffsetMinutes = 120;
  std::uint64_t slept = 0;
  machine->onSleep = [&](std::uint64_t milliseconds) { slept += milliseconds; };
  Sleep(61'001);
  SYSTEMTIME time;
  GetLocalTime(&time);
  EXPECT_EQ(slept, 61'001u);
  EXPECT_EQ(std::tuple(time.wYear, time.wMonth, time.wDay, time.wDayOfWeek), std::tuple(2019, 4, 17, 3));
  EXPECT_EQ(std::tuple(time.wHour, time.wMinute, time.wSecond, time.wMilliseconds), std::tuple(20, 41, 1, 1));
  machine->SetNow(125'963'423'990'000'000);  // 2000-02-29 23:59:59, the leap day of a century
  machine->localTimeOffsetMinutes = 0;
  GetLocalTime(&time);
  EXPECT_EQ(std::tuple(time.wYear, time.wMonth, time.wDay, time.wHour), std::tuple(2000, 2, 29, 23));
}

TEST_F(SystemServices, TheConsoleKeepsTheBytesOfItsPage) {
  machine->oemCodePage = 852;
  char bytes[4];
  EXPECT_EQ(WideCharToMultiByte(CP_OEMCP, 0, u"\u0159", 1, bytes, 4, nullptr, nullptr), 1);
  EXPECT_EQ(bytes[0], '\xFD');
  machine->oemCodePage = 866;
  EXPECT_EQ(WideCharToMultiByte(CP_OEMCP, 0, u"\u0416\u0159", 2, bytes, 4, nullptr, nullptr), 2);
  EXPECT_EQ(std::string(bytes, 2), "\x86?");

  machine->ansiCodePage = 1250;
  BOOL replaced = TRUE;
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u0159", 1, bytes, 4, nullptr, &replaced), 1);
  EXPECT_EQ(bytes[0], '\xF8');
  EXPECT_FALSE(replaced);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u0416", 1, bytes, 4, "_", &replaced), 1);
  EXPECT_EQ(bytes[0], '_');
  EXPECT_TRUE(replaced);
}

TEST_F(SystemServices, AnotherProcessesMarkMayBeClosedToUs) {
  const auto mark = [&](const std::u16string& name, std::u16string_view sddl) {
    const auto mutex = std::make_shared<emulated::MutexObject>(*machine, name, *emulated::DescriptorFromText(sddl));
    machine->foreignObjects.push_back(mutex);
    machine->namedObjects[name] = mutex;
  };
  mark(u"closed", u"O:SYG:SYD:(A;;GA;;;SY)");
  mark(u"open", u"O:SYG:SYD:NO_ACCESS_CONTROL");
  machine->namedObjects[u"bare"];
  EXPECT_EQ(ErrorOf(CreateMutexW(nullptr, FALSE, u"closed")), ERROR_ACCESS_DENIED);
  for (const char16_t* const name : {u"open", u"bare"}) {
    for (int i = 0; i < 2; ++i) {  // it does not go with our handle
      const UniqueKernelHandle handle{CreateMutexW(nullptr, FALSE, name)};
      EXPECT_TRUE(handle);
      EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    }
  }
}

}  // namespace
