// Whose profile is whose, and which moves are refused: all that is said of each, and nothing has changed.
#include "program/profile_stories.h"

namespace {

using namespace test;
using emulated::Utf8;

class ProfileRules : public ProfileStories {
 protected:
  static void Mount(const std::u16string& folder, const std::u16string& volume) {
    MakeFolder(folder);
    ASSERT_TRUE(win32::SetVolumeMountPointW((folder + u"\\").c_str(), volume.c_str())) << Utf8(folder);
  }
  static void Unmount(const std::u16string& folder) {
    ASSERT_TRUE(win32::DeleteVolumeMountPointW((folder + u"\\").c_str()));
    ASSERT_TRUE(win32::RemoveDirectoryW(folder.c_str()));
  }
  void ExpectRefused(const std::u16string& user, const std::u16string& location, const std::u16string& log) {
    const Items before = AllOf(kAnna);
    EXPECT_EQ(Told(Move(user, location)), Refused(log));
    EXPECT_EQ(AllOf(kAnna), before);
    EXPECT_FALSE(Exists(u"D:\\P")) << Utf8(location);
  }
  // A process of this user; nobody may ask a closed one whose it is.
  void StartProcess(win32::DWORD id, const std::u16string& image, const std::u16string& sid, bool closed = false) {
    emulated::Process& process = emulated::AddProcess(*machine, id, image);
    process.token = std::make_shared<emulated::Token>(*machine->process.token);
    process.token->user = emulated::SidFromText(sid);
    process.isProtected = closed;
  }
};

TEST_F(ProfileRules, FindTheProfileOfAUser) {
  const std::u16string maria = u"S-1-5-21-77-88-99-1105";
  machine->domainAccounts = {{u"CORP", u"corp.example", u"maria", emulated::SidFromText(maria)}};
  NameFolder(maria, u"%SystemDrive%\\Users\\maria.CORP\\");
  const std::u16string machineSid = kSidOfAnna.substr(0, kSidOfAnna.rfind(u'-'));
  NameFolder(machineSid + u"-2001", u"C:\\Users\\Gone User");  // an account that is no more
  NameFolder(machineSid + u"-2002", u"C:\\Users\\twice");      // two of one name
  NameFolder(machineSid + u"-2003", u"D:\\Other\\TWICE");
  NameFolder(machineSid + u"-2004.bak", u"C:\\Users\\aside");  // set aside by Windows
  NameFolder(u"S-1-12-1-11-22-33-44", u"C:\\Users\\cloud");
  const std::tuple<std::u16string, std::u16string, std::u16string, int> cases[] = {
      {u"AnNa", kSidOfAnna, u"C:\\Users\\anna", 0},
      {u"CORP\\maria", maria, u"C:\\Users\\maria.CORP", -1},
      {u"maria@corp.example", maria, u"C:\\Users\\maria.CORP", -1},
      {u"gone user", machineSid + u"-2001", u"C:\\Users\\Gone User", -1},
      {u"cloud", u"S-1-12-1-11-22-33-44", u"C:\\Users\\cloud", -1},
      {u"Administrator", machineSid + u"-500", u"C:\\Users\\Administrator", 1}};
  for (const auto& [name, sid, folder, hiveState] : cases) {
    UserProfile profile;
    ASSERT_EQ(GetUserProfile(name, profile), 1) << Utf8(name);
    EXPECT_EQ(std::tuple(profile.sid, profile.folder, profile.hiveState), std::tuple(sid, folder, hiveState));
  }
  for (const auto* name : {u"", u"nobody", u"DefaultProfile", u"twice", u"aside", u"systemprofile", u"LocalService",
                           u"SYSTEM", u"Users"}) {
    UserProfile profile;
    EXPECT_EQ(GetUserProfile(name, profile), 0) << Utf8(name);
  }
}

TEST_F(ProfileRules, NameEachReasonInTheLog) {
  MakeFolder(u"C:\\x");
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\x", u"/loc:D:\\Kept"}).exitCode, 0);
  for (const auto* folder : {u"D:\\Trap", u"D:\\Trap\\anna", u"D:\\Trap\\anna\\Startup"}) MakeFolder(folder);
  SetSecurity(u"D:\\Trap\\anna\\Startup", u"O:" + kSidOfJan + u"D:(A;OICI;FA;;;SY)");
  const std::u16string trap = Security(u"D:\\Trap\\anna");
  MakeFile(u"D:\\file", "x");
  StartProcess(5000, u"EXPLORER.EXE", kSidOfJan);
  StartProcess(5004, u"notepad.exe", kSidOfAnna);  // neither shows that she is logged on
  StartProcess(5008, u"explorer.exe", kSidOfAnna, true);
  const std::u16string longFolder = u"D:\\" + std::u16string(240, u'x'), browse = u". Browse to a different location.";
  ExpectRefused(u"nobody", u"D:\\P", u"#ERROR: Failed to obtain User Profile Information. User: nobody");
  ExpectRefused(u"jan", u"D:\\P", u"#ERROR: Cannot redirect logged in user = jan.");
  ExpectRefused(u"anna", u"\\\\?\\Volume{0}\\", u"#ERROR: The selected volume \\\\?\\Volume{0}\\ does not exist.");
  ExpectRefused(u"anna", longFolder,
                u"#ERROR: The specified path " + longFolder +
                    u"\\anna exceeds the system-defined maximum length of 248 characters" + browse);
  ExpectRefused(u"anna", u"\\\\?\\C:\\Users\\jan", u"#ERROR:Invalid path : \\\\?\\C:\\Users\\jan");
  ExpectRefused(u"anna", u"C:\\Users\\jan", u"#ERROR: The folder C:\\Users\\jan holds another User Profile" + browse);
  ExpectRefused(
      u"anna", u"D:\\Kept\\x",
      u"#ERROR: The place D:\\Kept\\x\\anna belongs to another redirection, Source = C:\\x and Target = D:\\Kept\\x. "
      u"Remove that one first, or browse to a different location.");
  ExpectRefused(
      u"anna", u"D:\\Trap",
      u"#ERROR: D:\\Trap\\anna\\Startup would become a part of the User Profile, but others may write to it: O:" +
          kSidOfJan + u". Take it away, or have Administrators own it and nobody else write to it, and try again.");
  ExpectRefused(u"anna", u"D:\\file", u"#ERROR: Failed To Create Target Folder: D:\\file\\anna");
  for (const auto* location : {u"D:\\PublicProfiles", u"D:\\defaultprofile"})  // taken for a mistyped switch
    EXPECT_EQ(Move(u"anna", location).exitCode, 1) << Utf8(location);
  ExpectRefused(u"anna", u"D:\\%TEMP%", u"#ERROR: Unable to update user profile path in registry.");
  EXPECT_FALSE(Exists(longFolder) || Exists(u"D:\\%TEMP%") || Exists(kAnna + u".mount"));
  EXPECT_EQ(ImagePath(), kAnna);
  EXPECT_EQ(Security(u"D:\\Trap\\anna"), trap);

  MakeFile(u"D:\\list.txt", "list");
  ASSERT_EQ(Run({u"/RedirectFile", u"D:\\list.txt", u"/loc:C:\\Users\\anna"}).exitCode, 0);
  ExpectRefused(u"anna", u"D:\\P",
                u"#ERROR: The file D:\\list.txt is redirected into the User Profile, to C:\\Users\\anna\\list.txt. "
                u"Remove this redirection first.");
}

// Whatever leads to it: the text of the path tells only some of the ways into another's profile.
TEST_F(ProfileRules, NoProfileMixesWithAnother) {
  const std::u16string sid = kSidOfAnna + u"7";
  MakeFolder(u"C:\\Users\\A long name");
  Mount(u"C:\\Mounted", kVolume);
  Mount(u"C:\\Again", kVolume);
  MakeFolder(u"C:\\Mounted\\x");
  ASSERT_TRUE(CreateJunction(u"D:\\Way", u"C:\\Users"));
  const std::array<std::u16string, 4> cases[] = {
      // the user, the folder of one more, the location, who is in the way
      {u"anna", u"C:\\Users\\A long name", u"D:\\Way\\A long name", u"C:\\Users\\A long name"},
      {u"anna", u"C:\\Mounted\\x", u"C:\\Again\\x\\y", u"C:\\Mounted\\x"},
      {u"jan", u"C:\\Users\\jan\\Documents", u"D:\\P", u"C:\\Users\\jan\\Documents"},
      {u"Documents", u"D:\\Way\\jan\\Documents", u"D:\\P", u"C:\\Users\\jan"}};
  const Items jan = AllOf(u"C:\\Users\\jan");
  for (const auto& [user, folder, location, other] : cases) {
    NameFolder(sid, folder);
    ExpectRefused(user, location,
                  u"#ERROR: The folder " + other + u" holds another User Profile. Browse to a different location.");
    EXPECT_EQ(AllOf(u"C:\\Users\\jan"), jan);
  }
  NameFolder(sid, u"\\\\?\\C:\\Users\\A long name");
  ExpectRefused(u"A long name", u"D:\\P", u"#ERROR:Invalid path : \\\\?\\C:\\Users\\A long name");
  NameFolder(sid, u"C:\\Users");  // what is left of a profile, without a hive, hinders nobody
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
}

// Loading it would change the file that it leads to, and the user says where that is.
TEST_F(ProfileRules, AHiveThatIsALinkIsNotTouched) {
  const std::u16string hive = kAnna + u"\\NTUSER.DAT", wallpaper = kAnna + u"\\x.jpg";
  Wallpaper(u"C:\\Users\\jan", wallpaper);
  win32::SetFileAttributesW(hive.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
  ASSERT_TRUE(win32::MoveFileW(hive.c_str(), u"C:\\Users\\anna\\saved.dat"));
  ASSERT_TRUE(CreateSymbolicLinkEntry(hive.c_str(), u"C:\\Users\\jan\\NTUSER.DAT", {.forceFileLink = true}));
  UserProfile profile;
  ASSERT_EQ(GetUserProfile(u"anna", profile), 1);
  EXPECT_EQ(profile.hiveState, kHiveMissing);
  profile.hiveState = kHiveNotLoaded;  // it has become one since
  EXPECT_EQ(RewriteWallpaper(profile, kAnna, u"D:\\P\\anna"), 0);
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  EXPECT_EQ(Wallpaper(u"C:\\Users\\jan"), wallpaper);
}

// Under its other name, the file would be open to everybody for good.
TEST_F(ProfileRules, AClosedFileWithSeveralNamesStays) {
  const std::u16string vault = kAnna + u"\\vault", mine = vault + u"\\mine.txt", other = u"C:\\Kept\\other.txt";
  MakeFolder(vault);
  MakeFile(mine, "mine");
  MakeFolder(u"C:\\Kept");
  ASSERT_TRUE(win32::CreateHardLinkW(other.c_str(), mine.c_str(), nullptr));
  for (const std::u16string& closed : {mine, vault}) {
    const FolderDescriptor open = ReadDescriptor(closed);
    SetSecurity(closed, u"O:" + kSidOfAnna + u"D:P(A;OICI;FA;;;" + kSidOfAnna + u")");
    const std::u16string outside = Security(other);
    ExpectRefused(u"anna", u"D:\\P",
                  u"#ERROR: The file " + mine +
                      u" has several names (hard links), and administrators may not read it or a folder that it is "
                      u"in. Let them read both, or remove its other names, and try again.\n"
                      u"#ERROR: Unable to get list of files for path = C:\\Users\\anna.");
    EXPECT_EQ(Security(other), outside);
    ASSERT_TRUE(WriteDescriptor(closed, open));
  }
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
}

// A volume that is in use: the profile would mingle with what is on it, and take it along on its way home.
TEST_F(ProfileRules, AVolumeInUseIsRefused) {
  const std::u16string system = machine->volumes[0]->guidName, beside = kAnna + u".mount";
  const auto expectRefused = [&](const std::u16string& volume) {
    ExpectRefused(u"anna", volume, u"#ERROR: The selected volume " + volume + u" already mounted.");
  };
  ASSERT_EQ(Move(u"jan", kVolume).exitCode, 0);
  expectRefused(kVolume);
  Mount(beside, system);  // where the profile's own belongs
  expectRefused(system);
  Unmount(beside);
  ASSERT_EQ(MoveHome(u"jan").exitCode, 0);
  Mount(u"C:\\Shelf", kVolume);
  expectRefused(kVolume);
  Unmount(u"C:\\Shelf");
  EXPECT_EQ(Move(u"anna", kVolume).exitCode, 0);

  // Whoever else has his profile there, by whatever path, would lose it.
  Mount(u"C:\\Shelf", kVolume);
  MakeFolder(u"C:\\Shelf\\jan");
  const Items before = AllOf(kAnna);
  for (const std::u16string& folder : {std::u16string(u"C:\\Shelf\\jan"), kVolume + u"jan"}) {
    NameFolder(kSidOfJan, folder);
    EXPECT_EQ(Told(MoveHome(u"anna")),
              Refused(u"#ERROR: The volume of the User Profile C:\\Users\\anna holds another User Profile: " + folder +
                          u". Move that one first.",
                      true));
    EXPECT_EQ(AllOf(kAnna), before);
    EXPECT_FALSE(Exists(kAnna + u".temp"));
  }
  NameFolder(kSidOfJan, u"C:\\Users\\jan");
  EXPECT_EQ(MoveHome(u"anna").exitCode, 0);
}

// The answers of Windows' version and of Keelroom, and what the console then says first.
TEST_F(ProfileRules, OldDriversAreRefusedOrWarnedOf) {
  const std::string old =
      "This computer has old version of Rimehold Keelroom. Please, update to the latest version of Rimehold before "
      "redirecting User Profile. Redirecting User Profile to old version of Keelroom will make some Metro Apps "
      "unusable.\n";
  // Windows' version; that of Keelroom on D:, empty for none; what the console says at the beginning.
  const std::tuple<win32::DWORD, win32::DWORD, std::string, std::string> cases[] = {
      {6, 1, "", ""},      {6, 2, "", kApps},  {6, 2, "8.32", old}, {6, 2, "8.33", ""},
      {6, 3, "8.32", old}, {10, 0, "", kApps}, {10, 0, "8.32", ""}, {10, 0, "9.0", ""}};
  for (const auto& [major, minor, driver, said] : cases) {
    SCOPED_TRACE(std::to_string(major) + "." + std::to_string(minor) + " " + driver);
    Restart({.majorVersion = major, .minorVersion = minor});
    if (!driver.empty()) {
      InstallKeeldisk(*machine, driver);
      AddKeelroomVolume(*machine, u"Volume1", u"D:");
    }
    const bool refused = major == 10 && driver == "8.32";
    const std::string told = Told(Move(u"anna", u"d:\\Profiles"));
    const std::string reason = Refused(
        u"#ERROR: Cannot redirect User Profile to old version of Rimehold Keelroom on Windows 10. "
        u"Please, update to the latest version of Rimehold before redirecting User Profile.",
        true);
    EXPECT_TRUE(refused ? told == reason
                        : told.starts_with("0\n" + said + "Redirect user profile was successful.\n--\n"))
        << told;
    EXPECT_EQ(MoveHome(u"anna").exitCode, refused ? 1 : 0);  // it has never left
  }
}

}  // namespace
