// A user's profile moved to another place and back.
#include "support/shares.h"
#include "program/profile_stories.h"

#include "links/link_data.h"
#include "profiles/user_hive.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/services.h"

namespace {

using emulated::Utf8;
using test::Attributes, test::Exists, test::MakeFile, test::MakeFolder, test::RunResult, test::Security;

class Profile : public test::ProfileStories {};

TEST_F(Profile, GoesToAFolderAndComesHome) {
  const Items before = AllOf(u"C:\\Users\\anna");
  const std::u16string descriptor = Security(u"C:\\Users\\anna"), wallpaper = Wallpaper(u"C:\\Users\\anna");
  ASSERT_TRUE(wallpaper.starts_with(u"C:\\Users\\anna\\")) << Utf8(wallpaper);

  const RunResult there = Move(u"anna", u"D:\\Profiles");
  ASSERT_EQ(there.exitCode, 0) << Utf8(there.console) << Utf8(there.log);
  EXPECT_TRUE(there.said.ends_with(u"Redirect user profile was successful.")) << Utf8(there.said);
  ExpectSame(AllOf(u"D:\\Profiles\\anna"), before);
  EXPECT_EQ(Security(u"D:\\Profiles\\anna"), descriptor);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), u"D:\\Profiles\\anna");
  EXPECT_EQ(AllRecords(), (Pairs{{u"C:\\Users\\anna", u"D:\\Profiles\\anna"}}));
  EXPECT_EQ(Wallpaper(u"D:\\Profiles\\anna"), u"D:\\Profiles" + wallpaper.substr(8));
  EXPECT_TRUE(test::Names(u"C:\\Users\\anna").empty());
  EXPECT_EQ(Security(u"C:\\Users\\anna"), descriptor);

  for (const auto* undo : {u"/d", u"/c"})
    EXPECT_TRUE(Run({u"/RedirectFolder", u"C:\\Users\\anna", u"/loc:D:\\Profiles", undo}).Logged(u"RedirectUPDefault"));
  const RunResult back = MoveHome(u"ANNA");
  ASSERT_EQ(back.exitCode, 0) << Utf8(back.console) << Utf8(back.log);
  EXPECT_TRUE(back.Said(u"\nThe target folder: \"C:\\Users\\anna\" already exists.\n")) << Utf8(back.said);
  ExpectSame(AllOf(u"C:\\Users\\anna"), before);
  EXPECT_EQ(Security(u"C:\\Users\\anna"), descriptor);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), u"C:\\Users\\anna");
  EXPECT_EQ(AllRecords(), Pairs{});
  EXPECT_EQ(Wallpaper(u"C:\\Users\\anna"), wallpaper);
  EXPECT_FALSE(HiveIsLoaded());
}

TEST_F(Profile, GoesToAVolumeAndComesHome) {
  const Items before = AllOf(u"C:\\Users\\anna");
  const std::u16string descriptor = Security(u"C:\\Users\\anna"), root = Security(test::kVolume);

  const RunResult there = Move(u"anna", test::kVolume);
  ASSERT_EQ(there.exitCode, 0) << Utf8(there.console) << Utf8(there.log);
  EXPECT_TRUE(Attributes(u"C:\\Users\\anna") & win32::FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_FALSE(Exists(u"C:\\Users\\anna.mount"));
  ExpectSame(AllOf(u"C:\\Users\\anna"), before);
  EXPECT_EQ(Security(u"C:\\Users\\anna"), descriptor);
  EXPECT_EQ(Security(test::kVolume), descriptor);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), u"C:\\Users\\anna");
  EXPECT_EQ(AllRecords(), Pairs{});

  const RunResult back = MoveHome(u"anna");
  ASSERT_EQ(back.exitCode, 0) << Utf8(back.console) << Utf8(back.log);
  EXPECT_FALSE(Attributes(u"C:\\Users\\anna") & win32::FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_FALSE(Exists(u"C:\\Users\\anna.temp"));
  ExpectSame(AllOf(u"C:\\Users\\anna"), before);
  EXPECT_EQ(Security(u"C:\\Users\\anna"), descriptor);
  EXPECT_EQ(Security(test::kVolume), root);
  EXPECT_EQ(test::Names(test::kVolume), test::Names(u"D:")) << "only what Windows keeps there";
}

