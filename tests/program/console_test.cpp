// Texts of the string table, and their way to the console.
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "probes/keelroom.h"
#include "probes/privileges.h"
#include "probes/rimehold_status.h"
#include "probes/version.h"
#include "report/console.h"
#include "support/keelroom.h"
#include "support/program.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace {

struct {
  unsigned id;
  std::u16string_view text;
} constexpr kTexts[] = {
#include "program/texts.inc"
};
// Usage texts are long: a sum of each (FNV-1a over its characters).
constexpr std::pair<unsigned, std::uint32_t> kUsageSums[] = {
    {104, 0x0B2BAAD0}, {106, 0xE26E9CB7}, {108, 0xE3AD04D4}, {110, 0xF569DA15}, {112, 0xB58AFCB5},
    {114, 0xC429B945}, {116, 0x5BD6B8D3}, {118, 0x3B228CBA}, {120, 0xA9641C5B}, {122, 0x43D5A44E},
    {188, 0xA200CF96}, {189, 0x8BB8B003}, {190, 0xC0D8479C}, {192, 0x715B1D20}};

class Console : public ::testing::Test {
 protected:
  Console() { test::UseProgramModule(machine); }
  emulated::Machine machine;
};

// Other tests may name a text by its number.
TEST_F(Console, EveryTextSaysWhatItIsToSay) {
  EXPECT_EQ(std::size(kTexts) + std::size(kUsageSums), 196u - 100u);
  for (const auto& [id, text] : kTexts) EXPECT_EQ(LoadResourceString(id), text) << id;
  for (const auto& [id, agreed] : kUsageSums) {
    std::uint32_t sum = 2166136261;
    for (const char16_t unit : LoadResourceString(id)) sum = (sum ^ unit) * 16777619;
    EXPECT_EQ(sum, agreed) << id << emulated::Utf8(LoadResourceString(id));
  }
}

TEST_F(Console, MissingTextsAreEmpty) {
  for (const unsigned id : {0u, 100u, 197u, 5000u, 0xFFFEFu, 0xFFFFFFFFu}) EXPECT_EQ(LoadResourceString(id), u"") << id;
  win32::SetLastError(0);
  EXPECT_EQ(LoadResourceString(0xFFFF0), u"");
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_RESOURCE_NAME_NOT_FOUND);
  for (const char* call : {"LoadResource", "LockResource"}) {
    machine.gate.FailCall(call, 1, win32::ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(LoadResourceString(137), u"");
  }
  EXPECT_TRUE(ConsolePrint(u""));
  EXPECT_EQ(machine.console, "");
}

TEST_F(Console, DoesNotReadBeyondADamagedBlock) {
  // The block of 96 to 111: the entry of 101 claims more characters than there are; the one of 100 is whole.
  static constexpr unsigned char block[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 'x', 0, 200, 0, 'y', 0};
  machine.module.resources = {{u"#6", u"#7", 0, block}};
  EXPECT_EQ(LoadResourceString(100), u"x");
  EXPECT_EQ(LoadResourceString(101), u"");
  EXPECT_EQ(LoadResourceString(110), u"");
}

TEST_F(Console, PrefersTheNeutralLanguageAndTakesAnyOther) {
  static constexpr unsigned char neutral[] = {1, 0, 'n', 0}, other[] = {1, 0, 'o', 0};
  machine.module.resources = {{u"#6", u"#2", 0x409, other}};
  EXPECT_EQ(LoadResourceString(16), u"o");
  machine.module.resources.push_back({u"#6", u"#2", 0, neutral});
  EXPECT_EQ(LoadResourceString(16), u"n");
}

TEST_F(Console, WritesTheOemCodePage) {
  EXPECT_TRUE(ConsolePrint(u"\u00fc\u00e9\n\u4e2d"));
  EXPECT_EQ(machine.console, "\x81\x82\r\n?");
  EXPECT_TRUE(ConsoleFormat(u"%d. %ls", 7, u"\u00fc"));
  EXPECT_EQ(machine.console, "\x81\x82\r\n?7. \x81");
  machine.console.clear();
  EXPECT_TRUE(ConsolePrint(std::u16string(20'000, u'x') + u"end"));
  EXPECT_EQ(machine.console, std::string(20'000, 'x') + "end") << "more than a console takes at once";
  machine.console.clear();
  machine.gate.FailCall("WriteFile", 2, win32::ERROR_BROKEN_PIPE);
  EXPECT_TRUE(ConsolePrint(std::u16string(20'000, u'x')));
  EXPECT_EQ(machine.console, std::string(8192, 'x')) << "who reads has gone";
  for (const std::uint64_t nth : {1u, 2u}) {
    machine.gate.FailCall("WideCharToMultiByte", nth, win32::ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(ConsolePrint(u"text"));
    machine.gate.ClearFailures();
  }
  EXPECT_EQ(machine.console.size(), 8192u);
}

// Memory may be short in the middle of any question.
TEST(Questions, DoNotThrow) {
  const auto machine = test::InstalledMachine();
  test::InstallKeeldisk(*machine, "9.0");
  test::AddKeelroomVolume(*machine, u"1", u"T:");
  test::UseProgramModule(*machine);
  std::u16string text;
  std::vector<std::u16string> drives;
  ProductVersion version;
  FileVersionRecord record;
  const std::function<void()> questions[] = {[&] { GetRHStatus(text); },
                                             [&] { GetRegRedirectPath(text); },
                                             [&] { IsUserAdministrator(); },
                                             [&] { GetProductVersion(version); },
                                             [&] { ReadKeelroomVolumes(drives); },
                                             [&] { IsKeelroomDrive(u'T'); },
                                             [&] { IsNewKeelroomVersion(); },
                                             [&] { GetFileVersionRecord(u"C:\\Windows\\x", record); },
                                             [&] { LoadResourceString(137); },
                                             [&] { ConsoleFormat(u"%ls", u"text"); },
                                             [&] { Say(StringId::ErrorsLoggedIn, u"x"); }};
  for (const auto& question : questions)
    for (int stop = 1, asked = stop; asked >= stop; ++stop) {
      asked = 0;
      machine->gate.Observe([&](const std::string& name, std::uint64_t) {
        // These run in destructors.
        const bool gives =
            name.find("Close") == name.npos && name.find("Free") == name.npos && name != "CoUninitialize";
        if (gives && ++asked == stop) throw std::bad_alloc();
      });
      EXPECT_NO_THROW(question());
      machine->gate.Observe({});
    }
}

}  // namespace
