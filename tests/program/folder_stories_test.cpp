// Days in the life of a workstation: several redirections that touch each other, and folders that are shared.
#include "program/redirections.h"

namespace {

using emulated::Utf8;
using test::Answer, test::Contents, test::Exists, test::Failed, test::Redirections, test::MakeFile, test::MakeFolder,
    test::Records, test::RunResult;

// A folder in a folder in a folder, each of which can be redirected; the innermost one has a place of its own on D:,
// the middle one on E:, the outermost one on D: again.
class Nested : public Redirections {
 protected:
  Nested() {
    for (const auto* folder : {u"C:\\Work", u"C:\\Work\\Team", u"C:\\Work\\Team\\Plans", u"D:\\Plans here",
                               u"D:\\Work here", u"E:\\Team here"})
      MakeFolder(folder);
    MakeFile(u"C:\\Work\\w.txt", "work");
    MakeFile(u"C:\\Work\\Team\\t.txt", "team");
    MakeFile(u"C:\\Work\\Team\\Plans\\p.txt", "plans");
    timesOfFolders = false;  // writing through the folders leaves its mark on them
    before = Now();
  }
  void RedirectInnermost() { Redirect(u"C:\\Work\\Team\\Plans", u"D:\\Plans here"); }
  void RedirectMiddle() { Redirect(u"C:\\Work\\Team", u"E:\\Team here"); }
  void RedirectOutermost() { Redirect(u"C:\\Work", u"D:\\Work here"); }
  void RedirectAll() {
    RedirectInnermost();
    RedirectMiddle();
    RedirectOutermost();
  }