// Names, and the ways of writing a target.
TEST_F(Profile, OfEveryKindOfNameMoves) {
  const std::u16string maria = u"S-1-5-21-77-88-99-1105", berg = test::kSidOfAnna + u"9";
  machine->domainAccounts = {{u"CORP", u"corp.example", u"maria", emulated::SidFromText(maria)}};
  struct Case {
    std::u16string user, sid, folder, location, newFolder;
  };
  const std::vector<Case> cases = {
      {u"CORP\\maria", maria, u"C:\\Users\\maria.CORP", u"D:\\P\\", u"D:\\P\\maria.CORP"},
      {u"anna berg", berg, u"C:\\Users\\Anna Berg", u"D:\\Deep\\er", u"D:\\Deep\\er\\Anna Berg"},
      {u"JAN", test::kSidOfJan, u"C:\\Users\\jan", u"D:\\", u"D:\\jan"}};
  std::vector<std::u16string> security;
  for (const Case& one : cases) {
    SCOPED_TRACE(Utf8(one.user));
    if (one.sid != test::kSidOfJan) {
      MakeFolder(one.folder);
      const std::u16string path = one.sid == maria ? u"%SystemDrive%" + one.folder.substr(2) : one.folder;
      machine->registry().SetText(test::kProfileList + u"\\" + one.sid, u"ProfileImagePath", path,
                                  one.sid == maria ? win32::REG_EXPAND_SZ : win32::REG_SZ);
    }
    MakeFile(one.folder + u"\\mine.txt", "mine");
    security.push_back(Security(one.folder) + Security(one.folder + u"\\mine.txt"));
    const RunResult there = Move(one.user, one.location);
    ASSERT_EQ(there.exitCode, 0) << Utf8(there.log);
    EXPECT_EQ(test::Contents(one.newFolder + u"\\mine.txt"), "mine");
    EXPECT_TRUE(test::Dacl(one.newFolder).starts_with(u"D:P")) << "whatever the folder above lets in";
    if (one.location != u"D:\\") {
      EXPECT_EQ(Security(ParentPath(one.newFolder)), Security(u"C:\\Users"));
      EXPECT_EQ(Security(one.newFolder.substr(0, one.newFolder.find(u'\\', 3))), Security(u"C:\\Users"));
    }
    EXPECT_EQ(ImagePath(one.sid), one.newFolder);
  }
  EXPECT_EQ(Run({u"/RedirectUP"}).said, u"User   Profile folder\n\njan   D:\\jan\nmaria   D:\\P\\maria.CORP\n" + berg +
                                            u"   D:\\Deep\\er\\Anna Berg\n");
  for (const Case& one : cases) {
    SCOPED_TRACE(Utf8(one.user));
    const RunResult back = MoveHome(one.user);
    ASSERT_EQ(back.exitCode, 0) << Utf8(back.log);
    EXPECT_EQ(test::Contents(one.folder + u"\\mine.txt"), "mine");
    EXPECT_EQ(Security(one.folder) + Security(one.folder + u"\\mine.txt"),
              security[static_cast<std::size_t>(&one - cases.data())]);
    const auto value = machine->registry().Query(test::kProfileList + u"\\" + one.sid, u"ProfileImagePath");
    EXPECT_EQ(value->type, one.sid == berg ? win32::REG_SZ : win32::REG_EXPAND_SZ);
    EXPECT_EQ(value->Text(), one.folder) << "as Windows writes it: without variables";
  }
  EXPECT_EQ(Run({u"/RedirectUP"}).said, u"");
  EXPECT_EQ(AllRecords(), Pairs{});
}

