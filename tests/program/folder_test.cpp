// Folder redirection as an administrator sees it: this machine, this command, and what console, log, registry and disks
// say.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "links/link_data.h"
#include "probes/privileges.h"
#include "redirect/folder.h"
#include "report/console.h"
#include "support/program.h"
#include "support/tree.h"
#include "workstation/product.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/token.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace {

using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram;

const std::u16string kRecords = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\Junctions";
const std::u16string kLogged = u"Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.";

class FolderRedirectionTest : public ::testing::Test {
 protected:
  FolderRedirectionTest() { Restart(); }

  void Restart(const test::MachineFacts& facts = {}) {
    machine.reset();
    machine = test::InstalledMachine(facts);
    MakeFolder(u"C:\\Data");
    MakeFolder(u"C:\\Data\\inner");
    MakeFile(u"C:\\Data\\one.txt", "first");
    MakeFile(u"C:\\Data\\one.txt:note", "a named stream");
    MakeFile(u"C:\\Data\\inner\\two.bin", std::string(70000, 'x'),
             win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
    MakeFolder(u"D:\\Target");
  }
  test::RunResult Redirect() { return RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}); }
  test::RunResult Remove() {
    return RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"});
  }

  std::u16string Record(const std::u16string& number, const char16_t* value) {
    const auto found = machine->registry().Query(kRecords + u"\\" + number, value);
    return found ? found->Text() : u"(none)";
  }
  std::size_t RecordCount() { return machine->registry().SubKeys(kRecords).size(); }
  // Of the DACL; its control bits also tell whether Windows has worked out inheritance for it.
  static std::u16string Entries(const std::u16string& path) {
    const std::u16string dacl = test::Dacl(path);
    return dacl.substr(std::min(dacl.find(u'('), dacl.size()));
  }
  bool IsJunctionNow(const std::u16string& path) {
    return (test::Attributes(path) & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  }

  // A complete copy of each file, at the old place or at the new one. An administrator with backup privileges looks: a
  // DACL that could not be copied is not lost data.
  void ExpectEachFileOnce(const std::string& when) {
    ASSERT_TRUE(EnablePrivileges());
    const std::u16string from = IsJunctionNow(u"C:\\Data") ? u"D:\\Target\\Data" : u"C:\\Data";
    const auto oneOf = [&](const std::u16string& name) {
      const std::string old = Contents(from + name);
      return old == "(none)" ? Contents(u"D:\\Target\\Data" + name) : old;
    };
    EXPECT_EQ(oneOf(u"\\one.txt"), "first") << when;
    EXPECT_EQ(oneOf(u"\\one.txt:note"), "a named stream") << when;
    EXPECT_TRUE(oneOf(u"\\inner\\two.bin") == std::string(70000, 'x')) << when;
  }
  void ExpectFailure(const test::RunResult& run, const std::u16string& logged) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.said.ends_with(kLogged + u"\nFolder Redirection was unsuccessful.")) << emulated::Utf8(run.said);
    EXPECT_TRUE(run.Logged(logged)) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.log.ends_with(u"Folder Redirection was unsuccessful."));
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(FolderRedirectionTest, MovesTheContentsAndLeavesAJunction) {
  const auto before = test::DescribeTree(u"C:\\Data");
  const auto run = Redirect();
  EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
  EXPECT_TRUE(run.said.ends_with(u"Folder Redirection was successful."));
  EXPECT_TRUE(run.log.ends_with(u"Folder Redirection was successful."));
  EXPECT_TRUE(IsJunctionNow(u"C:\\Data"));
  EXPECT_EQ(test::DescribeTree(u"D:\\Target\\Data"), before);
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
  EXPECT_EQ(Record(u"1", u"Source"), u"C:\\Data");
  EXPECT_EQ(Record(u"1", u"Target"), u"D:\\Target\\Data");
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder"}).said, u"Source   Target\n\nC:\\Data   D:\\Target\\Data\n");

  const auto again = Redirect();
  ExpectFailure(again, u"#ERROR: Junction already exists for Source = C:\\Data and Target = D:\\Target\\Data.");
}

