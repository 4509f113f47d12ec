// A folder redirected onto a volume, and back, as an administrator sees it.
#include "program/redirections.h"

namespace {

using emulated::Utf8;
using namespace test;

const std::string kFolder = "Folder Redirection", kRemoval = "Folder Redirection Removal";
const std::string kStands = "\nThe target folder: \"MOUNT\" already exists.\n";
const std::string kMoved = Moved("C:\\Data", "MOUNT"), kUndone = Moved("MOUNT", "C:\\Data");
const std::string kNotMoved = NotCopied("C:\\Data", "MOUNT") +
                              "#ERROR: Unable to move files and folders from Source = C:\\Data to Target = MOUNT.\n";
// What is there while the folder is on the volume.
const std::string kAway =
    "changed: C:\\Data\n" + Items("gone: ", "C:\\Data") + "gone: mounts = \nchanged: root of the volume\n";
const std::string kRecord =
    "new: QUILLBAY\\Junctions\\1 Source = C:\\Data\nnew: QUILLBAY\\Junctions\\1 Target = VOLUME\\\n";
const std::string kRoot =
    "new: QUILLBAY\\VolumeRoots VOLUME\\ = "
    "O:BAG:SYD:AI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1301bf;;;AU)(A;OICI;0x1200a9;;;BU)\n";
const std::string kThere = kRoot + Items("new: ", "VOLUME") + "new: mounts = C:\\Data\\|\n";
const std::string kBack =
    "#INFO: The selected target folder MOUNT does not exist. Ignoring PathIsDirectory validation.\n#ERROR: Unable to "
    "get File Attributes for path = MOUNTThe system cannot find the file specified.\n\n#INFO: Target MOUNT doesn't "
    "exists so checking free space using parent directory C:\n";
const std::string kNotRenamed = "#ERROR: Unable to rename folder MOUNT. Access is denied.\n\n";

class FolderOnVolume : public OneFolder {
 protected:
  FolderOnVolume() : OneFolder(u"/vol:" + kVolume) {}
  void Refused(const std::u16string& source, const std::string& log, const std::u16string& way = u"/c") {
    ExpectRefused(u"/RedirectFolder", {{source, kVolume, log}}, way, u"/vol:");
  }
};

TEST_F(FolderOnVolume, GoesThereAndBackWithEverything) {
  MakeFolder(u"C:\\Data\\closed");
  SetSecurity(u"C:\\Data\\closed", u"O:BAD:P(A;OICI;FA;;;BA)");
  MakeFolder(u"C:\\Elsewhere");
  MakeFile(u"C:\\Elsewhere\\there.txt", "there");
  ASSERT_TRUE(CreateJunction(u"C:\\Data\\out", u"C:\\Elsewhere"));
  ASSERT_TRUE(CreateJunction(u"C:\\Data\\in", u"C:\\Data\\inner"));
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\link.txt", u"C:\\Data\\one.txt", {.forceFileLink = true}));
  ASSERT_TRUE(win32::SetFileAttributesW(kVolume.c_str(), win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM));
  const State before = Now();
  const std::u16string access = Access(u"C:\\Data");
  const win32::DWORD attributes = Attributes(u"C:\\Data");
  EXPECT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(Differences(Below(before, "C:\\Data"), Below(Now(), Utf8(kVolume.substr(0, kVolume.size() - 1)))),
            "gone: \nnew: \\$RECYCLE.BIN\n");
  EXPECT_EQ(Attributes(u"C:\\Data"), attributes | win32::FILE_ATTRIBUTE_REPARSE_POINT) << "not the root's";
  EXPECT_EQ(Access(kVolume), access) << "what users see of the folder";
  EXPECT_EQ(Contents(u"C:\\Data\\out\\there.txt"), "there");
  Refused(u"C:\\Data", "#ERROR: The folder C:\\Data is already redirected.");
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ChangesSince(before), "");
}

