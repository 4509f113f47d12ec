// Volumes that make short names (8.3): paths may be given by them, and an item may bear the name that another has as
// its short one.
#include "fsops/shares.h"
#include "program/redirections.h"

namespace {

using namespace test;

class ShortNames : public Redirections {
 protected:
  ShortNames() {
    machine.reset();  // one at a time
    machine = InstalledMachine({.extraDrives = 1, .volumes = 1, .shortNames = true});
    EnablePrivileges();
    timesOfFolders = false;
    // What is called so comes first: the other gets MYDOCU~2.
    for (const auto* folder : {u"C:\\Long folder", u"C:\\Long folder\\MYDOCU~1", u"C:\\Long folder\\My Documents",
                               u"C:\\SOMEST~1", u"D:\\Target folder", u"D:\\Target folder\\Some Stuff"})
      MakeFolder(folder);
    MakeFile(u"C:\\Long folder\\MYDOCU~1\\letter.txt", "short");
    MakeFile(u"C:\\Long folder\\My Documents\\letter.txt", "long");
    MakeFile(u"C:\\LETTER~1.TXT", "mine");
    MakeFile(u"D:\\Target folder\\Letter to Jan.txt", "theirs");
  }
};

TEST_F(ShortNames, NameTheItemAndAreNotRecorded) {
  const State before = Now();
  Share(u"Letters", u"C:\\LONGFO~1\\MYDOCU~2");
  Redirect(u"C:\\LONGFO~1", u"D:\\TARGET~1");
  EXPECT_EQ(Shares().at(u"Letters"), u"D:\\Target folder\\Long folder\\My Documents");
  EXPECT_TRUE(DeleteShare(u"Letters"));
  EXPECT_EQ(AllRecords(), (Records{{u"1", {u"C:\\Long folder", u"D:\\Target folder\\Long folder"}}}));
  std::u16string leadsTo;
  EXPECT_TRUE(GetJunctionTarget(u"C:\\Long folder", leadsTo));
  EXPECT_EQ(leadsTo, u"D:\\Target folder\\Long folder");
  EXPECT_EQ(Contents(u"C:\\Long folder\\MYDOCU~1\\letter.txt"), "short");
  // A junction that names the folder by its short name follows it home.
  MakeFolder(u"C:\\Other");
  Redirect(u"C:\\Other", u"D:\\Target folder\\LONGFO~1");
  EXPECT_TRUE(ChangeJunctionTarget(u"C:\\Other", u"D:\\Target folder\\LONGFO~1\\Other"));
  Redirect(u"C:\\Long folder", u"D:\\Target folder", u"/d");
  EXPECT_TRUE(GetJunctionTarget(u"C:\\Other", leadsTo));
  EXPECT_EQ(leadsTo, u"C:\\Long folder\\Other");
  Remove(u"C:\\Other", u"C:\\LONGFO~1");
  EXPECT_TRUE(win32::RemoveDirectoryW(u"C:\\Other"));
  EXPECT_EQ(ChangesSince(before), "");
  ExpectRefused(u"/RedirectFolder", {{u"C:\\Long folder", u"C:\\LONGFO~1\\New", "within the same Source folder"}});
}

TEST_F(ShortNames, OfOthersAreNoPlaceToGoTo) {
  const std::string taken = " cannot become D:\\Target folder\\";
  ExpectRefused(u"/RedirectFolder",
                {{u"C:\\SOMEST~1", u"D:\\TARGET~1", taken + "SOMEST~1: another item has that name"}});
  ExpectRefused(u"/RedirectFile", {{u"C:\\LETTER~1.TXT", u"D:\\Target folder", taken + "LETTER~1.TXT: another item"}});
}

TEST_F(ShortNames, BeLongOnesGoThereAndComeHome) {
  const State before = Now();
  for (const bool targetMakesThem : {true, false}) {
    machine->FindByLetter(u'D')->volume->makesShortNames = targetMakesThem;
    machine->gate.FailCall("DeviceIoControl", 1, win32::ERROR_ACCESS_DENIED);  // the junction: all is taken back
    EXPECT_EQ(Run({u"/RedirectFolder", u"C:\\Long folder", u"/loc:D:\\Target folder"}).exitCode, 1);
    machine->gate.ClearFailures();
    EXPECT_EQ(ChangesSince(before), "");
    Redirect(u"C:\\Long folder", u"D:\\Target folder");
    Remove(u"C:\\Long folder", u"D:\\Target folder");
    EXPECT_EQ(ChangesSince(before), "");
  }
}

}  // namespace
