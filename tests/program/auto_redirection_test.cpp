// Automatic redirection of new user profiles: set, used, shown, removed, refused.
#include "program/shared_profiles.h"

#include "links/mounted_folder.h"
#include "support/every_call.h"
#include "workstation/product.h"
#include "win32/emulated/files/file_service.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram, test::RunResult;
using Lines = std::vector<std::u16string>;

const std::u16string kPlace = u"D:\\Profiles";

class AutoRedirection : public test::SharedProfilesTest {};

// What everything is before and after the story.
TEST_F(AutoRedirection, TheWholeStory) {
  for (const auto& [major, minor] : {std::pair{10u, 0u}, {6u, 3u}, {6u, 2u}, {6u, 1u}, {6u, 0u}}) {
    SCOPED_TRACE(std::to_string(major) + "." + std::to_string(minor));
    Restart({.majorVersion = major, .minorVersion = minor});
    const Values values = ProfileValues();
    const Configuration before = Config();
    const Files ofDefault = FilesOf(kDefault), ofPublic = FilesOf(kPublic);
    RunResult run = RunProgram(*machine, {u"/AutoRedirectUP"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.said, u"Automatic user profile redirection is not enabled.");

    run = SetWithBoth(kPlace + u"\\");
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    EXPECT_TRUE(run.said.ends_with(u"Newly created user profile location - D:\\Profiles")) << Utf8(run.said);
    EXPECT_EQ(Value(u"ProfilesDirectory"), kPlace);
    EXPECT_EQ(Value(u"Default"), kPlace + u"\\Default");
    EXPECT_EQ(Value(u"Public"), kPlace + u"\\Public");
    EXPECT_EQ(Config(), (Configuration{u"1", kPlace, u"C:\\Users", 1, kPlace, {kProfileListKey}}));
    EXPECT_EQ(FilesOf(kPlace + u"\\Default"), ofDefault);
    EXPECT_EQ(FilesOf(kPlace + u"\\Public"), ofPublic);
    EXPECT_EQ(FilesOf(kPublic), ofPublic);
    EXPECT_EQ(LinkTarget(kPlace + u"\\Default\\Old Data"), kPlace + u"\\Default\\AppData\\Roaming");
    EXPECT_EQ(LinkTarget(kPlace + u"\\Public\\Documents\\Old Music"), kPlace + u"\\Public\\Music");
    for (const auto& [place, original] : {std::pair{kPlace, std::u16string(u"C:\\Users")},
                                          {kPlace + u"\\Default", kDefault},
                                          {kPlace + u"\\Public", kPublic},
                                          {kPlace + u"\\Default\\Old Data", kDefault + u"\\Old Data"}})
      EXPECT_EQ(ReadDescriptor(place), ProtectedDescriptor(ReadDescriptor(original))) << Utf8(place);
    EXPECT_EQ(run.Logged(u"#INFO: Going to update profile image file paths for Public User."),
              major == 10 || minor >= 2);
    EXPECT_EQ(run.Logged(u"#INFO: No need to update profile image file paths for Public User in OSes < Windows 8."),
              major == 6 && minor < 2);
    EXPECT_EQ(Notes(), (Lines{u"NewProfiles", u"Default", u"Public"}));
    EXPECT_TRUE(ServiceRuns());
    EXPECT_EQ(RunProgram(*machine, {u"/AutoRedirectUP"}).said,
              u"\nNewly created user profile location = D:\\Profiles\n");
    run = Set(u"D:\\Elsewhere");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, u"\n\nAutomatic user profile redirection is already enabled.\n");
    EXPECT_EQ(LinesOf(run), Lines{u"#ERROR: New user profiles are created in D:\\Profiles already."});

    // A new account's profile; what users do in the live Public; what somebody still does in the old one.
    MakeFolder(kPlace + u"\\bert");
    MakeFile(kPlace + u"\\bert\\mine.txt", "stays");
    MakeFolder(kPlace + u"\\Public\\Documents\\new");
    MakeFile(kPlace + u"\\Public\\Documents\\new\\added.txt", "added");
    MakeFile(kPlace + u"\\Public\\Documents\\report.txt", "second");
    win32::SetFileAttributesW((kPlace + u"\\Public\\Documents\\fixed.txt").c_str(), win32::FILE_ATTRIBUTE_NORMAL);
    MakeFile(kPlace + u"\\Public\\Documents\\fixed.txt", "changed", win32::FILE_ATTRIBUTE_READONLY);
    machine->Advance(60000);
    MakeFile(kPublic + u"\\AccountPictures\\anna.jpg", "newer here");
    MakeFile(kPlace + u"\\Public\\AccountPictures\\anna (old).jpg", "of that name already");
    ASSERT_TRUE(win32::DeleteFileW((kPlace + u"\\Public\\Documents\\report.txt").c_str()));
    MakeFolder(kPlace + u"\\Public\\Documents\\report.txt");  // of another kind

    run = Remove();
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    EXPECT_TRUE(run.said.ends_with(u"Newly created user profile location at D:\\Profiles has been removed."));
    EXPECT_EQ(ProfileValues(), values);
    EXPECT_EQ(Config(), before);
    EXPECT_EQ(FilesOf(kDefault), ofDefault);
    Files expected = ofPublic;
    expected[u"\\AccountPictures\\anna (old 2).jpg"] = "newer here";
    expected[u"\\AccountPictures\\anna (old).jpg"] = "of that name already";
    expected[u"\\Documents\\fixed.txt"] = "changed";
    expected[u"\\Documents\\new\\added.txt"] = "added";
    expected[u"\\Documents\\report (old).txt"] = "first";
    expected[u"\\Documents\\report (old).txt:note"] = "a named stream";
    expected.erase(u"\\Documents\\report.txt");
    expected.erase(u"\\Documents\\report.txt:note");
    EXPECT_EQ(FilesOf(kPublic), expected);
    EXPECT_TRUE(test::Attributes(kPublic + u"\\Documents\\report.txt") & win32::FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(test::Attributes(kPublic + u"\\Documents\\fixed.txt"), win32::FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(LinkTarget(kDefault + u"\\Old Data"), kDefault + u"\\AppData\\Roaming");
    EXPECT_EQ(LinkTarget(kPublic + u"\\Documents\\Old Music"), kPublic + u"\\Music");
    EXPECT_EQ(test::Names(kPlace), (Lines{u"\\bert", u"\\bert\\mine.txt"}));
    EXPECT_EQ(Notes(), Lines{});
    EXPECT_FALSE(ServiceRuns()) << "the registry's location went, too";
    run = Remove();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, u"Automatic user profile redirection is not enabled.");
  }
}

TEST_F(AutoRedirection, WithoutTheTwoProfilesAndBesideOtherSettings) {
  MakeFolder(u"D:\\Registry");
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"}).exitCode, 0);
  const Values values = ProfileValues();
  const Configuration before = Config();
  MakeFolder(u"D:\\Deep");
  RunResult run = Set(u"D:\\Deep\\Profiles");
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(Value(u"Public"), u"%SystemDrive%\\Users\\Public");
  EXPECT_EQ(Config(),
            (Configuration{u"1", u"D:\\Deep\\Profiles", u"C:\\Users", 1, u"D:\\Registry", {kProfileListKey}}));
  // The profile that was left out may follow, and goes back with the rest.
  run = Redirect(u"DefaultProfile", u"d:\\deep\\profiles");
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(Config(), before);
  EXPECT_FALSE(Exists(u"D:\\Deep\\Profiles"));
  EXPECT_TRUE(ServiceRuns());
  EXPECT_EQ(FilesOf(kDefault).at(u"\\AppData\\Roaming\\settings.ini"), "new users start with this");

  // One that is there already is left there; one that is elsewhere is in the way.
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  EXPECT_TRUE(SetWithBoth(u"D:\\Other")
                  .Logged(u"#ERROR: The profile D:\\Profiles\\Public is redirected already: it is not in C:\\Users."));
  EXPECT_FALSE(Exists(u"D:\\Other"));
  ASSERT_EQ(SetWithBoth(u"d:\\PROFILES").exitCode, 0);
  EXPECT_EQ(Value(u"Public"), kPlace + u"\\Public");
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(Config(), before);

  // A key that somebody else had preserved needs the location on.
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectRegKeyLocation", u"/d"}).exitCode, 0);
  ASSERT_EQ(Set(kPlace).exitCode, 0);
  machine->registry().SetText(u"HKLM\\SOFTWARE\\A", u"x", u"1");
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectRegKey", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\A"}).exitCode, 0);
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Config().registryLocation, kPlace);
  EXPECT_EQ(Config().keys, Lines{u"HKEY_LOCAL_MACHINE\\SOFTWARE\\A"});
}

