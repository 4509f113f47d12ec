// Folder redirection as an administrator sees it: this machine, this command, and what console, log, registry and disks
// say.
#include "program/redirections.h"

namespace {

using namespace test;

const std::string kFolder = "Folder Redirection", kRemoval = "Folder Redirection Removal";
const std::string kMoved = Moved("C:\\Data", "TARGET"), kMovedBack = Moved("TARGET", "C:\\Data");

class FolderRedirectionTest : public OneFolder {};

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
    EXPECT_EQ(AllRecords(), (Records{{u"1", {u"C:\\Data", u"D:\\Target\\Data"}}}));
    EXPECT_EQ(AnswerTo({u"/RedirectFolder"}), "exit 0\nSource   Target\n\nC:\\Data   TARGET\n");
    ExpectRefused(
        u"/RedirectFolder",
        {{u"C:\\Data", u"D:\\Target", "#ERROR: Junction already exists for Source = C:\\Data and Target = TARGET.\n"}});
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", source, location, u"/d"}), Succeeded(kRemoval, "", kMovedBack));
    EXPECT_EQ(ChangesSince(before), "");
  }
  MakeFile(u"D:\\Target\\plain.txt", "as any new file there");
  EXPECT_EQ(AnswerOf(Redirect(u"/-NTFS")), Succeeded(kFolder, "", kMoved));
  EXPECT_EQ(Security(u"D:\\Target\\Data\\one.txt"), Security(u"D:\\Target\\plain.txt"));
}

