// Days in the life of a workstation: several redirections that touch each other, and folders that are shared.
#include "program/redirections.h"

namespace {

using namespace std::string_literals;
using emulated::Utf8;
using namespace test;

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
  // Whatever has been redirected: users find every file under the name that it always had, and may write there.
  void ExpectUsersNoticeNothing() {
    EXPECT_EQ(Contents(u"C:\\Work\\w.txt"), "work");
    EXPECT_EQ(Contents(u"C:\\Work\\Team\\t.txt"), "team");
    EXPECT_EQ(Contents(u"C:\\Work\\Team\\Plans\\p.txt"), "plans");
    MakeFile(u"C:\\Work\\Team\\Plans\\written.txt", "through all of them");
    ASSERT_TRUE(win32::DeleteFileW(u"C:\\Work\\Team\\Plans\\written.txt"));
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
    Redirect(u"C:\\Work\\Team\\Plans", u"D:\\Plans here");
    Redirect(u"C:\\Work\\Team", u"E:\\Team here");
    Redirect(u"C:\\Work", u"D:\\Work here");
    EXPECT_EQ(
        AllRecords(),
        (Records{{u"1", {team + u"\\Plans", plans}}, {u"2", {work + u"\\Team", team}}, {u"3", {u"C:\\Work", work}}}));
    ExpectUsersNoticeNothing();
    ExpectRefused(
        u"/RedirectFolder",
        {{u"C:\\Work\\Team\\Plans", u"D:\\Plans here",
          "#ERROR: Junction doesn't exists for Source = C:\\Work\\Team\\Plans and Target = D:\\Plans here.\n"}},
        u"/d");
    for (const auto& [folder, location, left] : order) {
      Remove(folder, location);
      EXPECT_EQ(AllRecords(), left) << Utf8(folder);
      ExpectUsersNoticeNothing();
    }
    EXPECT_EQ(ChangesSince(before), "");
  }
}

// Another folder's contents lie in a redirected one's: its junction is led to where they now are, and stays itself. The
// same where the target has moved on meanwhile, and both junctions lead there through the one in its old place.
TEST_F(Nested, AJunctionIntoTheTargetFollowsTheRemoval) {
  const std::u16string foo = u"E:\\Foo", here = u"D:\\Work here";
  MakeFolder(foo);
  MakeFile(foo + u"\\f.txt", "foo");
  SetSecurity(foo, u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)");
  for (const bool movedOn : {false, true}) {
    Redirect(u"C:\\Work", here);
    Redirect(foo, here + u"\\Work");
    ASSERT_TRUE(
        RestoreLink({foo, {}, true, MountPointData(u"\\??\\" + here + u"\\Work\\Foo\\", here + u"\\Work\\Foo")}));
    ASSERT_TRUE(win32::SetFileAttributesW(foo.c_str(), win32::FILE_ATTRIBUTE_HIDDEN));
    SetTimes(foo, 9);
    if (movedOn) Redirect(here, u"E:\\");
    const FolderDescriptor security = ReadDescriptor(foo);
    const std::string described = Describe(foo), facts = described.substr(0, described.find(" holds "));
    Remove(u"C:\\Work", movedOn ? u"E:\\Work here" : here);
    EXPECT_EQ(AllRecords()[u"2"], std::pair(foo, u"C:\\Work\\Foo"s));
    EXPECT_EQ(AllRecords().size(), movedOn ? 2u : 1u);
    EXPECT_EQ(Contents(u"E:\\Foo\\f.txt"), "foo");
    EXPECT_EQ(ReadDescriptor(foo), security);
    EXPECT_EQ(Describe(foo).substr(0, facts.size()), facts);
    EXPECT_EQ(ReadLinkData(foo), MountPointData(u"\\??\\C:\\Work\\Foo\\", u"C:\\Work\\Foo"));
    Remove(foo, u"C:\\Work");
    if (movedOn) Remove(here, u"E:\\");
    EXPECT_EQ(ChangesSince(before), "new: E:\\Foo\nnew: E:\\Foo\\f.txt\n");
  }
}