// Nothing changes, and the log says why.
TEST_F(AutoRedirection, IsRefused) {
  MakeFolder(u"D:\\Full");
  MakeFolder(u"D:\\Full\\Public");
  MakeFile(u"D:\\Full\\Public\\x", "x");
  MakeFile(u"D:\\file", "x");
  MakeFolder(u"D:\\Owed");
  machine->registry().Set(
      u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager", u"PendingFileRenameOperations", win32::REG_MULTI_SZ,
      emulated::RegistryMultiText({u"\\??\\C:\\other", u"\\??\\C:\\x", u"!\\??\\d:\\OWED\\Public"}));
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectUP", u"anna", u"/loc:D:\\"}).exitCode, 0);
  MakeFolder(u"C:\\x");
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\x", u"/loc:D:\\Kept"}).exitCode, 0);
  MakeFolder(u"D:\\Kept\\x\\y");
  const Values values = ProfileValues();
  const std::string config = Contents(kConfig);
  const test::Tree disk = test::DescribeTree(u"D:");
  const std::u16string failed = u"Automatically redirect newly created user profiles is not successful.";
  const std::u16string inHome =
      u" is the profiles folder C:\\Users, lies in it or holds it. Browse to a different location.";
  const std::u16string another = u" belongs to another redirection, Source = ",
                       remove = u". Remove that one first, or browse to a different location.";
  const std::u16string system =
      u" - Cannot redirect from or to Windows system folders. Browse to a different location.";
  const std::pair<std::u16string, std::u16string> refusals[] = {
      {u"C:\\Users", u"#ERROR: The location C:\\Users" + inHome},
      {u"c:\\users\\x\\", u"#ERROR: The location C:\\Users\\x" + inHome},
      {u"C:\\", u"#ERROR: C:\\ - A folder is required for folder redirection. Browse to a different location."},
      {u"D:\\a\\..\\b", u"#ERROR: The selected folder D:\\a\\..\\b is a relative path. Browse to a different location"},
      {u"D:\\file", u"#ERROR: The specified path D:\\file is not a valid directory path."},
      {u"C:\\Windows", u"#ERROR: C:\\Windows" + system},
      {u"C:\\Windows\\System32\\x", u"#ERROR: C:\\Windows\\System32\\x" + system},
      {u"D:\\anna\\x",
       u"#ERROR: The location D:\\anna\\x lies in the profile D:\\anna. Browse to a different location."},
      {u"D:\\Kept\\x\\y", u"#ERROR: The place D:\\Kept\\x\\y" + another + u"C:\\x and Target = D:\\Kept\\x" + remove},
      {u"D:\\System Volume Information\\x", u"#ERROR: D:\\System Volume Information\\x" + system},
      {u"D:\\$Recycle.Bin", u"#ERROR: D:\\$RECYCLE.BIN" + system},
      {u"\\\\?\\D:\\Owed", u"#ERROR:Invalid path : \\\\?\\D:\\Owed"},
      {u"\\\\.\\D:\\Owed", u"#ERROR:Invalid path : \\\\.\\D:\\Owed"},
      {u"D:\\Full",
       u"#ERROR: The folder D:\\Full\\Public is there already and is not empty. Browse to a different location."},
      {u"D:\\Owed",
       u"#ERROR: d:\\OWED\\Public is to be deleted or renamed at the next restart. Restart your computer first."}};
  for (const auto& [location, line] : refusals) {
    const RunResult run = SetWithBoth(location);
    EXPECT_EQ(run.exitCode, 1);
    Lines logged = LinesOf(run);
    std::erase_if(logged, [](const std::u16string& each) { return each.starts_with(u"#INFO: The selected target"); });
    const bool owed = location == u"D:\\Owed";
    EXPECT_EQ(logged, owed ? Lines{line} : (Lines{line, failed})) << Utf8(location) << Utf8(run.log);
    EXPECT_EQ(run.said, !owed ? kErrors + u"\n" + failed
                              : u"Your computer needs to be restarted to complete the previous redirection of newly "
                                u"created user profile settings.\n");
    EXPECT_EQ(ProfileValues(), values);
    EXPECT_TRUE(Contents(kConfig) == config);
    EXPECT_EQ(test::DescribeTree(u"D:"), disk);
  }
  const auto administrator = machine->process.token;
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  for (const RunResult& run : {Set(kPlace), Remove()}) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, u"You need administrative privileges to run this command.");
  }
  machine->process.token = administrator;

  // Somebody writes to a file of Public: all is taken back, and the log names it.
  const auto held = machine->files().OpenForeign(4242, kPublic + u"\\Documents\\report.txt", win32::GENERIC_WRITE,
                                                 win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE);
  ASSERT_TRUE(held);
  const RunResult run = SetWithBoth(kPlace);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(
      run.Logged(u"#ERROR: Unable to copy from Source = C:\\Users\\Public\\Documents\\report.txt to Target = "
                 u"D:\\Profiles\\Public\\Documents\\report.txt."));
  EXPECT_EQ(test::DescribeTree(u"D:"), disk);
  EXPECT_EQ(ProfileValues(), values);
}

