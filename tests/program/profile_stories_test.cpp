// A user's profile moved to another place and back: all that is said, and what is there afterwards.
#include "program/profile_stories.h"

namespace {

using namespace test;
using emulated::Utf8;

class Profile : public ProfileStories {
 protected:
  // What Told says of a move, there or home.
  static std::string Moved(const std::string& from, const std::string& to, bool isThere, bool stoodThere) {
    const std::string result = "Redirect user profile was successful.";
    return std::string("0\n") + (isThere ? kApps : "") +
           (stoodThere ? "\nThe target folder: \"" + to + "\" already exists.\n" : "") + result +
           "\n--\n#INFO: Going to move files and folders from Source = " + from + " to Target = " + to + ".\n" + result;
  }
};

TEST_F(Profile, GoesToAFolderAndComesHome) {
  const Items before = AllOf(kAnna);
  const std::u16string wallpaper = Wallpaper(kAnna);
  ASSERT_TRUE(wallpaper.starts_with(u"C:\\Users\\anna\\")) << Utf8(wallpaper);
  EXPECT_EQ(Told(Move(u"anna", kPlace)), Moved("C:\\Users\\anna", "D:\\Profiles\\anna", true, false));
  EXPECT_EQ(AllOf(u"D:\\Profiles\\anna"), before);
  EXPECT_EQ(Security(kPlace), Security(u"C:\\Users"));
  EXPECT_EQ(ImagePath(), u"D:\\Profiles\\anna");
  EXPECT_EQ(AllRecords(), (Pairs{{kAnna, u"D:\\Profiles\\anna"}}));
  EXPECT_EQ(Wallpaper(u"D:\\Profiles\\anna"), u"D:\\Profiles" + wallpaper.substr(8));
  EXPECT_EQ(AllOf(kAnna), (Items{{u"(itself)", before.at(u"(itself)")}}));
  for (const auto* undo : {u"/d", u"/c"})
    EXPECT_TRUE(Run({u"/RedirectFolder", kAnna, u"/loc:D:\\Profiles", undo}).Logged(u"RedirectUPDefault"));

  EXPECT_EQ(Told(MoveHome(u"ANNA")), Moved("D:\\Profiles\\anna", "C:\\Users\\anna", false, true));
  EXPECT_EQ(AllOf(kAnna), before);
  EXPECT_EQ(ImagePath(), kAnna);
  EXPECT_EQ(AllRecords(), Pairs{});
  EXPECT_EQ(Wallpaper(kAnna), wallpaper);
  EXPECT_TRUE(Exists(kPlace) && !Exists(u"D:\\Profiles\\anna") && !HiveIsLoaded());
  EXPECT_TRUE(
      Move(u"anna", u"C:\\Shared").Logged(u"#INFO: C:\\Shared\\anna is on the same volume as C:\\Users\\anna: "));
}

TEST_F(Profile, MayBeRecordedByItsShortName) {
  Restart({.shortNames = true});
  const std::u16string folder = u"C:\\Users\\Anna Berg", there = u"D:\\Profiles of all\\Anna Berg";
  ASSERT_TRUE(win32::MoveFileW(kAnna.c_str(), folder.c_str()));
  NameFolder(kSidOfAnna, u"C:\\Users\\ANNABE~1");
  Wallpaper(folder, u"c:\\users\\ANNABE~1\\Pictures\\x.jpg");
  EXPECT_EQ(Run({u"/RedirectFolder", u"C:\\Users\\ANNABE~1\\Documents", u"/loc:D:\\Folders"}).exitCode, 0);
  const Items before = AllOf(folder);
  Move(u"anna", u"D:\\Profiles of all");
  EXPECT_EQ(AllOf(there), before);
  EXPECT_EQ(ImagePath() + Wallpaper(there), there + there + u"\\Pictures\\x.jpg");
  EXPECT_EQ(AllRecords(), (Pairs{{there + u"\\Documents", u"D:\\Folders\\Documents"}, {folder, there}}));
  MoveHome(u"anna");
  EXPECT_EQ(AllOf(folder), before);
}

TEST_F(Profile, GoesToAVolumeAndComesHome) {
  const Items before = AllOf(kAnna);
  const std::u16string root = Security(kVolume), beside = kAnna + u".mount", aside = kAnna + u".temp";
  for (const std::u16string& foreign : {beside, aside}) {
    MakeFolder(foreign);
    MakeFile(foreign + u"\\foreign.txt", "foreign");
  }
  EXPECT_EQ(Told(Move(u"anna", kVolume)),
            Refused(u"#ERROR: Failed to Mount Volume on Target Folder: C:\\Users\\anna.mount"));
  EXPECT_TRUE(win32::DeleteFileW((beside + u"\\foreign.txt").c_str()));     // an empty one will do
  machine->gate.FailCallsFrom("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);  // the last step: all is taken back
  EXPECT_EQ(Move(u"anna", kVolume).exitCode, 1);
  machine->gate.ClearFailures();
  EXPECT_EQ(AllOf(kAnna), before);
  EXPECT_EQ(Security(kVolume), root);
  EXPECT_EQ(Told(Move(u"anna", kVolume)), Moved("C:\\Users\\anna", "C:\\Users\\anna.mount", true, true));
  EXPECT_TRUE(Attributes(kAnna) & win32::FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_FALSE(Exists(beside));
  EXPECT_EQ(AllOf(kAnna), before);
  EXPECT_EQ(Utf8(Security(kVolume)), before.at(u"(itself)"));
  EXPECT_EQ(ImagePath(), kAnna);
  EXPECT_EQ(AllRecords(), Pairs{});
  EXPECT_EQ(Run({u"/RedirectUP"}).said, u"User   Profile folder\n\nanna   C:\\Users\\anna\n");
  EXPECT_EQ(Told(Move(u"anna", u"D:\\P")),
            Refused(u"#ERROR: The folder C:\\Users\\anna is already redirected. Browse to a different location.\n"
                    u"#ERROR: PreScanning failed for Source = C:\\Users\\anna and Target = D:\\P\\anna."));
  EXPECT_EQ(AllOf(kAnna), before);

  EXPECT_EQ(
      Told(MoveHome(u"anna")),
      Refused(u"#ERROR: The folder C:\\Users\\anna.temp already exists and is not empty. Rename it, and remove the "
              u"redirection again.",
              true));
  EXPECT_TRUE(win32::DeleteFileW((aside + u"\\foreign.txt").c_str()));
  // Recorded by the volume's name, which leads to an empty volume once the profile is home.
  NameFolder(kSidOfAnna, kVolume);
  {
    const auto held = Hold(kAnna + u"\\NTUSER.DAT");
    EXPECT_TRUE(MoveHome(u"anna").Logged(u"#ERROR: PreScanning failed"));
    EXPECT_EQ(ImagePath(), kVolume);
  }
  EXPECT_EQ(Told(MoveHome(u"anna")), Moved("C:\\Users\\anna", "C:\\Users\\anna.temp", false, true));
  EXPECT_FALSE(Attributes(kAnna) & win32::FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_FALSE(Exists(aside));
  EXPECT_EQ(AllOf(kAnna), before);
  EXPECT_EQ(ImagePath(), kAnna);
  EXPECT_EQ(Security(kVolume), root);
  EXPECT_EQ(Names(kVolume), Names(u"D:")) << "only what Windows keeps there";
  NameFolder(kSidOfAnna, kVolume);
  EXPECT_EQ(Told(MoveHome(u"anna")), "1\n\n--\n#ERROR: Volume Path to Normal Path Conversion Failed.");
}

// Cut off with the volume mounted beside the profile, or while the two folders changed places: an empty folder must not
// be taken for the profile.
TEST_F(Profile, OfACommandThatWasCutOffIsFound) {
  const std::u16string beside = kAnna + u".mount", aside = kAnna + u".temp";
  MakeFolder(beside);
  ASSERT_TRUE(win32::SetVolumeMountPointW((beside + u"\\").c_str(), kVolume.c_str()));
  ASSERT_TRUE(win32::MoveFileExW((kAnna + u"\\Documents\\letter.txt").c_str(), (beside + u"\\letter.txt").c_str(),
                                 win32::MOVEFILE_COPY_ALLOWED));
  ASSERT_EQ(Move(u"anna", kVolume).exitCode, 0);
  EXPECT_EQ(Contents(kAnna + u"\\letter.txt"), "Dear Jan");
  EXPECT_TRUE(Exists(kAnna + u"\\NTUSER.DAT"));

  ASSERT_TRUE(win32::MoveFileW(kAnna.c_str(), beside.c_str()));
  EXPECT_TRUE(
      MoveHome(u"anna").Logged(u"#INFO: A redirection of the User Profile C:\\Users\\anna was interrupted. The "
                               u"profile is in C:\\Users\\anna.mount: rename this folder to the first one."));
  ASSERT_TRUE(win32::MoveFileW(beside.c_str(), kAnna.c_str()));
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);

  ASSERT_TRUE(win32::MoveFileW(kAnna.c_str(), aside.c_str()));
  MakeFolder(kAnna);
  const std::u16string where =
      u"#INFO: A redirection of the User Profile C:\\Users\\anna was interrupted. The profile is in "
      u"C:\\Users\\anna.temp: this folder belongs in the place of the first one, which is empty.";
  EXPECT_EQ(Told(MoveHome(u"anna")), Refused(where, true));
  for (const std::u16string& location : {kPlace, kVolume}) EXPECT_EQ(Told(Move(u"anna", location)), Refused(where));
  EXPECT_TRUE(Exists(aside + u"\\NTUSER.DAT"));
  EXPECT_EQ(ImagePath(), kAnna);
}

// An account that nobody knows, with a value that replaces no variables, and a location that is not there yet.
TEST_F(Profile, OfAnUnknownAccountMoves) {
  const std::u16string sid = kSidOfAnna + u"9", berg = u"C:\\Users\\Anna Berg";
  MakeFolder(berg);
  MakeFile(berg + u"\\mine.txt", "mine");
  NameFolder(sid, berg, win32::REG_SZ);
  const Items before = AllOf(berg);
  ASSERT_EQ(Move(u"anna berg", u"D:\\Deep\\er\\").exitCode, 0);
  EXPECT_EQ(Contents(u"D:\\Deep\\er\\Anna Berg\\mine.txt"), "mine");
  for (const auto* made : {u"D:\\Deep", u"D:\\Deep\\er"}) EXPECT_EQ(Security(made), Security(u"C:\\Users"));
  ASSERT_EQ(Move(u"JAN", u"D:\\").exitCode, 0);
  EXPECT_TRUE(Dacl(u"D:\\jan").starts_with(u"D:P")) << "whatever the folder above lets in";
  EXPECT_EQ(Told(Run({u"/RedirectUP"})),
            "0\nUser   Profile folder\n\njan   D:\\jan\n" + Utf8(sid) + "   D:\\Deep\\er\\Anna Berg\n\n--");
  for (const auto* user : {u"ANNA BERG", u"jan"}) ASSERT_EQ(MoveHome(user).exitCode, 0);
  EXPECT_EQ(AllOf(berg), before);
  EXPECT_EQ(ImagePath(sid), berg);
  EXPECT_EQ(machine->registry().Query(kProfileList + u"\\" + sid, u"ProfileImagePath")->type, win32::REG_SZ);
  EXPECT_EQ(Told(Run({u"/RedirectUP"})), "0\n\n--");
}

// The chain of moves leaves no record behind; what else is recorded follows, and so do junctions and shares.
TEST_F(Profile, TakesRedirectionsAndSharesAlong) {
  using Paths = std::map<std::u16string, std::u16string>;
  Share(u"all", kAnna);
  Share(u"docs", kAnna + u"\\Documents");
  MakeFolder(u"D:\\Shown");
  MakeFile(u"D:\\Shown\\s.txt", "shown");
  ASSERT_EQ(Run({u"/RedirectFolder", kAnna + u"\\Pictures", u"/loc:D:\\Kept"}).exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFolder", u"D:\\Shown", u"/loc:C:\\Users\\anna"}).exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFile", kAnna + u"\\Documents\\letter.txt", u"/loc:D:\\Kept"}).exitCode, 0);
  const Pairs before = AllRecords(), filesBefore = AllRecords(u"FileJunctions");
  const ReparseData shown = MountPointData(u"\\??\\C:\\Users\\anna\\Shown\\", u"C:\\Users\\anna\\Shown");
  ASSERT_TRUE(RestoreLink({u"D:\\Shown", {}, true, shown}));
  for (const std::u16string location : {u"D:\\First", u"D:\\Second"}) {
    ASSERT_EQ(Move(u"anna", location).exitCode, 0);
    const std::u16string folder = location + u"\\anna";
    const Pairs records = AllRecords();
    EXPECT_EQ(records[0], std::pair(folder + u"\\Pictures", std::u16string(u"D:\\Kept\\Pictures")));
    EXPECT_EQ(records[1], std::pair(std::u16string(u"D:\\Shown"), folder + u"\\Shown"));
    EXPECT_EQ(AllRecords(u"FileJunctions")[0].first, folder + u"\\Documents\\letter.txt");
    EXPECT_EQ(Contents(u"D:\\Shown\\s.txt"), "shown");
    EXPECT_EQ(Contents(folder + u"\\Documents\\letter.txt"), "Dear Jan");
    EXPECT_EQ(Shares(), (Paths{{u"all", folder}, {u"docs", folder + u"\\Documents"}}));
  }
  EXPECT_EQ(AllRecords().size(), 4u);
  ASSERT_EQ(Run({u"/RedirectUPDefault", u"anna", u"/-Share"}).exitCode, 0);
  EXPECT_EQ(Shares(), Paths{});
  EXPECT_EQ(AllRecords(), before);
  EXPECT_EQ(AllRecords(u"FileJunctions"), filesBefore);
  EXPECT_EQ(ReadLinkData(u"D:\\Shown"), shown);
  ASSERT_EQ(Move(u"anna", u"D:\\Second").exitCode, 0);
  EXPECT_EQ(AllRecords().back(), std::pair(kAnna, std::u16string(u"D:\\Second\\anna")));
}

// What the administrator may not read arrives with just the security that it had, also where it had come from when the
// move is refused.
TEST_F(Profile, KeepsItsSecretsSecret) {
  const std::u16string own = u"O:" + kSidOfAnna + u"D:P(A;OICI;FA;;;" + kSidOfAnna + u")";
  for (const auto* folder : {u"\\vault", u"\\vault\\inner", u"\\vault\\inner\\deep"}) MakeFolder(kAnna + folder);
  for (const auto* file : {u"\\secret.txt", u"\\vault\\a.txt", u"\\vault\\inner\\deep\\b.txt"})
    MakeFile(kAnna + file, "secret");
  SetSecurity(kAnna + u"\\secret.txt", own);
  SetSecurity(kAnna + u"\\vault\\inner\\deep\\b.txt", own + u"(A;;0x20080;;;BA)");
  SetSecurity(kAnna + u"\\vault", own);
  // A profile that lets nobody in but its user and the system. Once moved, everything in it inherits that.
  SetSecurity(kAnna, own + u"(A;OICI;FA;;;SY)");
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  EXPECT_TRUE(win32::RemoveDirectoryW(u"D:\\P"));
  const Items before = AllOf(kAnna);
  ASSERT_NE(before.at(u"\\vault\\a.txt").find("(A;ID;FA;;;S-1-5-21"), std::string::npos);
  for (const std::u16string& location : {std::u16string(u"D:\\P"), kVolume}) {
    const std::u16string folder = location == kVolume ? kAnna : u"D:\\P\\anna";
    ASSERT_EQ(Move(u"anna", location).exitCode, 0);
    EXPECT_EQ(AllOf(folder), before) << "(there)";
    if (folder != kAnna) {  // the folder that was left is closed again, too
      const auto held = Hold(folder + u"\\secret.txt");
      EXPECT_EQ(MoveHome(u"anna").exitCode, 1);
      EXPECT_EQ(AllOf(kAnna), (Items{{u"(itself)", before.at(u"(itself)")}}));
    }
    ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
    EXPECT_EQ(AllOf(kAnna), before) << "(back)";
  }
}

// Without NTFS permissions, and into a folder that somebody has made: the folder is the user's all the same, and what
// stood in it inherits from it.
TEST_F(Profile, OwnsTheFolderThatItGoesTo) {
  const std::u16string descriptor = Security(kAnna), there = u"D:\\P\\anna\\there.txt";
  MakeFolder(u"D:\\P");
  MakeFolder(u"D:\\P\\anna");
  MakeFile(there, "there");
  const std::u16string lent = u"D:(A;ID;FA;;;BA)(A;ID;FR;;;IU)";  // from a folder that it was moved from
  SetSecurity(kAnna + u"\\Documents\\letter.txt", u"O:BA" + lent);
  const std::u16string foreign = Security(u"D:\\P\\anna"), ofThere = Security(there);
  ASSERT_NE(ofThere.find(u";AU)"), ofThere.npos);
  {
    const auto held = Hold(kAnna + u"\\NTUSER.DAT");
    EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 1);
    EXPECT_EQ(Security(u"D:\\P\\anna") + Security(there), foreign + ofThere);
  }
  EXPECT_TRUE(Run({u"/RedirectUP", u"anna", u"/loc:D:\\P", u"/-NTFS"})
                  .Logged(u"#INFO: The folder D:\\P was there before and keeps its access rights. Its entry "
                          u"(A;OICIID;0x1301bf;;;AU) lets others rename or replace it, or what is in it."));
  EXPECT_EQ(Security(u"D:\\P\\anna"), descriptor);
  EXPECT_EQ(Contents(there), "there");
  const std::u16string inherited = u"D:AI(A;ID;FA;;;SY)(A;ID;FA;;;BA)(A;ID;FA;;;" + kSidOfAnna + u")";
  EXPECT_EQ(Dacl(there), inherited);
  EXPECT_EQ(Dacl(u"D:\\P\\anna\\Documents\\letter.txt"), inherited) << "not what it was lent";
}

