// The copy of single items and of trees.
#include "fsops/backup_copy.h"
#include "fsops/copy_tree.h"
#include "fsops/security.h"
#include "links/junction.h"
#include "links/real_path.h"
#include "links/volume_paths.h"
#include "support/engine.h"
#include "support/shares.h"

namespace {

using namespace win32;
using test::Attributes, test::Contents, test::Describe, test::Exists, test::MakeFile, test::MakeFolder;

class BackupCopies : public test::Engine {
 protected:
  const std::u16string from = source + u"\\item";
  const std::u16string to = target + u"\\item";
};

TEST_F(BackupCopies, AFileKeepsStreamsTimesAndAttributes) {
  MakeFile(from, "main contents");
  MakeFile(from + u":notes", "in a stream");
  test::SetTimes(from, 7);
  ASSERT_TRUE(
      SetFileAttributesW(from.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
  const std::string before = Describe(from);
  ASSERT_EQ(BackupCopy(from, to), 1);
  EXPECT_EQ(Describe(to), before);
  EXPECT_EQ(Describe(from), before);
  EXPECT_EQ(Contents(to + u":notes"), "in a stream");
}

TEST_F(BackupCopies, EverySizeArrivesWhole) {
  for (const std::size_t size : {0u, 1u, 19u, 20u, 21u, 4096u, 0xFFFFFu, 0x100000u, 0x100001u, 0x250000u}) {
    std::string contents(size, '\0');
    for (std::size_t i = 0; i < size; ++i) contents[i] = static_cast<char>(i * 7 + i / 251);
    MakeFile(from, contents);
    ASSERT_EQ(BackupCopy(from, to), 1) << size;
    EXPECT_TRUE(Contents(to) == contents) << size;
    ASSERT_EQ(BackupCopyEx(from, to + u"ex"), 1) << size;
    EXPECT_TRUE(Contents(to + u"ex") == contents) << size;
  }
}

TEST_F(BackupCopies, AnExistingFileIsOverwrittenToItsEnd) {
  MakeFile(to, "an older and much longer text");
  MakeFile(from, "new");
  ASSERT_EQ(BackupCopy(from, to), 1);
  EXPECT_EQ(Contents(to), "new");
  MakeFile(from, "");
  ASSERT_EQ(BackupCopy(from, to), 1);
  EXPECT_EQ(Contents(to), "");
}

TEST_F(BackupCopies, AFolderKeepsItsSecurity) {
  MakeFolder(from);
  MakeFile(from + u":notes", "of the folder");
  test::SetSecurity(from, u"O:SYD:P(A;OICI;FA;;;BA)(A;;FR;;;WD)");
  test::SetTimes(from, 3);
  const std::string before = Describe(from);
  ASSERT_EQ(BackupCopy(from, to, {.isDirectory = true}), 1);
  EXPECT_EQ(Describe(to), before);
  EXPECT_EQ(test::Security(to), test::Security(from));
}

// If reads stopped at the end of each stream, the first would end the copy - too early, and that must show.
TEST_F(BackupCopies, ACopyThatEndsTooEarlyFails) {
  MakeFile(from, std::string(5000, 'x'));
  machine->backupReadStopsAtStreams = true;
  EXPECT_EQ(BackupCopy(from, to), 0);
}

TEST_F(BackupCopies, FailuresAreReported) {
  MakeFile(from, std::string(3'000'000, 'x'));
  for (const char* call : {"BackupRead", "BackupWrite"})
    for (const unsigned nth : {1u, 2u, 3u}) {
      machine->gate.FailCall(call, nth, ERROR_DISK_FULL);
      EXPECT_EQ(BackupCopy(from, to), 0) << call << nth;
      machine->gate.FailCall(call, nth, ERROR_DISK_FULL);
      EXPECT_EQ(BackupCopyEx(from, to), 0) << call << nth;
      machine->gate.ClearFailures();
    }
  EXPECT_NE(machine->debugOutput.find(u"#ERROR: BackupCopy: BackupWrite() failed for path = D:\\Target\\item"),
            std::u16string::npos);
}

TEST_F(BackupCopies, WhatCannotBeReadIsNotTakenForPlain) {
  MakeFile(from, "may be encrypted");
  machine->gate.FailCallsFrom("GetFileAttributesW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(BackupCopy(from, to), 0);
  machine->gate.ClearFailures();
  EXPECT_FALSE(Exists(to));
  // A junction that leads nowhere and cannot be opened counts as copied.
  const std::u16string junction = source + u"\\j";
  ASSERT_EQ(CreateJunction(junction.c_str(), u"C:\\nowhere"), 1);
  machine->gate.FailCall("CreateFileW", 1, ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(BackupCopy(junction, to, {.isDirectory = true}), 1);
  EXPECT_TRUE(Exists(to));
  std::vector<std::string> calls;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (std::string_view(name).starts_with("Backup")) calls.emplace_back(name);
  });
  EXPECT_EQ(BackupCopy(from, to + u"2"), 1);
  machine->gate.Observe({});
  ASSERT_GE(calls.size(), 4u);
  EXPECT_EQ(calls[calls.size() - 2] + " " + calls.back(), "BackupRead BackupWrite") << "the reading is given up first";
}

TEST_F(BackupCopies, LinksAreCarriedByteForByte) {
  ASSERT_EQ(CreateSymbolicLinkEntry(from.c_str(), u"C:\\nowhere"), 1);
  ASSERT_EQ(BackupCopy(from, to), 1);
  EXPECT_EQ(test::Streams(to), test::Streams(from));
  EXPECT_TRUE(Logged(u"BackupCopyEx : C:\\Data\\item is reparse point"));
}

TEST_F(BackupCopies, ParentTimesFollowUnlessItIsADriveRoot) {
  MakeFile(from, "x");
  test::SetTimes(source, 5);
  ASSERT_EQ(BackupCopy(from, to), 1);
  EXPECT_EQ(Describe(target), Describe(source));
  MakeFile(u"C:\\atroot", "x");
  const std::string before = Describe(target);
  ASSERT_EQ(BackupCopy(u"C:\\atroot", target + u"\\fromroot"), 1);
  EXPECT_EQ(CopyParentDirectoryTimes(u"nobackslash", u"D:\\x\\y"), 0);
}

class TreeCopies : public test::Engine {
 protected:
  int Copy(const CopyFlags& flags) {
    record = {};
    return CopyFiles(source, target, flags, record);
  }
  const CopyFlags moving{.useBackupCopy = true, .removeSourceLinks = true, .allowInheritance = true};
  CopyRecord record;
};

TEST_F(TreeCopies, WholeTreesArriveAsTheyAre) {
  MakeFolder(source + u"\\a");
  MakeFolder(source + u"\\a\\b");
  MakeFolder(source + u"\\empty");
  MakeFile(source + u"\\a\\b\\deep.txt", "deep", FILE_ATTRIBUTE_READONLY);
  MakeFile(source + u"\\a\\x.txt", "x", FILE_ATTRIBUTE_HIDDEN);
  MakeFile(source + u"\\a\\x.txt:s", "stream");
  for (const char16_t* item : {u"\\a\\b\\deep.txt", u"\\a\\x.txt", u"\\a\\b", u"\\a", u"\\empty", u""})
    test::SetTimes(source + item, static_cast<unsigned>(std::u16string_view(item).size()) + 1);
  const auto before = test::DescribeTree(source);
  ASSERT_EQ(Copy(moving), 1);
  EXPECT_EQ(test::DescribeTree(target), before);
  EXPECT_EQ(test::DescribeTree(source), before);
  EXPECT_NE(machine->console.find("C:\\Data\\a -> D:\\Target\\a\r\n"), std::string::npos);
}

TEST_F(TreeCopies, InheritedEntriesAreLeftOutButForEverySecond) {
  MakeFile(source + u"\\f", "x");
  test::SetSecurity(source + u"\\f", u"O:BAD:AI(A;;FA;;;BA)(A;ID;FA;;;SY)(A;ID;FR;;;WD)(A;ID;FR;;;BU)");
  ASSERT_EQ(CopyDacl(source + u"\\f", source, {}), 1);
  const std::u16string dacl = test::Dacl(source);
  EXPECT_NE(dacl.find(u"(A;;FA;;;BA)"), std::u16string::npos) << "explicit entries stay";
  EXPECT_EQ(dacl.find(u"SY)"), std::u16string::npos);
  EXPECT_NE(dacl.find(u"WD)"), std::u16string::npos) << "the entry behind a deleted one is not examined";
  EXPECT_EQ(dacl.find(u"BU)"), std::u16string::npos);
  EXPECT_NE(dacl.find(u"D:P"), std::u16string::npos);
}

TEST_F(TreeCopies, ASourceWithoutReadableDaclOpensTheTargetOfCopyDaclAlone) {
  MakeFile(source + u"\\f", "x");
  MakeFile(target + u"\\f", "x");
  machine->gate.FailCall("GetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  ASSERT_EQ(CopyDacl(source + u"\\f", target + u"\\f", {.allowInheritance = true}), 1);
  EXPECT_NE(test::Dacl(target + u"\\f").find(u"NO_ACCESS_CONTROL"), std::u16string::npos) << "a null DACL";
  // In a tree, such an item is not copied.
  ASSERT_TRUE(DeleteFileW((target + u"\\f").c_str()));
  machine->gate.FailCallsFrom("GetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Copy(moving), 0);
  machine->gate.ClearFailures();
  EXPECT_EQ(test::Dacl(target + u"\\f").find(u"NO_ACCESS_CONTROL"), std::u16string::npos);
  EXPECT_TRUE(Logged(u"#ERROR: Unable to read the access rights of C:\\Data\\f. Access is denied."));
}

TEST_F(TreeCopies, LinksInsideLeadIntoTheCopyAndLinksOutsideStay) {
  MakeFolder(source + u"\\real");
  MakeFile(source + u"\\real\\f.txt", "f");
  MakeFolder(u"C:\\Elsewhere");
  MakeFile(u"C:\\Elsewhere\\other.txt", "theirs");
  test::SetSecurity(u"C:\\Elsewhere", u"O:BAD:P(A;;FA;;;SY)(A;;FA;;;BA)");
  const std::u16string elsewhere = test::Security(u"C:\\Elsewhere");
  ASSERT_EQ(CreateJunction((source + u"\\in").c_str(), (source + u"\\real").c_str()), 1);
  ASSERT_EQ(CreateJunction((source + u"\\out").c_str(), u"C:\\Elsewhere"), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\file").c_str(), (source + u"\\real\\f.txt").c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\folder").c_str(), (source + u"\\real").c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\dangling").c_str(), u"C:\\nowhere"), 1);
  const std::string dangling = test::Streams(source + u"\\dangling");

  ASSERT_EQ(Copy(moving), 1);
  std::u16string text;
  EXPECT_EQ(GetJunctionTarget((target + u"\\in").c_str(), text), 1);
  EXPECT_EQ(text, target + u"\\real");
  EXPECT_EQ(GetJunctionTarget((target + u"\\out").c_str(), text), 1);
  EXPECT_EQ(text, u"C:\\Elsewhere");
  EXPECT_EQ(GetFinalTargetPath((target + u"\\file").c_str(), text), 1);
  EXPECT_EQ(text, target + u"\\real\\f.txt");
  EXPECT_EQ(IsSymbolicLink((target + u"\\folder").c_str()), 1);
  EXPECT_EQ(test::Streams(target + u"\\dangling"), dangling) << "carried, not lost";
  EXPECT_FALSE(Exists(target + u"\\out\\out")) << "not entered";
  EXPECT_EQ(IsJunction((source + u"\\out").c_str()), 0) << "taken off at the source";
  EXPECT_EQ(Contents(u"C:\\Elsewhere\\other.txt"), "theirs");
  EXPECT_EQ(test::Security(u"C:\\Elsewhere"), elsewhere);
}

TEST_F(TreeCopies, NothingIsWrittenThroughALinkAtTheTarget) {
  MakeFolder(u"D:\\Foreign");
  MakeFile(u"D:\\Foreign\\f.txt", "theirs");
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\f.txt", "mine");
  MakeFile(source + u"\\a.txt", "mine");
  MakeFile(target + u"\\a.txt", "theirs");
  ASSERT_EQ(CreateJunction((target + u"\\sub").c_str(), u"D:\\Foreign"), 1);
  EXPECT_EQ(Copy(moving), 0);
  EXPECT_EQ(Contents(u"D:\\Foreign\\f.txt"), "theirs");
  EXPECT_EQ(Contents(target + u"\\a.txt"), "theirs") << "what is in the way is looked for first";
  // A hard link leads elsewhere just as well.
  ASSERT_TRUE(DeleteJunction((target + u"\\sub").c_str()));
  ASSERT_TRUE(CreateHardLinkW((target + u"\\sub\\f.txt").c_str(), u"D:\\Foreign\\f.txt", nullptr));
  for (const bool backup : {true, false}) EXPECT_EQ(Copy({.useBackupCopy = backup, .allowInheritance = true}), 0);
  EXPECT_EQ(Contents(u"D:\\Foreign\\f.txt"), "theirs");
}

TEST_F(TreeCopies, ReadOnlyTargetsAreWrittenAndReadOnlyAgain) {
  MakeFile(source + u"\\f", "new");
  MakeFile(target + u"\\f", "old", FILE_ATTRIBUTE_READONLY);
  for (const bool backup : {true, false}) {
    ASSERT_EQ(Copy({.useBackupCopy = backup, .allowInheritance = true}), 1);
    EXPECT_EQ(Contents(target + u"\\f"), "new");
    EXPECT_EQ(Attributes(target + u"\\f"), FILE_ATTRIBUTE_READONLY);
  }
}

TEST_F(TreeCopies, GoingOnNeverOverwritesAndPassesFailedItems) {
  MakeFile(source + u"\\a", "a");
  MakeFile(source + u"\\b", "b");
  MakeFile(target + u"\\a", "kept");
  const auto held = HoldOpen(source + u"\\b", GENERIC_WRITE, FILE_SHARE_READ);
  MakeFile(source + u"\\c", "c");
  EXPECT_EQ(Copy({.useBackupCopy = true, .continueOnError = true, .allowInheritance = true}), 1);
  EXPECT_EQ(Contents(target + u"\\a"), "kept");
  EXPECT_EQ(Contents(target + u"\\c"), "c");
  EXPECT_EQ(Copy(moving), 0);
}

TEST_F(TreeCopies, WithoutBackupFilesKeepAttributesAndTimes) {
  MakeFolder(source + u"\\d");
  MakeFile(source + u"\\d\\f", "text", FILE_ATTRIBUTE_READONLY);
  test::SetTimes(source + u"\\d\\f", 4);
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), u"D:\\Other"), 1);
  ASSERT_EQ(Copy({.removeSourceLinks = true}), 1);
  EXPECT_EQ(Describe(target + u"\\d\\f"), Describe(source + u"\\d\\f"));
  std::u16string text;
  EXPECT_EQ(GetJunctionTarget((target + u"\\j").c_str(), text), 1);
  EXPECT_EQ(text, u"D:\\Other");
}

TEST_F(TreeCopies, LongPathsAreCopied) {
  std::u16string folder = u"\\\\?\\C:\\Data";
  for (int i = 0; i < 4; ++i) {
    folder += u"\\" + std::u16string(80, static_cast<char16_t>(u'a' + i));
    MakeFolder(folder);
  }
  MakeFile(folder + u"\\file.txt", "far down");
  MakeFile(u"\\\\?\\C:\\Data\\dot.", "a name that ends with a dot");
  MakeFile(u"C:\\Data\\dot", "its twin");
  ASSERT_EQ(Copy(moving), 1);
  EXPECT_EQ(Contents(u"\\\\?\\D:\\Target" + folder.substr(11) + u"\\file.txt"), "far down");
  EXPECT_EQ(Contents(u"\\\\?\\D:\\Target\\dot."), "a name that ends with a dot");
  EXPECT_EQ(Contents(u"D:\\Target\\dot"), "its twin");
}

using SharedTrees = TreeCopies;

TEST_F(SharedTrees, SharesFollowOrGoOrStay) {
  MakeFolder(source + u"\\pub");
  test::Share(u"public", u"c:\\data\\PUB");
  ASSERT_EQ(Copy({.useBackupCopy = true, .moveShares = true, .copyOnly = true, .allowInheritance = true}), 1);
  EXPECT_EQ(test::Shares()[u"public"], u"c:\\data\\PUB");
  ASSERT_EQ(Copy({.useBackupCopy = true, .moveShares = true, .allowInheritance = true}), 1);
  EXPECT_EQ(test::Shares()[u"public"], u"D:\\Target\\pub");
  test::Share(u"again", u"C:\\Data\\pub");
  ASSERT_EQ(Copy({.useBackupCopy = true, .allowInheritance = true}), 1);
  EXPECT_EQ(test::Shares()[u"again"], u"");
}

TEST(VolumePaths, AreConvertedBothWays) {
  const auto machine = test::InstalledMachine();
  std::u16string given = u"D:\\a\\b", volumePath, normalPath;
  ASSERT_EQ(NormalPathToVolumePath(given, volumePath), 1);
  EXPECT_TRUE(given.empty());
  EXPECT_TRUE(volumePath.starts_with(u"\\\\?\\Volume{") && volumePath.ends_with(u"}\\a\\b"));
  given = volumePath;
  ASSERT_EQ(VolumePathToNormalPath(given, normalPath), 1);
  EXPECT_EQ(normalPath, u"D:\\a\\b");
  for (std::u16string bad :
       {u"", u"nothing", u"\\\\?\\Volume{", u"\\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\"}) {
    EXPECT_EQ(VolumePathToNormalPath(bad, normalPath), 0);
    EXPECT_TRUE(bad.empty());
  }
}

}  // namespace
