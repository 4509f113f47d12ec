// The command line: its table and its parser, start-up, Rimehold's status and its gate.
#include "program/everything.h"

namespace {

// The words stand between blanks.
std::vector<std::u16string> WordsOf(std::u16string_view line) {
  std::vector<std::u16string> words;
  for (; !line.empty(); line.remove_prefix(std::min(line.find(u' '), line.size() - 1) + 1))
    words.emplace_back(line.substr(0, line.find(u' ')));
  return words;
}

// By the numbers of the commands.
constexpr const char16_t* kCommands[] = {
    u"Help",        u"Version",           u"GetRHStatus",    u"CheckForUpdate",         u"AutoRedirectUP",
    u"RedirectUP",  u"RedirectUPDefault", u"RedirectFolder", u"RedirectRegKeyLocation", u"RedirectRegKey",
    u"RedirectFile"};

// The text of a command's usage. Where Windows is older than Vista some have another one.
std::u16string UsageOf(std::size_t command) {
  static constexpr unsigned kUsages[] = {122, 120, 118, 116, 114, 112, 110, 108, 106, 104, 192};
  const bool isOlder = emulated::Machine::Current().majorVersion < 6 && command >= 4 && command <= 6;
  return LoadResourceString(isOlder ? 184 + static_cast<unsigned>(command) : kUsages[command]);
}

class Parser : public ::testing::Test {
 protected:
  Parser() { test::UseProgramModule(machine); }

  // What becomes of a line: the command with its arguments and switches, or the message.
  std::u16string Parse(std::u16string_view text) {
    const std::vector<std::u16string> words = WordsOf(text);
    std::vector<const char16_t*> argv{u"QBC.exe"};
    for (const std::u16string& word : words) argv.push_back(word.c_str());
    const CommandTable table = BuildCommandTable();
    CommandLine line;
    std::u16string shown;
    result = ParseCommandLine(table, static_cast<int>(argv.size()), argv.data(), line, shown);
    if (result != ParseResult::Good) return shown;
    shown = kCommands[static_cast<std::size_t>(line.entry->command) - 1];
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
      const auto* const name = std::ranges::find(kCommands, std::u16string_view(typed).substr(1));
      expected.append(u".\n\nCommand: ").append(*name).append(u" \n\n  ");
      EXPECT_EQ(Parse(line), expected + UsageOf(static_cast<std::size_t>(name - kCommands)));
      EXPECT_EQ(result, why);
    }
  }

  emulated::Machine machine;
  ParseResult result{};
};

TEST_F(Parser, FindsTheCommandWhateverItsFirstCharacter) {
  for (const auto* word : {u"/ver", u"-VER", u"xv", u"/Version"}) EXPECT_EQ(Parse(word), u"Version");
  for (const auto* word : {u"/?", u"/h", u"/HELP"}) EXPECT_EQ(Parse(word), u"Help");
  for (const auto* word : {u"/", u"v", u"/versio", u"//ver", u"/Help,h", u"/RedirectFolders"}) {
    EXPECT_EQ(Parse(word), u"Command \"" + std::u16string(word) + u"\" is invalid.");
    EXPECT_EQ(result, ParseResult::NoCommand);
  }
  EXPECT_EQ(Parse(u" /ver"), u"Command \"\" is invalid.");
  EXPECT_EQ(Parse(u""), u"No command is specified.");
  EXPECT_EQ(result, ParseResult::NoCommand);
  // All of them, and in the help.
  std::u16string help;
  for (std::size_t i = 0; i < std::size(kCommands); ++i) {
    const std::u16string name = kCommands[i];
    const bool needsUser = name == u"RedirectUPDefault";
    EXPECT_EQ(Parse(u"/" + name + (needsUser ? u" a" : u"")), name + (needsUser ? u" <a>" : u""));
    help += u"\n\n" + emulated::Utf16(std::to_string(i + 1)) + u". Command: " + name + u"\n   " + UsageOf(i);
  }
  EXPECT_EQ(HelpText(BuildCommandTable()), help);
}