TEST_F(AutoRedirection, ACopyInUseGoesAtTheNextRestart) {
  const Values values = ProfileValues();
  const Files ofPublic = FilesOf(kPublic);
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  auto held = machine->files().OpenForeign(4242, kPlace + u"\\Public\\Documents\\fixed.txt", win32::GENERIC_READ,
                                           win32::FILE_SHARE_READ);
  ASSERT_TRUE(held);
  RunResult run = Remove();
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(run.Logged(u"#INFO: The folder D:\\Profiles\\Public is in use. It will be deleted at the next restart."));
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(FilesOf(kPublic), ofPublic);
  EXPECT_EQ(test::Names(kPlace), (Lines{u"\\Public", u"\\Public\\Documents", u"\\Public\\Documents\\fixed.txt"}));
  for (const RunResult& refused : {SetWithBoth(kPlace), Set(kPlace)}) {
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.Said(u"Your computer needs to be restarted"));
  }
  EXPECT_TRUE(Redirect(u"PublicProfile", kPlace).Said(u"Your computer needs to be restarted"));
  ASSERT_EQ(Set(u"D:\\Elsewhere").exitCode, 0) << "another place may be used meanwhile";
  ASSERT_EQ(Remove().exitCode, 0);
  held.reset();
  test::Disks disks = machine->Snapshot();
  machine.reset();
  machine = test::BootFrom(std::move(disks));
  EXPECT_FALSE(Exists(kPlace));
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
}

