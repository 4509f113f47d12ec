// What a test can script of the system: the clock, the console, modules, code pages, other processes' marks.
#include <gtest/gtest.h>

#include "support/machine.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/console.h"
#include "win32/emulated/system/mutex.h"
#include "win32/emulated/system/pe_resources.h"
#include "win32/handle.h"

namespace {

using namespace win32;
using emulated::AppendLittleEndian;
using emulated::Bytes;
using emulated::ByteView;

class SystemServices : public testing::Test {
 protected:
  SystemServices() : machine(test::TestMachine()) {}
  std::unique_ptr<emulated::Machine> machine;
};

// A node of version information: length, value length, type, key, value, children, each at a multiple of four.
Bytes VersionNode(std::u16string_view key, ByteView value, bool isText, const Bytes& children = {}) {
  Bytes node(6);
  const auto align = [&] { node.resize((node.size() + 3) & ~std::size_t{3}); };
  for (const char16_t unit : key) AppendLittleEndian(node, unit);
  AppendLittleEndian(node, u'\0');
  align();
  node.insert(node.end(), value.begin(), value.end());
  if (!children.empty()) align();
  node.insert(node.end(), children.begin(), children.end());
  emulated::StoreLittleEndian(node, 0, static_cast<std::uint16_t>(node.size()));
  emulated::StoreLittleEndian(node, 2, static_cast<std::uint16_t>(isText ? value.size() / 2 : value.size()));
  emulated::StoreLittleEndian(node, 4, static_cast<std::uint16_t>(isText ? 1 : 0));
  return node;
}

ByteView BytesOf(std::u16string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size() * 2};
}

Bytes VersionBlock() {
  VS_FIXEDFILEINFO fixed{};
  fixed.dwSignature = 0xFEEF04BD;
  fixed.dwFileVersionMS = 0x00030002;
  const Bytes name = VersionNode(u"ProductName", BytesOf(std::u16string_view(u"Thing\0", 6)), true);
  const Bytes strings = VersionNode(u"StringFileInfo", {}, true, VersionNode(u"040904b0", {}, true, name));
  return VersionNode(u"VS_VERSION_INFO", {reinterpret_cast<const std::uint8_t*>(&fixed), sizeof fixed}, false, strings);
}

// The smallest file that has one version resource: headers, one section, three levels of directories.
Bytes PortableExecutable(const Bytes& resource) {
  Bytes file(0x40);
  file[0] = 'M';
  file[1] = 'Z';
  file[0x3C] = 0x40;
  constexpr std::uint32_t kAddress = 0x1000, kOffset = 0x200;
  const auto word = [&](std::size_t value) { AppendLittleEndian(file, static_cast<std::uint16_t>(value)); };
  const auto dword = [&](std::size_t value) { AppendLittleEndian(file, static_cast<std::uint32_t>(value)); };
  dword(0x4550);
  word(0x8664), word(1), dword(0), dword(0), dword(0), word(240), word(0x22);
  const std::size_t optional = file.size();
  word(0x20B);
  file.resize(optional + 108);
  dword(16);
  file.resize(optional + 112 + 16);
  dword(kAddress), dword(0x100);  // the resource directory
  file.resize(optional + 240);
  file.resize(file.size() + 8);  // the section's name
  dword(0x1000), dword(kAddress), dword(0x100 + resource.size()), dword(kOffset);
  file.resize(kOffset);
  for (const std::uint32_t next : {0x80000018u, 0x80000030u, 0x48u}) {
    file.resize(file.size() + 12);
    word(0), word(1);
    dword(next == 0x80000018u ? 16 : 1), dword(next);
  }
  dword(kAddress + 0x58), dword(resource.size()), dword(0), dword(0);
  file.insert(file.end(), resource.begin(), resource.end());
  file.resize(kOffset + 0x100 + resource.size());
  return file;
}