// The chain of moves leaves no record behind; what else is recorded follows, and so do junctions that lead in.
TEST_F(Profile, TakesRedirectionsAlong) {
  MakeFolder(u"D:\\Shown");
  MakeFile(u"D:\\Shown\\s.txt", "shown");
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Users\\anna\\Pictures", u"/loc:D:\\Kept"}).exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFolder", u"D:\\Shown", u"/loc:C:\\Users\\anna"}).exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFile", u"C:\\Users\\anna\\Documents\\letter.txt", u"/loc:D:\\Kept"}).exitCode, 0);
  const Pairs before = AllRecords(), filesBefore = AllRecords(u"FileJunctions");
  const ReparseData shown = MountPointData(u"\\??\\C:\\Users\\anna\\Shown\\", u"C:\\Users\\anna\\Shown");
  ASSERT_TRUE(RestoreLink({u"D:\\Shown", {}, true, shown}));

  for (const auto* location : {u"D:\\First", u"D:\\Second"}) {
    const RunResult run = Move(u"anna", location);
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    const std::u16string folder = std::u16string(location) + u"\\anna";
    const Pairs records = AllRecords();
    EXPECT_EQ(records[0], (std::pair{folder + u"\\Pictures", std::u16string(u"D:\\Kept\\Pictures")}));
    EXPECT_EQ(records[1], (std::pair{std::u16string(u"D:\\Shown"), folder + u"\\Shown"}));
    EXPECT_EQ(AllRecords(u"FileJunctions")[0].first, folder + u"\\Documents\\letter.txt");
    EXPECT_EQ(test::Contents(u"D:\\Shown\\s.txt"), "shown");
    EXPECT_EQ(test::Contents(folder + u"\\Documents\\letter.txt"), "Dear Jan");
  }
  EXPECT_EQ(AllRecords().size(), 4u);
  const RunResult back = MoveHome(u"anna");
  ASSERT_EQ(back.exitCode, 0) << Utf8(back.log);
  EXPECT_EQ(AllRecords(), before);
  EXPECT_EQ(AllRecords(u"FileJunctions"), filesBefore);
  EXPECT_EQ(ReadLinkData(u"D:\\Shown"), shown);
  ASSERT_EQ(Move(u"anna", u"D:\\Second").exitCode, 0);
  EXPECT_EQ(AllRecords().back(), (std::pair<std::u16string, std::u16string>{u"C:\\Users\\anna", u"D:\\Second\\anna"}));
}

TEST_F(Profile, TakesItsSharesAlong) {
  test::Share(u"all", u"C:\\Users\\anna");
  test::Share(u"docs", u"C:\\Users\\anna\\Documents");
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  using Paths = std::map<std::u16string, std::u16string>;
  EXPECT_EQ(test::Shares(), (Paths{{u"all", u"D:\\P\\anna"}, {u"docs", u"D:\\P\\anna\\Documents"}}));
  ASSERT_EQ(Run({u"/RedirectUPDefault", u"anna", u"/-Share"}).exitCode, 0);
  EXPECT_EQ(test::Shares(), Paths{});
}

