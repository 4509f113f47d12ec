// The command line against the command table.
#include "program/everything.h"

namespace {

// By the numbers of the commands. Where Windows is older than Vista some have another usage text.
struct {
  const char16_t* name;
  unsigned usage, olderUsage;
} constexpr kCommands[] = {{u"Help", 122, 122},
                           {u"Version", 120, 120},
                           {u"GetRHStatus", 118, 118},
                           {u"CheckForUpdate", 116, 116},
                           {u"AutoRedirectUP", 114, 188},
                           {u"RedirectUP", 112, 189},
                           {u"RedirectUPDefault", 110, 190},
                           {u"RedirectFolder", 108, 108},
                           {u"RedirectRegKeyLocation", 106, 106},
                           {u"RedirectRegKey", 104, 104},
                           {u"RedirectFile", 192, 192}};

class Parser : public ::testing::Test {
 protected:
  Parser() { test::UseProgramModule(machine); }

  // What becomes of a line whose words stand between blanks: the command with its arguments and switches, or the
  // message.
  std::u16string Parse(std::u16string_view text) {
    std::vector<std::u16string> words{u"QBC.exe"};
    for (; !text.empty(); text.remove_prefix(std::min(text.find(u' '), text.size() - 1) + 1))
      words.emplace_back(text.substr(0, text.find(u' ')));
    std::vector<const char16_t*> argv;
    for (const std::u16string& word : words) argv.push_back(word.c_str());
    const CommandTable table = BuildCommandTable();
    CommandLine line;
    std::u16string shown;
    result = ParseCommandLine(table, static_cast<int>(argv.size()), argv.data(), line, shown);
    if (result != ParseResult::Good) return shown;
    shown = kCommands[static_cast<std::size_t>(line.entry->command) - 1].name;
    for (const std::u16string& argument : line.arguments) shown += u" <" + argument + u">";
    for (const std::u16string& given : line.switches) shown += u" " + given;
    return shown;
  }
  void Expect(std::initializer_list<std::pair<std::u16string_view, std::u16string_view>> cases) {
    for (const auto& [line, parsed] : cases) EXPECT_EQ(Parse(line), parsed) << emulated::Utf8(line);
  }
  // The messages that end in the command's name and its usage.
  void ExpectRefused(ParseResult why, std::initializer_list<std::u16string_view> lines) {
    static constexpr std::u16string_view kReasons[] = {u"some Invalid Arguments", u"some Invalid Switch",
                                                       u"Improper number of arguments"};
    for (const std::u16string_view line : lines) {
      const std::u16string typed(line.substr(0, line.find(u' ')));
      std::u16string expected = u"Command \"" + typed + u"\" has ";
      expected.append(kReasons[static_cast<std::size_t>(why) - 2]);
      const auto& [name, usage, olderUsage] =
          *std::ranges::find_if(kCommands, [&](const auto& command) { return typed.substr(1) == command.name; });
      expected.append(u".\n\nCommand: ").append(name).append(u" \n\n  ");
      EXPECT_EQ(Parse(line), expected + LoadResourceString(machine.majorVersion < 6 ? olderUsage : usage));
      EXPECT_EQ(result, why);
    }
  }

