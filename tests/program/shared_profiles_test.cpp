// The Default and Public profiles redirected by themselves: what goes, what comes back, and what nobody gets a hand in.
#include "program/shared_profiles.h"

namespace {

using namespace test;
using emulated::Utf8;

const std::u16string kCopy = kPlace + u"\\Public";

class SharedProfilesCommands : public SharedProfilesTest {
 protected:
  // Who may do what, without how that came to be.
  static std::u16string Entries(const std::u16string& path) { return Dacl(path).substr(Dacl(path).find(u'(')); }
  // The command fails when this call is refused.
  bool FailsAt(const char* call, std::uint64_t number, const std::function<RunResult()>& command) {
    machine->gate.FailCall(call, number, win32::ERROR_ACCESS_DENIED);
    const bool failed = command().exitCode == 1;
    machine->gate.ClearFailures();
    return failed;
  }
  bool BringingBackFails(std::uint64_t write = 1) {
    return FailsAt("RegSetValueExW", write, [this] { return BringBack(u"PublicProfile"); });
  }
};

TEST_F(SharedProfilesCommands, GoAndComeBack) {
  Share(u"public", kPublic);
  Share(u"papers", kPublic + u"\\Documents");
  const auto shares = Shares();
  const Values values = ProfileValues();
  const Items ofPublic = AllOf(kPublic);
  const Files files = FilesOf(kPublic), ofDefault = FilesOf(kDefault);
  EXPECT_TRUE(Redirect(u"PublicProfile", kPlace).Said(u"profile image settingsRedirect user profile was successful."));
  EXPECT_EQ(Value(u"Public") + Value(u"Default"), kCopy + u"%SystemDrive%\\Users\\Default");
  EXPECT_EQ(FilesOf(kCopy), files);
  EXPECT_EQ(Config().status, u"0");
  const std::map<std::u16string, std::u16string> moved = {{u"public", kCopy}, {u"papers", kCopy + u"\\Documents"}};
  EXPECT_EQ(Shares(), moved);
  EXPECT_EQ(Redirect(u"PublicProfile", u"D:\\Other").exitCode, 1);
  EXPECT_TRUE(Redirect(u"DefaultProfile", kCopy + u"\\x").Logged(u" lies in the profile D:\\Profiles\\Public. "));
  ASSERT_EQ(Redirect(u"DefaultProfile", kPlace).exitCode, 0);
  EXPECT_EQ(FilesOf(kPlace + u"\\Default"), ofDefault);
  machine->Advance(60000);
  const std::string documents = Describe(kCopy + u"\\Documents");
  EXPECT_TRUE(BringingBackFails());
  EXPECT_EQ(Shares(), moved);
  EXPECT_TRUE(BringBack(u"PublicProfile").Logged(u"#INFO: Going to update profile image file paths for Public User."));
  EXPECT_EQ(AllOf(kPublic), ofPublic);
  EXPECT_EQ(Describe(kPublic + u"\\Documents"), documents);
  EXPECT_FALSE(Exists(kCopy));
  EXPECT_EQ(Shares(), shares);
  EXPECT_EQ(Notes(), (Lines{u"Default"}));
  EXPECT_EQ(Told(BringBack(u"PublicProfile")),
            Refused(u"#INFO: The profile C:\\Users\\Public is not redirected.\n#ERROR: No profile that was named is "
                    u"redirected.",
                    true));

  // The copy is gone for good: the old folder is all that there is.
  ASSERT_TRUE(win32::MoveFileW(kPlace.c_str(), u"D:\\Lost"));
  const RunResult lost = BringBack(u"DefaultProfile");
  EXPECT_TRUE(
      lost.exitCode == 0 &&
      lost.Logged(u"#INFO: The folder D:\\Profiles\\Default is not there any more. Nothing comes back from it."));
  EXPECT_EQ(FilesOf(kDefault), ofDefault);
  EXPECT_EQ(ProfileValues(), values);

  // Without security and shares, at a drive's root, and with a value that replaces no variables.
  machine->registry().SetText(kList, u"Public", kPublic, win32::REG_SZ);
  const Values plain = ProfileValues();
  ASSERT_EQ(Run({u"/RedirectUP", u"/PublicProfile", u"/loc:D:\\", u"/-NTFS", u"/-Share"}).exitCode, 0);
  EXPECT_EQ(Value(u"Public"), u"D:\\Public");
  MakeFolder(u"D:\\Public\\Shut");
  SetSecurity(u"D:\\Public\\Shut", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FR;;;IU)");
  ASSERT_EQ(Run({u"/RedirectUPDefault", u"/PublicProfile", u"/-NTFS", u"/-Share"}).exitCode, 0);
  EXPECT_EQ(ProfileValues(), plain);
  EXPECT_EQ(Shares(), shares);
  EXPECT_EQ(FilesOf(kPublic), files);
  EXPECT_TRUE(Dacl(kPublic + u"\\Shut").starts_with(u"D:P")) << Utf8(Dacl(kPublic + u"\\Shut"));
}

// Every user may write to D:, and to what somebody makes there; nobody but administrators may change what new profiles
// are made from. Public is everybody's to write to, also without its files' security - but not all of it.
TEST_F(SharedProfilesCommands, TakeNoEntriesFromTheFolderAboveThem) {
  for (const auto* flag : {u"/NTFS", u"/-NTFS"})
    for (const std::u16string place : {u"D:", u"D:\\Made", u"D:\\New"}) {
      SCOPED_TRACE(Utf8(flag) + " " + Utf8(place));
      Restart();
      if (place == u"D:\\Made") MakeFolder(place);
      SetSecurity(kPublic + u"\\Music", u"O:BAG:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;IU)");
      for (const std::u16string name : {u"Default", u"Public"}) {
        const std::u16string copy = place + u"\\" + name;
        ASSERT_EQ(Run({u"/RedirectUP", u"/" + name + u"Profile", u"/loc:" + place + u"\\", flag}).exitCode, 0);
        EXPECT_TRUE(Dacl(copy).starts_with(u"D:P")) << Utf8(Dacl(copy));
        for (const std::u16string& item : Names(copy))
          EXPECT_EQ(Dacl(copy + item).find(u";AU)"), std::u16string::npos) << Utf8(item);
      }
      EXPECT_EQ(Entries(place + u"\\Default\\NTUSER.DAT").find(u";IU)"), std::u16string::npos);
      const std::u16string report = u"\\Public\\Documents\\report.txt";
      EXPECT_EQ(Dacl(place + report), Dacl(u"C:\\Users" + report));
      EXPECT_EQ(Entries(place + u"\\Public\\Music"), Entries(kPublic + u"\\Music"));
      EXPECT_EQ(Security(place) == Security(u"C:\\Users"), place == u"D:\\New");
    }
}

// A name in Public may belong to a file elsewhere, which whoever made the name may not write.
TEST_F(SharedProfilesCommands, WriteIntoNoFileOfSeveralNames) {
  const std::u16string documents = kPublic + u"\\Documents\\", copies = kCopy + u"\\Documents\\";
  const std::u16string closed = u"O:BAG:BAD:PAI(A;;FA;;;SY)(A;;FA;;;BA)";
  for (const std::u16string flag : {u"/NTFS", u"/-NTFS"}) {
    SCOPED_TRACE(Utf8(flag));
    Restart();
    MakeFolder(u"C:\\Closed");
    MakeFile(u"C:\\Closed\\secret.txt", "the machine's");
    SetSecurity(u"C:\\Closed\\secret.txt", closed);
    MakeFile(u"C:\\Closed\\fixed.txt", "fixed", win32::FILE_ATTRIBUTE_READONLY);
    MakeFile(documents + u"one.txt", "two names");
    MakeFile(documents + u"guarded.txt", "guarded");
    MakeFile(documents + std::u16string(200, u'n') + u".txt", "a long name");
    SetSecurity(documents + u"guarded.txt", closed);
    for (const auto& [name, file] : {std::pair{u"bait.txt", u"C:\\Closed\\secret.txt"},
                                     {u"fixed link.txt", u"C:\\Closed\\fixed.txt"},
                                     {u"other.txt", u"C:\\Users\\Public\\Documents\\one.txt"}})
      ASSERT_TRUE(win32::CreateHardLinkW((documents + name).c_str(), file, nullptr));
    const Tree outside = DescribeTree(u"C:\\Closed");
    const std::u16string secret = Security(u"C:\\Closed\\secret.txt");
    const std::u16string guarded = Entries(documents + u"guarded.txt");
    Files files = FilesOf(kPublic);
    ASSERT_EQ(Run({u"/RedirectUP", u"/PublicProfile", u"/loc:" + kPlace, flag}).exitCode, 0);
    SetSecurity(copies + u"bait.txt", closed + u"(A;;FA;;;BU)");
    MakeFile(copies + u"bait.txt", "the user's");
    MakeFile(copies + u"one.txt", "edited");
    EXPECT_TRUE(BringingBackFails());
    EXPECT_EQ(FilesOf(kPublic), files) << "the old folder is as it was";
    ASSERT_EQ(Run({u"/RedirectUPDefault", u"/PublicProfile", flag}).exitCode, 0);
    EXPECT_EQ(DescribeTree(u"C:\\Closed"), outside);
    EXPECT_EQ(Security(u"C:\\Closed\\secret.txt"), secret);
    EXPECT_EQ(Entries(documents + u"guarded.txt"), guarded);
    files[u"\\Documents\\bait.txt"] = "the user's";
    files[u"\\Documents\\one.txt"] = "edited";
    // Its other name would lose the read-only mark with this one.
    files[u"\\Documents\\fixed link (old).txt"] = "fixed";
    EXPECT_EQ(FilesOf(kPublic), files);
  }
}

// Names that others have, or could get, as their short ones, in the old folder and beside what is put out of the way
// there.
TEST_F(SharedProfilesCommands, ComeBackBesideShortNames) {
  const std::u16string documents = kPublic + u"\\Documents\\";
  Restart({.shortNames = true});
  MakeFile(documents + u"LETTER~1.TXT", "called so");
  for (const auto* name : {u"Letter to Jan.txt", u"Letter\u00DCbung.txt"}) MakeFile(documents + name, "another");
  const Files files = FilesOf(kPublic);
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  EXPECT_TRUE(BringingBackFails());
  EXPECT_EQ(FilesOf(kPublic), files);
  ASSERT_EQ(BringBack(u"PublicProfile").exitCode, 0);
  EXPECT_EQ(FilesOf(kPublic), files);
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  MakeFile(documents + u"Report of May.txt", "in the old folder only");
  MakeFile(kCopy + u"\\Documents\\REPORT~1.TXT", "called so, and newer");
  const Files old = FilesOf(kPublic);
  const RunResult refused = BringBack(u"PublicProfile");
  EXPECT_TRUE(refused.exitCode == 1 && refused.Logged(u"REPORT~1.TXT: another item has that name there."));
  EXPECT_EQ(FilesOf(kPublic), old);
}

// Folders of Public that are redirected themselves, other folders whose contents lie in it, and a volume.
TEST_F(SharedProfilesCommands, WhatIsRedirectedOrMountedInThemFollows) {
  MakeFolder(kPublic + u"\\Papers");
  MakeFile(kPublic + u"\\Papers\\sheet.txt", "paper");
  MakeFolder(kPublic + u"\\Shelf");
  ASSERT_TRUE(win32::SetVolumeMountPointW((kPublic + u"\\Shelf\\").c_str(), kVolume.c_str()));
  MakeFile(kPublic + u"\\Shelf\\book.txt", "on the volume");
  MakeFolder(u"D:\\Data");
  ASSERT_EQ(Run({u"/RedirectFolder", kPublic + u"\\Papers", u"/loc:D:\\"}).exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFolder", u"D:\\Data", u"/loc:" + kPublic}).exitCode, 0);
  const RunResult refused = Redirect(u"PublicProfile", kPlace);
  EXPECT_TRUE(refused.exitCode == 1 &&
              refused.Logged(u"#ERROR: The profile C:\\Users\\Public holds what D:\\Data is redirected to. "
                             u"Remove that redirection first."));
  ASSERT_EQ(Run({u"/RedirectFolder", u"D:\\Data", u"/loc:" + kPublic, u"/d"}).exitCode, 0);
  for (const std::uint64_t write : {1u, 2u, 3u}) {
    EXPECT_TRUE(FailsAt("RegSetValueExW", write, [this] { return Redirect(u"PublicProfile", kPlace); }));
    EXPECT_EQ(AllRecords(), (Pairs{{kPublic + u"\\Papers", u"D:\\Papers"}}));
  }
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  EXPECT_EQ(LinkTarget(kCopy + u"\\Papers"), u"D:\\Papers");
  EXPECT_EQ(AllRecords(), (Pairs{{kCopy + u"\\Papers", u"D:\\Papers"}}));
  EXPECT_TRUE(FailsAt("DeleteVolumeMountPointW", 1, [this] { return BringBack(u"PublicProfile"); }));
  const Pairs records = AllRecords();
  for (const std::uint64_t write : {1u, 2u}) {  // of the record, and of the value at last
    EXPECT_TRUE(BringingBackFails(write));
    EXPECT_EQ(AllRecords(), records);
  }
  for (const std::u16string& folder : {kPublic, kCopy})
    EXPECT_EQ(Contents(folder + u"\\Shelf\\book.txt"), "on the volume");
  ASSERT_EQ(Run({u"/RedirectFolder", kCopy + u"\\Papers", u"/loc:D:\\", u"/d"}).exitCode, 0);
  EXPECT_EQ(BringBack(u"PublicProfile").exitCode, 0);
  EXPECT_EQ(Contents(kPublic + u"\\Papers\\sheet.txt"), "paper");
  EXPECT_EQ(LinkTarget(kPublic + u"\\Papers (old)"), u"D:\\Papers");
  EXPECT_EQ(Contents(kPublic + u"\\Shelf\\book.txt"), "on the volume");
  EXPECT_FALSE(Exists(kCopy));
}

// What a user does in the copy while it is left: what came back is complete, and what he did stays.
TEST_F(SharedProfilesCommands, FilesThatChangeWhileTheyComeBackStay) {
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  const std::u16string pictures = kCopy + u"\\AccountPictures\\";
  // While the service is asked to follow. By then nothing is there twice: a run that ends here has done its work.
  bool done = false;
  machine->onSleep = [&](std::uint64_t) {
    if (std::exchange(done, true)) return;
    EXPECT_EQ(FilesOf(kCopy), (Files{{u"\\AccountPictures\\anna.jpg", "a face"}}));
    for (const auto& [name, contents] : FilesOf(kPublic)) EXPECT_EQ(name.find(u" (old)"), name.npos) << Utf8(name);
    MakeFile(pictures + u"anna.jpg", "late");
    MakeFile(pictures + u"late.jpg", "late, too");
  };
  const RunResult run = BringBack(u"PublicProfile");
  EXPECT_TRUE(run.exitCode == 0 &&
              run.Logged(u"#INFO: The file D:\\Profiles\\Public\\AccountPictures\\anna.jpg was changed "
                         u"after it had been copied back. It stays.") &&
              run.Logged(u"#INFO: The folder D:\\Profiles\\Public is not empty. It stays."));
  machine->onSleep = {};
  EXPECT_EQ(Contents(kPublic + u"\\AccountPictures\\anna.jpg"), "a face");
  EXPECT_EQ(FilesOf(kCopy),
            (Files{{u"\\AccountPictures\\anna.jpg", "late"}, {u"\\AccountPictures\\late.jpg", "late, too"}}));
}

// Any user may make folders in Public that only he may write, or read: in the live one, and in the one that stayed.
TEST_F(SharedProfilesCommands, ComeBackWithWhatItsUsersKeepToThemselves) {
  const std::u16string reads = u"O:" + kSidOfAnna + u"G:" + kSidOfAnna + u"D:P(A;OICI;FA;;;" + kSidOfAnna + u")";
  const std::u16string writes = reads + u"(A;OICI;0x1200a9;;;WD)";
  const auto fill = [&](const std::u16string& profile, const std::string& text) {
    for (const auto* name : {u"\\Hers", u"\\Hers\\Inner", u"\\Secret"}) MakeFolder(profile + name);
    for (const auto* name : {u"\\Hers\\a.txt", u"\\Hers\\Inner\\b.txt", u"\\Secret\\c.txt"})
      MakeFile(profile + name, text);
    for (const auto* name : {u"\\Hers\\a.txt", u"\\Secret\\c.txt", u"\\Secret"}) SetSecurity(profile + name, reads);
    for (const auto* name : {u"\\Hers\\Inner", u"\\Hers"}) SetSecurity(profile + name, writes);
  };
  const auto securityOf = [](const std::u16string& profile) {
    EnablePrivileges();
    std::u16string all;
    for (const auto* name : {u"\\Hers", u"\\Hers\\a.txt", u"\\Hers\\Inner", u"\\Secret", u"\\Secret\\c.txt"})
      all += Exists(profile + name) ? Security(profile + name) : u"";
    return all;
  };
  for (const bool automatic : {false, true})
    for (const bool stayed : {false, true}) {
      SCOPED_TRACE(std::string(automatic ? "automatic" : "by itself") + (stayed ? ", in the old folder, too" : ""));
      Restart();
      ASSERT_EQ((automatic ? SetWithBoth(kPlace) : Redirect(u"PublicProfile", kPlace)).exitCode, 0);
      if (stayed) fill(kPublic, "old");
      fill(kCopy, "new");
      const auto live = securityOf(kCopy), old = securityOf(kPublic);
      const auto back = [&] { return automatic ? Remove() : BringBack(u"PublicProfile"); };
      EXPECT_TRUE(FailsAt("RegSetValueExW", 1, back));
      EXPECT_EQ(securityOf(kCopy), live);
      EXPECT_EQ(securityOf(kPublic), old);
      ASSERT_EQ(back().exitCode, 0);
      EXPECT_EQ(securityOf(kPublic), live);
      for (const auto* name : {u"\\Hers\\a.txt", u"\\Hers\\Inner\\b.txt"}) EXPECT_EQ(Contents(kPublic + name), "new");
      EXPECT_FALSE(Exists(kCopy));
    }
}

}  // namespace