TEST_F(Parser, TakesWordsApart) {
  Expect({{u"/RedirectFolder C:\\Data /LOC:D:\\T /ntfs /-Share", u"RedirectFolder <C:\\Data> <D:\\T> ntfs -Share"},
          {u"/redirectfile /-NTFS a /vol:\\\\?\\Volume{x}\\", u"RedirectFile <a> <\\\\?\\Volume{x}\\> -NTFS"},
          {u"/RedirectFolder a /loc:b /NTFS /Share /c /d", u"RedirectFolder <a> <b> NTFS Share c d"},
          {u"/RedirectFile a /loc:b /-NTFS /-Share /D /C", u"RedirectFile <a> <b> -NTFS -Share D C"},
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
  // Before Vista there is neither profile.
  machine.majorVersion = 5;
  machine.minorVersion = 1;
  ExpectRefused(ParseResult::InvalidSwitch,
                {u"/RedirectUPDefault /DefaultProfile", u"/RedirectUP /loc:b /PublicProfile",
                 u"/AutoRedirectUP /loc:a /RedirectDefaultAndPublicProfile"});
  Expect({{u"/AutoRedirectUP /d /c", u"AutoRedirectUP d c"},
          {u"/RedirectUPDefault Anna /-NTFS /Share", u"RedirectUPDefault <Anna> -NTFS Share"}});
}

class CommandLineTest : public ::testing::Test {
 protected:
  test::RunResult Run(std::u16string_view line) { return test::RunProgram(*machine, WordsOf(line)); }
  std::u16string Expect(std::u16string_view line, int exitCode, std::u16string_view said) {  // what it logged
    const auto run = Run(line);
    EXPECT_EQ(run.exitCode, exitCode) << emulated::Utf8(line);
    EXPECT_EQ(run.said, said) << emulated::Utf8(line);
    return run.log;
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

// A separator and a line of its own for each run: nothing in the words breaks it, and what may be a secret is not in
// it.
TEST_F(CommandLineTest, TellsWhichRunItIs) {
  machine->SetNow(132223104000000000);  // 1 January 2020
  const auto none = Run(u"");
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_EQ(none.console,
            u"\n* Quillbay Command Line Interface Tool - Copyright (c) 2026 Velmora. All rights reserved. *\n\n"
            u"##ERROR: No command is specified.");
  EXPECT_TRUE(none.log.ends_with(u"] ----------------------------------") && std::ranges::count(none.log, u'\n') == 1);
  const auto run = test::RunProgram(*machine, {u"/RedirectFolder", u"C:\\My Data", u"C:\\a\r\n[ 1: 1\u2028b\u202ec",
                                               u"", u"/loc:D:\\%s", u"/password:hidden", u"-key=hidden"});
  EXPECT_TRUE(
      run.which.ends_with(u"] #INFO: 2020-01-01, Quillbay 2.34.1110.486: /RedirectFolder \"C:\\My Data\" "
                          u"\"C:\\a??[ 1: 1?b?c\" \"\" /loc:D:\\%s /password:... -key=..."))
      << emulated::Utf8(run.which);
  EXPECT_TRUE(
      test::RunProgram(*machine, {u"\u001f!~\u007f\u009f\u00a0,\u061b\u061c\u061d,\u200d\u200e\u200f\u2010,\u2027"
                                  u"\u2028\u202e\u202f,\u2065\u2066\u2069\u206a"})
          .which.ends_with(u": ?!~??\u00a0,\u061b?\u061d,\u200d??\u2010,\u2027??\u202f,\u2065??\u206a"));
  machine->gate.FailCall("GetFileVersionInfoSizeW", 1, win32::ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_TRUE(Run(u"/ver").which.ends_with(u"Quillbay (unknown version): /ver"));
}

TEST_F(CommandLineTest, RefusesWhoeverIsNoAdministrator) {
  const emulated::Sid user = emulated::SidFromText(u"S-1-5-21-1-2-3-1001");
  machine->gate.FailCall("GetTokenInformation", 1, win32::ERROR_ACCESS_DENIED);
  const auto run = Run(u"/ver");
  EXPECT_EQ(run.console, LoadResourceString(163));
  EXPECT_TRUE(run.exitCode == 1 && run.log.ends_with(u"] QBC: not running as administrator"));
  machine->process.token = emulated::MakeUserToken(user);
  EXPECT_EQ(Run(u"/ver").exitCode, 1);
  // An administrator who is not elevated may start the program.
  machine->process.token = emulated::MakeFilteredAdministratorToken(user);
  EXPECT_EQ(Run(u"/ver").exitCode, 0);
}

TEST_F(CommandLineTest, RunsOnceAtATime) {
  const auto refused = [&] {
    const auto run = Run(u"/RedirectFolder C:\\Data /loc:D:\\T");
    EXPECT_EQ(run.console, u"QBC: another instance is already running");
    EXPECT_TRUE(run.exitCode == 1 && run.log.ends_with(u"] QBC: another instance is already running"));
  };
  {
    const win32::UniqueKernelHandle held{
        win32::CreateMutexW(nullptr, win32::FALSE, u"Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A")};
    refused();
  }
  for (const char* call : {"CreateMutexW", "InitializeSecurityDescriptor", "SetSecurityDescriptorDacl"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    refused();
  }
  // The mutex is taken, owned, and open to everybody, as long as the command runs.
  std::vector<bool> taken;
  std::string traced;
  machine->gate.Observe([&](std::string_view call, std::uint64_t) {
    if (call != "WideCharToMultiByte") return;
    taken.push_back(false);
    for (const auto& [handle, entry] : machine->objects.all()) {
      const auto* const mutex = dynamic_cast<const emulated::MutexObject*>(entry.object.get());
      constexpr unsigned char kDaclPresent = 4;  // in the second byte, and no list at 16
      if (mutex && mutex->descriptor().size() >= 20 && (mutex->descriptor()[2] & kDaclPresent) != 0 &&
          emulated::LoadLittleEndian<std::uint32_t>(mutex->descriptor(), 16) == 0)
        taken.back() = true;
    }
  });
  machine->gate.Trace([&](const std::string& line) { traced += line; });
  EXPECT_EQ(Run(u"/ver").exitCode, 0);
  machine->gate.Observe({});
  machine->gate.Trace({});
  EXPECT_EQ(taken, std::vector<bool>(4, true));  // two texts are converted, with a question for the size each
  EXPECT_NE(traced.find(", 1, \"Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A\")"), std::string::npos);
  EXPECT_EQ(Run(u"/ver").exitCode, 0) << "the run before did not give the mutex back";
}

TEST_F(CommandLineTest, GoesOnWithoutPrivilegesAndEndsWithoutMemory) {
  machine->gate.FailCall("AdjustTokenPrivileges", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Run(u"/ver").exitCode, 0);
  int asked = 0;
  machine->gate.Observe([&](std::string_view call, std::uint64_t) {
    if (call == "GetLocalTime" && ++asked == 2) throw std::bad_alloc();
  });
  const auto run = Run(u"/ver");
  machine->gate.Observe({});
  EXPECT_TRUE(run.exitCode == 1 && run.log.ends_with(u"] #ERROR: The command ended unexpectedly."));
}

TEST_F(CommandLineTest, ShowsHelpAndVersion) {
  Expect(u"xver", 0, u"Quillbay 2.34.1110.486\n");
  EXPECT_TRUE(Run(u"/?").said.starts_with(u"\n\n1. Command: Help\n   QBC /Help"));
  machine->gate.FailCallsFrom("VerQueryValueW", 1, win32::ERROR_RESOURCE_DATA_NOT_FOUND);
  Expect(u"/ver", 1, u"");
  machine->gate.ClearFailures();
  // It is the product's version, which need not be the file's.
  auto& resources = machine->module.resources;
  const auto version = std::ranges::find(resources, u"#16", &emulated::ModuleImage::Resource::type);
  ASSERT_NE(version, resources.end());
  emulated::Bytes changed(version->data.begin(), version->data.end());
  constexpr std::uint8_t kSignature[] = {0xBD, 0x04, 0xEF, 0xFE}, kProduct[] = {8, 0, 9, 0, 6, 0, 7, 0};
  const auto fixed = std::search(changed.begin(), changed.end(), std::begin(kSignature), std::end(kSignature));
  std::copy(std::begin(kProduct), std::end(kProduct), fixed + 16);
  version->data = changed;
  Expect(u"/ver", 0, u"Quillbay 9.8.7.6\n");
  ProductVersion product;
  EXPECT_TRUE(GetProductVersion(product));
  EXPECT_EQ(product.major + product.minor + product.hotfix + product.build, u"9876");
}

TEST_F(CommandLineTest, ShowsRimeholdsStatus) {
  const std::u16string key = u"HKLM\\SOFTWARE\\Velmora\\Rimehold 6";
  test::UseProgramModule(*machine);
  Expect(u"/GetRHStatus", 1, LoadResourceString(131));
  int code = 2;
  for (const auto* word : {u"Frozen", u"THAWED", u"Thawed and Locked", u"maintenance mode", u"seed",
                           u"applying batch file", u"Applying Windows Update", u"Thawed Period"}) {
    machine->registry().SetText(key, u"RH Status", word);
    Expect(u"/getrhstatus", code, LoadResourceString(static_cast<unsigned>(code < 7 ? 130 + code : 169 + code)));
    ++code;
  }
  for (const auto* word : {u"locked", u"", u"frozen "}) {
    machine->registry().SetText(key, u"RH Status", word);
    EXPECT_EQ(Run(u"/GetRHStatus").exitCode, 1);
  }
  const emulated::Bytes word{'f', 0, 'r', 0, 'o', 0, 'z', 0, 'e', 0, 'n', 0, 0};
  machine->registry().Set(key, u"RH Status", win32::REG_SZ, word);
  EXPECT_EQ(Run(u"/GetRHStatus").exitCode, 1) << "half a terminator";
  machine->registry().Set(key, u"RH Status", win32::REG_BINARY, emulated::ByteView(word).first(12));
  EXPECT_EQ(Run(u"/GetRHStatus").exitCode, 2) << "types are nobody's business";
}

TEST_F(CommandLineTest, OnAFrozenMachineWhateverChangesItIsRefused) {
  workstation::InstallRimehold(*machine, u"Frozen");
  const std::pair<int, std::vector<std::u16string>> changing[] = {
      {0,
       {u"/redirectFOLDER C:\\Data /loc:D:\\T", u"-RedirectFolder C:\\Data /loc:D:\\T /d",
        u"/RedirectFolder C:\\Data /loc:D:\\T /d /NTFS", u"/RedirectFile C:\\f /loc:D:\\T",
        u"/RedirectFile C:\\f /loc:D:\\T /d", u"/RedirectFile C:\\f /loc:D:\\T /d /-NTFS",
        u"/RedirectUP Anna /loc:D:\\T", u"/RedirectUP /loc:D:\\T /DefaultProfile",
        u"/RedirectUP /loc:D:\\T /PublicProfile", u"/RedirectUPDefault Anna", u"/RedirectUPDefault /DefaultProfile",
        u"/RedirectUPDefault /PublicProfile", u"/AutoRedirectUP /loc:D:\\T",
        u"/AutoRedirectUP /loc:D:\\T /RedirectDefaultAndPublicProfile", u"/AutoRedirectUP /d",
        u"/AutoRedirectUP /loc:D:\\T /d"}},
      {1,
       {u"/RedirectRegKeyLocation /loc:D:\\T", u"/RedirectRegKeyLocation /d", u"/RedirectRegKeyLocation /loc:D:\\T /d",
        u"/RedirectRegKey HKEY_LOCAL_MACHINE\\SOFTWARE\\Contoso",
        u"/RedirectRegKey HKEY_LOCAL_MACHINE\\SOFTWARE\\Contoso /d", u"/RedirectRegKey /d"}}};
  for (const auto& [exitCode, lines] : changing)
    for (const std::u16string& line : lines) {
      const auto run = Run(line);
      EXPECT_EQ(run.said, u"\nCan not execute \"" + line.substr(0, line.find(u' ')) +
                              u"\" command.Workstation must be Thawed to perform this action.");
      EXPECT_EQ(run.exitCode, exitCode) << emulated::Utf8(line);
      EXPECT_TRUE(run.log.ends_with(u"] ----------------------------------")) << emulated::Utf8(run.log);
    }
  // What only shows something is not, nor is the check for updates, without a network here.
  machine->gate.FailCallsFrom("InternetOpenW", 1, win32::ERROR_INTERNET_CANNOT_CONNECT);
  const std::tuple<const char16_t*, int, std::u16string> passing[] = {
      {u"/AutoRedirectUP", 0, u"Automatic user profile redirection is not enabled."},
      {u"/RedirectUP", 0, u""},
      {u"/RedirectFolder", 0, u""},
      {u"/RedirectFile", 0, u""},
      {u"/RedirectRegKeyLocation", 0, u"\n\n\n\t\t\n\n"},
      {u"/RedirectRegKey", 0, u"\n\n\n"},
      {u"/CheckForUpdate", 2, LoadResourceString(166)},
      {u"/GetRHStatus", 2, LoadResourceString(132)},
      {u"/ver", 0, u"Quillbay 2.34.1110.486\n"}};
  for (const auto& [line, exitCode, said] : passing) Expect(line, exitCode, said);
  EXPECT_EQ(Run(u"/help").exitCode, 0);
  // The gate is open in every other status and without the service.
  const auto passes = [&] { return Run(u"/RedirectFolder C:\\a /loc:D:\\T /d /NTFS").exitCode == 1; };
  for (const auto* status : {u"Thawed", u"Thawed and Locked", u"maintenance mode", u"seed", u"Thawed Period"}) {
    workstation::InstallRimehold(*machine, status);
    EXPECT_TRUE(passes());
  }
  workstation::InstallRimehold(*machine, u"Frozen");
  machine->gate.FailCall("OpenSCManagerW", 2, win32::ERROR_ACCESS_DENIED);  // the first one finds the log
  EXPECT_TRUE(passes());
  machine->registry().DeleteTree(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\RHServ");
  EXPECT_TRUE(passes());
}

TEST_F(CommandLineTest, RefusesCombinationsThatMakeNoSense) {
  for (const auto* line :
       {u"/RedirectFolder C:\\Data /loc:D:\\T /d /NTFS", u"/RedirectFolder C:\\Data /loc:D:\\T /d /Share",
        u"/RedirectFolder C:\\Data /loc:D:\\T /d /-NTFS", u"/RedirectFolder C:\\Data /loc:D:\\T /d /-Share",
        u"/RedirectFile C:\\f /loc:D:\\T /d /NTFS", u"/RedirectFile C:\\f /loc:D:\\T /d /-NTFS"})
    Expect(line, 1, u"/d switch cannot be combined with /NTFS /Share");
  EXPECT_TRUE(Run(u"/RedirectFile C:\\f /loc:D:\\T /d /-Share").Said(u"File Redirection Removal was not successful."));
  EXPECT_TRUE(
      Expect(u"/RedirectRegKeyLocation /loc:D:\\T /d", 1, u"RedirectRegKeyLocation\n   " + LoadResourceString(106))
          .ends_with(u"] Remove Redirect Registry Key was not successful.\nUsage:\n"));
  EXPECT_TRUE(Expect(u"/RedirectRegKey /d", 1,
                     u"\nErrors logged in \"C:\\Program Files\\Velmora\\Quillbay\\QBC.log\".\n"
                     u"Registry Key Redirection was not successful.\n\n")
                  .ends_with(u"] Please specify registry key to be removed.\n Registry Key Redirection was not "
                             u"successful.\n"));
  EXPECT_TRUE(Expect(u"/AutoRedirectUP /loc:D:\\T /d", 1, u"AutoRedirectUP\n   " + LoadResourceString(114))
                  .ends_with(u"] Remove Auto redirect newly created user profiles is not successful.\nUsage:\n"));
  Expect(u"/AutoRedirectUP /loc:\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\", 0,
         u"AutoRedirectNewUserProfile cannot be done on volume.");
  // The words of the profiles, before the gate: as users' names, twice slashed, within other words.
  workstation::InstallRimehold(*machine, u"Frozen");
  const std::pair<const char16_t*, unsigned> misplaced[] = {
      {u"/RedirectUPDefault defaultprofile", 110},
      {u"/RedirectUPDefault PublicProfile", 110},
      {u"/RedirectUPDefault Anna //DefaultProfile", 110},
      {u"/RedirectUP Anna /loc:D:\\DefaultProfile", 112},
      {u"/RedirectUP publicprofile /loc:D:\\T", 112},
      {u"/AutoRedirectUP /RedirectDefaultAndPublicProfile", 114},
      {u"/AutoRedirectUP /loc:D:\\RedirectDefaultAndPublicProfile", 114},
      {u"/AutoRedirectUP /d /RedirectDefaultAndPublicProfile", 114}};
  for (const auto& [line, usage] : misplaced) Expect(line, 1, u"\nInvalid parameters\n" + LoadResourceString(usage));
  machine->majorVersion = 5;  // which has neither profile
  EXPECT_EQ(Run(u"/RedirectUPDefault defaultprofile").exitCode, 0) << "refused by the gate";
}

TEST_F(CommandLineTest, MediaSharingRestsDuringProfileOperations) {
  machine->services().Install(u"WMPNetworkSvc", u"C:\\Program Files\\Velmora\\Quillbay\\QuillbayService.exe",
                              win32::SERVICE_DEMAND_START);
  const auto state = [&] { return machine->services().State(u"WMPNetworkSvc"); };
  int copied = 0, disturbed = 0;
  machine->gate.Observe([&](std::string_view call, std::uint64_t) {
    if (call == "BackupWrite") ++(state() == win32::SERVICE_STOPPED ? copied : disturbed);
  });
  machine->services().SetState(u"WMPNetworkSvc", win32::SERVICE_RUNNING);
  for (const auto* line :
       {u"/RedirectUP /PublicProfile /loc:D:\\Profiles", u"/RedirectUPDefault /PublicProfile",
        u"/AutoRedirectUP /loc:D:\\Profiles /RedirectDefaultAndPublicProfile", u"/AutoRedirectUP /d"}) {
    EXPECT_EQ(Run(line).exitCode, 0);
    EXPECT_GT(std::exchange(copied, 0), 0);
    EXPECT_EQ(state(), win32::SERVICE_RUNNING);
  }
  machine->gate.Observe({});
  EXPECT_EQ(disturbed, 0);
  EXPECT_EQ(Run(u"/RedirectUPDefault /PublicProfile").exitCode, 1);
  EXPECT_EQ(state(), win32::SERVICE_RUNNING) << "a command that is refused starts it again, too";
}

}  // namespace
