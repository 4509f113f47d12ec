// Folder redirection as an administrator sees it: this machine, this command, and what console, log, registry and disks
// say.
#include "program/redirections.h"

namespace {

using emulated::Utf8;
using test::Answer, test::Contents, test::Exists, test::Failed, test::Failure, test::MakeFile, test::MakeFolder,
    test::Succeeded, test::kVolume;

const std::string kFolder = "Folder Redirection", kRemoval = "Folder Redirection Removal";
// What the console says of it.
std::string Moved(const std::string& from, const std::string& to) {
  std::string lines;
  for (const std::string name : {"\\inner", "\\inner\\two.bin", "\\one.txt"})
    lines += from + name + " -> " + to + name + "\n";
  return lines;
}
const std::string kMoved = Moved("C:\\Data", "TARGET"), kMovedBack = Moved("TARGET", "C:\\Data");
class FolderRedirectionTest : public test::OneFolder {
 protected:
  using Redirections::Redirect, Redirections::Remove;
  test::RunResult Redirect() { return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}); }
  test::RunResult Remove() { return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"}); }

  // A complete copy of each file, at the old place or at the new one. An administrator with backup privileges looks: a
  // DACL that could not be copied is not lost data.
  void ExpectNothingLost(const std::string& when) override {
    ASSERT_TRUE(EnablePrivileges());
    const std::u16string from = IsLink(u"C:\\Data") ? u"D:\\Target\\Data" : u"C:\\Data";
    const auto oneOf = [&](const std::u16string& name) {
      const std::string old = Contents(from + name);
      return old == "(none)" ? Contents(u"D:\\Target\\Data" + name) : old;
    };
    EXPECT_EQ(oneOf(u"\\one.txt"), "first") << when;
    EXPECT_EQ(oneOf(u"\\one.txt:note"), "a named stream") << when;
    EXPECT_TRUE(oneOf(u"\\inner\\two.bin") == std::string(70000, 'x')) << when;
  }
};

// The folder itself keeps its security and times, there and back.
TEST_F(FolderRedirectionTest, GoesAndComesBackWithAllThatItHas) {
  const State before = Now();
  for (const auto& [source, location] : {std::pair(u"C:\\Data", u"/loc:D:\\Target"),
                                         {u"C:\\Data\\", u"/loc:D:\\Target\\"},
                                         {u"c:\\DATA", u"/loc:d:\\target\\data"}}) {
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", source, u"/loc:D:\\Target\\"}), Succeeded(kFolder, "", kMoved));
    const State redirected = Now();
    EXPECT_EQ(Differences(Below(before, "C:\\Data"), Below(redirected, "D:\\Target\\Data")), "");
    EXPECT_EQ(Access(u"C:\\Data"), Access(u"D:\\Target\\Data"));
    EXPECT_EQ(AllRecords(), (test::Records{{u"1", {u"C:\\Data", u"D:\\Target\\Data"}}}));
    EXPECT_EQ(Contents(u"C:\\Data\\inner\\two.bin"), std::string(70000, 'x'));
    EXPECT_EQ(AnswerTo({u"/RedirectFolder"}), "exit 0\nSource   Target\n\nC:\\Data   TARGET\n");
    EXPECT_EQ(Answer(Redirect()),
              Failed(kFolder, "#ERROR: Junction already exists for Source = C:\\Data and Target = TARGET.\n"));
    EXPECT_EQ(ChangesSince(redirected), "");
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", source, location, u"/d"}), Succeeded(kRemoval, "", kMovedBack));
    EXPECT_EQ(ChangesSince(before), "");
  }
}