TEST_F(FolderRedirectionTest, RefusesPathsThatAJunctionCannotHold) {
  const auto before = test::DescribeTree(u"C:\\Data");
  for (const auto& [source, location, named] : {std::tuple{u"C:/Data", u"/loc:D:\\", u"C:/Data"},
                                                {u"C:\\Data.", u"/loc:D:\\", u"C:\\Data."},
                                                {u"C:\\Data", u"/loc:D:\\T\\\\", u"D:\\T\\\\"},
                                                {u"C:\\Data", u"/loc:D:\\T \\", u"D:\\T \\"}}) {
    const auto run = RunProgram(*machine, {u"/RedirectFolder", source, location});
    ExpectFailure(run, u"#ERROR:Invalid path : " + std::u16string(named));
  }
  EXPECT_EQ(test::DescribeTree(u"C:\\Data"), before);
}

TEST_F(FolderRedirectionTest, RefusesATargetThatIsAFileOrTheSourceByAnotherName) {
  const auto before = test::DescribeTree(u"C:\\Data");
  ASSERT_TRUE(win32::CreateDirectoryW(u"D:\\T", nullptr));
  ASSERT_TRUE(win32::CopyFileW(u"C:\\Data\\one.txt", u"D:\\T\\Data", 1));
  ExpectFailure(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\T"}),
                u"#ERROR: The specified path D:\\T\\Data is not a valid directory path.");
  ASSERT_TRUE(win32::CreateDirectoryW(u"C:\\\u00FCbung", nullptr));
  ASSERT_TRUE(win32::MoveFileW(u"C:\\Data", u"C:\\\u00FCbung\\Data"));
  const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\\u00FCbung\\Data", u"/loc:C:\\\u00DCBUNG"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"Source and Target folder are the same")) << emulated::Utf8(run.log);
  EXPECT_EQ(test::DescribeTree(u"C:\\\u00FCbung\\Data"), before);
}

TEST_F(FolderRedirectionTest, ABackslashAtTheEndMakesNoDifference) {
  const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data\\", u"/loc:D:\\New\\"});
  EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
  EXPECT_EQ(Contents(u"D:\\New\\Data\\one.txt"), "first");
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\New\\", u"/d"}).exitCode, 0);
}

// The folder itself keeps its security and times, there and back.
TEST_F(FolderRedirectionTest, IsUndoneByTheSameCommandWithD) {
  test::SetSecurity(u"C:\\Data", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)");
  test::SetTimes(u"C:\\Data", 7);
  const std::u16string entries = Entries(u"C:\\Data");
  const auto before = test::DescribeTree(u"C:\\Data");
  const std::string folder = test::Describe(u"C:\\Data");
  for (const auto* location : {u"/loc:D:\\Target", u"/loc:D:\\Target\\Data"}) {
    ASSERT_EQ(Redirect().exitCode, 0);
    EXPECT_EQ(Entries(u"D:\\Target\\Data"), entries);
    EXPECT_EQ(test::Describe(u"D:\\Target\\Data"), folder);
    const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", location, u"/d"});
    EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.said.ends_with(u"Folder Redirection Removal was successful."));
    EXPECT_TRUE(run.log.ends_with(u"Folder Redirection Removal was successful."));
    EXPECT_FALSE(IsJunctionNow(u"C:\\Data"));
    EXPECT_EQ(test::DescribeTree(u"C:\\Data"), before);
    EXPECT_EQ(test::Describe(u"C:\\Data"), folder);
    EXPECT_EQ(Entries(u"C:\\Data"), entries);
    EXPECT_FALSE(Exists(u"D:\\Target\\Data"));
    EXPECT_TRUE(Exists(u"D:\\Target"));
    EXPECT_EQ(RecordCount(), 0u);
  }
}