// What the administrator may not read arrives with just the security that it had, also where it had come from when the
// move is refused.
TEST_F(Profile, KeepsItsSecretsSecret) {
  const std::u16string sid = test::kSidOfAnna, root = u"C:\\Users\\anna";
  for (const auto* folder : {u"\\vault", u"\\vault\\inner", u"\\vault\\inner\\deep"}) MakeFolder(root + folder);
  for (const auto* file : {u"\\secret.txt", u"\\vault\\a.txt", u"\\vault\\inner\\deep\\b.txt"})
    MakeFile(root + file, "secret");
  test::SetSecurity(root + u"\\secret.txt", u"O:" + sid + u"D:P(A;;FA;;;" + sid + u")");
  test::SetSecurity(root + u"\\vault\\inner\\deep\\b.txt", u"O:" + sid + u"D:P(A;;0x20080;;;BA)(A;;FA;;;" + sid + u")");
  test::SetSecurity(root + u"\\vault", u"O:" + sid + u"D:P(A;OICI;FA;;;" + sid + u")");
  // A profile that lets nobody in but its user and the system. Once moved, everything in it inherits that.
  test::SetSecurity(root, u"O:" + sid + u"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;" + sid + u")");
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  EXPECT_FALSE(Exists(u"D:\\P\\anna"));
  EXPECT_TRUE(win32::RemoveDirectoryW(u"D:\\P"));
  const Items before = AllOf(root);
  const std::u16string descriptor = Security(root);
  ASSERT_NE(before.at(u"\\vault\\a.txt").find("(A;ID;FA;;;S-1-5-21"), std::string::npos)
      << before.at(u"\\vault\\a.txt");

  const auto held = machine->files().OpenForeign(4242, root + u"\\secret.txt", win32::GENERIC_READ, 0);
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 1);
  machine->files().CloseForeign(held);
  ExpectSame(AllOf(root), before, "(in use)");
  EXPECT_FALSE(Exists(u"D:\\P"));

  const std::vector<std::pair<std::u16string, std::u16string>> places = {
      {u"D:\\P", u"D:\\P\\anna"}, {u"D:\\P", u"D:\\P\\anna"}, {test::kVolume, root}};
  for (const auto& [location, folder] : places) {
    const RunResult there = Move(u"anna", location);
    ASSERT_EQ(there.exitCode, 0) << Utf8(there.log);
    ExpectSame(AllOf(folder), before, "(there)");
    const RunResult back = MoveHome(u"anna");
    ASSERT_EQ(back.exitCode, 0) << Utf8(back.log);
    ExpectSame(AllOf(root), before, "(back)");
  }
  EXPECT_EQ(Security(root), descriptor);
}

// Without NTFS permissions, and into a folder that somebody has made: the folder is the user's all the same.
TEST_F(Profile, OwnsTheFolderThatItGoesTo) {
  const std::u16string descriptor = Security(u"C:\\Users\\anna");
  MakeFolder(u"D:\\P");
  MakeFolder(u"D:\\P\\anna");
  MakeFile(u"D:\\P\\anna\\there.txt", "there");
  const std::u16string foreign = Security(u"D:\\P\\anna");
  const auto held = machine->files().OpenForeign(4242, u"C:\\Users\\anna\\NTUSER.DAT", win32::GENERIC_READ, 0);
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 1);
  machine->files().CloseForeign(held);
  EXPECT_EQ(Security(u"D:\\P\\anna"), foreign);

  const RunResult run = Run({u"/RedirectUP", u"anna", u"/loc:D:\\P", u"/-NTFS"});
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(run.Said(u"\nThe target folder: \"D:\\P\\anna\" already exists.\n"));
  EXPECT_EQ(Security(u"D:\\P\\anna"), descriptor);
  EXPECT_EQ(test::Contents(u"D:\\P\\anna\\there.txt"), "there");
  EXPECT_NE(test::Dacl(u"D:\\P\\anna\\Documents\\letter.txt").find(test::kSidOfAnna), std::u16string::npos);
}

TEST_F(Profile, LeavesMediaSharingAsItWas) {
  machine->services().Install(u"WMPNetworkSvc", u"C:\\Windows\\System32\\svchost.exe", win32::SERVICE_DEMAND_START);
  const auto state = [&] { return machine->services().State(u"WMPNetworkSvc"); };
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  EXPECT_EQ(state(), win32::SERVICE_STOPPED);
  machine->services().SetState(u"WMPNetworkSvc", win32::SERVICE_RUNNING);
  bool stopped = false;
  machine->onSleep = [&](std::uint64_t) { stopped |= state() != win32::SERVICE_RUNNING; };
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  EXPECT_TRUE(stopped);
  EXPECT_EQ(state(), win32::SERVICE_RUNNING);
  EXPECT_EQ(Move(u"anna", u"C:\\Users").exitCode, 1);  // refused after the service was stopped
  EXPECT_EQ(state(), win32::SERVICE_RUNNING);
}