// On Windows the calls are what the move of small files costs.
TEST_F(FolderRedirectionTest, AFileCostsFewCalls) {
  const auto cost = [&](unsigned files) {
    for (unsigned file = 0; file < files; ++file) {
      const std::u16string number = emulated::Utf16(std::to_string(10'000 + file)), path = u"C:\\Data\\f" + number;
      MakeFile(path, std::string(1024, 'x'));
      SetSecurity(path, u"O:BAG:SYD:AI(A;;FA;;;BA)(A;;FR;;;S-1-5-21-1-2-3-" + number + u")(A;ID;FA;;;SY)");
    }
    machine->gate.ResetCounts();
    EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", to, u"/c"}).exitCode, 0);
    const std::pair counted{machine->gate.Count(), machine->gate.Count("CreateFileW")};
    EXPECT_EQ(Remove().exitCode, 0);
    return counted;
  };
  cost(1);  // the first one leaves keys in the registry
  const auto few = cost(4), many = cost(54);
  EXPECT_LE(many.first - few.first, 50 * 30u);
  EXPECT_LE(many.second - few.second, 50 * 4u);
  EXPECT_LT(machine->gate.Count("MapGenericMask"), 50u);
}

// What inherits from a folder there inherits from its new access list.
TEST_F(FolderRedirectionTest, MergesIntoAFolderThatIsThere) {
  for (const auto* folder :
       {u"D:\\Target\\Data", u"D:\\Target\\Data\\inner", u"C:\\Data\\same", u"D:\\Target\\Data\\same"})
    MakeFolder(folder);
  MakeFile(u"D:\\Target\\Data\\theirs.txt", "stays");
  MakeFile(u"D:\\Target\\Data\\one.txt", "older");
  for (const auto* folder : {u"C:\\Data\\same", u"D:\\Target\\Data\\same", u"D:\\Target\\Data\\inner"})
    SetSecurity(folder, u"O:BAD:P(A;OICI;FA;;;BA)");
  SetSecurity(u"C:\\Data\\inner", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FR;;;WD)");
  SetTimes(u"D:\\Target\\Data\\theirs.txt", 5);
  const State before = Now();
  EXPECT_EQ(
      AnswerOf(Redirect()),
      Succeeded(kFolder,
                "#INFO: The folder TARGET\\inner was there already. Its access list was replaced by that of the "
                "folder that was merged into it.\n",
                "\nThe target folder: \"TARGET\" already exists.\n" + kMoved + "C:\\Data\\same -> TARGET\\same\n"));
  EXPECT_EQ(Differences(Below(before, "C:\\Data"), Below(Now(), "D:\\Target\\Data")),
            "changed: \nchanged: \\inner\\two.bin\nnew: \\theirs.txt\n");
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ChangesSince(before),
            "changed: C:\\Data\nchanged: C:\\Data\\inner\\two.bin\ngone: TARGET\ngone: TARGET\\inner\ngone: "
            "TARGET\\one.txt\ngone: TARGET\\same\ngone: TARGET\\theirs.txt\nnew: C:\\Data\\theirs.txt\n");
}

TEST_F(FolderRedirectionTest, IsRefused) {
  const std::u16string longest = u"D:\\" + std::u16string(246 - 3 - 5, u't');  // with "\Data" 246
  for (const auto* folder : {u"D:\\T", u"D:\\L", u"D:\\J", u"D:\\M", u"D:\\M\\Data", u"D:\\Deep", u"D:\\Deep\\Data",
                             u"D:\\Deep\\Data\\Data"})
    MakeFolder(folder);
  // Moved into a link that leads back to where it comes from, the data would be copied onto itself and then deleted.
  EXPECT_TRUE(CreateSymbolicLinkEntry(u"D:\\L\\Data", u"C:\\Data"));
  EXPECT_TRUE(CreateJunction(u"D:\\J\\Data", u"C:\\Data"));
  EXPECT_TRUE(CreateJunction(u"D:\\Way", u"C:\\"));
  EXPECT_TRUE(win32::SetVolumeMountPointW(u"D:\\M\\Data\\", kVolume.c_str()));
  MakeFolder(longest + u"t");
  const auto isRedirected = [](const std::string& folder) {
    return "#ERROR: The folder " + folder + " is already redirected. Browse to a different location.\n";
  };
  ExpectRefused(
      u"/RedirectFolder",
      {{u"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\", u"D:\\T",
        "#ERROR: Source Folder can not be Volume path.\n"},
       {u"D:\\M\\Data", u"E:\\", isRedirected("D:\\M\\Data")},
       {u"C:/Data", u"D:\\", "#ERROR:Invalid path : C:/Data\n"},
       {u"C:\\Data", u"D:\\T \\", "#ERROR:Invalid path : D:\\T \\\n"},
       {u"C:\\Data", u"C:\\", "Cannot redirect when Source and Target folder are the same."},
       {u"C:\\Data", u"C:\\Data\\inner", "Cannot redirect within the same Source folder."},
       {u"D:\\Deep\\Data\\Data", u"D:\\Deep", "Cannot redirect within the same Source folder."},
       {u"C:\\Data", u"D:\\L", "#ERROR: The folder D:\\L\\Data is Symbolic Link. Browse to a different location.\n"},
       {u"C:\\Data", u"D:\\J", isRedirected("D:\\J\\Data")},
       {u"C:\\Data", u"D:\\M", isRedirected("D:\\M\\Data")},
       {u"C:\\Data", u"D:\\Way",
        isRedirected("D:\\Way") + "#ERROR: PreScanning failed for Source = C:\\Data and Target = D:\\Way\\Data.\n"},
       {u"C:\\Data", longest + u"t", "t\\Data exceeds the system-defined maximum length of 248 characters."}});
  EXPECT_EQ(Run({u"/RedirectFolder", u"C:\\Data", u"/loc:" + longest}).exitCode, 0);
}

TEST_F(FolderRedirectionTest, RemovalIsRefused) {
  const auto refused = [&](const std::string& log) {
    ExpectRefused(u"/RedirectFolder", {{u"C:\\Data", u"D:\\Target", log}}, u"/d");
  };
  ExpectRefused(u"/RedirectFolder",
                {{u"C:\\No", u"D:\\Target", "#ERROR: Source = C:\\No Path Does Not Exist.\n"},
                 {u"C:\\Data", u"D:\\No", "#ERROR: Target = D:\\No Path Does Not Exist.\n"},
                 {u"C:\\Data", u"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\",
                  "#ERROR: Volume Path to Normal Path Conversion Failed.\n"},
                 {u"\\\\?\\C:\\Data", u"\\\\?\\D:\\Target", "#ERROR:Invalid path : \\\\?\\D:\\Target"}},
                u"/d");
  refused("#ERROR: Junction doesn't exists for Source = C:\\Data and Target = D:\\Target.\n");

  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::RemoveDirectoryW(u"C:\\Data"));
  refused("#ERROR: Source = C:\\Data Path Does Not Exist.\n");
  MakeFolder(u"C:\\Data");
  const std::string noJunction =
      "#INFO: The folder C:\\Data is no junction, although its redirection is recorded: its removal was cut off, or "
      "somebody has put a folder in the junction's place. Its files and folders are in it, in TARGET, or partly in "
      "both; nothing has been changed now. See \"After a power failure, folder form\" in what-is-refused.md.\n";
  refused("#ERROR: Not a directory or no reparse point.\n#ERROR: Unable to get Junction Target Path.\n" + noJunction);
  ExpectRefused(u"/RedirectFolder",
                {{u"C:\\Data", u"D:\\Target",
                  "#ERROR: Junction already exists for Source = C:\\Data and Target = TARGET.\n" + noJunction}});
  MakeFile(kVolume + u"theirs.txt", "theirs");
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Data\\", kVolume.c_str()));
  refused(
      "#ERROR: A volume is mounted on the folder C:\\Data, where the junction to TARGET was. Unmount it, make the "
      "junction again, and remove the redirection again.\n");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\Data\\"));
  // Somebody works with what is there, and what was made by hand stands as it was made: Windows' own mklink writes a
  // print name, and keeps a backslash at the end.
  ASSERT_TRUE(RestoreLink({u"C:\\Data", {}, true, MountPointData(u"\\??\\D:\\Target\\Data\\", u"D:\\Target\\Data")}));
  SetSecurity(u"C:\\Data", u"O:BAD:P(A;;FA;;;BA)(A;;FR;;;BU)");
  SetTimes(u"C:\\Data", 5);
  const auto held =
      machine->files().OpenForeign(4242, u"D:\\Target\\Data\\one.txt", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  refused("file or folder and try again.\n#ERROR: PreScanning failed for Source = C:\\Data and Target = TARGET.");
  machine->files().CloseForeign(held);
  EXPECT_EQ(Remove().exitCode, 0);
}

TEST_F(FolderRedirectionTest, AnAdministratorWhoIsNotElevatedMovesNothing) {
  const State before = Now();
  const auto elevated = machine->process.token;
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  const std::string notElevated = "exit 1\nYou need administrative privileges to run this command.";
  for (const auto* direction : {u"/c", u"/d"}) {
    EXPECT_EQ(AnswerOf(OneFolder::Redirect(direction)), notElevated);
    EXPECT_EQ(AnswerTo({u"/RedirectFile", u"C:\\Data\\one.txt", u"/loc:D:\\Target", direction}), notElevated);
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
                    isBack = "#INFO: All files and folders are back in C:\\Data.\n",
                    notRecorded = "#ERROR: Unable to add Junction Point to Registry" + of,
                    made = "new: D:\\New\nnew: D:\\New\\Data\n";
  ExpectFailures(
      {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\New"}, kFolder, isNew,
      {
          {"SHCreateDirectoryExW 1", "#ERROR: Failed To Create Target Folder: D:\\New\\Data\n"},
          {"GetFileInformationByHandle 3",
           NotCopied("C:\\Data", "D:\\New\\Data") +
               "#ERROR: Unable to move files and folders from Source = C:\\Data to Target = D:\\New\\Data.\n",
           "", "C:\\Data\\inner -> D:\\New\\Data\\inner\n"},
          {"DeviceIoControl 1", "#ERROR: Unable to create junction" + of + isBack, "", back},
          {"RegOpenKeyExW 13", "#ERROR: Unable to update redirected folder path in registry.\n" + isBack, "", back},
          {"RegCreateKeyExW 1", notRecorded + isBack, "", back},
          {"RegCreateKeyExW 1, DeviceIoControl 2",
           notRecorded + "#ERROR: Path C:\\Data is not junction.\n#ERROR: Unable to delete Junction. path = C:\\Data. "
                         "The files and folders stay in D:\\New\\Data.\n",
           "changed: C:\\Data\n" + Items("gone: ", "C:\\Data") + made + Items("new: ", "D:\\New\\Data"), there},
          {"RegCreateKeyExW 1, GetFileInformationByHandle 6",
           notRecorded + NotMovedBack("D:\\New\\Data") + "in D:\\New\\Data.\n",
           "gone: C:\\Data\\inner\\two.bin\n" + made +
               "new: D:\\New\\Data\\inner\nnew: D:\\New\\Data\\inner\\two.bin\n",
           back},
      });
}

TEST_F(FolderRedirectionTest, AFailedRemovalPutsTheJunctionBackOrTells) {
  ASSERT_EQ(Redirect().exitCode, 0);
  const std::string of = "Source = C:\\Data and Target = TARGET.\n";
  const std::string isBack =
      "#INFO: The files and folders are back in C:\\Data, and the redirection is no longer recorded.\n";
  const std::string home = "changed: C:\\Data\nchanged: TARGET\n" + Items("gone: ", "TARGET") +
                           "gone: QUILLBAY\\Junctions\\1 Source = C:\\Data\ngone: QUILLBAY\\Junctions\\1 Target = "
                           "TARGET\n" +
                           Items("new: ", "C:\\Data");
  ExpectFailures(
      {u"/RedirectFolder", u"C:\\Data", to, u"/d"}, kRemoval, "",
      {
          {"DeviceIoControl 1",
           "#ERROR: Unable to perform DeviceIoControl operation.\n#ERROR: Unable to get Junction Target Path.\n"},
          {"DeviceIoControl 2", "#ERROR: Unable to read the attributes of the folder C:\\Data. Access is denied.\n\n"},
          {"DeviceIoControl 4", "#ERROR: Unable to delete Junction. path = C:\\Data.\n"},
          {"RegDeleteKeyW 1, DeviceIoControl 5",
           "#ERROR: Unable to remove Junction Point from Registry for " + of +
               "#ERROR: Unable to create junction for " + of,
           "changed: C:\\Data\n", kMovedBack + kMoved},
          {"NetShareEnum 2", "#ERROR: Unable to read the network shares of folder TARGET.\n" + isBack, home,
           kMovedBack},
          {"RemoveDirectoryW 2", "#INFO: The folder TARGET could not be removed. Access is denied.\n\n", home,
           kMovedBack, true},
      });
}

// People are at work in the folder that is to go, and some of what is in it is not the administrator's: all that stands
// in the way is told in one run, in the order of the tree.
TEST_F(FolderRedirectionTest, EverythingInTheWayIsNamedInOneRun) {
  constexpr win32::DWORD kAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
  for (const auto* folder : {u"C:\\Data\\open", u"C:\\Data\\vault", u"C:\\Database"}) MakeFolder(folder);
  for (const auto* file : {u"C:\\Data\\secret.txt", u"C:\\Database\\x.mdb", u"D:\\Target\\theirs.txt"})
    MakeFile(file, "contents");
  // All that they may do is give themselves more; and list the folder.
  SetSecurity(u"C:\\Data\\secret.txt", u"O:BAD:P(A;;FA;;;SY)(A;;0xC0000;;;BA)");
  SetSecurity(u"C:\\Data\\vault", u"O:BAD:P(A;;FA;;;SY)(A;;0x1C0001;;;BA)");
  const State before = Now();
  std::vector<std::shared_ptr<emulated::FileObject>> holders;
  const auto hold = [&](const std::u16string& path, win32::DWORD access, win32::DWORD share) {
    holders.push_back(machine->files().OpenForeign(4242, path, access, share));
  };
  hold(u"C:\\Data\\inner\\two.bin", win32::GENERIC_READ, 0);
  hold(u"C:\\Data\\one.txt:note", win32::GENERIC_READ, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE);
  hold(u"C:\\Data\\open", win32::FILE_READ_ATTRIBUTES, kAll);
  const std::string answer = AnswerOf(Redirect());
  std::string names;
  for (std::size_t at = 0; (at = answer.find("#ERROR: ", at)) != std::string::npos; at += 8)
    names += answer.substr(at + 8, answer.find(" - ", at) - at - 8) + "|";
  EXPECT_TRUE(names.starts_with(
      "C:\\Data\\inner\\two.bin|C:\\Data\\one.txt|C:\\Data\\open|C:\\Data\\secret.txt|C:\\Data\\vault|"))
      << answer;
  for (const auto& holder : holders) machine->files().CloseForeign(holder);
  EXPECT_EQ(ChangesSince(before), "");
  for (const auto* item : {u"C:\\Data\\secret.txt", u"C:\\Data\\vault"}) SetSecurity(item, u"O:BAD:(A;;FA;;;BA)");
  // The folder next door, and files on the target's drive, are nobody's business.
  hold(u"C:\\Database\\x.mdb", win32::GENERIC_READ, 0);
  hold(u"C:\\Database", win32::FILE_READ_ATTRIBUTES, win32::FILE_SHARE_READ);
  hold(u"D:\\Target\\theirs.txt", win32::GENERIC_READ, 0);
  EXPECT_EQ(Redirect().exitCode, 0);
}

// Memory that runs out, say, anywhere from the move to the record.
TEST_F(FolderRedirectionTest, AnExceptionLosesNothingAndTheLogTellsWhereThingsAre) {
  const Disks disks = machine->Snapshot();
  int reached = 0;
  for (const std::u16string& place : {std::u16string(u"/loc:D:\\Target"), u"/vol:" + kVolume})
    for (const std::u16string way : {u"/c", u"/d"})
      for (const std::string_view call : {"DeleteFileW", "CreateDirectoryW", "RemoveDirectoryW", "DeviceIoControl",
                                          "MoveFileW", "RegCreateKeyExW", "RegDeleteKeyW"}) {
        Restart(disks);
        EXPECT_TRUE(way == u"/c" || Run({u"/RedirectFolder", u"C:\\Data", place}).exitCode == 0);
        bool thrown = false;
        machine->gate.Observe([&](const char* name, std::uint64_t) {
          if (name == call && !std::exchange(thrown, true)) throw std::bad_alloc();
        });
        const RunResult result = Run({u"/RedirectFolder", u"C:\\Data", place, way});
        machine->gate.Observe({});
        reached += thrown ? 1 : 0;
        const std::string when = std::string(call) + AnswerOf(result);
        ExpectNothingLost(when);
        EXPECT_TRUE(result.exitCode == (thrown ? 1 : 0) && !result.Logged(u" in .")) << when;
        const bool isHome = Contents(u"C:\\Data\\one.txt") == "first" &&
                            Contents(u"C:\\Data\\inner\\two.bin") == std::string(70000, 'x');
        EXPECT_TRUE(isHome || result.Logged(u"in D:\\Target\\Data") ||
                    result.Logged(u"in C:\\Data.mount, in C:\\Data, or partly in both."))
            << when;
      }
  EXPECT_GT(reached, 20);
}

}  // namespace
