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
#include "win32/system.h"

namespace {

class Console : public ::testing::Test {
 protected:
  Console() { test::UseProgramModule(machine); }
  emulated::Machine machine;
};

TEST_F(Console, LoadsTextsAsTheyAreStored) {
  EXPECT_EQ(LoadResourceString(130), u"\n\n%d. Command: %s");
  EXPECT_EQ(LoadResourceString(143),
            u"\n%s\nErrors logged in \"%s\".\nRemoval of the Registry Key Redirection was not successful.\n\n");
  EXPECT_EQ(LoadResourceString(170),
            u"\nCan not execute \"%s\" command.Workstation must be Thawed to perform this action.");
}

TEST_F(Console, MissingTextsAreEmpty) {
  for (const unsigned id : {0u, 100u, 197u, 5000u, 0xFFFEFu, 0xFFFFFFFFu}) EXPECT_EQ(LoadResourceString(id), u"") << id;
  win32::SetLastError(0);
  EXPECT_EQ(LoadResourceString(0xFFFF0), u"");
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_RESOURCE_NAME_NOT_FOUND);
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
  machine.console.clear();
  EXPECT_TRUE(ConsoleFormat(u"%d. %ls", 7, u"\u00fc"));
  EXPECT_EQ(machine.console, "7. \x81");
  machine.console.clear();
  EXPECT_TRUE(ConsolePrint(std::u16string(100'000, u'x')));
  EXPECT_EQ(machine.console, std::string(100'000, 'x')) << "more than a console takes at once";
}

TEST_F(Console, SaysWhenATextCannotBeConverted) {
  machine.gate.FailCall("WideCharToMultiByte", 1, win32::ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_FALSE(ConsolePrint(u"text"));
  EXPECT_EQ(machine.console, "");
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