  emulated::Machine machine;
  ParseResult result{};
};

TEST_F(Parser, FindsTheCommandWhateverItsFirstCharacter) {
  for (const auto* word : {u"/ver", u"-VER", u"xv", u"/Version"}) EXPECT_EQ(Parse(word), u"Version");
  for (const auto* word : {u"/?", u"/h", u"/HELP"}) EXPECT_EQ(Parse(word), u"Help");
  for (const auto& command : kCommands)
    EXPECT_EQ(Parse(u"/" + std::u16string(command.name) + (command.usage == 110 ? u" a" : u"")),
              command.name + std::u16string(command.usage == 110 ? u" <a>" : u""));
  for (const auto* word : {u"/", u"v", u"/versio", u"//ver", u"/Help,h", u"/RedirectFolders"}) {
    EXPECT_EQ(Parse(word), u"Command \"" + std::u16string(word) + u"\" is invalid.");
    EXPECT_EQ(result, ParseResult::NoCommand);
  }
  EXPECT_EQ(Parse(u" /ver"), u"Command \"\" is invalid.");
  EXPECT_EQ(Parse(u""), u"No command is specified.");
  EXPECT_EQ(result, ParseResult::NoCommand);
  // And all of them in the help.
  std::u16string help;
  for (const auto& command : kCommands)
    help += u"\n\n" + emulated::Utf16(std::to_string(&command - kCommands + 1)) + u". Command: " + command.name +
            u"\n   " + LoadResourceString(command.usage);
  EXPECT_EQ(HelpText(BuildCommandTable()), help);
}

TEST_F(Parser, TakesWordsApart) {
  Expect({{u"/RedirectFolder C:\\Data /LOC:D:\\T /ntfs /-Share", u"RedirectFolder <C:\\Data> <D:\\T> ntfs -Share"},
          {u"/redirectfile /-NTFS a /vol:\\\\?\\Volume{x}\\", u"RedirectFile <a> <\\\\?\\Volume{x}\\> -NTFS"},
          {u"/RedirectFolder a /loc:b /NTFS /Share /c /d", u"RedirectFolder <a> <b> NTFS Share c d"},
          {u"/RedirectFile a /loc:b /-NTFS /-Share /D /C", u"RedirectFile <a> <b> -NTFS -Share D C"},
          {u"/RedirectFolder /d", u"RedirectFolder d"},
          {u"/RedirectUP Anna /Vol:b /Share /-ntfs", u"RedirectUP <Anna> <b> Share -ntfs"},
          {u"/RedirectUPDefault Anna /NTFS /Share", u"RedirectUPDefault <Anna> NTFS Share"},
          {u"/AutoRedirectUP /loc:b /RedirectDefaultAndPublicProfile /c",
           u"AutoRedirectUP <b> RedirectDefaultAndPublicProfile c"},
          {u"/RedirectRegKeyLocation /loc:b /d /c", u"RedirectRegKeyLocation <b> d c"},
          {u"/RedirectRegKey HKLM\\a /c /d", u"RedirectRegKey <HKLM\\a> c d"},
          // A dash makes no switch, and a location may be empty.
          {u"/RedirectRegKey -d", u"RedirectRegKey <-d>"},
          {u"/RedirectRegKeyLocation /loc:", u"RedirectRegKeyLocation <>"},
          // The profiles' names stand in the user's stead.
          {u"/RedirectUPDefault /DefaultProfile", u"RedirectUPDefault DefaultProfile"},
          {u"/RedirectUPDefault /publicprofile /DefaultProfile /NTFS /Share",
           u"RedirectUPDefault publicprofile DefaultProfile NTFS Share"},
          {u"/RedirectUP /loc:b /PublicProfile /NTFS /Share /PublicProfile",
           u"RedirectUP <b> PublicProfile NTFS Share PublicProfile"}});
}

TEST_F(Parser, RefusesLinesForThreeReasons) {
  ExpectRefused(ParseResult::ImproperNumber,
                {u"/Help x", u"/Version x", u"/GetRHStatus x", u"/CheckForUpdate x", u"/RedirectFolder a",
                 u"/RedirectFolder a b /loc:c", u"/RedirectFile /loc:b", u"/RedirectUP /loc:b", u"/RedirectUPDefault",
                 u"/RedirectUPDefault a b", u"/RedirectRegKey a b", u"/RedirectRegKeyLocation /loc:a /loc:b",
                 u"/AutoRedirectUP /loc:a b", u"/AutoRedirectUP /loc:b /c /d /RedirectDefaultAndPublicProfile",
                 u"/RedirectUPDefault /DefaultProfile Anna", u"/RedirectUP Anna /loc:b /DefaultProfile",
                 u"/RedirectUP /loc:b /PublicProfile /PublicProfile /PublicProfile /NTFS /Share",
                 u"/RedirectUPDefault /PublicProfile /PublicProfile /PublicProfile /NTFS /Share"});
  ExpectRefused(
      ParseResult::InvalidArguments,
      {u"/RedirectFolder a b", u"/RedirectFolder /loc:a b", u"/RedirectFolder /loc:a /loc:b", u"/RedirectFile a b",
       u"/RedirectFile /vol:a /loc:b", u"/RedirectUP a b", u"/RedirectUP /loc:a b", u"/RedirectUP Anna /DefaultProfile",
       u"/AutoRedirectUP a", u"/RedirectRegKeyLocation a", u"/RedirectUPDefault /loc:a", u"/RedirectRegKey /vol:a"});
  ExpectRefused(
      ParseResult::InvalidSwitch,
      {u"/RedirectFolder a /loc:b /d /D", u"/RedirectFolder a /loc:b /c /c", u"/RedirectFolder a /loc:b /NTFS /-NTFS",
       u"/RedirectFolder a /loc:b /NTFS /ntfs", u"/RedirectFolder a /loc:b /-Share /-share",
       u"/RedirectFolder a /loc:b /Share /-Share", u"/RedirectFolder a /loc:b /", u"/RedirectFolder a /loc:b //d",
       u"/RedirectFolder a /loc:b /DefaultProfile", u"/RedirectFolder a /loc", u"/RedirectUP /c:",
       u"/RedirectRegKey a /NTFS", u"/RedirectRegKeyLocation /loc:a /Share", u"/RedirectUP Anna /loc:b /d",
       u"/RedirectUPDefault Anna /c", u"/AutoRedirectUP /loc:a /NTFS",
       // It is told before a wrong number and wrong arguments.
       u"/Version x /d", u"/RedirectFolder a b /x"});
}

TEST_F(Parser, KnowsNoDefaultAndPublicProfilesBeforeVista) {
  machine.majorVersion = 5;
  machine.minorVersion = 1;
  ExpectRefused(ParseResult::InvalidSwitch,
                {u"/RedirectUPDefault /DefaultProfile", u"/RedirectUP /loc:b /PublicProfile",
                 u"/AutoRedirectUP /loc:a /RedirectDefaultAndPublicProfile"});
  Expect({{u"/AutoRedirectUP /d /c", u"AutoRedirectUP d c"},
          {u"/RedirectUP Anna /loc:b /NTFS /-Share", u"RedirectUP <Anna> <b> NTFS -Share"},
          {u"/RedirectUPDefault Anna /-NTFS /Share", u"RedirectUPDefault <Anna> -NTFS Share"}});
}

}  // namespace
