// Whose data stands there: what one redirection holds is no place, and no source, for another.
#include "program/redirections.h"

namespace {

using namespace std::string_literals;
using emulated::Utf8;
using test::Contents, test::Answer, test::Failed, test::Redirections, test::MakeFile, test::MakeFolder, test::kVolume,
    test::RunResult;

// C:\A\Data in D:\T, C:\F\f.txt in D:\Files, C:\V on a volume; and folders and files of the same names elsewhere.
class Places : public Redirections {
 protected:
  Places() {
    for (const auto* folder : {u"C:\\A", u"C:\\A\\Data", u"C:\\A\\Data\\Sub", u"C:\\F", u"C:\\V", u"C:\\B",
                               u"C:\\B\\Data", u"C:\\B\\T", u"C:\\B\\Sub", u"C:\\B\\New", u"C:\\B\\Files", u"C:\\B\\F",
                               u"C:\\B\\Users", u"D:\\T", u"D:\\Files", u"D:\\Gone"})
      MakeFolder(folder);
    MakeFile(u"C:\\A\\Data\\x.txt", "A's");
    MakeFile(u"C:\\A\\Data\\Sub\\s.txt", "A's, below");
    MakeFile(u"C:\\F\\f.txt", "F's");
    MakeFile(u"C:\\V\\v.txt", "V's");
    for (const auto* folder : {u"Data", u"T", u"Sub", u"New", u"Files", u"F"})
      MakeFile(u"C:\\B\\" + std::u16string(folder) + u"\\x.txt", "B's");
    MakeFile(u"C:\\B\\f.txt", "B's");
    Redirect(u"C:\\A\\Data", u"D:\\T");
    Redirect(u"C:\\V", kVolume);
    EXPECT_EQ(RedirectFile(u"C:\\F\\f.txt", u"D:\\Files").exitCode, 0);
  }
  RunResult RedirectFile(const std::u16string& file, const std::u16string& folder) {
    return Run({u"/RedirectFile", file, u"/loc:" + folder});
  }
};

TEST_F(Places, OfAnotherRedirectionAreRefused) {
  const std::u16string ofFolder = u" another redirection, Source = C:\\A\\Data and Target = D:\\T\\Data.";
  const std::u16string ofFile = u" another redirection, Source = C:\\F\\f.txt and Target = D:\\Files\\f.txt.";
  const std::u16string ofVolume = u" another redirection, Source = C:\\V and Target = " + kVolume + u".";
  const std::u16string system = u" - Cannot redirect from or to Windows system folders.",
                       invalid = u"#ERROR:Invalid path : ";
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\V\\"));  // by hand: the volume holds what C:\V held all the same
  ASSERT_EQ(CreateJunction(u"E:\\Way", u"D:\\Files"), 1);
  ASSERT_EQ(AddJunctionRegKey(u"C:\\left", u"D:\\Gone\\Data", 0), 1);  // its folder was deleted, and the junction
  MakeFolder(u"C:\\B\\Way");
  machine->registry().SetText(u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList",
                              u"ProfilesDirectory", u"C:\\B\\Way\\In");
  test::SetSecurity(u"C:\\B\\New", u"O:SYD:P(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BA)");
  struct Case {
    const char16_t* command;
    std::u16string source, location, logged;
  };
  const Case cases[] = {
      {u"/RedirectFolder", u"C:\\B\\Data", u"D:\\T", ofFolder},       // the place itself
      {u"/RedirectFolder", u"C:\\B\\T", u"D:\\", ofFolder},           // around it
      {u"/RedirectFolder", u"C:\\B\\Sub", u"D:\\t\\DATA", ofFolder},  // in it, and there
      {u"/RedirectFolder", u"C:\\B\\Files", u"D:\\", ofFile},         // around a file
      {u"/RedirectFolder", u"C:\\B\\F", u"C:\\", ofFile},             // around a file's link
      {u"/RedirectFolder", u"D:\\T\\Data", u"E:\\Moved", ofFolder},   // what it holds, itself
      {u"/RedirectFolder", u"D:\\T\\Data", kVolume, ofFolder},
      {u"/RedirectFolder", u"C:\\B\\Data", kVolume, ofVolume},
      {u"/RedirectFolder", u"C:\\B\\Users", u"C:\\",
       u"#ERROR: The folder C:\\Users is or holds the User Profile C:\\Users\\"},
      {u"/RedirectFolder", u"C:\\B\\Way", u"D:\\", u"#ERROR: New User Profiles are created in C:\\B\\Way\\In."},
      {u"/RedirectFile", u"C:\\B\\f.txt", u"D:\\Files", ofFile},
      {u"/RedirectFile", u"C:\\B\\f.txt", u"E:\\Way", ofFile},
      {u"/RedirectFile", u"C:\\B\\f.txt", u"D:\\T\\Data\\Sub", ofFolder},  // by another way than the junction
      {u"/RedirectFolder", u"C:\\B\\Data", u"\\\\?\\D:\\New", invalid + u"\\\\?\\D:\\New"},
      {u"/RedirectFolder", u"\\\\?\\C:\\B\\Data", u"D:\\New", invalid + u"\\\\?\\C:\\B\\Data"},
      {u"/RedirectFile", u"C:\\B\\f.txt", u"\\\\?\\D:\\New", invalid + u"\\\\?\\D:\\New"},
      {u"/RedirectFile", u"\\\\?\\C:\\B\\f.txt", u"D:\\New", invalid + u"\\\\?\\C:\\B\\f.txt"},
      // What could not come back.
      {u"/RedirectFolder", u"C:\\B\\Data", u"C:\\Windows\\System32", system},
      {u"/RedirectFolder", u"C:\\B\\Data", u"D:\\$Recycle.Bin", system},
      {u"/RedirectFile", u"C:\\B\\f.txt", u"D:\\$Recycle.Bin\\x", system},
      {u"/RedirectFolder", u"C:\\B\\New", u"D:\\New", u"#ERROR: C:\\B\\New could not be brought back."},
  };
  const State before = Now();
  for (const Case& one : cases) {
    const std::string shown = Utf8(one.source + u" " + one.location);
    const RunResult run = Run({one.command, one.source, u"/loc:" + one.location});
    EXPECT_EQ(run.exitCode, 1) << shown;
    EXPECT_TRUE(run.Logged(one.logged)) << shown << Utf8(run.log);
    EXPECT_EQ(ChangesSince(before), "") << shown;
  }
  machine->gate.FailCall("RegEnumKeyExW", 1, win32::ERROR_ACCESS_DENIED);  // whose they are is not told
  EXPECT_EQ(RedirectFile(u"C:\\B\\f.txt", u"D:\\Files").exitCode, 1);
  machine->gate.ClearFailures();
  EXPECT_EQ(ChangesSince(before), "");
  EXPECT_TRUE(Run({u"/RedirectRegKeyLocation", u"/loc:\\\\?\\D:\\"}).Logged(invalid + u"\\\\?\\D:\\"));
  Redirect(u"C:\\B\\Data", u"D:\\Gone");  // nobody's any more
}

// What lies beside and among them, and the folders around them, go and come as before; and the records follow.
TEST_F(Places, BesideAndAroundOthersGoOn) {
  Redirect(u"C:\\B\\New", u"D:\\T\\Data\\Sub");
  Redirect(u"D:\\T\\Data\\Sub", u"E:\\");                                // by whose junction C:\B\New leads there
  ASSERT_EQ(RedirectFile(u"C:\\B\\f.txt", u"C:\\A\\Data").exitCode, 0);  // by the junction
  ASSERT_EQ(RedirectFile(u"D:\\T\\Data\\x.txt", u"E:\\").exitCode, 0);   // from within
  Redirect(u"D:\\T", u"E:\\On");
  const auto expectAll = [] {
    EXPECT_EQ(Contents(u"C:\\A\\Data\\x.txt"), "A's");
    EXPECT_EQ(Contents(u"C:\\A\\Data\\Sub\\s.txt"), "A's, below");
    EXPECT_EQ(Contents(u"C:\\B\\New\\x.txt"), "B's");
    EXPECT_EQ(Contents(u"C:\\B\\f.txt"), "B's");
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
    const RunResult run = Run({u"/RedirectFile", file, location, u"/d"});
    EXPECT_EQ(run.exitCode, 0) << Utf8(run.log);
    EXPECT_FALSE(IsLink(file)) << Utf8(file);
  }
  expectAll();
  EXPECT_EQ(AllRecords().size(), 1u);  // the volume's
}

// The link of a file cannot be led elsewhere in one step. Made anew, it has the path by which its file was reached.
TEST_F(Places, AFileThatIsReachedThroughAnotherGoesHomeFirst) {
  Redirect(u"D:\\Files", u"D:\\T\\Data");
  Redirect(u"C:\\F", u"E:\\");
  const RunResult run = Run({u"/RedirectFolder", u"C:\\A\\Data", u"/loc:D:\\T", u"/d"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"#ERROR: The file C:\\F\\f.txt is redirected into the folder D:\\T\\Data, to "))
      << Utf8(run.log);
  EXPECT_TRUE(IsLink(u"C:\\A\\Data"));
  EXPECT_EQ(Run({u"/RedirectFile", u"C:\\F\\f.txt", u"/loc:D:\\Files", u"/d"}).exitCode, 0);
  Remove(u"C:\\A\\Data", u"D:\\T");
  EXPECT_EQ(Contents(u"C:\\F\\f.txt"), "F's");
}

// What the disk does not tell apart: recorded is its own spelling, and any will do to undo it.
TEST_F(Places, AreNamedAsTheDiskDoes) {
  for (const auto* folder : {u"C:\\\u00dcbung", u"C:\\\u00dcbung\\\u00c4rger", u"D:\\\u00d6de"}) MakeFolder(folder);
  MakeFile(u"C:\\\u00dcbung\\\u00c4rger\\x.txt", "x");
  Redirect(u"c:\\\u00fcbung\\\u00e4rger", u"E:\\");
  Redirect(u"C:\\\u00fcbung", u"d:\\\u00f6de");
  EXPECT_TRUE(AllRecords().contains(u"3"));
  EXPECT_EQ(AllRecords()[u"3"].first, u"D:\\\u00d6de\\\u00dcbung\\\u00c4rger");
  EXPECT_EQ(AllRecords()[u"4"], std::pair(u"C:\\\u00dcbung"s, u"D:\\\u00d6de\\\u00dcbung"s));
  Remove(u"c:\\\u00fcBUNG", u"D:\\\u00f6DE");
  Remove(u"C:\\\u00fcbung\\\u00e4rger", u"E:\\");
  EXPECT_EQ(Contents(u"C:\\\u00dcbung\\\u00c4rger\\x.txt"), "x");
  // Recorded as it was typed, by an earlier version.
  Redirect(u"C:\\\u00dcbung", u"E:\\");
  machine->registry().SetText(u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\Junctions\\3", u"Source",
                              u"C:\\\u00fcbung");
  Remove(u"C:\\\u00dcbung", u"E:\\");
  EXPECT_EQ(AllRecords().size(), 2u);
}

// Both are lost together.
TEST_F(Places, OnOneVolumeAreTold) {
  MakeFile(u"D:\\T\\g.txt", "g");
  const std::u16string told = u"#INFO: D:\\New\\";
  EXPECT_TRUE(Run({u"/RedirectFolder", u"D:\\Gone", u"/loc:D:\\New"}).Logged(told));
  EXPECT_TRUE(
      Run({u"/RedirectFile", u"D:\\T\\g.txt", u"/loc:D:\\New"}).Logged(u"#INFO: D:\\New is on the same volume"));
  EXPECT_FALSE(Run({u"/RedirectFolder", u"C:\\B\\Data", u"/loc:D:\\New"}).Logged(told));
}

}  // namespace