void ExpectVersion(const char16_t* path) {
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
  EXPECT_EQ(static_cast<VS_FIXEDFILEINFO*>(value)->dwFileVersionMS, 0x00030002u);
  ASSERT_TRUE(VerQueryValueW(block.data(), u"\\stringfileinfo\\040904B0\\ProductName", &value, &length));
  EXPECT_TRUE(std::u16string(static_cast<char16_t*>(value)) == u"Thing" && length == 6);
  EXPECT_FALSE(VerQueryValueW(block.data(), u"\\StringFileInfo\\040704b0\\ProductName", &value, &length));
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_TYPE_NOT_FOUND);
}

TEST_F(SystemServices, VersionInformationComesFromTheModuleOrFromTheFileOnDisk) {
  const Bytes version = VersionBlock(), file = PortableExecutable(version);
  machine->module.resources.push_back({u"#16", u"#1", 0x409, version});
  ExpectVersion(machine->module.path.c_str());

  {
    const UniqueFile disk{CreateFileW(u"C:\\other.exe", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr)};
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(disk.get(), file.data(), static_cast<DWORD>(file.size()), &written, nullptr));
  }
  ExpectVersion(u"C:\\other.exe");
  DWORD handle = 0;
  EXPECT_EQ(GetFileVersionInfoSizeW(u"C:\\missing.exe", &handle), 0u);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(SystemServices, DamagedExecutablesAndVersionBlocksAreHarmless) {
  const Bytes version = VersionBlock(), file = PortableExecutable(version);
  ASSERT_TRUE(emulated::FindPeResource(file, 16).has_value());
  EXPECT_FALSE(emulated::FindPeResource(file, 24).has_value());
  unsigned random = 7;
  const auto next = [&] { return (random = random * 1103515245u + 12345u) >> 8; };
  for (int round = 0; round < 20000; ++round) {
    Bytes image = file, block = version;
    for (int i = 0; i < 4; ++i) image[next() % 0x260] = static_cast<std::uint8_t>(next());
    if (round % 3 == 0) image.resize(next() % image.size());
    emulated::FindPeResource(Bytes(image), 16);
    for (int i = 0; i < 4; ++i) block[2 + next() % (block.size() - 2)] = static_cast<std::uint8_t>(next());
    void* value = nullptr;
    UINT length = 0;
    if (VerQueryValueW(block.data(), u"\\StringFileInfo\\040904b0\\ProductName", &value, &length)) {
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
  const auto errorOf = [](HRSRC resource) { return resource ? 0 : GetLastError(); };
  EXPECT_EQ(errorOf(FindResourceW(nullptr, MakeIntResource(1), MakeIntResource(99))), ERROR_RESOURCE_TYPE_NOT_FOUND);
  EXPECT_EQ(errorOf(FindResourceW(nullptr, MakeIntResource(99), MakeIntResource(RT_STRING))),
            ERROR_RESOURCE_NAME_NOT_FOUND);
  EXPECT_EQ(errorOf(FindResourceExW(nullptr, MakeIntResource(RT_STRING), MakeIntResource(2), 0x40C)),
            ERROR_RESOURCE_LANG_NOT_FOUND);
  machine->module.resources.clear();
  EXPECT_EQ(errorOf(FindResourceW(nullptr, MakeIntResource(1), MakeIntResource(RT_STRING))),
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
  EXPECT_FALSE(CreateMutexW(nullptr, FALSE, u"closed"));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  for (const char16_t* const name : {u"open", u"bare"}) {
    for (int i = 0; i < 2; ++i) {  // it does not go with our handle
      const UniqueKernelHandle handle{CreateMutexW(nullptr, FALSE, name)};
      EXPECT_TRUE(handle);
      EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    }
  }
}

TEST_F(SystemServices, ARefusedCallThatFreesLeavesNothingBehind) {
  void* const memory = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, 100);
  machine->gate.FailCall("HeapFree", 1, ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(HeapFree(GetProcessHeap(), 0, memory));
  machine->gate.FailCall("HeapAlloc", 1, ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(HeapAlloc(GetProcessHeap(), 0, 1), nullptr);
}

}  // namespace