TEST_F(FolderOnVolume, SurvivesARestartAndIsRemovedByAnyNameOfTheVolume) {
  const State before = Now();
  const std::u16string bare = u"/vol:" + kVolume.substr(0, kVolume.size() - 1);
  for (const auto& [source, target] :
       {std::pair(std::u16string(u"C:\\Data"), bare), {u"C:\\Data", u"/loc:C:\\Data"}, {kVolume, to}}) {
    EXPECT_EQ(AnswerOf(Redirect()), Succeeded(kFolder, "", kStands + kMoved));
    EXPECT_EQ(ChangesSince(before), kAway + kRecord + kThere);
    machine = BootFrom(machine->Snapshot());
    EXPECT_EQ(AnswerTo({u"/RedirectFolder", source, target, u"/d"}), Succeeded(kRemoval, kBack, kMoved));
    EXPECT_EQ(ChangesSince(before), "");
  }
}

TEST_F(FolderOnVolume, SymbolicLinksKeepTheirTextWhateverLetterTheVolumeHas) {
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\link.txt", u"C:\\Data\\one.txt", {.forceFileLink = true}));
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\near.txt", u"one.txt", {.forceFileLink = true}));
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\folder", u"C:\\Data\\inner"));
  timesOfFolders = false;
  const std::u16string root = Access(kVolume);
  const State before = Now();
  for (const std::u16string permissions : {u"/NTFS", u"/-NTFS"}) {
    ASSERT_EQ(Redirect(permissions).exitCode, 0);
    EXPECT_EQ(Access(kVolume) == root, permissions == u"/-NTFS");
    EXPECT_EQ(Streams(u"C:\\Data\\link.txt").find("F:"), std::string::npos);
    ASSERT_TRUE(win32::SetVolumeMountPointW(u"F:\\", kVolume.c_str()));
    ASSERT_EQ(Remove().exitCode, 0);
    ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"F:\\"));
    EXPECT_EQ(ChangesSince(before), permissions == u"/NTFS" ? "" : "changed: C:\\Data\\one.txt\n");
  }
}

// It is recorded, so nothing is tried out on the volume; mounted again, it can be removed.
TEST_F(FolderOnVolume, AVolumeThatWasUnmountedByHandIsLeftAlone) {
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\Data\\"));
  MakeFile(kVolume + u"temp.check", "theirs");
  Refused(u"C:\\Data", "#ERROR: Junction already exists for Source = C:\\Data and Target = VOLUME\\.\n");
  Refused(u"C:\\Data", "#ERROR: Volume Path to Normal Path Conversion Failed.\n", u"/d");
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Data\\", kVolume.c_str()));
  EXPECT_EQ(Remove().exitCode, 0);
  ExpectNothingLost("");
}

TEST_F(FolderOnVolume, InheritedAccessIsNoWiderOnTheVolumeAndFollowsTheFolderAgainAfterwards) {
  MakeFolder(u"C:\\Closed");
  SetSecurity(u"C:\\Closed", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
  MakeFolder(u"C:\\Closed\\Data");
  MakeFile(u"C:\\Closed\\Data\\secret.txt", "secret");
  const State before = Now();
  const std::u16string secret = Access(u"C:\\Closed\\Data\\secret.txt"), all = u"(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)";
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Closed\\Data", to}).exitCode, 0);
  EXPECT_EQ(Access(u"C:\\Closed\\Data\\secret.txt"), secret);
  EXPECT_EQ(Access(kVolume), u"O:BA" + all);
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Closed\\Data", to, u"/d"}).exitCode, 0);
  EXPECT_EQ(ChangesSince(before), "");
  // What was changed meanwhile stays.
  ASSERT_EQ(Redirect().exitCode, 0);
  SetSecurity(kVolume, u"O:BAD:P" + all);
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ChangesSince(before), "changed: C:\\Data\nchanged: C:\\Data\\inner\nchanged: C:\\Data\\inner\\two.bin\n");
  EXPECT_EQ(Access(u"C:\\Data"), u"O:BA" + all);
}

TEST_F(FolderOnVolume, WhatIsOnTheVolumeAppearsInTheFolder) {
  MakeFile(kVolume + u"theirs.txt", "theirs");
  MakeFile(kVolume + u"one.txt", "older");
  MakeFile(kVolume + u"$RECYCLE.BIN\\bin.txt", "thrown away");
  const State before = Now();
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(Contents(u"C:\\Data\\theirs.txt"), "theirs");
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first") << "as in a folder that stands there";
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ChangesSince(before), "gone: VOLUME\\one.txt\ngone: VOLUME\\theirs.txt\nnew: C:\\Data\\theirs.txt\n");
}

