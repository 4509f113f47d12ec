// Volumes that make short names (8.3): paths may be given by them, and an item may be called as another is for short.
#include "program/redirections.h"

namespace {

using namespace test;

TEST_F(Redirections, TakeShortNamesForTheItemAndForNoOther) {
  machine.reset();  // one at a time
  machine = InstalledMachine({.extraDrives = 1, .volumes = 1, .shortNames = true});
  timesOfFolders = false;
  // What is called so comes first: the other gets MYDOCU~2.
  for (const auto* folder : {u"C:\\Long folder", u"C:\\Long folder\\MYDOCU~1", u"C:\\Long folder\\My Documents",
                             u"C:\\SOMEST~1", u"D:\\Target folder", u"D:\\Target folder\\Some Stuff"})
    MakeFolder(folder);
  for (const auto* file : {u"C:\\Long folder\\MYDOCU~1\\x", u"C:\\Long folder\\My Documents\\x", u"C:\\LETTER~1.TXT",
                           u"D:\\Target folder\\Letter to Jan.txt"})
    MakeFile(file, emulated::Utf8(file));
  EnablePrivileges();
  ASSERT_TRUE(CreateSymbolicLinkEntry(u"C:\\Long folder\\NOTHIN~1", u"C:\\Nothing"));
  MakeFile(u"C:\\Long folder\\Nothing in it", "");
  const State before = Now();
  Share(u"Letters", u"C:\\LONGFO~1\\MYDOCU~2");
  Redirect(u"C:\\LONGFO~1", u"D:\\TARGET~1");
  EXPECT_EQ(AllRecords(), (Records{{u"1", {u"C:\\Long folder", u"D:\\Target folder\\Long folder"}}}));
  EXPECT_EQ(Shares().at(u"Letters"), u"D:\\Target folder\\Long folder\\My Documents");
  EXPECT_EQ(BehindFolder(u"D:\\TARGET~1\\x", u"D:\\Target folder"), u"\\x");
  EXPECT_TRUE(DeleteShare(u"Letters"));
  Remove(u"C:\\Long folder", u"D:\\Target folder");
  for (const bool targetMakesThem : {true, false}) {
    EXPECT_EQ(ChangesSince(before), "");
    machine->FindByLetter(u'D')->volume->makesShortNames = targetMakesThem;
    machine->gate.FailCall("DeviceIoControl", 1, win32::ERROR_ACCESS_DENIED);  // the junction: all is taken back
    EXPECT_EQ(Run({u"/RedirectFolder", u"C:\\Long folder", u"/loc:D:\\Target folder"}).exitCode, 1);
    machine->gate.ClearFailures();
    EXPECT_EQ(ChangesSince(before), "");
    Redirect(u"C:\\Long folder", u"D:\\Target folder");
    Remove(u"C:\\LONGFO~1", u"D:\\TARGET~1");
  }
  ExpectRefused(u"/RedirectFolder", {{u"C:\\SOMEST~1", u"D:\\TARGET~1", "\\SOMEST~1: another item has that name"}});
  ExpectRefused(u"/RedirectFile", {{u"C:\\LETTER~1.TXT", u"D:\\TARGET~1", "LETTER~1.TXT: another item has that"}});
  EXPECT_EQ(ChangesSince(before), "");
  // What has gone from the target, another item may be called so for short by now.
  machine->FindByLetter(u'D')->volume->makesShortNames = true;
  MakeFolder(u"D:\\Empty");
  Redirect(u"C:\\SOMEST~1", u"D:\\Empty");
  ASSERT_EQ(Run({u"/RedirectFile", u"C:\\LETTER~1.TXT", u"/loc:D:\\Empty"}).exitCode, 0);
  ASSERT_TRUE(win32::RemoveDirectoryW(u"D:\\Empty\\SOMEST~1") && win32::DeleteFileW(u"D:\\Empty\\LETTER~1.TXT"));
  MakeFolder(u"D:\\Empty\\Some Stuff");
  MakeFile(u"D:\\Empty\\Letter to Jan.txt", "another");
  const std::string gone = "Path Does Not Exist";
  ExpectRefused(u"/RedirectFolder", {{u"C:\\SOMEST~1", u"D:\\Empty", "SOMEST~1 " + gone}}, u"/d");
  ExpectRefused(u"/RedirectFile", {{u"C:\\LETTER~1.TXT", u"D:\\Empty", "LETTER~1.TXT " + gone}}, u"/d");
}

}  // namespace