TEST_F(FolderRedirectionTest, WithoutPermissionsTheCopyHasThoseOfItsFolder) {
  MakeFile(u"D:\\Target\\plain.txt", "as any new file there");
  EXPECT_EQ(AnswerTo({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/-NTFS"}), Succeeded(kFolder, "", kMoved));
  EXPECT_EQ(test::Security(u"D:\\Target\\Data\\one.txt"), test::Security(u"D:\\Target\\plain.txt"));
  EXPECT_EQ(Remove().exitCode, 0);
  ExpectNothingLost("back");
}

// What inherits from a folder there inherits from its new access list.
TEST_F(FolderRedirectionTest, MergesIntoAFolderThatIsThere) {
  for (const auto* folder :
       {u"D:\\Target\\Data", u"D:\\Target\\Data\\inner", u"C:\\Data\\same", u"D:\\Target\\Data\\same"})
    MakeFolder(folder);
  MakeFile(u"D:\\Target\\Data\\theirs.txt", "stays");
  MakeFile(u"D:\\Target\\Data\\one.txt", "older");
  for (const auto* folder : {u"C:\\Data\\same", u"D:\\Target\\Data\\same", u"D:\\Target\\Data\\inner"})
    test::SetSecurity(folder, u"O:BAD:P(A;OICI;FA;;;BA)");
  test::SetSecurity(u"C:\\Data\\inner", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FR;;;WD)");
  test::SetTimes(u"D:\\Target\\Data\\theirs.txt", 5);
  const State before = Now();
  EXPECT_EQ(Answer(Redirect()),
            "exit 0\n\nThe target folder: \"TARGET\" already exists.\nC:\\Data\\inner -> "
            "TARGET\\inner\nC:\\Data\\inner\\two.bin -> TARGET\\inner\\two.bin\nC:\\Data\\one.txt -> "
            "TARGET\\one.txt\nC:\\Data\\same -> TARGET\\same\nFolder Redirection was successful.\n#INFO: The folder "
            "TARGET\\inner was there already. Its access list was replaced by that of the folder that was merged into "
            "it.\nFolder Redirection was successful.");
  const State after = Now();
  EXPECT_EQ(Differences(Below(before, "C:\\Data"), Below(after, "D:\\Target\\Data")),
            "changed: \nchanged: \\inner\\two.bin\nnew: \\theirs.txt\n");
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ChangesSince(before),
            "changed: C:\\Data\nchanged: C:\\Data\\inner\\two.bin\ngone: TARGET\ngone: TARGET\\inner\ngone: "
            "TARGET\\one.txt\ngone: TARGET\\same\ngone: TARGET\\theirs.txt\nnew: C:\\Data\\theirs.txt\n");
}

// Each rule alone, and nothing changes.
TEST_F(FolderRedirectionTest, IsRefused) {
  const std::u16string longest = u"D:\\" + std::u16string(246 - 3 - 5, u't');  // with "\Data" 246
  for (const auto* folder : {u"D:\\T", u"D:\\L", u"D:\\J", u"D:\\M", u"D:\\M\\Data", u"D:\\Deep", u"D:\\Deep\\Data",
                             u"D:\\Deep\\Data\\Data", u"C:\\Plain"})
    MakeFolder(folder);
  MakeFile(u"D:\\T\\Data", "theirs");
  // Moved into a link that leads back to where it comes from, the data would be copied onto itself and then deleted.
  const auto createLink = reinterpret_cast<win32::CreateSymbolicLinkWFunction>(
      win32::GetProcAddress(win32::LoadLibraryW(u"Kernel32.dll"), "CreateSymbolicLinkW"));
  EXPECT_TRUE(createLink(u"D:\\L\\Data", u"C:\\Data", 1));
  EXPECT_TRUE(CreateJunction(u"D:\\J\\Data", u"C:\\Data"));
  EXPECT_TRUE(CreateJunction(u"D:\\Way", u"C:\\"));
  EXPECT_TRUE(win32::SetVolumeMountPointW(u"D:\\M\\Data\\", kVolume.c_str()));
  MakeFolder(longest + u"t");
  const State before = Now();
  const auto refused = [&](const std::u16string& source, const std::u16string& location, const std::string& log) {
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", source, u"/loc:" + location}), Failed(kFolder, log));
    EXPECT_EQ(ChangesSince(before), "") << Utf8(source + u" " + location);
  };
  refused(u"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\", u"D:\\T",
          "#ERROR: Source Folder can not be Volume path.\n");
  refused(u"D:\\M\\Data", u"E:\\",
          "#ERROR: The folder D:\\M\\Data is already redirected. Browse to a different location.\n");
  refused(u"C:/Data", u"D:\\", "#ERROR:Invalid path : C:/Data\n");
  refused(u"C:\\Data", u"D:\\T \\", "#ERROR:Invalid path : D:\\T \\\n");
  refused(u"C:\\Nothing", u"D:\\T",
          "#ERROR: The selected folder C:\\Nothing does not exist.The system cannot find the file "
          "specified.\n\n#ERROR: PreScanning failed for Source = C:\\Nothing and Target = D:\\T\\Nothing.\n");
  refused(u"C:\\Data", u"C:\\",
          "Checking source folder equals to target.\nSource: C:\\Data Target: C:\\Data #ERROR: Cannot redirect when "
          "Source and Target folder are the same. Browse to a different location.\n");
  refused(u"C:\\Data\\inner\\..", u"D:\\T",
          "#ERROR: The selected folder C:\\Data\\inner\\.. is a relative path. Browse to a different location\n");
  refused(u"C:\\Data", u"C:\\Data\\inner",
          "Checking source folder contained in target.\nSource: C:\\Data Target: C:\\Data\\inner #ERROR: Cannot "
          "redirect within the same Source folder. Browse to a different location.\n#ERROR: PreScanning failed for "
          "Source = C:\\Data and Target = C:\\Data\\inner\\Data.\n");
  refused(u"D:\\Deep\\Data\\Data", u"D:\\Deep",
          "Checking source folder contained in target.\nSource: D:\\Deep\\Data\\Data Target: D:\\Deep\\Data #ERROR: "
          "Cannot redirect within the same Source folder. Browse to a different location.\n");
  refused(u"C:\\Data", u"D:\\T", "#ERROR: The specified path D:\\T\\Data is not a valid directory path.\n");
  refused(u"C:\\Data", u"D:\\L", "#ERROR: The folder D:\\L\\Data is Symbolic Link. Browse to a different location.\n");
  refused(u"C:\\Data", u"D:\\J",
          "#ERROR: The folder D:\\J\\Data is already redirected. Browse to a different location.\n");
  refused(u"C:\\Data", u"D:\\M",
          "#ERROR: The folder D:\\M\\Data is already redirected. Browse to a different location.\n");
  refused(u"C:\\Data", u"D:\\Way",
          "#ERROR: The folder D:\\Way is already redirected. Browse to a different location.\n#ERROR: PreScanning "
          "failed for Source = C:\\Data and Target = D:\\Way\\Data.\n");
  refused(u"C:\\Data", longest + u"t",
          "#ERROR: The specified path " + Utf8(longest) +
              "t\\Data exceeds the system-defined maximum length of 248 characters. Browse to a different location.\n");
  EXPECT_EQ(AnswerTo({u"/RedirectFolder", u"C:\\Data", u"/loc:" + longest}).substr(0, 6), "exit 0");
}

TEST_F(FolderRedirectionTest, RemovalIsRefused) {
  State before = Now();
  const auto refused = [&](const std::u16string& source, const std::u16string& location, const std::string& log) {
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", source, u"/loc:" + location, u"/d"}), Failed(kRemoval, log));
    EXPECT_EQ(ChangesSince(before), "") << Utf8(source + u" " + location);
  };
  refused(u"C:\\No", u"D:\\Target", "#ERROR: Source = C:\\No Path Does Not Exist.\n");
  refused(u"C:\\Data", u"D:\\No", "#ERROR: Target = D:\\No Path Does Not Exist.\n");
  refused(u"C:\\Data", u"D:\\Target",
          "#ERROR: Junction doesn't exists for Source = C:\\Data and Target = D:\\Target.\n");
  refused(u"C:\\Data", u"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\",
          "#ERROR: Volume Path to Normal Path Conversion Failed.\n");
  refused(u"\\\\?\\C:\\Data", u"\\\\?\\D:\\Target",
          "#ERROR: Junction doesn't exists for Source = \\\\?\\C:\\Data and Target = "
          "\\\\?\\D:\\Target.\n#ERROR:Invalid path : \\\\?\\C:\\Data\n#ERROR:Invalid path : \\\\?\\D:\\Target\n");

  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::RemoveDirectoryW(u"C:\\Data"));
  before = Now();
  refused(u"C:\\Data", u"D:\\Target", "#ERROR: Source = C:\\Data Path Does Not Exist.\n");
  MakeFolder(u"C:\\Data");
  before = Now();
  refused(u"C:\\Data", u"D:\\Target",
          "#ERROR: Not a directory or no reparse point.\n#ERROR: Unable to get Junction Target Path.\n#INFO: The "
          "folder C:\\Data is no junction, although its redirection is recorded: its removal was cut off, or somebody "
          "has put a folder in the junction's place. Its files and folders are in it, in TARGET, or partly in both; "
          "nothing has been changed now. See \"After a power failure, folder form\" in what-is-refused.md.\n");
  EXPECT_EQ(Answer(Redirect()),
            "exit 1\nErrors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.\nFolder Redirection was "
            "unsuccessful.\n#ERROR: Junction already exists for Source = C:\\Data and Target = TARGET.\n#INFO: The "
            "folder C:\\Data is no junction, although its redirection is recorded: its removal was cut off, or "
            "somebody has put a folder in the junction's place. Its files and folders are in it, in TARGET, or partly "
            "in both; nothing has been changed now. See \"After a power failure, folder form\" in "
            "what-is-refused.md.\nFolder Redirection was unsuccessful.");
  MakeFile(kVolume + u"theirs.txt", "theirs");
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Data\\", kVolume.c_str()));
  before = Now();
  refused(u"C:\\Data", u"D:\\Target",
          "#ERROR: A volume is mounted on the folder C:\\Data, where the junction to TARGET was. Unmount it, make the "
          "junction again, and remove the redirection again.\n");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\Data\\"));
  // Somebody works with what is there, and what was made by hand stands as it was made: Windows' own mklink writes a
  // print name, and keeps a backslash at the end.
  ASSERT_TRUE(RestoreLink({u"C:\\Data", {}, true, MountPointData(u"\\??\\D:\\Target\\Data\\", u"D:\\Target\\Data")}));
  test::SetSecurity(u"C:\\Data", u"O:BAD:P(A;;FA;;;BA)(A;;FR;;;BU)");
  test::SetTimes(u"C:\\Data", 5);
  const auto held =
      machine->files().OpenForeign(4242, u"D:\\Target\\Data\\one.txt", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  before = Now();
  refused(
      u"C:\\Data", u"D:\\Target",
      "#INFO: TARGET\\one.txt - File or Folder is locked.\n#INFO: TARGET\\one.txt - File is not accessible.\n#ERROR: "
      "TARGET\\one.txt - File or folder is used by another process.  Close any application that might be using the "
      "file or folder and try again.\n#ERROR: PreScanning failed for Source = C:\\Data and Target = TARGET.\n");
  machine->files().CloseForeign(held);
  EXPECT_EQ(Remove().exitCode, 0);
}

TEST_F(FolderRedirectionTest, AnAdministratorWhoIsNotElevatedMovesNothing) {
  const State before = Now();
  const auto elevated = machine->process.token;
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  const std::string kNotElevated = "exit 1\nYou need administrative privileges to run this command.";
  for (const auto* direction : {u"/c", u"/d"}) {
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", direction}), kNotElevated);
    EXPECT_EQ(AnswerTo({u"/RedirectFile", u"C:\\Data\\one.txt", u"/loc:D:\\Target", direction}), kNotElevated);
  }
  machine->process.token = elevated;
  EXPECT_EQ(ChangesSince(before), "");
}

// Either everything is as it was, or the log tells where things are.
TEST_F(FolderRedirectionTest, AFailureIsTakenBackOrToldOf) {
  const std::string isNew =
      "#INFO: The selected target folder D:\\New does not exist. Ignoring PathIsDirectory validation.\n#ERROR: Unable "
      "to get File Attributes for path = D:\\NewThe system cannot find the file specified.\n\n#INFO: Target D:\\New "
      "doesn't exists so checking free space using parent directory D:\n";
  const std::string there = Moved("C:\\Data", "D:\\New\\Data"), back = there + Moved("D:\\New\\Data", "C:\\Data");
  const std::string of = " for Source = C:\\Data and Target = D:\\New\\Data.\n",
                    records = "#ERROR: Unable to update redirected folder path in registry.\n";
  const std::string isBack = "#INFO: All files and folders are back in C:\\Data.\n";
  const std::string notRecorded = "#ERROR: Unable to add Junction Point to Registry" + of;
  ExpectFailures(
      {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\New"},
      [&](const Failure& row) { return Failed(kFolder, isNew + row.log, row.said); },
      {
          {"SHCreateDirectoryExW 1", "#ERROR: Failed To Create Target Folder: D:\\New\\Data\n"},
          {"GetFileSize 4",
           "#ERROR: Unable to copy from Source = C:\\Data\\inner\\two.bin to Target = D:\\New\\Data\\inner\\two.bin. "
           "Access is denied.\n\n#ERROR: Unable to move files and folders from Source = C:\\Data to Target = "
           "D:\\New\\Data.\n",
           "", "C:\\Data\\inner -> D:\\New\\Data\\inner\n"},
          {"DeviceIoControl 1", "#ERROR: Unable to create junction" + of + isBack, "", back},
          {"RegOpenKeyExW 13", records + isBack, "", back},
          {"RegCreateKeyExW 1", notRecorded + isBack, "", back},
          {"RegCreateKeyExW 1, DeviceIoControl 2",
           notRecorded + "#ERROR: Path C:\\Data is not junction.\n#ERROR: Unable to delete Junction. path = C:\\Data. "
                         "The files and folders stay in D:\\New\\Data.\n",
           "changed: C:\\Data\ngone: C:\\Data\\inner\ngone: C:\\Data\\inner\\two.bin\ngone: C:\\Data\\one.txt\nnew: "
           "D:\\New\nnew: D:\\New\\Data\nnew: D:\\New\\Data\\inner\nnew: D:\\New\\Data\\inner\\two.bin\nnew: "
           "D:\\New\\Data\\one.txt\n",
           there},
          {"RegCreateKeyExW 1, GetFileSize 7",
           notRecorded + "#ERROR: Unable to copy from Source = D:\\New\\Data\\inner\\two.bin to Target = "
                         "C:\\Data\\inner\\two.bin. Access is denied.\n\n#ERROR: Unable to move "
                         "C:\\Data\\inner\\two.bin back. It stays at D:\\New\\Data\\inner\\two.bin.\n#ERROR: Unable to "
                         "move all files and folders back to C:\\Data. The others stay in D:\\New\\Data.\n",
           "gone: C:\\Data\\inner\\two.bin\nnew: D:\\New\nnew: D:\\New\\Data\nnew: D:\\New\\Data\\inner\nnew: "
           "D:\\New\\Data\\inner\\two.bin\n",
           back},
      });
}

TEST_F(FolderRedirectionTest, AFailedRemovalPutsTheJunctionBackOrTells) {
  ASSERT_EQ(Redirect().exitCode, 0);
  const std::string undone = kMovedBack + kMoved, of = "Source = C:\\Data and Target = TARGET.\n";
  const std::string recorded = "#ERROR: Unable to remove Junction Point from Registry for " + of;
  const std::string isBack =
      "#INFO: The files and folders are back in C:\\Data, and the redirection is no longer recorded.\n";
  const std::string home =
      "gone: TARGET\\inner\ngone: TARGET\\inner\\two.bin\ngone: TARGET\\one.txt\ngone: QUILLBAY\\Junctions\\1 Source = "
      "C:\\Data\ngone: QUILLBAY\\Junctions\\1 Target = TARGET\nnew: C:\\Data\\inner\nnew: "
      "C:\\Data\\inner\\two.bin\nnew: C:\\Data\\one.txt\n";
  ExpectFailures(
      {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"},
      [](const Failure& row) {
        return row.done ? Succeeded(kRemoval, row.log, row.said) : Failed(kRemoval, row.log, row.said);
      },
      {
          {"DeviceIoControl 1",
           "#ERROR: Unable to perform DeviceIoControl operation.\n#ERROR: Unable to get Junction Target Path.\n"},
          {"DeviceIoControl 2", "#ERROR: Unable to read the attributes of the folder C:\\Data. Access is denied.\n\n"},
          {"DeviceIoControl 4", "#ERROR: Unable to delete Junction. path = C:\\Data.\n"},
          {"GetFileSize 4",
           "#ERROR: Unable to copy from Source = TARGET\\inner\\two.bin to Target = C:\\Data\\inner\\two.bin. Access "
           "is denied.\n\n#ERROR: Unable to move files and folders from Source = C:\\Data to Target = TARGET.\n",
           "", "TARGET\\inner -> C:\\Data\\inner\n"},
          {"RegDeleteKeyW 1", recorded, "", undone},
          {"RegDeleteKeyW 1, DeviceIoControl 5", recorded + "#ERROR: Unable to create junction for " + of,
           "changed: C:\\Data\n", undone},
          {"RegOpenKeyExW 9", "#ERROR: Unable to update redirected folder path in registry.\n" + isBack,
           "changed: C:\\Data\nchanged: D:\\Target\ngone: TARGET\n" + home, kMovedBack},
          {"NetShareEnum 2", "#ERROR: Unable to read the network shares of folder TARGET.\n" + isBack,
           "changed: C:\\Data\nchanged: TARGET\n" + home, kMovedBack},
          {"RemoveDirectoryW 2", "#INFO: The folder TARGET could not be removed. Access is denied.\n\n",
           "changed: C:\\Data\nchanged: TARGET\n" + home, kMovedBack, true},
      });
}

// Memory that runs out, say, anywhere from the move to the record.
TEST_F(FolderRedirectionTest, AnExceptionLosesNothingAndTheLogTellsWhereThingsAre) {
  const std::set<std::string> kInDestructors{"CloseHandle", "FindClose",   "RegCloseKey", "GetProcessHeap",
                                             "HeapFree",    "FreeLibrary", "LocalFree",   "NetApiBufferFree",
                                             "BackupRead",  "BackupWrite", "SetFileTime", "SetFileAttributesW"};
  const test::Disks disks = machine->Snapshot();
  Redirect();  // a process finds the entry points of ntdll only once: the runs that are compared make the same calls
  const test::Disks redirected = machine->Snapshot();
  for (const bool back : {false, true}) {
    const auto run = [&] {
      std::fflush(stdout);
      return back ? Remove() : Redirect();
    };
    Restart(back ? redirected : disks);
    std::vector<std::string> calls;
    machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
    EXPECT_EQ(run().exitCode, 0);
    const auto first = std::ranges::find(calls, "DeleteFileW");
    const auto record = std::ranges::find(calls, back ? "RegDeleteKeyW" : "RegSetValueExW");
    ASSERT_GT(record - first, 20);
    for (auto call = first; call <= record && !HasFailure(); ++call) {
      if (kInDestructors.contains(*call)) continue;
      Restart(back ? redirected : disks);
      machine->gate.ResetCounts();
      machine->gate.Observe([&](const char*, std::uint64_t number) {
        if (number == static_cast<std::uint64_t>(call - calls.begin()) + 1) throw std::bad_alloc();
      });
      const test::RunResult result = run();
      machine->gate.Observe({});
      const std::string when = *call + ": " + Utf8(result.log);
      ExpectNothingLost(when);
      const bool isBack =
          Contents(u"C:\\Data\\one.txt") == "first" && Contents(u"C:\\Data\\inner\\two.bin").size() == 70000;
      EXPECT_TRUE(isBack || result.Logged(u"D:\\Target\\Data")) << when;
    }
  }
}

}  // namespace