TEST_F(FolderOnVolume, IsRefused) {
  const std::u16string longest = u"C:\\" + std::u16string(246 - 6 - 3, u'd');  // with ".mount" 246
  for (const std::u16string& folder : {longest, longest + u"d", std::u16string(u"D:\\Mounted")}) MakeFolder(folder);
  Refused(kVolume, "#ERROR: Source Folder can not be Volume path.\n");
  Refused(longest + u"d", "d.mount exceeds the system-defined maximum length of 248 characters.");
  Refused(u"C:\\Data", "#ERROR: Volume Path to Normal Path Conversion Failed.\n", u"/d");
  ASSERT_TRUE(MountVolume(u"D:\\Mounted", kVolume));
  Refused(u"C:\\Data", "#ERROR: The selected volume VOLUME\\ already mounted.\n");
  Refused(u"D:\\Mounted", "#ERROR: Junction doesn't exists for Source = D:\\Mounted and Target = VOLUME\\.\n", u"/d");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"D:\\Mounted\\"));
  EXPECT_EQ(Run({u"/RedirectFolder", longest, to}).exitCode, 0);
}

TEST_F(FolderOnVolume, WhatNamesItsFoldersStaysUnlessSharesAreNotWanted) {
  MakeFolder(u"D:\\Other");
  Redirections::Redirect(u"C:\\Data\\inner", u"D:\\Other");
  Share(u"data", u"C:\\Data");
  Share(u"inner", u"C:\\Data\\inner");
  const auto both = Shares();
  const auto record = *AllRecords().begin();
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(Shares(), both);
  EXPECT_EQ(*AllRecords().begin(), record);
  ExpectNothingLost("");
  ASSERT_EQ(Remove().exitCode, 0);
  Redirections::Remove(u"C:\\Data\\inner", u"D:\\Other");
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Redirect(u"/-Share").exitCode, 1);
  EXPECT_EQ(Shares(), both) << "taken back";
  ASSERT_EQ(Redirect(u"/-Share").exitCode, 0);
  EXPECT_TRUE(Shares().empty());
}

// A folder of the mount folder's name is used when it is empty, and never changed or taken.
TEST_F(FolderOnVolume, TakesNobodysFolder) {
  MakeFolder(u"C:\\Data.mount");
  MakeFile(u"C:\\Data.mount\\mine.txt", "mine");
  Refused(u"C:\\Data", "#ERROR: Failed to Mount Volume on Target Folder: MOUNT\n");
  ASSERT_TRUE(win32::DeleteFileW(u"C:\\Data.mount\\mine.txt"));
  SetTimes(u"C:\\Data.mount", 5);
  ASSERT_TRUE(win32::DeleteFileW(u"C:\\Data:label"));  // no stream may be left in it
  const State before = Now();
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Redirect().exitCode, 1);
  EXPECT_EQ(ChangesSince(before), "");
  EXPECT_EQ(AnswerOf(Redirect()), Succeeded(kFolder, "", kStands + kMoved));

  // A removal that failed and was taken back leaves nothing that would make it the program's own.
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Remove().exitCode, 1);
  MakeFolder(u"C:\\Data.mount");
  MakeFile(u"C:\\Data.mount\\one.txt", "mine");
  Refused(u"C:\\Data",
          "#ERROR: The folder MOUNT already exists and is not empty. Rename it, and remove the redirection again.\n",
          u"/d");
  ASSERT_TRUE(win32::DeleteFileW(u"C:\\Data.mount\\one.txt"));
  EXPECT_EQ(AnswerOf(Remove()), Succeeded(kRemoval, "", kStands + kMoved)) << "an empty one becomes the folder";
  EXPECT_FALSE(IsLink(u"C:\\Data"));
  ExpectNothingLost("");
}

