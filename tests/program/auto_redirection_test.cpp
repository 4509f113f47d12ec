// Automatic redirection of new user profiles: set, used, shown, removed, refused.
#include "program/shared_profiles.h"

namespace {

using namespace test;
using emulated::Utf8;

class AutoRedirection : public SharedProfilesTest {
 protected:
  void OweRestart(const std::u16string& folder) {
    machine->registry().Set(u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                            u"PendingFileRenameOperations", win32::REG_MULTI_SZ,
                            emulated::RegistryMultiText({u"\\??\\C:\\other", u"\\??\\C:\\x", u"!\\??\\" + folder}));
  }
  // What the log says of both profiles being copied, there or back.
  static std::string Copying(const std::string& from, const std::string& to) {
    const std::string going = "#INFO: Going to copy files and folders from Source = ";
    return going + from + "\\Default to Target = " + to + "\\Default.\n" + going + from + "\\Public to Target = " + to +
           "\\Public.\n";
  }
  static constexpr const char* kSayPictures = "\nGoing to update all user's profile image settings";
  static constexpr const char* kPictures = "#INFO: Going to update profile image file paths for Public User.\n";
  static constexpr const char* kIsNew =
      "#INFO: The selected target folder D:\\Profiles does not exist. Ignoring PathIsDirectory validation.\n"
      "#ERROR: Unable to get File Attributes for path = D:\\ProfilesThe system cannot find the file specified.\n";
  static constexpr const char* kRemoved = "Newly created user profile location at D:\\Profiles has been removed.";
  static bool Mount(const std::u16string& folder) {
    return win32::SetVolumeMountPointW((folder + u"\\").c_str(), kVolume.c_str()) != 0;
  }
};

// What everything is before and after the story.
TEST_F(AutoRedirection, TheWholeStory) {
  const Settings before = AllSettings();
  const Files ofDefault = FilesOf(kDefault), ofPublic = FilesOf(kPublic);
  EXPECT_EQ(Told(Run({u"/AutoRedirectUP"})), "0\nAutomatic user profile redirection is not enabled.\n--");
  EXPECT_EQ(Told(SetWithBoth(kPlace + u"\\")), std::string("0\n") + kSayPictures +
                                                   "Newly created user profile location - D:\\Profiles\n--\n" + kIsNew +
                                                   Copying("C:\\Users", "D:\\Profiles") + kPictures +
                                                   "Newly created user profile location - D:\\Profiles");
  EXPECT_EQ(Value(u"ProfilesDirectory") + Value(u"Default") + Value(u"Public"),
            kPlace + kPlace + u"\\Default" + kPlace + u"\\Public");
  EXPECT_EQ(Config(), (Configuration{u"1", kPlace, u"C:\\Users", 1, kPlace, {kProfileListKey}}));
  EXPECT_EQ(FilesOf(kPlace + u"\\Default"), ofDefault);
  EXPECT_EQ(FilesOf(kPlace + u"\\Public"), ofPublic);
  EXPECT_EQ(FilesOf(kPublic), ofPublic);
  EXPECT_EQ(LinkTarget(kPlace + u"\\Public\\Documents\\Old Music"), kPlace + u"\\Public\\Music");
  for (const auto* item : {u"", u"\\Default", u"\\Public", u"\\Default\\Old Data"})
    EXPECT_EQ(ReadDescriptor(kPlace + item), ProtectedDescriptor(ReadDescriptor(u"C:\\Users" + std::u16string(item))));
  EXPECT_EQ(Notes(), (Lines{u"NewProfiles", u"Default", u"Public"}));
  EXPECT_TRUE(ServiceRuns());
  EXPECT_EQ(Told(Run({u"/AutoRedirectUP"})), "0\n\nNewly created user profile location = D:\\Profiles\n\n--");
  EXPECT_EQ(Told(Set(u"D:\\Elsewhere")),
            "1\n\n\nAutomatic user profile redirection is already enabled.\n\n--\n"
            "#ERROR: New user profiles are created in D:\\Profiles already.");

  // A new account's profile; what users do in the live Public; what somebody still does in the old one.
  const std::u16string documents = kPlace + u"\\Public\\Documents";
  MakeFolder(kPlace + u"\\bert");
  MakeFolder(documents + u"\\new");
  MakeFile(documents + u"\\new\\added.txt", "added");
  win32::SetFileAttributesW((documents + u"\\fixed.txt").c_str(), win32::FILE_ATTRIBUTE_NORMAL);
  MakeFile(documents + u"\\fixed.txt", "changed", win32::FILE_ATTRIBUTE_READONLY);
  machine->Advance(60000);
  MakeFile(kPublic + u"\\AccountPictures\\anna.jpg", "newer here");
  MakeFile(kPlace + u"\\Public\\AccountPictures\\anna (old).jpg", "of that name already");
  EXPECT_EQ(Told(Remove()), std::string("0\n") + kSayPictures + kRemoved + "\n--\n" +
                                Copying("D:\\Profiles", "C:\\Users") +
                                "#INFO: C:\\Users\\Public\\AccountPictures\\anna.jpg is newer than "
                                "D:\\Profiles\\Public\\AccountPictures\\anna.jpg, or of another kind. It is kept as "
                                "C:\\Users\\Public\\AccountPictures\\anna (old 2).jpg.\n" +
                                kPictures + "Service disabled successfully.\n" + kRemoved);
  EXPECT_EQ(AllSettings(), before);
  EXPECT_EQ(FilesOf(kDefault), ofDefault);
  Files expected = ofPublic;
  expected[u"\\AccountPictures\\anna (old 2).jpg"] = "newer here";
  expected[u"\\AccountPictures\\anna (old).jpg"] = "of that name already";
  expected[u"\\Documents\\fixed.txt"] = "changed";
  expected[u"\\Documents\\new\\added.txt"] = "added";
  EXPECT_EQ(FilesOf(kPublic), expected);
  EXPECT_EQ(Attributes(kPublic + u"\\Documents\\fixed.txt"), win32::FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(LinkTarget(kPublic + u"\\Documents\\Old Music"), kPublic + u"\\Music");
  EXPECT_EQ(Names(kPlace), Lines{u"\\bert"});
  EXPECT_FALSE(ServiceRuns()) << "the registry's location went, too";
  EXPECT_EQ(Told(Remove()),
            "1\nAutomatic user profile redirection is not enabled.\n--\n#ERROR: New user profiles are not redirected.");
}

TEST_F(AutoRedirection, WithoutTheTwoProfilesAndBesideOtherSettings) {
  MakeFolder(u"D:\\Registry");
  ASSERT_EQ(Run({u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"}).exitCode, 0);
  const Settings before = AllSettings();
  MakeFolder(u"D:\\Deep");
  ASSERT_EQ(Set(u"D:\\Deep\\Profiles").exitCode, 0);
  EXPECT_EQ(Value(u"Public"), u"%SystemDrive%\\Users\\Public");
  EXPECT_EQ(Config(),
            (Configuration{u"1", u"D:\\Deep\\Profiles", u"C:\\Users", 1, u"D:\\Registry", {kProfileListKey}}));
  // The profile that was left out may follow, and goes back with the rest.
  ASSERT_EQ(Redirect(u"DefaultProfile", u"d:\\deep\\profiles").exitCode, 0);
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(AllSettings(), before);
  EXPECT_FALSE(Exists(u"D:\\Deep\\Profiles"));
  EXPECT_TRUE(ServiceRuns());

  // One that is there already is left there; one that is elsewhere is in the way.
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  EXPECT_TRUE(SetWithBoth(u"D:\\Other")
                  .Logged(u"#ERROR: The profile D:\\Profiles\\Public is redirected already: it is not in C:\\Users."));
  EXPECT_FALSE(Exists(u"D:\\Other"));
  const RunResult run = SetWithBoth(u"d:\\PROFILES");
  EXPECT_TRUE(run.exitCode == 0 && run.Logged(u"#INFO: The profile D:\\Profiles\\Public is there already."));
  EXPECT_EQ(Value(u"Public"), kPlace + u"\\Public");
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(AllSettings(), before);

  // A key that somebody else had preserved needs the location on.
  ASSERT_EQ(Run({u"/RedirectRegKeyLocation", u"/d"}).exitCode, 0);
  ASSERT_EQ(Set(kPlace).exitCode, 0);
  machine->registry().SetText(u"HKLM\\SOFTWARE\\A", u"x", u"1");
  ASSERT_EQ(Run({u"/RedirectRegKey", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\A"}).exitCode, 0);
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Config().registryLocation, kPlace);
  EXPECT_EQ(Config().keys, Lines{u"HKEY_LOCAL_MACHINE\\SOFTWARE\\A"});
}

// Nothing changes, and the log says why.
TEST_F(AutoRedirection, IsRefused) {
  for (const auto* folder : {u"D:\\Full", u"D:\\Full\\Public", u"D:\\Owed", u"C:\\x"}) MakeFolder(folder);
  MakeFile(u"D:\\Full\\Public\\x", "x");
  MakeFile(u"D:\\file", "x");
  OweRestart(u"d:\\OWED\\Public");
  ASSERT_EQ(Move(u"anna", u"D:\\").exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\x", u"/loc:D:\\Kept"}).exitCode, 0);
  MakeFolder(u"D:\\Kept\\x\\y");
  const Settings before = AllSettings();
  const Tree disk = DescribeTree(u"D:");
  const std::u16string failed = u"Automatically redirect newly created user profiles is not successful.";
  const std::u16string browse = u" Browse to a different location.";
  const std::u16string inHome = u" is the profiles folder C:\\Users, lies in it or holds it." + browse;
  const std::pair<std::u16string, std::u16string> refusals[] = {
      {u"C:\\Users", u"#ERROR: The location C:\\Users" + inHome},
      {u"c:\\users\\x\\", u"#ERROR: The location C:\\Users\\x" + inHome},
      {u"C:\\", u"#ERROR: C:\\ - A folder is required for folder redirection." + browse},
      {u"D:\\file", u"#ERROR: The specified path D:\\file is not a valid directory path."},
      {u"C:\\Windows\\System32\\x",
       u"#ERROR: C:\\Windows\\System32\\x - Cannot redirect from or to Windows system folders." + browse},
      {u"D:\\anna\\x", u"#ERROR: The location D:\\anna\\x lies in the profile D:\\anna." + browse},
      {u"D:\\Kept\\x\\y",
       u"#ERROR: The place D:\\Kept\\x\\y belongs to another redirection, Source = C:\\x and Target = D:\\Kept\\x. "
       u"Remove that one first, or browse to a different location."},
      {u"\\\\?\\D:\\Owed", u"#ERROR:Invalid path : \\\\?\\D:\\Owed"},
      {u"D:\\Full", u"#ERROR: The folder D:\\Full\\Public is there already and is not empty." + browse},
      {u"D:\\Owed",
       u"#ERROR: d:\\OWED\\Public is to be deleted or renamed at the next restart. Restart your computer first."}};
  const auto expectUnchanged = [&] {
    EXPECT_EQ(AllSettings(), before);
    EXPECT_EQ(DescribeTree(u"D:"), disk);
  };
  for (const auto& [location, line] : refusals) {
    const RunResult run = SetWithBoth(location);
    EXPECT_EQ(run.exitCode, 1);
    Lines logged = Messages(run.log);
    std::erase_if(logged, [](const auto& each) { return each.starts_with(u"#INFO: The selected target"); });
    const bool owed = location == u"D:\\Owed";
    EXPECT_EQ(logged, owed ? Lines{line} : (Lines{line, failed})) << Utf8(location) << Utf8(run.log);
    EXPECT_EQ(run.said, !owed ? kErrors + u"\n" + failed
                              : u"Your computer needs to be restarted to complete the previous redirection of newly "
                                u"created user profile settings.\n");
    expectUnchanged();
  }
  const auto administrator = machine->process.token;
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  for (const RunResult& run : {Set(kPlace), Remove(), Move(u"jan", kPlace), MoveHome(u"anna"),
                               Redirect(u"PublicProfile", kPlace), BringBack(u"PublicProfile")})
    EXPECT_EQ(Told(run), "1\nYou need administrative privileges to run this command.\n--");
  machine->process.token = administrator;
  // Somebody writes to a file of Public: all is taken back, and the log names it.
  const std::u16string report = u"Public\\Documents\\report.txt";
  auto held = Hold(u"C:\\Users\\" + report, win32::GENERIC_WRITE, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE);
  EXPECT_TRUE(SetWithBoth(kPlace).Logged(u"#ERROR: Unable to copy from Source = C:\\Users\\" + report +
                                         u" to Target = D:\\Profiles\\" + report + u". "));
  expectUnchanged();
  held.reset();
  AddKeelroomVolume(*machine, u"Volume1", u"D:");
  for (const RunResult& run : {Redirect(u"DefaultProfile", kPlace), SetWithBoth(kPlace)})
    EXPECT_TRUE(run.exitCode == 1 &&
                run.Logged(u"#ERROR: Cannot redirect User Profile to old version of Rimehold Keelroom "));
  expectUnchanged();
}

TEST_F(AutoRedirection, ACopyInUseGoesAtTheNextRestart) {
  const Values values = ProfileValues();
  const Files ofPublic = FilesOf(kPublic);
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  auto held = Hold(kPlace + u"\\Public\\Documents\\fixed.txt", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  EXPECT_TRUE(
      Remove().Logged(u"#INFO: The folder D:\\Profiles\\Public is in use. It will be deleted at the next restart."));
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(FilesOf(kPublic), ofPublic);
  EXPECT_EQ(Names(kPlace), (Lines{u"\\Public", u"\\Public\\Documents", u"\\Public\\Documents\\fixed.txt"}));
  for (const RunResult& refused : {SetWithBoth(kPlace), Set(kPlace), Redirect(u"PublicProfile", kPlace)})
    EXPECT_TRUE(refused.exitCode == 1 && refused.Said(u"Your computer needs to be restarted"));
  ASSERT_EQ(Set(u"D:\\Elsewhere").exitCode, 0) << "another place may be used meanwhile";
  ASSERT_EQ(Remove().exitCode, 0);
  held.reset();
  Boot(machine->Snapshot());
  EXPECT_FALSE(Exists(kPlace));
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
}

TEST_F(AutoRedirection, OnAMountedVolumeWhichStaysMounted) {
  MakeFolder(kPlace);
  MakeFolder(u"D:\\Another way");
  ASSERT_TRUE(Mount(kPlace));
  const Settings before = AllSettings();
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  EXPECT_EQ(FilesOf(kPlace + u"\\Public"), FilesOf(kPublic));
  const Values values = ProfileValues();
  auto held = Hold(kPublic + u"\\Documents\\report.txt");
  const RunResult failed = Remove();
  EXPECT_TRUE(failed.exitCode == 1 && failed.Said(u"\nRemove Auto Redirect User Profile On Volume will begin...") &&
              failed.Said(kErrors + u"\nRemove Auto Redirect User Profile is unsuccessful.") &&
              failed.Logged(u"#ERROR: C:\\Users\\Public\\Documents\\report.txt stands where "
                            u"D:\\Profiles\\Public\\Documents\\report.txt is to come back, and cannot be renamed. "));
  EXPECT_EQ(ProfileValues(), values);
  held.reset();
  // Unmounted, it looks as if the copies had been deleted.
  MakeFile(kPlace + u"\\Public\\Documents\\added.txt", "added");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW((kPlace + u"\\").c_str()));
  for (const RunResult& refused : {Remove(), BringBack(u"PublicProfile")}) {
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.Logged(u"#ERROR: The volume with the folder D:\\Profiles\\"));
    EXPECT_TRUE(
        refused.Logged(u" is not there. Connect it, and try again. (If it is lost for good, make an empty folder of "
                       u"that name first.)"));
    EXPECT_EQ(ProfileValues(), values);
  }
  ASSERT_TRUE(Mount(kPlace));
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(AllSettings(), before);
  EXPECT_TRUE(IsVolumeMountPoint(kPlace.c_str()));
  EXPECT_EQ(Contents(kPublic + u"\\Documents\\added.txt"), "added");
  EXPECT_FALSE(Exists(kPlace + u"\\Public"));

  // What is to be deleted at the next restart is named by the other folder that the volume is mounted on.
  ASSERT_TRUE(Mount(u"D:\\Another way"));
  OweRestart(u"D:\\Another way\\Public");
  EXPECT_TRUE(SetWithBoth(kPlace).Said(u"Your computer needs to be restarted"));
}

}  // namespace