  // Whatever has been redirected: users find every file under the name that it always had, and may write there.
  void ExpectUsersNoticeNothing() {
    EXPECT_EQ(Contents(u"C:\\Work\\w.txt"), "work");
    EXPECT_EQ(Contents(u"C:\\Work\\Team\\t.txt"), "team");
    EXPECT_EQ(Contents(u"C:\\Work\\Team\\Plans\\p.txt"), "plans");
    MakeFile(u"C:\\Work\\Team\\Plans\\written.txt", "through all of them");
    EXPECT_EQ(Contents(u"C:\\Work\\Team\\Plans\\written.txt"), "through all of them");
    ASSERT_TRUE(win32::DeleteFileW(u"C:\\Work\\Team\\Plans\\written.txt"));
  }
  void ExpectAllAsBefore(const std::string& but = {}) { EXPECT_EQ(ChangesSince(before), but); }
  // Attributes and times of a junction itself.
  static std::string JunctionFacts(const std::u16string& path) {
    const std::string described = test::Describe(path);
    return described.substr(0, described.find(" holds "));
  }
  State before;
};

// The records name the folders where they are now; the list shows these names, and they are what the removal takes.
TEST_F(Nested, EachMayBeTakenBackFirst) {
  const std::u16string plans = u"D:\\Plans here\\Plans", team = u"E:\\Team here\\Team", work = u"D:\\Work here\\Work";
  struct Step {
    std::u16string folder, location;
    Records left;
  };
  const std::vector<Step> orders[] = {
      {{u"C:\\Work", u"D:\\Work here", {{u"1", {team + u"\\Plans", plans}}, {u"2", {u"C:\\Work\\Team", team}}}},
       {u"C:\\Work\\Team", u"E:\\Team here", {{u"1", {u"C:\\Work\\Team\\Plans", plans}}}},
       {u"C:\\Work\\Team\\Plans", u"D:\\Plans here", {}}},
      {{team + u"\\Plans", u"D:\\Plans here", {{u"2", {work + u"\\Team", team}}, {u"3", {u"C:\\Work", work}}}},
       {work + u"\\Team", u"E:\\Team here", {{u"3", {u"C:\\Work", work}}}},
       {u"C:\\Work", u"D:\\Work here", {}}},
      {{work + u"\\Team", u"E:\\Team here", {{u"1", {work + u"\\Team\\Plans", plans}}, {u"3", {u"C:\\Work", work}}}},
       {u"C:\\Work", u"D:\\Work here", {{u"1", {u"C:\\Work\\Team\\Plans", plans}}}},
       {u"C:\\Work\\Team\\Plans", u"D:\\Plans here", {}}}};
  for (const auto& order : orders) {
    RedirectAll();
    EXPECT_EQ(
        AllRecords(),
        (Records{{u"1", {team + u"\\Plans", plans}}, {u"2", {work + u"\\Team", team}}, {u"3", {u"C:\\Work", work}}}));
    ExpectUsersNoticeNothing();
    EXPECT_EQ(
        AnswerTo({u"/RedirectFolder", u"C:\\Work\\Team\\Plans", u"/loc:D:\\Plans here", u"/d"}),
        Failed("Folder Redirection Removal",
               "#ERROR: Junction doesn't exists for Source = C:\\Work\\Team\\Plans and Target = D:\\Plans here.\n"));
    for (const auto& [folder, location, left] : order) {
      Remove(folder, location);
      EXPECT_EQ(AllRecords(), left) << Utf8(folder);
      ExpectUsersNoticeNothing();
    }
    ExpectAllAsBefore();
  }
}

// Another folder's contents lie in a redirected one's: its junction is led to where they now are, and stays itself.
TEST_F(Nested, AJunctionIntoTheTargetFollowsTheRemoval) {
  RedirectOutermost();
  MakeFolder(u"E:\\Foo");
  MakeFile(u"E:\\Foo\\f.txt", "foo");
  test::SetSecurity(u"E:\\Foo", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)");
  Redirect(u"E:\\Foo", u"D:\\Work here\\Work");
  ASSERT_TRUE(RestoreLink(
      {u"E:\\Foo", {}, true, MountPointData(u"\\??\\D:\\Work here\\Work\\Foo\\", u"D:\\Work here\\Work\\Foo")}));
  ASSERT_TRUE(win32::SetFileAttributesW(u"E:\\Foo", win32::FILE_ATTRIBUTE_HIDDEN));
  test::SetTimes(u"E:\\Foo", 9);
  const FolderDescriptor security = ReadDescriptor(u"E:\\Foo");
  const std::string facts = JunctionFacts(u"E:\\Foo");
  Remove(u"C:\\Work", u"D:\\Work here");
  EXPECT_EQ(AllRecords(), (Records{{u"2", {u"E:\\Foo", u"C:\\Work\\Foo"}}}));
  EXPECT_TRUE(IsLink(u"E:\\Foo"));
  EXPECT_EQ(Contents(u"E:\\Foo\\f.txt"), "foo");
  EXPECT_EQ(ReadDescriptor(u"E:\\Foo"), security);
  EXPECT_EQ(JunctionFacts(u"E:\\Foo"), facts);
  EXPECT_EQ(ReadLinkData(u"E:\\Foo"), MountPointData(u"\\??\\C:\\Work\\Foo\\", u"C:\\Work\\Foo"));
  Remove(u"E:\\Foo", u"C:\\Work");
  ExpectAllAsBefore("new: E:\\Foo\nnew: E:\\Foo\\f.txt\n");
}

// The same where the target has moved on meanwhile, and both junctions lead there through the one in its old place.
TEST_F(Nested, AJunctionIntoATargetThatMovedOnFollowsTheRemoval) {
  RedirectOutermost();
  MakeFolder(u"E:\\Foo");
  MakeFile(u"E:\\Foo\\f.txt", "foo");
  Redirect(u"E:\\Foo", u"D:\\Work here\\Work");
  Redirect(u"D:\\Work here", u"E:\\");
  Remove(u"C:\\Work", u"E:\\Work here");
  EXPECT_EQ(AllRecords(),
            (Records{{u"2", {u"E:\\Foo", u"C:\\Work\\Foo"}}, {u"3", {u"D:\\Work here", u"E:\\Work here"}}}));
  EXPECT_EQ(Contents(u"E:\\Foo\\f.txt"), "foo");
  Remove(u"E:\\Foo", u"C:\\Work");
  Remove(u"D:\\Work here", u"E:\\");
  ExpectAllAsBefore("new: E:\\Foo\nnew: E:\\Foo\\f.txt\n");
}

// What is redirected is back in any case; what could not follow is told, and the rest follows.
TEST_F(Nested, WhatCannotFollowTheRemovalIsTold) {
  RedirectOutermost();
  for (const auto* folder : {u"E:\\Foo", u"E:\\Goo"}) {
    MakeFolder(folder);
    MakeFile(folder + std::u16string(u"\\f.txt"), "foo");
    Redirect(folder, u"D:\\Work here\\Work");
  }
  win32::UniqueFile held{
      win32::CreateFileW(u"E:\\Foo", win32::GENERIC_READ, win32::FILE_SHARE_READ, nullptr, win32::OPEN_EXISTING,
                         win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
  machine->gate.FailCall("RegCreateKeyExW", 2, win32::ERROR_ACCESS_DENIED);
  const RunResult run = Run({u"/RedirectFolder", u"C:\\Work", u"/loc:D:\\Work here", u"/d"});
  machine->gate.ClearFailures();
  held.reset();
  const std::string notLed =
      "#ERROR: Failed to open directory for path = E:\\Foo.The process cannot access the file because it is being used "
      "by "
      "another process.\n\n#ERROR: Unable to create junction for Source = E:\\Foo and Target = C:\\Work\\Foo.\n";
  const std::string logged =
      "\n#INFO: The record of Source = E:\\Goo and Target = D:\\Work here\\Work\\Goo names a folder that is now in "
      "C:\\Work.\n#ERROR: Unable to update redirected folder path in registry.\n" +
      notLed + notLed +
      "#INFO: The files and folders are back in C:\\Work, and the redirection is no longer recorded.\n"
      "Folder Redirection Removal was not successful.";
  EXPECT_TRUE(Answer(run).starts_with("exit 1\n") && Answer(run).ends_with(logged)) << Answer(run);
  EXPECT_FALSE(IsLink(u"C:\\Work"));
  EXPECT_FALSE(Exists(u"D:\\Work here\\Work"));
  EXPECT_EQ(Contents(u"E:\\Goo\\f.txt"), "foo");
  EXPECT_EQ(Contents(u"C:\\Work\\Foo\\f.txt"), "foo");
  EXPECT_TRUE(IsLink(u"E:\\Foo"));
  ExpectUsersNoticeNothing();
}

// Three shared folders: the one that is redirected, one in it, one far down in it with two shares.
class Shared : public Redirections {
 protected:
  using Shares = std::map<std::u16string, std::u16string>;

  Shared() {
    for (const auto* folder : {u"C:\\Data", u"C:\\Data\\Public", u"C:\\Data\\a", u"C:\\Data\\a\\b",
                               u"C:\\Data\\a\\b\\Deep", u"C:\\Database", u"D:\\Target"})
      MakeFolder(folder);
    MakeFile(u"C:\\Data\\a\\b\\Deep\\f.txt", "far down");
    test::Share(u"root", u"C:\\Data");
    test::Share(u"public", u"C:\\Data\\Public");
    test::Share(u"deep", u"C:\\Data\\a\\b\\Deep");
    test::Share(u"deep2", u"c:\\data\\A\\B\\deep");
    test::Share(u"neighbour", u"C:\\Database");
  }
};

// The share of the folder itself goes on naming the old place, which leads to the data; those below it name the new
// one.
TEST_F(Shared, SharesFollowTheDataThereAndBack) {
  const Shares before = test::Shares();
  Redirect(u"C:\\Data", u"D:\\Target");
  EXPECT_EQ(test::Shares(), (Shares{{u"root", u"C:\\Data"},
                                    {u"public", u"D:\\Target\\Data\\Public"},
                                    {u"deep", u"D:\\Target\\Data\\a\\b\\Deep"},
                                    {u"deep2", u"D:\\Target\\Data\\a\\b\\Deep"},
                                    {u"neighbour", u"C:\\Database"}}));
  for (const auto& [name, path] : test::Shares()) EXPECT_TRUE(Exists(path)) << Utf8(name);
  test::Share(u"target", u"d:\\target\\DATA");
  Remove(u"C:\\Data", u"D:\\Target");
  EXPECT_FALSE(Exists(u"D:\\Target\\Data"));
  Shares after = before;
  after[u"target"] = u"C:\\Data";             // the folder that held the contents goes, so its own share follows them
  after[u"deep2"] = u"C:\\Data\\a\\b\\Deep";  // the folder's own spelling
  EXPECT_EQ(test::Shares(), after);
}

TEST_F(Shared, AShareThatCannotFollowKeepsItsFolder) {
  const auto remove = [&] { return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"}); };
  // Each share inside is deleted and added, then comes the one of the folder itself.
  for (const auto& [call, number] : {std::pair("NetShareAdd", 4), {"NetShareDel", 4}}) {
    Redirect(u"C:\\Data", u"D:\\Target");
    if (!test::Shares().contains(u"target")) test::Share(u"target", u"D:\\Target\\Data");
    machine->gate.FailCall(call, static_cast<std::uint64_t>(number), win32::ERROR_ACCESS_DENIED);
    const RunResult run = remove();
    machine->gate.ClearFailures();
    EXPECT_EQ(run.exitCode, 1) << call;
    EXPECT_TRUE(run.Logged(u"#ERROR: Unable to move network share target from D:\\Target\\Data to C:\\Data."))
        << Utf8(run.log);
    EXPECT_EQ(test::Shares()[u"target"], u"D:\\Target\\Data") << call;
    EXPECT_TRUE(Exists(u"D:\\Target\\Data")) << call;
    EXPECT_EQ(Contents(u"C:\\Data\\a\\b\\Deep\\f.txt"), "far down");
    EXPECT_EQ(AllRecords(), Records());
  }
}

TEST_F(Shared, SharesAreGoneWithTheSwitchForIt) {
  const RunResult run = Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/-Share"});
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(test::Shares(), (Shares{{u"neighbour", u"C:\\Database"}}));
  test::Share(u"later", u"D:\\Target\\Data\\a");
  Remove(u"C:\\Data", u"D:\\Target");
  EXPECT_EQ(test::Shares(), (Shares{{u"neighbour", u"C:\\Database"}, {u"later", u"C:\\Data\\a"}}));
}

}  // namespace