TEST_F(FolderRedirectionTest, DataSurvivesTheRestartOfAFrozenDrive) {
  ASSERT_EQ(Redirect().exitCode, 0);
  MakeFile(u"C:\\Data\\later.txt", "written through the junction");
  machine = test::BootFrom(machine->Snapshot());
  EXPECT_EQ(Contents(u"D:\\Target\\Data\\later.txt"), "written through the junction");
  EXPECT_EQ(Contents(u"C:\\Data\\later.txt"), "written through the junction");
}

// What inherits from a folder there inherits from its new access list.
TEST_F(FolderRedirectionTest, MergesIntoAFolderThatIsThere) {
  for (const auto* folder :
       {u"D:\\Target\\Data", u"D:\\Target\\Data\\inner", u"C:\\Data\\same", u"D:\\Target\\Data\\same"})
    MakeFolder(folder);
  MakeFile(u"D:\\Target\\Data\\theirs.txt", "stays");
  for (const auto* folder : {u"C:\\Data\\same", u"D:\\Target\\Data\\same", u"D:\\Target\\Data\\inner"})
    test::SetSecurity(folder, u"O:BAD:P(A;OICI;FA;;;BA)");
  test::SetSecurity(u"C:\\Data\\inner", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FR;;;WD)");
  const auto run = Redirect();
  EXPECT_TRUE(run.Logged(u"#INFO: The folder D:\\Target\\Data\\inner was there already. Its access list was replaced"));
  EXPECT_FALSE(run.Logged(u"#INFO: The folder D:\\Target\\Data was") || run.Logged(u"\\same was there"));
  EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
  EXPECT_TRUE(run.Said(u"\nThe target folder: \"D:\\Target\\Data\" already exists.\n"));
  EXPECT_EQ(Contents(u"C:\\Data\\theirs.txt"), "stays");
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
}

TEST_F(FolderRedirectionTest, TheOnlyCopyStaysWhenTheJunctionStays) {
  machine->gate.FailCall("RegCreateKeyExW", 1, win32::ERROR_ACCESS_DENIED);
  machine->gate.FailCallsFrom("DeviceIoControl", 2, win32::ERROR_ACCESS_DENIED);
  const auto run = Redirect();
  ExpectFailure(run,
                u"#ERROR: Unable to delete Junction. path = C:\\Data. The files and folders stay in D:\\Target\\Data.");
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
  EXPECT_EQ(Contents(u"D:\\Target\\Data\\one.txt"), "first");
}

TEST_F(FolderRedirectionTest, RefusesBeforeAnythingChanges) {
  const auto refused = [&](const std::u16string& source, const std::u16string& location, const std::u16string& logged) {
    ExpectFailure(RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + location}), logged);
    EXPECT_EQ(RecordCount(), 0u);
    ExpectEachFileOnce("refused");
  };
  refused(u"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\", u"D:\\T",
          u"#ERROR: Source Folder can not be Volume path.");
  refused(u"C:\\Nothing", u"D:\\T",
          u"#ERROR: PreScanning failed for Source = C:\\Nothing and Target = D:\\T\\Nothing.");
  refused(u"C:\\", u"D:\\T",
          u"#ERROR: C:\\ - A folder is required for folder redirection. Browse to a different location.");
  refused(u"C:\\Data\\one.txt", u"D:\\T",
          u"#ERROR: The specified path C:\\Data\\one.txt is not a valid directory path.");
  refused(u"Data", u"D:\\T", u"#ERROR: The selected folder Data is a relative path. Browse to a different location");
  refused(u"C:\\Data", u"C:\\", u"Cannot redirect when Source and Target folder are the same.");
  refused(u"C:\\Data\\inner\\..", u"D:\\T", u"#ERROR: The selected folder C:\\Data\\inner\\.. is a relative path.");
  refused(u"C:\\Data", u"C:\\Data\\inner", u"Cannot redirect within the same Source folder.");
  MakeFolder(u"D:\\Target\\Data");
  MakeFolder(u"D:\\Target\\Data\\Data");
  MakeFile(u"D:\\Target\\Data\\Data\\deep.txt", "deep");
  refused(u"D:\\Target\\Data\\Data", u"D:\\Target", u"Cannot redirect within the same Source folder.");
  EXPECT_EQ(Contents(u"D:\\Target\\Data\\Data\\deep.txt"), "deep");
}