TEST_F(FolderOnVolume, AFailureIsTakenBackOrToldOf) {
  const std::string notRecorded =
      "#ERROR: Unable to add Junction Point to Registry for Source = C:\\Data and Target = MOUNT.\n";
  const std::string there = kStands + kMoved, undone = there + kUndone;
  ExpectFailures(
      {u"/RedirectFolder", u"C:\\Data", to}, kFolder, "",
      {
          {"SHCreateDirectoryExW 1", "#ERROR: Failed To Create Target Folder: MOUNT\n"},
          {"SetVolumeMountPointW 1", "#ERROR: Failed to Mount Volume on Target Folder: MOUNT\n"},
          {"GetFileInformationByHandle 2", kNotMoved, "", kStands + "C:\\Data\\inner -> MOUNT\\inner\n"},
          {"RemoveDirectoryW 2", "#ERROR: Unable to remove folder C:\\Data. Access is denied.\n\n", "", undone},
          {"RegCreateKeyExW 2", notRecorded, "", undone},
          {"RegCreateKeyExW 2, MoveFileW 2",
           notRecorded + "#ERROR: Unable to rename folder C:\\Data. Access is denied.\n\n#ERROR: The files and folders "
                         "stay on volume VOLUME\\, which is mounted at C:\\Data.\n",
           kAway + kThere, there},
          {"MoveFileW 1", kNotRenamed, "", undone},
          {"MoveFileW 1, GetFileInformationByHandle 5", kNotRenamed + NotMovedBack("MOUNT") + "on volume VOLUME\\.\n",
           "gone: C:\\Data\\inner\\two.bin\nnew: VOLUME\\inner\nnew: VOLUME\\inner\\two.bin\n", undone},
      });
}

TEST_F(FolderOnVolume, AFailedRemovalIsTakenBackOrToldOf) {
  ASSERT_EQ(Redirect().exitCode, 0);
  const std::string noRecord =
      "gone: QUILLBAY\\Junctions\\1 Source = C:\\Data\ngone: QUILLBAY\\Junctions\\1 Target = VOLUME\\\n";
  const std::string undone = kMoved + kUndone, of = "for Source = C:\\Data and Target = VOLUME\\.\n";
  const std::string remembered = "new: QUILLBAY\\VolumeRemovals MOUNT = VOLUME\\\n";
  ExpectFailures(
      {u"/RedirectFolder", u"C:\\Data", to, u"/d"}, kRemoval, kBack,
      {
          {"GetFileInformationByHandle 2", kNotMoved, "", "C:\\Data\\inner -> MOUNT\\inner\n"},
          {"RegDeleteKeyW 1", "#ERROR: Unable to remove Junction Point from Registry " + of, "", undone},
          {"DeleteVolumeMountPointW 1",
           "#ERROR: Unable to unmount the volume from folder C:\\Data. Access is denied.\n\n", "", undone},
          {"MoveFileW 1, SetVolumeMountPointW 1",
           kNotRenamed +
               "#ERROR: Unable to mount volume VOLUME\\ on folder C:\\Data. The files and folders stay in MOUNT.\n",
           "changed: C:\\Data\n" + noRecord + Items("gone: ", "VOLUME") + "gone: mounts = C:\\Data\\|\nnew: MOUNT\n" +
               Items("new: ", "MOUNT") + remembered + "new: mounts = \n",
           kMoved},
          {"MoveFileW 1, RegCreateKeyExW 2", kNotRenamed + "#ERROR: Unable to add Junction Point to Registry " + of,
           noRecord, undone},
          {"MoveFileW 1, GetFileInformationByHandle 5", kNotRenamed + NotMovedBack("MOUNT") + "in MOUNT.\n",
           "gone: VOLUME\\inner\\two.bin\nnew: MOUNT\nnew: MOUNT\\inner\nnew: MOUNT\\inner\\two.bin\n" + remembered,
           undone},
      });
}

TEST_F(FolderOnVolume, EveryCallMayFail) {
  RefuseEachCall({u"/RedirectFolder", u"C:\\Data", to},
                 {{"new: VOLUME\\temp.check\n", u"was successful."},  // the rules' probe
                  {"changed: VOLUME\\inner\\two.bin\n", u"was successful."},
                  {"changed: VOLUME\\one.txt\n", u"was successful."}});  // attributes are not worth the whole move
  ASSERT_EQ(Redirect().exitCode, 0);
  RefuseEachCall({u"/RedirectFolder", u"C:\\Data", to, u"/d"},
                 {{"changed: C:\\Data\\inner\\two.bin\n", u"was successful."},
                  {"changed: C:\\Data\\one.txt\n", u"was successful."},
                  {"new: QUILLBAY\\VolumeRemovals MOUNT = VOLUME\\\n", u"#INFO: Unable to remove the note that folder"},
                  {"changed: root of the volume\n" + kRoot, u"#INFO: Unable to restore the security of volume"},
                  {kRoot, u"#INFO: Unable to remove what is remembered of the security of volume"}});
}

}  // namespace