// What is redirected is back in any case; what could not follow is told, and the rest follows.
TEST_F(Nested, WhatCannotFollowTheRemovalIsTold) {
  Redirect(u"C:\\Work", u"D:\\Work here");
  for (const auto* folder : {u"E:\\Foo", u"E:\\Goo"}) {
    MakeFolder(folder);
    MakeFile(folder + std::u16string(u"\\f.txt"), "foo");
    Redirect(folder, u"D:\\Work here\\Work");
  }
  win32::UniqueFile held{
      win32::CreateFileW(u"E:\\Foo", win32::GENERIC_READ, win32::FILE_SHARE_READ, nullptr, win32::OPEN_EXISTING,
                         win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
  machine->gate.FailCall("RegCreateKeyExW", 2, win32::ERROR_ACCESS_DENIED);
  const std::string answer = AnswerTo({u"/RedirectFolder", u"C:\\Work", u"/loc:D:\\Work here", u"/d"});
  machine->gate.ClearFailures();
  held.reset();
  const std::string logged =
      "#ERROR: Unable to create junction for Source = E:\\Foo and Target = C:\\Work\\Foo.\n#INFO: The files and "
      "folders "
      "are back in C:\\Work, and the redirection is no longer recorded.\nFolder Redirection Removal was not "
      "successful.";
  EXPECT_TRUE(answer.starts_with("exit 1\n") && answer.ends_with(logged)) << answer;
  EXPECT_NE(answer.find("Goo names a folder that is now in C:\\Work.\n"), std::string::npos) << answer;
  EXPECT_FALSE(IsLink(u"C:\\Work") || Exists(u"D:\\Work here\\Work"));
  EXPECT_EQ(Contents(u"E:\\Goo\\f.txt") + Contents(u"C:\\Work\\Foo\\f.txt"), "foofoo");
  EXPECT_TRUE(IsLink(u"E:\\Foo"));
  ExpectUsersNoticeNothing();
}

// Three shared folders: the one that is redirected, one in it, one far down in it with two shares.
class Shared : public Redirections {
 protected:
  using Named = std::map<std::u16string, std::u16string>;

  Shared() {
    for (const auto* folder : {u"C:\\Data", u"C:\\Data\\Public", u"C:\\Data\\a", u"C:\\Data\\a\\b",
                               u"C:\\Data\\a\\b\\Deep", u"C:\\Database", u"D:\\Target"})
      MakeFolder(folder);
    MakeFile(u"C:\\Data\\a\\b\\Deep\\f.txt", "far down");
    for (const auto& [name, path] : Named{{u"root", u"C:\\Data"},
                                          {u"public", u"C:\\Data\\Public"},
                                          {u"deep", u"C:\\Data\\a\\b\\Deep"},
                                          {u"deep2", u"c:\\data\\A\\B\\deep"},
                                          {u"neighbour", u"C:\\Database"}})
      Share(name, path);
  }
};

// The share of the folder itself goes on naming the old place, which leads to the data; those below it name the new
// one.
TEST_F(Shared, SharesFollowTheDataThereAndBackUnlessTheyAreNotWanted) {
  Named after = Shares();
  Redirect(u"C:\\Data", u"D:\\Target");
  EXPECT_EQ(Shares(), (Named{{u"root", u"C:\\Data"},
                             {u"public", u"D:\\Target\\Data\\Public"},
                             {u"deep", u"D:\\Target\\Data\\a\\b\\Deep"},
                             {u"deep2", u"D:\\Target\\Data\\a\\b\\Deep"},
                             {u"neighbour", u"C:\\Database"}}));
  Share(u"target", u"d:\\target\\DATA");
  Remove(u"C:\\Data", u"D:\\Target");
  EXPECT_FALSE(Exists(u"D:\\Target\\Data"));
  after[u"target"] = u"C:\\Data";             // the folder that held the contents goes, so its own share follows them
  after[u"deep2"] = u"C:\\Data\\a\\b\\Deep";  // the folder's own spelling
  EXPECT_EQ(Shares(), after);
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/-Share"}).exitCode, 0);
  EXPECT_EQ(Shares(), (Named{{u"neighbour", u"C:\\Database"}}));
}

TEST_F(Shared, AShareThatCannotFollowKeepsItsFolder) {
  // Each share inside is deleted and added, then comes the one of the folder itself.
  for (const char* call : {"NetShareAdd", "NetShareDel"}) {
    Redirect(u"C:\\Data", u"D:\\Target");
    if (!Shares().contains(u"target")) Share(u"target", u"D:\\Target\\Data");
    machine->gate.FailCall(call, 4, win32::ERROR_ACCESS_DENIED);
    const RunResult run = Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"});
    machine->gate.ClearFailures();
    EXPECT_EQ(run.exitCode, 1) << call;
    EXPECT_TRUE(run.Logged(u"#ERROR: Unable to move network share target from D:\\Target\\Data to C:\\Data."))
        << Utf8(run.log);
    EXPECT_EQ(Shares()[u"target"], u"D:\\Target\\Data") << call;
    EXPECT_EQ(Contents(u"C:\\Data\\a\\b\\Deep\\f.txt"), "far down");
    EXPECT_EQ(AllRecords(), Records());
  }
}

// Whose data stands there: what one redirection holds is no place, and no source, for another.
// C:\A\Data in D:\T, C:\F\f.txt in D:\Files, C:\V on a volume; and folders and files of the same names elsewhere.
class Places : public Redirections {
 protected:
  Places() {
    for (const auto* folder : {u"C:\\A", u"C:\\A\\Data", u"C:\\A\\Data\\Sub", u"C:\\F", u"C:\\V", u"C:\\B",
                               u"C:\\B\\Data", u"C:\\B\\T", u"C:\\B\\Sub", u"C:\\B\\New", u"C:\\B\\Files", u"C:\\B\\F",
                               u"C:\\B\\Users", u"D:\\T", u"D:\\Files", u"D:\\Gone"})
      MakeFolder(folder);
    for (const auto* file : {u"C:\\A\\Data\\x.txt", u"C:\\A\\Data\\Sub\\s.txt", u"C:\\F\\f.txt", u"C:\\V\\v.txt",
                             u"C:\\B\\New\\x.txt", u"C:\\B\\f.txt"})
      MakeFile(file, Utf8(file));
    Redirect(u"C:\\A\\Data", u"D:\\T");
    Redirect(u"C:\\V", kVolume);
    EXPECT_EQ(RedirectFile(u"C:\\F\\f.txt", u"D:\\Files").exitCode, 0);
  }
  RunResult RedirectFile(const std::u16string& file, const std::u16string& folder) {
    return Run({u"/RedirectFile", file, u"/loc:" + folder});
  }
};

TEST_F(Places, OfAnotherRedirectionAreRefused) {
  const std::string ofFolder = " another redirection, Source = C:\\A\\Data and Target = D:\\T\\Data.";
  const std::string ofFile = " another redirection, Source = C:\\F\\f.txt and Target = D:\\Files\\f.txt.";
  const std::string ofVolume = " another redirection, Source = C:\\V and Target = VOLUME\\.";
  const std::string system = " - Cannot redirect from or to Windows system folders.",
                    invalid = "#ERROR:Invalid path : ";
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\V\\"));  // by hand: the volume holds what C:\V held all the same
  ASSERT_EQ(CreateJunction(u"E:\\Way", u"D:\\Files"), 1);
  MakeFolder(u"D:\\Other");
  ASSERT_EQ(AddJunctionRegKey(u"C:\\left", u"D:\\Gone\\Data", 0), 1);  // its folder was deleted, and the junction
  MakeFolder(u"C:\\B\\Way");
  machine->registry().SetText(u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList",
                              u"ProfilesDirectory", u"C:\\B\\Way\\In");
  SetSecurity(u"C:\\B\\New", u"O:SYD:P(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BA)");
  ExpectRefused(u"/RedirectFolder",
                {{u"C:\\B\\Data", u"D:\\T", ofFolder},       // the place itself
                 {u"C:\\B\\T", u"D:\\", ofFolder},           // around it
                 {u"C:\\B\\Sub", u"D:\\t\\DATA", ofFolder},  // in it, and there
                 {u"C:\\B\\Files", u"D:\\", ofFile},         // around a file
                 {u"C:\\B\\F", u"C:\\", ofFile},             // around a file's link
                 {u"D:\\T\\Data", u"E:\\Moved", ofFolder},   // what it holds, itself
                 {u"D:\\T\\Data", kVolume, ofFolder},
                 {u"C:\\B\\Data", kVolume, ofVolume},
                 {u"C:\\B\\Users", u"C:\\", "#ERROR: The folder C:\\Users is or holds the User Profile C:\\Users\\"},
                 {u"C:\\B\\Way", u"D:\\", "#ERROR: New User Profiles are created in C:\\B\\Way\\In."},
                 {u"C:\\B\\Data", u"\\\\?\\D:\\New", invalid + "\\\\?\\D:\\New"},
                 {u"\\\\?\\C:\\B\\Data", u"D:\\New", invalid + "\\\\?\\C:\\B\\Data"},
                 // What could not come back.
                 {u"C:\\B\\Data", u"C:\\Windows\\System32", system},
                 {u"C:\\B\\Data", u"D:\\$Recycle.Bin", system},
                 {u"C:\\B\\New", u"D:\\New", "#ERROR: C:\\B\\New could not be brought back."}});
  ExpectRefused(u"/RedirectFile",
                {{u"C:\\B\\f.txt", u"D:\\Files", ofFile},
                 {u"C:\\B\\f.txt", u"E:\\Way", ofFile},
                 {u"C:\\B\\f.txt", u"D:\\T\\Data\\Sub", ofFolder},  // by another way than the junction
                 {u"C:\\B\\f.txt", u"\\\\?\\D:\\New", invalid + "\\\\?\\D:\\New"},
                 {u"C:\\B\\f.txt", u"D:\\$Recycle.Bin\\x", system}});
  machine->gate.FailCall("RegEnumKeyExW", 1, win32::ERROR_ACCESS_DENIED);  // whose they are is not told
  ExpectRefused(u"/RedirectFile", {{u"C:\\B\\f.txt", u"D:\\Files", ""}});
  machine->gate.ClearFailures();
  EXPECT_TRUE(Run({u"/RedirectRegKeyLocation", u"/loc:\\\\?\\D:\\"}).Logged(u"#ERROR:Invalid path : \\\\?\\D:\\"));
  Redirect(u"C:\\B\\Data", u"D:\\Gone");  // nobody's any more
  // Both are lost together.
  const auto isTold = [&](const std::u16string& folder) {
    return Run({u"/RedirectFolder", folder, u"/loc:D:\\New"}).Logged(u"#INFO: D:\\New\\");
  };
  EXPECT_TRUE(!isTold(u"C:\\B\\T") && isTold(u"D:\\Other"));
}

// What lies beside and among them, and the folders around them, go and come as before; and the records follow.
TEST_F(Places, BesideAndAroundOthersGoOn) {
  Redirect(u"C:\\B\\New", u"D:\\T\\Data\\Sub");
  Redirect(u"D:\\T\\Data\\Sub", u"E:\\");                                // by whose junction C:\B\New leads there
  ASSERT_EQ(RedirectFile(u"C:\\B\\f.txt", u"C:\\A\\Data").exitCode, 0);  // by the junction
  ASSERT_EQ(RedirectFile(u"D:\\T\\Data\\x.txt", u"E:\\").exitCode, 0);   // from within
  Redirect(u"D:\\T", u"E:\\On");
  const auto expectAll = [] {
    for (const auto* file : {u"C:\\A\\Data\\x.txt", u"C:\\A\\Data\\Sub\\s.txt", u"C:\\B\\New\\x.txt", u"C:\\B\\f.txt"})
      EXPECT_EQ(Contents(file), Utf8(file));
  };
  expectAll();
  Remove(u"D:\\T", u"E:\\On");
  expectAll();
  Remove(u"C:\\A\\Data", u"D:\\T");
  expectAll();
  Remove(u"C:\\A\\Data\\Sub", u"E:\\");
  Remove(u"C:\\B\\New", u"C:\\A\\Data\\Sub");
  for (const auto& [file, location] : {std::pair(u"C:\\A\\Data\\x.txt", u"/loc:E:\\"),
                                       {u"C:\\B\\f.txt", u"/loc:C:\\A\\Data"},
                                       {u"C:\\F\\f.txt", u"/loc:D:\\Files"}}) {
    EXPECT_EQ(Run({u"/RedirectFile", file, location, u"/d"}).exitCode, 0) << Utf8(file);
    EXPECT_FALSE(IsLink(file)) << Utf8(file);
  }
  expectAll();
  EXPECT_EQ(AllRecords().size(), 1u);  // the volume's
}

// The link of a file cannot be led elsewhere in one step. Made anew, it has the path by which its file was reached.
TEST_F(Places, AFileThatIsReachedThroughAnotherGoesHomeFirst) {
  Redirect(u"D:\\Files", u"D:\\T\\Data");
  Redirect(u"C:\\F", u"E:\\");
  ExpectRefused(
      u"/RedirectFolder",
      {{u"C:\\A\\Data", u"D:\\T", "#ERROR: The file C:\\F\\f.txt is redirected into the folder D:\\T\\Data, to "}},
      u"/d");
  EXPECT_EQ(Run({u"/RedirectFile", u"C:\\F\\f.txt", u"/loc:D:\\Files", u"/d"}).exitCode, 0);
  Remove(u"C:\\A\\Data", u"D:\\T");
  EXPECT_EQ(Contents(u"C:\\F\\f.txt"), "C:\\F\\f.txt");
}

// What the disk does not tell apart: recorded is its own spelling, and any will do to undo it.
TEST_F(Places, AreNamedAsTheDiskDoes) {
  for (const auto* folder : {u"C:\\\u00dcbung", u"C:\\\u00dcbung\\\u00c4rger", u"D:\\\u00d6de"}) MakeFolder(folder);
  MakeFile(u"C:\\\u00dcbung\\\u00c4rger\\x.txt", "x");
  Redirect(u"c:\\\u00fcbung\\\u00e4rger", u"E:\\");
  Redirect(u"C:\\\u00fcbung", u"d:\\\u00f6de");
  EXPECT_EQ(AllRecords()[u"3"].first, u"D:\\\u00d6de\\\u00dcbung\\\u00c4rger");
  EXPECT_EQ(AllRecords()[u"4"], std::pair(u"C:\\\u00dcbung"s, u"D:\\\u00d6de\\\u00dcbung"s));
  Remove(u"c:\\\u00fcBUNG", u"D:\\\u00f6DE");
  Remove(u"C:\\\u00fcbung\\\u00e4rger", u"E:\\");
  EXPECT_EQ(Contents(u"C:\\\u00dcbung\\\u00c4rger\\x.txt"), "x");
  // Recorded as it was typed, by an earlier version.
  Redirect(u"C:\\\u00dcbung", u"E:\\");
  machine->registry().SetText(kQuillbay + u"\\Junctions\\3", u"Source", u"C:\\\u00fcbung");
  Remove(u"C:\\\u00dcbung", u"E:\\");
  EXPECT_EQ(AllRecords().size(), 2u);
}

}  // namespace