TEST_F(FolderRedirectionTest, RefusesARealTargetOf247Characters) {
  const std::u16string longest = u"D:\\" + std::u16string(246 - 3 - 5, u't');  // with "\Data" 246
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:" + longest}).exitCode, 0);
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:" + longest, u"/d"}).exitCode, 0);
  const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:" + longest + u"t"});
  ExpectFailure(run, u"exceeds the system-defined maximum length of 248 characters. Browse to a different location.");
  EXPECT_FALSE(Exists(longest + u"t"));
}

TEST_F(FolderRedirectionTest, ATargetThatIsALinkIsRefused) {
  // Moved into a link that leads back to where it comes from, the data would be copied onto itself and then deleted.
  const auto kernel = win32::LoadLibraryW(u"Kernel32.dll");
  const auto createLink =
      reinterpret_cast<win32::CreateSymbolicLinkWFunction>(win32::GetProcAddress(kernel, "CreateSymbolicLinkW"));
  ASSERT_TRUE(createLink(u"D:\\Target\\Data", u"C:\\Data", 1));
  ExpectFailure(Redirect(), u"#ERROR: The folder D:\\Target\\Data is Symbolic Link.");
  ExpectEachFileOnce("link");
}

TEST_F(FolderRedirectionTest, AnAdministratorWhoIsNotElevatedMovesNothing) {
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  for (const auto* direction : {u"/c", u"/d"}) {
    const auto folder = RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", direction});
    const auto file = RunProgram(*machine, {u"/RedirectFile", u"C:\\Data\\one.txt", u"/loc:D:\\Target", direction});
    for (const auto& run : {folder, file}) {
      EXPECT_EQ(run.exitCode, 1);
      EXPECT_EQ(run.said, LoadResourceString(179));
    }
  }
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
}