// A volume that the user has mounted himself, and a run that was cut off with the volume mounted beside the profile.
TEST_F(Profile, OnAMountedVolumeGoesElsewhereOrOn) {
  ASSERT_EQ(Move(u"anna", test::kVolume).exitCode, 0);
  const Items before = AllOf(u"C:\\Users\\anna");
  EXPECT_EQ(Run({u"/RedirectUP"}).said, u"User   Profile folder\n\nanna   C:\\Users\\anna\n");
  const RunResult refused = Move(u"anna", u"D:\\P");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_TRUE(
      refused.Logged(u"#ERROR: The folder C:\\Users\\anna is already redirected. Browse to a different location."));
  ExpectSame(AllOf(u"C:\\Users\\anna"), before);
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);

  ASSERT_TRUE(win32::CreateDirectoryW(u"C:\\Users\\anna.mount", nullptr));
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Users\\anna.mount\\", test::kVolume.c_str()));
  ASSERT_TRUE(win32::MoveFileExW(u"C:\\Users\\anna\\Documents\\letter.txt", u"C:\\Users\\anna.mount\\letter.txt",
                                 win32::MOVEFILE_COPY_ALLOWED));
  const RunResult on = Move(u"anna", test::kVolume);
  ASSERT_EQ(on.exitCode, 0) << Utf8(on.log);
  EXPECT_EQ(test::Contents(u"C:\\Users\\anna\\letter.txt"), "Dear Jan");
  EXPECT_TRUE(Exists(u"C:\\Users\\anna\\NTUSER.DAT"));

  // Cut off while the two folders changed places: the log tells where the profile is.
  ASSERT_TRUE(win32::MoveFileW(u"C:\\Users\\anna", u"C:\\Users\\anna.mount"));
  const RunResult cutOff = MoveHome(u"anna");
  EXPECT_EQ(cutOff.exitCode, 1);
  EXPECT_TRUE(cutOff.Logged(u"The profile is in C:\\Users\\anna.mount: rename this folder to the first one."));
  ASSERT_TRUE(win32::MoveFileW(u"C:\\Users\\anna.mount", u"C:\\Users\\anna"));
  EXPECT_EQ(MoveHome(u"anna").exitCode, 0);
}

