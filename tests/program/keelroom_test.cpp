// Keelroom: its volumes as the registry tells them, and the version of its driver as the driver's file tells it.
#include "probes/keelroom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "report/log.h"
#include "support/keelroom.h"
#include "support/program.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"

namespace {

using emulated::Bytes;
using Drives = std::vector<std::u16string>;

constexpr std::u16string_view kParameters = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Keeldisk\\Parameters";
constexpr const char16_t* kDriver = u"C:\\Windows\\System32\\drivers\\Keeldisk.sys";

class Keelroom : public ::testing::Test {
 protected:
  ~Keelroom() override { EXPECT_EQ(machine->objects.all().size(), open); }

  Drives ReadDrives() {
    Drives drives{u"an old answer"};
    const bool any = ReadKeelroomVolumes(drives);
    EXPECT_EQ(any, !drives.empty());
    return drives;
  }
  void SetMountAs(std::u16string_view key, win32::DWORD type, const Bytes& data) {
    machine->registry().Set(std::u16string(kParameters) + u"\\" + std::u16string(key), u"MountAs", type, data);
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
  const std::size_t open = machine->objects.all().size();
};

// The names of the calls, in their order.
std::vector<std::string> CallsOf(emulated::Machine& machine, const std::function<void()>& action) {
  std::vector<std::string> calls;
  machine.gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
  action();
  machine.gate.Observe({});
  return calls;
}

TEST_F(Keelroom, KnowsItsDrives) {
  for (char16_t letter = u'A'; letter <= u'Z'; ++letter) EXPECT_FALSE(IsKeelroomDrive(letter));
  EXPECT_EQ(ReadDrives(), Drives{});
  machine->registry().CreateKey(kParameters);
  EXPECT_EQ(ReadDrives(), Drives{});
  test::AddKeelroomVolume(*machine, u"Volume2", u"T:");
  test::AddKeelroomVolume(*machine, u"Volume10", u"k:");
  machine->registry().SetDword(std::u16string(kParameters) + u"\\Volume1", u"Size", 100);  // mounted nowhere
  EXPECT_EQ(ReadDrives(), (Drives{u"", u"k:", u"T:"}));
  for (const char16_t letter : {u'T', u't', u'K', u'k'}) EXPECT_TRUE(IsKeelroomDrive(letter));
  for (const char16_t letter : {u'S', u'\\', u':', u'\0', u'\u212A'}) EXPECT_FALSE(IsKeelroomDrive(letter));
}

TEST_F(Keelroom, TakesTheValueAsItStands) {
  const std::tuple<win32::DWORD, Bytes, const char16_t*> cases[] = {
      {win32::REG_SZ, {'T', 0, ':', 0}, u"T:"},            // no terminator
      {win32::REG_SZ, {'T', 0, ':', 0, 0}, u"T:"},         // half of one
      {win32::REG_SZ, {'T', 0, ':'}, u"T"},                // half of the colon
      {win32::REG_BINARY, {'T', 0, ':', 0, 0, 0}, u"T:"},  // types are nobody's business
      {win32::REG_MULTI_SZ, {'T', 0, ':', 0, 0, 0, 'U', 0, ':', 0, 0, 0, 0, 0}, u"T:"},
      {win32::REG_DWORD, {'T', 0, ':', 0}, u"T:"},
      {win32::REG_EXPAND_SZ, {'T', 0, ':', 0, '\\', 0, 0, 0}, u"T:\\"},  // and this is another form
      {win32::REG_SZ, {'T'}, u""},
      {win32::REG_SZ, {}, u""},
  };
  for (const auto& [type, data, drive] : cases) {
    SetMountAs(u"Volume1", type, data);
    EXPECT_EQ(ReadDrives(), Drives{drive}) << data.size();
    EXPECT_EQ(IsKeelroomDrive(u't'), std::u16string_view(drive) == u"T:") << data.size();
  }
  // A number longer than it should be spoils neither the other values nor anything beside it.
  const std::u16string key = std::u16string(kParameters) + u"\\Volume1";
  machine->registry().Set(key, u"Extents", win32::REG_BINARY, Bytes(4096, 0xFF));
  SetMountAs(u"Volume1", win32::REG_SZ, Bytes(65536, 'x'));
  EXPECT_EQ(ReadDrives(), Drives{std::u16string(32768, u'\u7878')});
}

TEST_F(Keelroom, ReadsTheRecordsInTheirOrderAndStandsEveryRefusal) {
  test::AddKeelroomVolume(*machine, u"Volume1", u"T:");
  const std::u16string key = std::u16string(kParameters) + u"\\Volume1";
  for (const auto* name : {u"GUID", u"MountAsUser", u"UniqueId", u"HostFile"})
    machine->registry().SetText(key, name, name);
  const auto calls = CallsOf(*machine, [] { EXPECT_TRUE(IsKeelroomDrive(u'T')); });
  std::vector<std::string> expected{"RegOpenKeyExW", "RegEnumKeyW", "RegOpenKeyExW"};
  expected.insert(expected.end(), 5 * 2 + 2, "RegQueryValueExW");
  expected.insert(expected.end(), {"RegCloseKey", "RegEnumKeyW", "RegCloseKey"});
  EXPECT_EQ(calls, expected);

  constexpr std::array<std::size_t, 5> kDecide{1, 2, 3, 6, 7};  // the keys, and MountAs
  for (std::size_t call = 1; call <= calls.size(); ++call) {
    if (calls[call - 1] == "RegCloseKey") continue;
    machine->gate.FailCall(call, win32::ERROR_ACCESS_DENIED);
    const bool decides = std::find(kDecide.begin(), kDecide.end(), call) != kDecide.end();
    EXPECT_EQ(IsKeelroomDrive(u'T'), !decides) << calls[call - 1] << ' ' << call;
    machine->gate.ClearFailures();
  }
}

TEST_F(Keelroom, TellsOldDriversFromNewOnes) {
  test::UseProgramModule(*machine);
  const LogFile log;
  FileVersionRecord record;
  const std::tuple<const char*, std::u16string, int> cases[] = {{nullptr, u"", 0},        {"8.32", u"8.32.9.9", 0},
                                                                {"8.33", u"8.33.0.0", 1}, {"9.0", u"9.0.0.0", 1},
                                                                {"7.99", u"7.99.1.2", 0}, {"none", u"", 0}};
  for (const auto& [driver, text, isNew] : cases) {
    if (driver) test::InstallKeeldisk(*machine, driver);
    EXPECT_EQ(IsNewKeelroomVersion(), isNew) << emulated::Utf8(text);
    std::string logged = test::LogBytes(*machine);
    std::erase(logged, '\0');
    const bool told = logged.find(
                          "#ERROR: Failed to find the version of Keeldisk driver at "
                          "C:\\Windows\\system32\\drivers\\Keeldisk.sys") != std::string::npos;
    EXPECT_EQ(told, driver && text.empty()) << logged;
    ASSERT_EQ(GetFileVersionRecord(kDriver, record), text.empty() ? 0 : 1);
    if (text.empty()) continue;
    EXPECT_EQ(record.text, text);
    EXPECT_EQ(record.majorText + u'.' + record.minorText + u'.' + record.buildText + u'.' + record.revisionText, text);
  }
  test::InstallKeeldisk(*machine, "7.99");
  ASSERT_EQ(GetFileVersionRecord(kDriver, record), 1);
  EXPECT_EQ((std::array{record.major, record.minor, record.build, record.revision}),
            (std::array<win32::WORD, 4>{7, 99, 1, 2}));

  test::InstallKeeldisk(*machine, "9.0");
  const auto calls = CallsOf(*machine, [] { EXPECT_EQ(IsNewKeelroomVersion(), 1); });
  EXPECT_EQ(calls, (std::vector<std::string>{"SHGetSpecialFolderPathW", "PathFileExistsW", "GetFileVersionInfoSizeW",
                                             "GetFileVersionInfoW", "VerQueryValueW"}));
  for (std::size_t call = 1; call <= calls.size(); ++call) {
    machine->gate.FailCall(call, win32::ERROR_ACCESS_DENIED);
    EXPECT_EQ(IsNewKeelroomVersion(), 0) << calls[call - 1];
    machine->gate.ClearFailures();
  }
}

TEST_F(Keelroom, TrustsNoDriverFile) {
  const Bytes whole = test::KeeldiskDriver("9.0");
  const Bytes signature{0xBD, 0x04, 0xEF, 0xFE};
  const auto fixed = std::search(whole.begin(), whole.end(), signature.begin(), signature.end());
  ASSERT_NE(fixed, whole.end());
  const auto at = static_cast<std::size_t>(fixed - whole.begin());
  const std::size_t block = at - 40;  // its length, the length of its value, its type and its name are before that
  const auto hasVersion = [&](const Bytes& driver) {
    test::PutKeeldisk(*machine, driver);
    FileVersionRecord record;
    return GetFileVersionRecord(kDriver, record) == 1;
  };
  const std::string_view text = "MZ, says this text, and is no program.";
  EXPECT_FALSE(hasVersion(Bytes(text.begin(), text.end())));
  for (std::size_t size = 0; size < at + 52; size += 61)
    EXPECT_FALSE(hasVersion(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)))) << size;
  const auto patched = [&](std::size_t offset, unsigned value) {
    Bytes driver = whole;
    driver[offset] = static_cast<std::uint8_t>(value & 0xFF);
    driver[offset + 1] = static_cast<std::uint8_t>(value >> 8);
    return driver;
  };
  for (const unsigned length : {0u, 5u, 40u, 91u, 0xFFFFu}) EXPECT_FALSE(hasVersion(patched(block, length)));
  for (const unsigned length : {0u, 51u, 53u, 0xFFFFu}) EXPECT_FALSE(hasVersion(patched(block + 2, length)));
  // Whatever else is wrong in it: some answer, and nothing is read that is not there.
  for (std::size_t offset = 0; offset + 1 < at; ++offset)
    if (offset < 1024 || offset >= block - 256) hasVersion(patched(offset, 0xFFFF));
}

}  // namespace