TEST_F(Profile, WithAWallpaperOfItsOwnFollows) {
  for (const auto& [before, after] : {std::pair{u"C:\\Users\\anna\\x.jpg", u"D:\\P\\anna\\x.jpg"},
                                      {u"c:\\USERS\\Anna", u"D:\\P\\anna"},
                                      {u"C:\\Users\\anna2\\x.jpg", u"C:\\Users\\anna2\\x.jpg"}}) {
    Wallpaper(kAnna, before);
    ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
    EXPECT_EQ(Wallpaper(u"D:\\P\\anna"), after);
    ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  }
  emulated::Registry& registry = machine->registry();
  // A forgotten hive is no obstacle; a broken one keeps the profile where it is, but not from coming home.
  ASSERT_EQ(registry.LoadHive(u"HKU\\_ntuser", u"C:\\Users\\jan\\NTUSER.DAT"), 0u);
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  win32::SetFileAttributesW(u"D:\\P\\anna\\NTUSER.DAT", win32::FILE_ATTRIBUTE_NORMAL);
  MakeFile(u"D:\\P\\anna\\NTUSER.DAT", "no hive");
  const RunResult home = MoveHome(u"anna");
  EXPECT_TRUE(home.exitCode == 0 &&
              home.Logged(u"#INFO: Unable to load the user's registry file C:\\Users\\anna\\ntuser.dat."));
  const Tree before = DescribeTree(kAnna);
  const RunResult run = Move(u"anna", u"D:\\P");
  EXPECT_TRUE(run.exitCode == 1 && run.Logged(u"#ERROR: The registry file of the user of C:\\Users\\anna is damaged"));
  EXPECT_EQ(DescribeTree(kAnna), before);
  EXPECT_FALSE(Exists(u"D:\\P\\anna") || HiveIsLoaded());
}

// What needs nothing of the configuration works without the product's service; what does says so.
TEST_F(Profile, ComesHomeWithoutTheService) {
  Restart({.product = false});
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  EXPECT_EQ(Run({u"/RedirectUP"}).said, u"User   Profile folder\n\nanna   D:\\P\\anna\n");
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  EXPECT_EQ(ImagePath(), kAnna);
  EXPECT_EQ(Run({u"/RedirectUP", u"/DefaultProfile", u"/loc:D:\\P"}).exitCode, 0);
  EXPECT_EQ(Run({u"/RedirectUPDefault", u"/DefaultProfile"}).exitCode, 0);
  const std::string reason =
      "\nThe service QuillbayService is not installed, or its folder cannot be told: there is neither a configuration "
      "nor a log.\n\n--";
  EXPECT_EQ(Told(Run({u"/AutoRedirectUP"})), "1\n" + reason);
  EXPECT_EQ(Told(Run({u"/AutoRedirectUP", u"/loc:D:\\P"})),
            "1\nErrors logged in .\nAutomatically redirect newly created user profiles is not successful." + reason);
}

}  // namespace
