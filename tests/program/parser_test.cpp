// The command line against the command table.
#include <gtest/gtest.h>

#include "cli/parser.h"
#include "report/console.h"
#include "support/program.h"
#include "text/format.h"

namespace {

using Words = std::vector<std::u16string>;

class Parser : public ::testing::Test {
 protected:
  Parser() { test::UseProgramModule(machine); }

  ParseResult Parse(const Words& words) {
    table = BuildCommandTable();
    line = {};
    error.clear();
    std::vector<const char16_t*> argv{u"QBC.exe"};
    for (const std::u16string& word : words) argv.push_back(word.c_str());
    return ParseCommandLine(table, static_cast<int>(argv.size()), argv.data(), line, error);
  }
  Command Parsed(const Words& words) {
    EXPECT_EQ(Parse(words), ParseResult::Good);
    return line.entry ? line.entry->command : Command{};
  }
  void Expect(const Words& words, ParseResult expected) {
    EXPECT_EQ(Parse(words), expected) << ::testing::PrintToString(words);
  }

  emulated::Machine machine;
  CommandTable table;
  CommandLine line;
  std::u16string error;
};

constexpr auto Good = ParseResult::Good, InvalidArguments = ParseResult::InvalidArguments,
               InvalidSwitch = ParseResult::InvalidSwitch, ImproperNumber = ParseResult::ImproperNumber;

TEST_F(Parser, FindsTheCommandWhateverItsFirstCharacter) {
  for (const auto* word : {u"/ver", u"-VER", u"xv", u"/Version"}) EXPECT_EQ(Parsed({word}), Command::Version);
  for (const auto* word : {u"/?", u"/h", u"/HELP"}) EXPECT_EQ(Parsed({word}), Command::Help);
  EXPECT_EQ(Parsed({u"/redirectfile"}), Command::RedirectFile);
  for (const auto* word : {u"", u"/", u"v", u"/versio", u"//ver", u"/RedirectFolders"}) {
    Expect({word}, ParseResult::NoCommand);
    EXPECT_EQ(error, u"Command \"" + std::u16string(word) + u"\" is invalid.");
  }
  Expect({}, ParseResult::NoCommand);
  EXPECT_EQ(error, u"No command is specified.");
}

TEST_F(Parser, TakesWordsApart) {
  Expect({u"/RedirectFolder", u"C:\\Data", u"/LOC:D:\\Target", u"/ntfs", u"/-Share"}, Good);
  EXPECT_EQ(line.arguments, (Words{u"C:\\Data", u"D:\\Target"}));
  EXPECT_EQ(line.switches, (Words{u"ntfs", u"-Share"}));
  EXPECT_TRUE(line.Has(u"NTFS"));
  EXPECT_FALSE(line.Has(u"Share"));
  Expect({u"/RedirectFolder", u"/-Share", u"C:\\Data", u"/vol:\\\\?\\Volume{x}\\"}, Good);
  EXPECT_EQ(line.arguments.back(), u"\\\\?\\Volume{x}\\");
}

TEST_F(Parser, CountsArgumentsAndSwitches) {
  Expect({u"/ver", u"x"}, ImproperNumber);
  EXPECT_EQ(error, FormatText(u"Command \"/ver\" has Improper number of arguments.\n\nCommand: Version \n\n  %ls",
                              LoadResourceString(120)));
  Expect({u"/RedirectFolder", u"C:\\Data"}, ImproperNumber);
  Expect({u"/RedirectFolder", u"C:\\Data", u"C:\\b", u"/loc:D:\\t"}, ImproperNumber);
  Expect({u"/RedirectUP", u"/loc:D:\\t"}, ImproperNumber);
  Expect({u"/RedirectUPDefault"}, ImproperNumber);
  Expect({u"/RedirectFolder", u"a", u"/loc:b", u"/NTFS", u"/Share", u"/c", u"/d"}, Good);
  Expect({u"/AutoRedirectUP", u"/loc:b", u"/c", u"/d", u"/RedirectDefaultAndPublicProfile"}, ImproperNumber);
  for (const auto* bare : {u"/AutoRedirectUP", u"/RedirectUP", u"/RedirectFolder", u"/RedirectRegKeyLocation",
                           u"/RedirectRegKey", u"/RedirectFile"})
    Expect({bare}, Good);
  Expect({u"/RedirectFolder", u"/d"}, Good);
}

TEST_F(Parser, WantsLocationsWhereTheyBelong) {
  Expect({u"/RedirectFolder", u"C:\\Data", u"D:\\Target"}, InvalidArguments);
  EXPECT_EQ(error,
            FormatText(u"Command \"/RedirectFolder\" has some Invalid Arguments.\n\nCommand: RedirectFolder \n\n  %ls",
                       LoadResourceString(108)));
  for (const auto* command : {u"/RedirectFolder", u"/RedirectFile", u"/RedirectUP"}) {
    Expect({command, u"/loc:D:\\t", u"C:\\Data"}, InvalidArguments);
    Expect({command, u"/loc:D:\\t", u"/loc:D:\\u"}, InvalidArguments);
  }
  for (const auto* command : {u"/AutoRedirectUP", u"/RedirectRegKeyLocation"}) {
    Expect({command, u"D:\\t"}, InvalidArguments);
    Expect({command, u"/vol:D:\\t"}, Good);
    EXPECT_EQ(line.arguments, (Words{u"D:\\t"}));
  }
  for (const auto* command : {u"/RedirectUPDefault", u"/RedirectRegKey"}) {
    Expect({command, u"/loc:D:\\t"}, InvalidArguments);
    Expect({command, u"Anna"}, Good);
  }
}

TEST_F(Parser, AllowsEachSwitchWhereItMeansSomething) {
  Expect({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\t", u"/d", u"/D"}, InvalidSwitch);
  EXPECT_EQ(error,
            FormatText(u"Command \"/RedirectFolder\" has some Invalid Switch.\n\nCommand: RedirectFolder \n\n  %ls",
                       LoadResourceString(108)));
  Expect({u"/RedirectFolder", u"a", u"/loc:b", u"/NTFS", u"/-NTFS"}, InvalidSwitch);
  Expect({u"/RedirectFolder", u"a", u"/loc:b", u"/-Share", u"/-share"}, InvalidSwitch);
  Expect({u"/RedirectRegKey", u"HKEY_X", u"/NTFS"}, InvalidSwitch);
  Expect({u"/RedirectUP", u"Anna", u"/loc:b", u"/d"}, InvalidSwitch);
  // A wrong switch is told before a wrong number and wrong arguments.
  Expect({u"/ver", u"x", u"/d"}, InvalidSwitch);
  Expect({u"/RedirectFolder", u"a", u"b", u"/x"}, InvalidSwitch);
}

TEST_F(Parser, ProfileSwitchesStandForTheUser) {
  Expect({u"/RedirectUPDefault", u"/DefaultProfile"}, Good);
  Expect({u"/RedirectUPDefault", u"/DefaultProfile", u"Anna"}, ImproperNumber);
  Expect({u"/RedirectUP", u"/loc:D:\\t", u"/publicprofile", u"/DefaultProfile"}, Good);
  EXPECT_EQ(line.arguments, (Words{u"D:\\t"}));
  Expect({u"/RedirectUP", u"Anna", u"/DefaultProfile"}, InvalidArguments);
}

TEST_F(Parser, KnowsNoDefaultAndPublicProfilesBeforeVista) {
  machine.majorVersion = 5;
  machine.minorVersion = 1;
  Expect({u"/RedirectUPDefault", u"/DefaultProfile"}, InvalidSwitch);
  EXPECT_EQ(
      error,
      FormatText(u"Command \"/RedirectUPDefault\" has some Invalid Switch.\n\nCommand: RedirectUPDefault \n\n  %ls",
                 LoadResourceString(190)));
  Expect({u"/AutoRedirectUP", u"/loc:D:\\t", u"/RedirectDefaultAndPublicProfile"}, InvalidSwitch);
  Expect({u"/AutoRedirectUP", u"/d", u"/c"}, Good);
}

TEST_F(Parser, HelpNamesEveryCommandInOrder) {
  const std::u16string help = HelpText(BuildCommandTable());
  EXPECT_TRUE(
      help.starts_with(u"\n\n1. Command: Help\n   " + LoadResourceString(122) + u"\n\n2. Command: Version\n   "));
  EXPECT_TRUE(help.ends_with(u"\n\n11. Command: RedirectFile\n   " + LoadResourceString(192)));
}

}  // namespace