TEST_F(AutoRedirection, OnAMountedVolumeWhichStaysMounted) {
  Restart({.volumes = 1});
  std::u16string volume;
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == 0) volume = mounted->guidName;
  MakeFolder(kPlace);
  MakeFolder(u"D:\\Another way");
  const auto mount = [&](const std::u16string& folder) {
    return win32::SetVolumeMountPointW((folder + u"\\").c_str(), volume.c_str()) != 0;
  };
  ASSERT_TRUE(mount(kPlace));
  const Values before = ProfileValues();
  const Configuration configuration = Config();
  RunResult run = SetWithBoth(kPlace);
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(FilesOf(kPlace + u"\\Public"), FilesOf(kPublic));
  {
    const auto held = machine->files().OpenForeign(4242, kPublic + u"\\Documents\\report.txt", win32::GENERIC_READ, 0);
    run = Remove();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said.substr(0, run.said.find(u"D:\\")),
              u"\nRemove Auto Redirect User Profile On Volume will begin...");
    EXPECT_TRUE(run.said.ends_with(kErrors + u"\nRemove Auto Redirect User Profile is unsuccessful."));
    machine->files().CloseForeign(held);
    EXPECT_EQ(Value(u"Public"), kPlace + u"\\Public");
  }
  // Unmounted, it looks as if the copies had been deleted.
  MakeFile(kPlace + u"\\Public\\Documents\\added.txt", "added");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW((kPlace + u"\\").c_str()));
  const Values values = ProfileValues();
  for (const RunResult& refused : {Remove(), BringBack(u"PublicProfile")}) {
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.Logged(u"#ERROR: The volume with the folder D:\\Profiles\\")) << Utf8(refused.log);
    EXPECT_EQ(ProfileValues(), values);
  }
  ASSERT_TRUE(mount(kPlace));
  run = Remove();
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(run.said.starts_with(u"\nRemove Auto Redirect User Profile On Volume will begin..."));
  EXPECT_TRUE(run.said.ends_with(u"Newly created user profile location at D:\\Profiles has been removed."));
  EXPECT_EQ(ProfileValues(), before);
  EXPECT_EQ(Config(), configuration);
  EXPECT_TRUE(IsVolumeMountPoint(kPlace.c_str()));
  EXPECT_EQ(Contents(kPublic + u"\\Documents\\added.txt"), "added");
  EXPECT_FALSE(Exists(kPlace + u"\\Public"));

  // What is to be deleted at the next restart is named by the other folder that the volume is mounted on.
  ASSERT_TRUE(mount(u"D:\\Another way"));
  machine->registry().Set(u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager", u"PendingFileRenameOperations",
                          win32::REG_MULTI_SZ, emulated::RegistryMultiText({u"\\??\\D:\\Another way\\Public", u""}));
  EXPECT_TRUE(SetWithBoth(kPlace).Said(u"Your computer needs to be restarted"));
}

}  // namespace