TEST_F(Profile, WithAWallpaperOfItsOwnFollows) {
  struct Case {
    std::u16string before, after;
  };
  const std::vector<Case> cases = {{u"C:\\Users\\anna\\x.jpg", u"D:\\P\\anna\\x.jpg"},
                                   {u"c:\\USERS\\Anna", u"D:\\P\\anna"},
                                   {u"C:\\Users\\anna2\\x.jpg", u"C:\\Users\\anna2\\x.jpg"},
                                   {u"C:\\Windows\\x.jpg", u"C:\\Windows\\x.jpg"}};
  for (const Case& one : cases) {
    Wallpaper(u"C:\\Users\\anna", one.before);
    ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
    EXPECT_EQ(Wallpaper(u"D:\\P\\anna"), one.after);
    ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  }
  // Loaded by somebody: in place. (A move would find NTUSER.DAT in use.)
  emulated::Registry& registry = machine->registry();
  ASSERT_EQ(registry.LoadHive(u"HKU\\" + test::kSidOfAnna, u"C:\\Users\\anna\\NTUSER.DAT"), 0u);
  const std::u16string desktop = u"HKU\\" + test::kSidOfAnna + u"\\Control Panel\\Desktop";
  registry.SetText(desktop, u"WallPaper", u"C:\\Users\\anna\\y.jpg");
  EXPECT_EQ(RewriteWallpaper({test::kSidOfAnna, u"C:\\Users\\anna", kHiveLoaded}, u"C:\\Users\\anna", u"D:\\Q"), 1);
  EXPECT_EQ(registry.Query(desktop, u"WallPaper")->Text(), u"D:\\Q\\y.jpg");
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 1);
  ASSERT_EQ(registry.UnloadHive(u"HKU\\" + test::kSidOfAnna), 0u);

  // A broken hive is no reason to keep the profile where it is, and a forgotten one is no obstacle.
  ASSERT_EQ(registry.LoadHive(u"HKU\\_ntuser", u"C:\\Users\\jan\\NTUSER.DAT"), 0u);
  win32::SetFileAttributesW(u"C:\\Users\\anna\\NTUSER.DAT", win32::FILE_ATTRIBUTE_NORMAL);
  MakeFile(u"C:\\Users\\anna\\NTUSER.DAT", "no hive");
  const RunResult run = Move(u"anna", u"D:\\P");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.Logged(u"#INFO: Unable to load the user's registry file D:\\P\\anna\\ntuser.dat."));
  EXPECT_EQ(test::Contents(u"D:\\P\\anna\\NTUSER.DAT"), "no hive");
  EXPECT_FALSE(HiveIsLoaded());
}

// What needs nothing of the configuration works without the product's service; what does says so.
TEST_F(Profile, ComesHomeWithoutTheService) {
  machine.reset();
  machine = test::InstalledMachine({.product = false});
  ASSERT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  EXPECT_EQ(Run({u"/RedirectUP"}).said, u"User   Profile folder\n\nanna   D:\\P\\anna\n");
  ASSERT_EQ(MoveHome(u"anna").exitCode, 0);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), u"C:\\Users\\anna");
  const std::u16string reason =
      u"\nThe service QuillbayService is not installed, or its folder cannot be told: there is neither a configuration "
      u"nor a log.\n";
  const std::pair<RunResult, std::u16string> needConfiguration[] = {
      {Run({u"/AutoRedirectUP"}), {}},
      {Run({u"/AutoRedirectUP", u"/loc:D:\\P"}),
       u"Errors logged in .\nAutomatically redirect newly created user profiles is not successful."},
      {Run({u"/AutoRedirectUP", u"/d"}),
       u"Errors logged in .\nNewly created user profile location at C:\\Users can not be removed.  Check location and "
       u"try again."},
      {Run({u"/RedirectRegKeyLocation"}), {}},
      {Run({u"/RedirectRegKey"}), u"\n\n\n"}};
  for (const auto& [run, said] : needConfiguration) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, said + reason);
  }
}

TEST_F(Profile, IsForAdministratorsWithAConfiguration) {
  const std::u16string config = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
  MakeFolder(config);  // cannot be read, nor replaced
  const RunResult unreadable = MoveHome(u"anna");
  EXPECT_EQ(unreadable.exitCode, 1);
  EXPECT_EQ(Messages(unreadable).back(), u"#ERROR: Failed to read config file.") << Utf8(unreadable.log);
  EXPECT_EQ(Run({u"/RedirectUP"}).exitCode, 1);
  ASSERT_TRUE(win32::RemoveDirectoryW(config.c_str()));
  for (emulated::TokenGroup& group : machine->process.token->groups)
    if (group.sid == emulated::SidFromText(u"S-1-5-32-544")) group.attributes = win32::SE_GROUP_USE_FOR_DENY_ONLY;
  for (const RunResult& run : {Move(u"anna", u"D:\\P"), MoveHome(u"anna")}) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, u"You need administrative privileges to run this command.");
  }
  EXPECT_FALSE(Exists(u"D:\\P"));
}

}  // namespace
