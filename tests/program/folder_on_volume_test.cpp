// A folder redirected onto a volume, and back, as an administrator sees it.
#include "program/folder_on_volume.h"
#include "support/shares.h"

#include <set>

#include "links/junction.h"
#include "links/mounted_folder.h"
#include "probes/privileges.h"

namespace {

using namespace std::string_literals;
using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram;

TEST_F(FolderOnVolume, GoesThereAndBackWithEverything) {
  MakeFolder(u"C:\\Data\\closed");
  test::SetSecurity(u"C:\\Data\\closed", u"O:BAD:P(A;OICI;FA;;;BA)");
  MakeFolder(u"C:\\Elsewhere");
  MakeFile(u"C:\\Elsewhere\\there.txt", "there");
  ASSERT_TRUE(EnablePrivileges());
  ASSERT_TRUE(CreateJunction(u"C:\\Data\\out", u"C:\\Elsewhere"));
  ASSERT_TRUE(CreateJunction(u"C:\\Data\\in", u"C:\\Data\\inner"));
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\link.txt", u"C:\\Data\\one.txt", {.forceFileLink = true}));
  const std::u16string deep = u"\\\\?\\C:\\Data\\" + std::u16string(120, u'a');
  MakeFolder(deep);
  MakeFolder(deep + u"\\" + std::u16string(120, u'b'));
  const std::u16string file = deep + u"\\" + std::u16string(120, u'b') + u"\\" + std::u16string(120, u'c');
  MakeFile(file, "deep");
  test::SetTimes(u"C:\\Data\\inner", 9);
  test::SetTimes(u"C:\\Data", 7);
  ASSERT_TRUE(win32::SetFileAttributesW(kVolume.c_str(), win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM));
  const auto before = Shown();
  const auto access = AccessOfAll();
  const std::string folder = test::Describe(u"C:\\Data");
  const win32::DWORD attributes = test::Attributes(u"C:\\Data");

  const auto run = Redirect();
  EXPECT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(run.Said(u"\nThe target folder: \"C:\\Data.mount\" already exists.\n")) << Utf8(run.said);
  EXPECT_TRUE(run.said.ends_with(u"Folder Redirection was successful."));
  EXPECT_TRUE(run.log.ends_with(u"Folder Redirection was successful."));
  ExpectRedirected();
  EXPECT_EQ(test::Attributes(u"C:\\Data"), attributes | win32::FILE_ATTRIBUTE_REPARSE_POINT) << "not the root's";
  EXPECT_EQ(Record(u"Source"), u"C:\\Data");
  EXPECT_EQ(Record(u"Target"), kVolume);
  std::u16string mounted;
  EXPECT_TRUE(GetJunctionTarget(u"C:\\Data", mounted));
  EXPECT_EQ(mounted + u"\\", kVolume.substr(4));
  EXPECT_EQ(Contents(kVolume + u"one.txt:note"), "a named stream");
  EXPECT_EQ(Shown(), before);
  EXPECT_EQ(AccessOfAll(), access);
  EXPECT_EQ(Access(kVolume), access.at(u"")) << "what users see of the folder";
  EXPECT_EQ(Contents(u"C:\\Data\\out\\there.txt"), "there");
  EXPECT_EQ(Contents(file), "deep");
  ExpectFailure(Redirect(), u"#ERROR: The folder C:\\Data is already redirected. Browse to a different location.");

  const auto back = Remove();
  EXPECT_EQ(back.exitCode, 0) << Utf8(back.log);
  EXPECT_TRUE(back.said.ends_with(u"Folder Redirection Removal was successful."));
  EXPECT_TRUE(back.log.ends_with(u"Folder Redirection Removal was successful."));
  ExpectPlain();
  EXPECT_EQ(Shown(), before);
  EXPECT_EQ(test::Describe(u"C:\\Data"), folder);
  EXPECT_EQ(test::Attributes(u"C:\\Data"), attributes);
  EXPECT_EQ(AccessOfAll(), access);
  EXPECT_EQ(Contents(file), "deep");
  EXPECT_EQ(test::Names(kVolume.substr(0, kVolume.size() - 1)), (std::vector<std::u16string>{u"\\$RECYCLE.BIN"}));
}

TEST_F(FolderOnVolume, SurvivesARestartAndIsRemovedByAnyNameOfTheVolume) {
  for (const std::u16string& target :
       {u"/vol:" + kVolume.substr(0, kVolume.size() - 1), u"/vol:" + kVolume, std::u16string(u"/loc:C:\\Data")}) {
    const auto before = Shown();
    ASSERT_EQ(Redirect().exitCode, 0);
    machine = test::BootFrom(machine->Snapshot());
    ExpectRedirected();
    const auto run = RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", target, u"/d"});
    EXPECT_EQ(run.exitCode, 0) << Utf8(target) << Utf8(run.log);
    ExpectPlain();
    EXPECT_EQ(Shown(), before);
  }
  EXPECT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(Onto(kVolume, u"/d").exitCode, 0);
  ExpectPlain();
}

TEST_F(FolderOnVolume, SymbolicLinksKeepTheirTextWhateverLetterTheVolumeHas) {
  ASSERT_TRUE(EnablePrivileges());
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\link.txt", u"C:\\Data\\one.txt", {.forceFileLink = true}));
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\near.txt", u"one.txt", {.forceFileLink = true}));
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\folder", u"C:\\Data\\inner"));
  const auto before = Shown();
  for (const auto* const permissions : {u"/NTFS", u"/-NTFS"}) {
    ASSERT_EQ(Onto(u"C:\\Data", permissions).exitCode, 0);
    EXPECT_EQ(test::Streams(u"C:\\Data\\link.txt").find("F:"), std::string::npos);
    ASSERT_TRUE(win32::SetVolumeMountPointW(u"F:\\", kVolume.c_str()));
    const auto run = Remove();
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    for (const std::u16string& link : {u"\\link.txt"s, u"\\near.txt"s, u"\\folder"s})
      EXPECT_EQ(Shown()[link], before.at(link)) << Utf8(link);
    EXPECT_EQ(Contents(u"C:\\Data\\link.txt"), "first");
    ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"F:\\"));
  }
}

