// Start-up, Rimehold's status and its gate, and the command line as a whole.
#include <gtest/gtest.h>

#include <algorithm>

#include "report/console.h"
#include "support/program.h"
#include "win32/emulated/text.h"
#include "workstation/product.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/handle.h"

namespace {

using test::RunProgram;

class CommandLineTest : public ::testing::Test {
 protected:
  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

TEST_F(CommandLineTest, BeginsEveryRunWithTheSeparatorAndTheBanner) {
  const auto run = RunProgram(*machine, {});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.console, LoadResourceString(101) + u"##ERROR: No command is specified.");
  EXPECT_TRUE(run.log.ends_with(u"] ----------------------------------"));
  EXPECT_EQ(std::count(run.log.begin(), run.log.end(), u'\n'), 1);
}

// A line of its own for each run, whatever the words are: nothing in them breaks it, and what may be a secret is not in
// it.
TEST_F(CommandLineTest, TellsInTheLogWhichRunItIs) {
  machine->SetNow(132223104000000000);  // 1 January 2020
  const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\My Data", u"C:\\a\r\n[ 1: 1\u2028b\u202ec", u"",
                                         u"/loc:D:\\%s", u"/password:hidden", u"-key=hidden"});
  EXPECT_TRUE(
      run.which.ends_with(u"] #INFO: 2020-01-01, Quillbay 2.34.1110.486: /RedirectFolder \"C:\\My Data\" "
                          u"\"C:\\a??[ 1: 1?b?c\" \"\" /loc:D:\\%s /password:... -key=..."))
      << emulated::Utf8(run.which);
  machine->gate.FailCall("GetFileVersionInfoSizeW", 1, win32::ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_TRUE(RunProgram(*machine, {u"/ver"}).which.ends_with(u"Quillbay (unknown version): /ver"));
}

TEST_F(CommandLineTest, RefusesWhoeverIsNoAdministrator) {
  const emulated::Sid user = emulated::SidFromText(u"S-1-5-21-1-2-3-1001");
  machine->process.token = emulated::MakeUserToken(user);
  const auto run = RunProgram(*machine, {u"/ver"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.console, LoadResourceString(163));
  // An administrator who is not elevated may start the program.
  machine->process.token = emulated::MakeFilteredAdministratorToken(user);
  EXPECT_EQ(RunProgram(*machine, {u"/ver"}).exitCode, 0);
}

TEST_F(CommandLineTest, RunsOnceAtATime) {
  const auto refused = [&] {
    const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\T"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.console, u"QBC: another instance is already running");
    EXPECT_TRUE(run.Logged(u"QBC: another instance is already running"));
  };
  {
    const win32::UniqueKernelHandle held{
        win32::CreateMutexW(nullptr, win32::FALSE, u"Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A")};
    ASSERT_TRUE(held);
    refused();
  }
  machine->gate.FailCall("CreateMutexW", 1, win32::ERROR_ACCESS_DENIED);
  refused();
  EXPECT_EQ(RunProgram(*machine, {u"/ver"}).exitCode, 0);  // and the run before gave the mutex back
}

TEST_F(CommandLineTest, ShowsHelpAndVersion) {
  const auto version = RunProgram(*machine, {u"xver"});
  EXPECT_EQ(version.said, u"Quillbay 2.34.1110.486\n");
  EXPECT_EQ(version.exitCode, 0);
  const auto help = RunProgram(*machine, {u"/?"});
  EXPECT_TRUE(help.said.starts_with(u"\n\n1. Command: Help\n   QBC /Help"));
  EXPECT_EQ(help.exitCode, 0);
  for (auto* const call : {"GetModuleFileNameW", "GetFileVersionInfoSizeW", "GetFileVersionInfoW", "VerQueryValueW"}) {
    machine->gate.FailCallsFrom(call, 1, win32::ERROR_RESOURCE_DATA_NOT_FOUND);
    const auto run = RunProgram(*machine, {u"/ver"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, u"");
    machine->gate.ClearFailures();
  }
}

TEST_F(CommandLineTest, ShowsRimeholdsStatus) {
  EXPECT_EQ(RunProgram(*machine, {u"/GetRHStatus"}).exitCode, 1);
  const std::u16string key = u"HKLM\\SOFTWARE\\Velmora\\Rimehold 6";
  const std::tuple<const char16_t*, int, unsigned> cases[] = {{u"frozen", 2, 132},
                                                              {u"FROZEN", 2, 132},
                                                              {u"Thawed", 3, 133},
                                                              {u"Thawed and Locked", 4, 134},
                                                              {u"maintenance mode", 5, 135},
                                                              {u"seed", 6, 136},
                                                              {u"applying batch file", 7, 176},
                                                              {u"Applying Windows Update", 8, 177},
                                                              {u"Thawed Period", 9, 178},
                                                              {u"locked", 1, 131},
                                                              {u"", 1, 131},
                                                              {u"frozen ", 1, 131}};
  for (const auto& [value, code, message] : cases) {
    machine->registry().SetText(key, u"RH Status", value);
    const auto run = RunProgram(*machine, {u"/getrhstatus"});
    EXPECT_EQ(run.exitCode, code);
    EXPECT_EQ(run.said, LoadResourceString(message));
  }
  const emulated::Bytes odd{'f', 0, 'r', 0, 'o', 0, 'z', 0, 'e', 0, 'n', 0, 0};
  machine->registry().Set(key, u"RH Status", win32::REG_SZ, odd);
  EXPECT_EQ(RunProgram(*machine, {u"/GetRHStatus"}).exitCode, 1);
}

class FrozenGate : public CommandLineTest {
 protected:
  FrozenGate() { workstation::InstallRimehold(*machine, u"Frozen"); }
  void ExpectRefused(std::initializer_list<std::u16string> words, int exitCode) {
    const auto run = RunProgram(*machine, words);
    EXPECT_EQ(run.exitCode, exitCode);
    EXPECT_EQ(run.said, u"\nCan not execute \"" + *words.begin() +
                            u"\" command.Workstation must be Thawed to perform this action.");
  }
};

TEST_F(FrozenGate, RefusesWhateverChangesTheSystem) {
  ExpectRefused({u"/redirectFOLDER", u"C:\\Data", u"/loc:D:\\T"}, 0);
  ExpectRefused({u"-RedirectFolder", u"C:\\Data", u"/loc:D:\\T", u"/d", u"/NTFS"},
                0);  // before the combination is looked at
  ExpectRefused({u"/RedirectFile", u"C:\\f", u"/loc:D:\\T"}, 0);
  ExpectRefused({u"/RedirectUP", u"Anna", u"/loc:D:\\T"}, 0);
  ExpectRefused({u"/RedirectUPDefault", u"Anna"}, 0);
  ExpectRefused({u"/AutoRedirectUP", u"/loc:D:\\T"}, 0);
  // But not before the parameters of the commands on profiles are looked at.
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectUPDefault", u"defaultprofile"}).exitCode, 1);
  ExpectRefused({u"/RedirectRegKeyLocation", u"/loc:D:\\T", u"/d"}, 1);
  ExpectRefused({u"/RedirectRegKey", u"/d"}, 1);
}

TEST_F(FrozenGate, LetsThroughWhatOnlyShows) {
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder"}).exitCode, 0);
  EXPECT_EQ(RunProgram(*machine, {u"/GetRHStatus"}).exitCode, 2);
  EXPECT_EQ(RunProgram(*machine, {u"/ver"}).exitCode, 0);
  EXPECT_EQ(RunProgram(*machine, {u"/help"}).exitCode, 0);
}

TEST_F(FrozenGate, OpensForEveryOtherStatusAndWithoutTheService) {
  const auto passes = [&] {
    return RunProgram(*machine, {u"/RedirectFolder", u"C:\\a", u"/loc:D:\\T", u"/d", u"/NTFS"}).exitCode == 1;
  };
  EXPECT_FALSE(passes());
  for (const auto* status : {u"Thawed", u"Thawed and Locked", u"maintenance mode", u"Thawed Period"}) {
    workstation::InstallRimehold(*machine, status);
    EXPECT_TRUE(passes());
  }
  workstation::InstallRimehold(*machine, u"Frozen");
  machine->registry().DeleteTree(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\RHServ");
  EXPECT_TRUE(passes());
}

TEST_F(CommandLineTest, RefusesCombinationsThatMakeNoSense) {
  const auto expect = [&](std::initializer_list<std::u16string> words, const std::u16string& said) {
    const auto run = RunProgram(*machine, words);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, said);
  };
  for (const auto* flag : {u"/NTFS", u"/Share", u"/-NTFS", u"/-Share"})
    expect({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\T", u"/d", flag},
           u"/d switch cannot be combined with /NTFS /Share");
  expect({u"/RedirectFile", u"C:\\f", u"/loc:D:\\T", u"/d", u"/-NTFS"},
         u"/d switch cannot be combined with /NTFS /Share");
  expect({u"/RedirectRegKeyLocation", u"/loc:D:\\T", u"/d"},
         LoadResourceString(105) + u"\n   " + LoadResourceString(106));
  expect({u"/RedirectRegKey", u"/d"},
         u"\nErrors logged in \"C:\\Program Files\\Velmora\\Quillbay\\QBC.log\".\n"
         u"Registry Key Redirection was not successful.\n\n");
  const auto invalid = [](unsigned usage) { return u"\nInvalid parameters\n" + LoadResourceString(usage); };
  expect({u"/RedirectUPDefault", u"defaultprofile"}, invalid(110));
  expect({u"/RedirectUPDefault", u"PublicProfile"}, invalid(110));
  expect({u"/RedirectUP", u"Anna", u"/loc:D:\\DefaultProfile"}, invalid(112));
  expect({u"/AutoRedirectUP", u"/RedirectDefaultAndPublicProfile"}, invalid(114));
  expect({u"/AutoRedirectUP", u"/loc:D:\\RedirectDefaultAndPublicProfile"}, invalid(114));
  expect({u"/AutoRedirectUP", u"/d", u"/RedirectDefaultAndPublicProfile"}, invalid(114));
}

TEST_F(CommandLineTest, MediaSharingRestsDuringProfileOperations) {
  test::UseProgramModule(*machine);
  machine->services().Install(u"WMPNetworkSvc", u"C:\\Program Files\\Velmora\\Quillbay\\QuillbayService.exe",
                              win32::SERVICE_DEMAND_START);
  const auto state = [&] { return machine->services().State(u"WMPNetworkSvc"); };
  const std::initializer_list<std::u16string> commands[] = {
      {u"/RedirectUP", u"/PublicProfile", u"/loc:D:\\Profiles"},
      {u"/RedirectUPDefault", u"/PublicProfile"},
      {u"/AutoRedirectUP", u"/loc:D:\\Profiles", u"/RedirectDefaultAndPublicProfile"},
      {u"/AutoRedirectUP", u"/d"}};
  for (const bool runs : {true, false}) {
    const win32::DWORD before = runs ? win32::SERVICE_RUNNING : win32::SERVICE_STOPPED;
    machine->services().SetState(u"WMPNetworkSvc", before);
    for (const auto& command : commands) {
      int copied = 0, disturbed = 0;
      machine->gate.Observe([&](std::string_view call, std::uint64_t) {
        if (call != "BackupWrite") return;
        ++copied;
        if (state() != win32::SERVICE_STOPPED) ++disturbed;
      });
      EXPECT_EQ(RunProgram(*machine, command).exitCode, 0);
      machine->gate.Observe({});
      EXPECT_GT(copied, 0);
      EXPECT_EQ(disturbed, 0);
      EXPECT_EQ(state(), before);
    }
  }
  // A command that is refused starts it again, too.
  machine->services().SetState(u"WMPNetworkSvc", win32::SERVICE_RUNNING);
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectUPDefault", u"/PublicProfile"}).exitCode, 1);
  EXPECT_EQ(state(), win32::SERVICE_RUNNING);
}

}  // namespace