TEST_F(FolderRedirectionTest, RemovalNeedsWhatWasRedirected) {
  const auto refused = [&](std::initializer_list<std::u16string> words, const std::u16string& logged) {
    const auto run = RunProgram(*machine, words);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, kLogged + u"\nFolder Redirection Removal was not successful.");
    EXPECT_TRUE(run.Logged(logged)) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.log.ends_with(u"Folder Redirection Removal was not successful."));
  };
  refused({u"/RedirectFolder", u"C:\\No", u"/loc:D:\\Target", u"/d"}, u"#ERROR: Source = C:\\No Path Does Not Exist.");
  refused({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\No", u"/d"}, u"#ERROR: Target = D:\\No Path Does Not Exist.");
  refused({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"},
          u"#ERROR: Junction doesn't exists for Source = C:\\Data and Target = D:\\Target.");
}

TEST_F(FolderRedirectionTest, AFailedRemovalPutsTheJunctionBack) {
  ASSERT_EQ(Redirect().exitCode, 0);
  // Windows' own mklink writes a print name, and keeps a backslash at the end.
  ASSERT_TRUE(RestoreLink({u"C:\\Data", {}, true, MountPointData(u"\\??\\D:\\Target\\Data\\", u"D:\\Target\\Data")}));
  test::SetSecurity(u"C:\\Data", u"O:BAD:P(A;;FA;;;BA)(A;;FR;;;BU)");
  test::SetTimes(u"C:\\Data", 5);
  const auto junction = [] { return test::Describe(u"C:\\Data") + emulated::Utf8(test::Security(u"C:\\Data")); };
  const std::string before = junction();
  const auto expectAsBefore = [&](const test::RunResult& run, const std::u16string& logged) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.Logged(logged)) << emulated::Utf8(run.log);
    EXPECT_EQ(junction(), before);
    EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
    EXPECT_EQ(Contents(u"D:\\Target\\Data\\inner\\two.bin"), std::string(70000, 'x'));
    EXPECT_EQ(RecordCount(), 1u);
  };
  const auto held =
      machine->files().OpenForeign(4242, u"D:\\Target\\Data\\one.txt", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  expectAsBefore(Remove(), u"#ERROR: PreScanning failed for Source = C:\\Data and Target = D:\\Target\\Data.");
  machine->files().CloseForeign(held);
  machine->gate.FailCall("RegDeleteKeyW", 1, win32::ERROR_ACCESS_DENIED);
  expectAsBefore(
      Remove(),
      u"#ERROR: Unable to remove Junction Point from Registry for Source = C:\\Data and Target = D:\\Target\\Data.");
  EXPECT_EQ(Remove().exitCode, 0);
}

TEST_F(FolderRedirectionTest, AVolumeInThePlaceOfTheJunctionStaysMounted) {
  Restart({.volumes = 1});
  const std::u16string volume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
  MakeFile(volume + u"theirs.txt", "theirs");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::RemoveDirectoryW(u"C:\\Data") && win32::CreateDirectoryW(u"C:\\Data", nullptr));
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Data\\", volume.c_str()));
  const auto run = Remove();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"#ERROR: A volume is mounted on the folder C:\\Data, where the junction to D:\\Target\\Data"))
      << emulated::Utf8(run.log);
  EXPECT_EQ(Contents(u"C:\\Data\\theirs.txt"), "theirs");
  EXPECT_EQ(Contents(u"D:\\Target\\Data\\one.txt"), "first");
  EXPECT_EQ(RecordCount(), 1u);
}

// Memory that runs out, say, anywhere from the move to the record.
TEST_F(FolderRedirectionTest, AnExceptionLosesNothingAndTheLogTellsWhereThingsAre) {
  const std::set<std::string> kInDestructors{"CloseHandle", "FindClose",   "RegCloseKey", "GetProcessHeap",
                                             "HeapFree",    "FreeLibrary", "LocalFree",   "NetApiBufferFree",
                                             "BackupRead",  "BackupWrite", "SetFileTime", "SetFileAttributesW"};
  Redirect();  // a process finds the entry points of ntdll only once: the runs that are compared make the same calls
  for (const bool back : {false, true}) {
    const auto restart = [&] {
      Restart();
      EXPECT_TRUE(!back || Redirect().exitCode == 0);
    };
    restart();
    std::vector<std::string> calls;
    machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
    EXPECT_EQ((back ? Remove() : Redirect()).exitCode, 0);
    const auto first = std::ranges::find(calls, "DeleteFileW");
    const auto record = std::ranges::find(calls, back ? "RegDeleteKeyW" : "RegSetValueExW");
    ASSERT_GT(record - first, 20);
    for (auto call = first; call <= record && !HasFailure(); ++call) {
      if (kInDestructors.contains(*call)) continue;
      restart();
      machine->gate.ResetCounts();
      machine->gate.Observe([&](const char*, std::uint64_t number) {
        if (number == static_cast<std::uint64_t>(call - calls.begin()) + 1) throw std::bad_alloc();
      });
      std::fflush(stdout);
      const auto run = back ? Remove() : Redirect();
      machine->gate.Observe({});
      const std::string when = *call + ": " + emulated::Utf8(run.log);
      ExpectEachFileOnce(when);
      const bool isBack =
          Contents(u"C:\\Data\\one.txt") == "first" && Contents(u"C:\\Data\\inner\\two.bin").size() == 70000;
      EXPECT_TRUE(isBack || run.Logged(u"D:\\Target\\Data")) << when;
    }
  }
}

}  // namespace