TEST_F(FolderOnVolume, TheNameStaysAsItIsOnTheDisk) {
  const auto name = [] {
    win32::WIN32_FIND_DATAW found{};
    const win32::UniqueFind find{win32::FindFirstFileW(u"C:\\Data", &found)};
    return std::u16string(found.cFileName);
  };
  ASSERT_EQ(Onto(u"c:\\DATA").exitCode, 0);
  EXPECT_EQ(Utf8(name()), "Data");
  EXPECT_EQ(Record(u"Source"), u"C:\\Data");
  ASSERT_EQ(Onto(u"c:\\data", u"/d").exitCode, 0);
  EXPECT_EQ(Utf8(name()), "Data");
  machine->gate.FailCall("RegCreateKeyExW", 2, win32::ERROR_ACCESS_DENIED);  // the record: the folder is made again
  EXPECT_EQ(Onto(u"c:\\DATA").exitCode, 1);
  EXPECT_EQ(Utf8(name()), "Data");
  ExpectPlain();
}

// It is recorded, so nothing is tried out on the volume; mounted again, it can be removed.
TEST_F(FolderOnVolume, AVolumeThatWasUnmountedByHandIsLeftAlone) {
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\Data\\"));
  bool probed = false;
  MakeFile(kVolume + u"temp.check", "theirs");
  machine->gate.Observe(
      [&](const char* name, std::uint64_t) { probed |= std::string_view(name) == "FindFirstVolumeW"; });
  ExpectFailure(Redirect(), u"#ERROR: Junction already exists for Source = C:\\Data and Target = " + kVolume + u".");
  machine->gate.Observe({});
  EXPECT_FALSE(probed);
  EXPECT_EQ(Contents(kVolume + u"temp.check"), "theirs");
  EXPECT_TRUE(Remove().Logged(u"#ERROR: Volume Path to Normal Path Conversion Failed."));
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Data\\", kVolume.c_str()));
  EXPECT_EQ(Remove().exitCode, 0);
  ExpectPlain();
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
}

TEST_F(FolderOnVolume, InheritedAccessIsNoWiderOnTheVolumeAndFollowsTheFolderAgainAfterwards) {
  MakeFolder(u"C:\\Closed");
  test::SetSecurity(u"C:\\Closed", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
  MakeFolder(u"C:\\Closed\\Data");
  MakeFile(u"C:\\Closed\\Data\\secret.txt", "secret");
  const std::u16string folder = test::Security(u"C:\\Closed\\Data");
  const std::u16string secret = Access(u"C:\\Closed\\Data\\secret.txt");
  ASSERT_EQ(Onto(u"C:\\Closed\\Data").exitCode, 0);
  EXPECT_EQ(Access(u"C:\\Closed\\Data\\secret.txt"), secret);
  EXPECT_EQ(Access(kVolume), u"O:BA(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
  ASSERT_EQ(Onto(u"C:\\Closed\\Data", u"/d").exitCode, 0);
  EXPECT_EQ(test::Security(u"C:\\Closed\\Data"), folder) << "with the marks of inheritance";
  EXPECT_EQ(Access(u"C:\\Closed\\Data\\secret.txt"), secret);
  EXPECT_EQ(Access(kVolume), rootAccess);
}

TEST_F(FolderOnVolume, AccessThatWasChangedMeanwhileStays) {
  ASSERT_EQ(Redirect().exitCode, 0);
  test::SetSecurity(kVolume, u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
  ASSERT_EQ(Remove().exitCode, 0);
  ExpectPlain();
  EXPECT_TRUE(test::Dacl(u"C:\\Data").ends_with(u"(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)")) << Utf8(test::Dacl(u"C:\\Data"));
}

TEST_F(FolderOnVolume, WithoutPermissionsTheRootKeepsItsOwn) {
  const std::u16string folder = Access(u"C:\\Data");
  const auto run = Onto(u"C:\\Data", u"/-NTFS");
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(Access(kVolume), rootAccess);
  ASSERT_EQ(Remove().exitCode, 0);
  ExpectPlain();
  EXPECT_EQ(Access(u"C:\\Data"), folder);
  EXPECT_EQ(Contents(u"C:\\Data:label"), "of the folder");
  EXPECT_EQ(Contents(u"C:\\Data\\inner\\two.bin"), std::string(70000, 'x'));
}

TEST_F(FolderOnVolume, WhatIsOnTheVolumeAppearsInTheFolder) {
  MakeFile(kVolume + u"theirs.txt", "theirs");
  MakeFile(kVolume + u"one.txt", "older");
  MakeFile(kVolume + u"$RECYCLE.BIN\\bin.txt", "thrown away");
  const std::u16string theirs = Access(kVolume + u"theirs.txt");
  const auto run = Redirect();
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(Contents(u"C:\\Data\\theirs.txt"), "theirs");
  EXPECT_EQ(Access(u"C:\\Data\\theirs.txt"), theirs);
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first") << "as in a folder that stands there";
  const auto back = Remove();
  ASSERT_EQ(back.exitCode, 0) << Utf8(back.log);
  ExpectPlain();
  EXPECT_EQ(Contents(u"C:\\Data\\theirs.txt"), "theirs");
  EXPECT_EQ(Contents(kVolume + u"$RECYCLE.BIN\\bin.txt"), "thrown away");
  EXPECT_FALSE(Exists(u"C:\\Data\\$RECYCLE.BIN"));
  EXPECT_FALSE(Exists(kVolume + u"theirs.txt"));
}

TEST_F(FolderOnVolume, RefusesBeforeAnythingChanges) {
  const auto refused = [&](const std::u16string& source, const std::u16string& volume, const std::u16string& logged) {
    ExpectFailure(RunProgram(*machine, {u"/RedirectFolder", source, u"/vol:" + volume}), logged);
    ExpectPlain(Utf8(source + u" " + volume));
  };
  refused(kVolume, kVolume, u"#ERROR: Source Folder can not be Volume path.");
  const std::u16string unknown = u"\\\\?\\Volume{99999999-0000-4000-8000-000000000000}\\";
  refused(u"C:\\Data", unknown, u"#ERROR: The selected volume " + unknown + u" does not exist.");
  refused(u"C:\\No", kVolume, u"#ERROR: The selected folder C:\\No does not exist.");
  refused(u"C:\\Data\\inner\\..", kVolume, u"is a relative path.");
  // With ".mount" 247 characters and 246.
  const std::u16string longest = u"C:\\" + std::u16string(246 - 6 - 3, u'd');
  MakeFolder(longest + u"d");
  refused(longest + u"d", kVolume, u"exceeds the system-defined maximum length of 248 characters.");
  MakeFolder(longest);
  EXPECT_EQ(Onto(longest).exitCode, 0);
  EXPECT_EQ(Onto(longest, u"/d").exitCode, 0);
  const auto notRemoved = [&](const std::u16string& source, const std::u16string& logged) {
    const auto run = Onto(source, u"/d");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, kLogged + u"\nFolder Redirection Removal was not successful.");
    EXPECT_TRUE(run.Logged(logged)) << Utf8(run.log);
  };
  notRemoved(u"C:\\Data", u"#ERROR: Volume Path to Normal Path Conversion Failed.");
  MakeFolder(u"D:\\Mounted");
  ASSERT_TRUE(MountVolume(u"D:\\Mounted", kVolume));
  ExpectFailure(Redirect(), u"#ERROR: The selected volume " + kVolume + u" already mounted.");
  notRemoved(u"D:\\Mounted",
             u"#ERROR: Junction doesn't exists for Source = D:\\Mounted and Target = " + kVolume + u".");
  EXPECT_EQ(MountPaths(), u"D:\\Mounted\\|");
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
}

TEST_F(FolderOnVolume, NestedRedirectionsKeepWorking) {
  MakeFolder(u"D:\\Other");
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data\\inner", u"/loc:D:\\Other"}).exitCode, 0);
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(Record(u"Source"), u"C:\\Data\\inner");
  EXPECT_EQ(Contents(u"C:\\Data\\inner\\two.bin"), std::string(70000, 'x'));
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Contents(u"C:\\Data\\inner\\two.bin"), std::string(70000, 'x'));
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data\\inner", u"/loc:D:\\Other", u"/d"}).exitCode, 0);
  ExpectPlain();
  EXPECT_EQ(Contents(u"C:\\Data\\inner\\two.bin"), std::string(70000, 'x'));
}

TEST_F(FolderOnVolume, SharesStayUnlessTheyAreNotWanted) {
  test::Share(u"data", u"C:\\Data");
  test::Share(u"inner", u"C:\\Data\\inner");
  const auto both = test::Shares();
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(test::Shares(), both);
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(test::Shares(), both);
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Onto(u"C:\\Data", u"/-Share").exitCode, 1);
  EXPECT_EQ(test::Shares(), both) << "taken back";
  ASSERT_EQ(Onto(u"C:\\Data", u"/-Share").exitCode, 0);
  EXPECT_TRUE(test::Shares().empty());
}

}  // namespace
