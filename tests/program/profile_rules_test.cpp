// Whose profile is whose, and which moves are refused: the complete log of each, and nothing has changed.
#include <algorithm>

#include "fsops/folder_itself.h"
#include "program/profile_stories.h"
#include "profiles/profile_list.h"
#include "profiles/user_accounts.h"
#include "profiles/user_hive.h"
#include "support/keelroom.h"

namespace {

using emulated::Utf8;
using test::Exists, test::MakeFile, test::MakeFolder, test::RunResult, test::Security;

constexpr const char16_t* kSidOfMaria = u"S-1-5-21-77-88-99-1105";

class ProfileRules : public test::ProfileStories {
 protected:
  // A key of the profile list.
  void AddProfile(const std::u16string& sid, const std::u16string& folder) {
    machine->registry().SetText(test::kProfileList + u"\\" + sid, u"ProfileImagePath", folder, win32::REG_EXPAND_SZ);
  }
  void AddMaria() {
    machine->domainAccounts = {{u"CORP", u"corp.example", u"maria", emulated::SidFromText(kSidOfMaria)}};
    MakeFolder(u"C:\\Users\\maria.CORP");
    AddProfile(kSidOfMaria, u"%SystemDrive%\\Users\\maria.CORP\\");
  }
  void ExpectRefused(const RunResult& run, std::vector<std::u16string> log) {
    log.insert(log.begin(), u"----------------------------------");
    log.emplace_back(u"Redirect user profile was unsuccessful.");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(
        run.said.ends_with(u"Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.\n"
                           u"Redirect user profile was unsuccessful."))
        << Utf8(run.said);
    EXPECT_EQ(Messages(run), log) << test::Text(Messages(run));
  }
};

TEST_F(ProfileRules, FindTheProfileOfAUser) {
  AddMaria();
  const std::u16string machineSid = test::kSidOfAnna.substr(0, test::kSidOfAnna.rfind(u'-'));
  AddProfile(machineSid + u"-2001", u"C:\\Users\\Gone User");  // an account that is no more
  AddProfile(machineSid + u"-2002", u"C:\\Users\\twice");      // two of one name
  AddProfile(machineSid + u"-2003", u"D:\\Other\\TWICE");
  AddProfile(machineSid + u"-2004.bak", u"C:\\Users\\aside");  // set aside by Windows
  AddProfile(u"S-1-12-1-11-22-33-44", u"C:\\Users\\cloud");
  const std::vector<std::tuple<std::u16string, std::u16string, std::u16string, int>> cases = {
      {u"anna", test::kSidOfAnna, u"C:\\Users\\anna", kHiveNotLoaded},
      {u"AnNa", test::kSidOfAnna, u"C:\\Users\\anna", kHiveNotLoaded},
      {u"CORP\\maria", kSidOfMaria, u"C:\\Users\\maria.CORP", kHiveMissing},
      {u"maria@corp.example", kSidOfMaria, u"C:\\Users\\maria.CORP", kHiveMissing},
      {u"gone user", machineSid + u"-2001", u"C:\\Users\\Gone User", kHiveMissing},
      {u"cloud", u"S-1-12-1-11-22-33-44", u"C:\\Users\\cloud", kHiveMissing},
      {u"Administrator", machineSid + u"-500", u"C:\\Users\\Administrator", kHiveLoaded}};
  for (const auto& [name, sid, folder, hiveState] : cases) {
    UserProfile profile;
    ASSERT_EQ(GetUserProfile(name, profile), 1) << Utf8(name);
    EXPECT_EQ(profile.sid, sid) << Utf8(name);
    EXPECT_EQ(profile.folder, folder) << Utf8(name);
    EXPECT_EQ(profile.hiveState, hiveState) << Utf8(name);
  }
  for (const auto* name : {u"", u"nobody", u"DefaultProfile", u"twice", u"aside", u"systemprofile", u"LocalService",
                           u"SYSTEM", u"Users"}) {
    UserProfile profile;
    EXPECT_EQ(GetUserProfile(name, profile), 0) << Utf8(name);
  }
}

TEST_F(ProfileRules, AUserIsLoggedOnWhileHisShellRuns) {
  EXPECT_FALSE(IsUserLoggedOn(u"anna"));
  StartProcess(u"notepad.exe", test::kSidOfAnna);
  EXPECT_FALSE(IsUserLoggedOn(u"anna"));
  for (const bool closed : {false, true}) {
    emulated::EndProcess(*machine, 5000);
    StartProcess(u"EXPLORER.EXE", test::kSidOfAnna, closed);
    EXPECT_EQ(IsUserLoggedOn(u"anna"), !closed);  // nobody tells the owner of a closed one
    EXPECT_FALSE(IsUserLoggedOn(u"jan"));
  }
}

TEST_F(ProfileRules, NameEachReasonInTheLog) {
  const std::u16string unsafe = u"#ERROR: PreScanning failed for Source = C:\\Users\\anna and Target = ";
  struct Case {
    const char* name;
    std::u16string user, location;
    std::vector<std::u16string> log;
  };
  const auto noDrive = [](const std::u16string& path) {
    return u"#ERROR: Unable to get Drive Number for path  = " + path + u".The operation completed successfully.";
  };
  const std::u16string network =
      u"#ERROR: The selected folder \\\\server\\share\\anna is a UNC path representing a network resource. Browse to a "
      u"different location.";
  MakeFile(u"D:\\file", "x");
  MakeFolder(u"C:\\x");
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\x", u"/loc:D:\\Kept"}).exitCode, 0);
  for (const auto* folder : {u"D:\\Trap", u"D:\\Trap\\anna", u"D:\\Trap\\anna\\Startup"}) MakeFolder(folder);
  test::SetSecurity(u"D:\\Trap\\anna\\Startup", u"O:" + test::kSidOfJan + u"D:(A;OICI;FA;;;SY)");
  const std::u16string trap = Security(u"D:\\Trap\\anna");
  StartProcess(u"Explorer.exe", test::kSidOfJan);
  const std::u16string longFolder = u"D:\\" + std::u16string(240, u'x');
  const std::u16string systemVolume = machine->volumes.front()->guidName;
  const std::vector<Case> cases = {
      {"nobody", u"nobody", u"D:\\P", {u"#ERROR: Failed to obtain User Profile Information. User: nobody"}},
      {"logged on", u"jan", u"D:\\P", {u"#ERROR: Cannot redirect logged in user = jan."}},
      {"no such volume",
       u"anna",
       u"\\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\",
       {u"#ERROR: The selected volume \\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\ does not exist."}},
      {"the profile's own volume",
       u"anna",
       systemVolume,
       {u"#ERROR: The selected volume " + systemVolume + u" already mounted."}},
      {"too long",
       u"anna",
       longFolder,
       {u"#ERROR: The specified path " + longFolder +
        u"\\anna exceeds the system-defined maximum length of 248 characters. Browse to a different location."}},
      {"dots",
       u"anna",
       u"D:\\x\\..\\P",
       {u"#ERROR: The selected folder D:\\x\\..\\P is a relative path. Browse to a different location"}},
      {"the name of a device", u"anna", u"\\\\?\\C:\\Users\\jan", {u"#ERROR:Invalid path : \\\\?\\C:\\Users\\jan"}},
      {"another profile",
       u"anna",
       u"C:\\Users\\jan",
       {u"#ERROR: The folder C:\\Users\\jan holds another User Profile. Browse to a different location."}},
      {"where it is",
       u"anna",
       u"C:\\Users\\",
       {u"Checking source folder equals to target./Source: C:\\Users\\anna Target: C:\\Users\\anna #ERROR: Cannot "
        u"redirect when Source and Target folder are the same. Browse to a different location.",
        unsafe + u"C:\\Users\\anna."}},
      {"Windows' own folder",
       u"anna",
       u"C:\\Windows\\System32",
       {u"#ERROR: C:\\Windows\\System32\\anna - Cannot redirect from or to Windows system folders. Browse to a "
        u"different "
        u"location."}},
      {"another's contents",
       u"anna",
       u"D:\\Kept\\x",
       {u"#ERROR: The place D:\\Kept\\x\\anna belongs to another redirection, Source = C:\\x and Target = D:\\Kept\\x. "
        u"Remove that one first, or browse to a different location."}},
      {"a network path",
       u"anna",
       u"\\\\server\\share",
       {noDrive(u"\\\\server\\share\\anna"), noDrive(u"\\\\server\\share\\anna"),
        u"#ERROR: \\\\server\\share\\anna - The specified drive does not exists.", network,
        unsafe + u"\\\\server\\share\\anna."}},
      {"a relative path",
       u"anna",
       u"P",
       {noDrive(u"P\\anna"), noDrive(u"P\\anna"), u"#ERROR: P\\anna - The specified drive does not exists.",
        u"#ERROR: The selected folder P\\anna is a relative path. Browse to a different location",
        unsafe + u"P\\anna."}},
      {"somebody else's trap",
       u"anna",
       u"D:\\Trap",
       {u"#ERROR: D:\\Trap\\anna\\Startup would become a part of the User Profile, but others may write to it: O:" +
        test::kSidOfJan +
        u". Take it away, or have Administrators own it and nobody else write to it, and try again."}},
      {"a file is in the way", u"anna", u"D:\\file", {u"#ERROR: Failed To Create Target Folder: D:\\file\\anna"}},
  };
  const Items before = AllOf(u"C:\\Users\\anna");
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    ExpectRefused(Move(one.user, one.location), one.log);
    EXPECT_FALSE(Exists(u"D:\\P") || Exists(longFolder) || Exists(u"C:\\Users\\anna.mount"));
  }
  ExpectSame(AllOf(u"C:\\Users\\anna"), before);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), u"C:\\Users\\anna");
  EXPECT_EQ(Security(u"D:\\Trap\\anna"), trap);
}

// Whatever leads to it: the text of the path tells only some of the ways into another's profile.
TEST_F(ProfileRules, NoProfileMixesWithAnother) {
  const std::u16string sid = test::kSidOfAnna + u"7";
  MakeFolder(u"C:\\Users\\A long name");
  for (const auto* folder : {u"C:\\Mounted", u"C:\\Again"}) {
    MakeFolder(folder);
    ASSERT_TRUE(win32::SetVolumeMountPointW((folder + std::u16string(u"\\")).c_str(), test::kVolume.c_str()));
  }
  MakeFolder(u"C:\\Mounted\\x");
  ASSERT_TRUE(CreateJunction(u"D:\\Way", u"C:\\Users"));
  struct Case {
    std::u16string user, profile, location, other;  // `profile`: the folder of one more user
  };
  const std::vector<Case> cases = {
      {u"anna", u"C:\\Users\\A long name", u"D:\\Way\\A long name", u"C:\\Users\\A long name"},
      {u"anna", u"C:\\Mounted\\x", u"C:\\Again\\x\\y", u"C:\\Mounted\\x"},
      {u"anna", u"\\\\?\\C:\\Mounted\\x", u"C:\\Again\\x", u"\\\\?\\C:\\Mounted\\x"},
      {u"Documents", u"C:\\Users\\jan\\Documents", u"D:\\P", u"C:\\Users\\jan"},
      {u"jan", u"C:\\Users\\jan\\Documents", u"D:\\P", u"C:\\Users\\jan\\Documents"},
      {u"Documents", u"D:\\Way\\jan\\Documents", u"D:\\P", u"C:\\Users\\jan"},
  };
  const Items anna = AllOf(u"C:\\Users\\anna"), jan = AllOf(u"C:\\Users\\jan");
  for (const Case& one : cases) {
    SCOPED_TRACE(Utf8(one.user + u" " + one.profile + u" " + one.location));
    AddProfile(sid, one.profile);
    ExpectRefused(Move(one.user, one.location), {u"#ERROR: The folder " + one.other +
                                                 u" holds another User Profile. Browse to a different location."});
    ExpectSame(AllOf(u"C:\\Users\\anna"), anna);
    ExpectSame(AllOf(u"C:\\Users\\jan"), jan);
    EXPECT_FALSE(Exists(u"D:\\P") || Exists(u"C:\\Users\\anna.mount"));
  }
  AddProfile(sid, u"\\\\?\\C:\\Users\\A long name");
  ExpectRefused(Move(u"A long name", u"D:\\P"), {u"#ERROR:Invalid path : \\\\?\\C:\\Users\\A long name"});
  AddProfile(sid, u"C:\\Users");  // what is left of a profile, without a hive, hinders nobody
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
}

// Loading it would change the file that it leads to, and the user says where that is.
TEST_F(ProfileRules, AHiveThatIsALinkIsNotTouched) {
  const std::u16string hive = u"C:\\Users\\anna\\NTUSER.DAT", wallpaper = u"C:\\Users\\anna\\x.jpg";
  Wallpaper(u"C:\\Users\\jan", wallpaper);
  win32::SetFileAttributesW(hive.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
  ASSERT_TRUE(win32::MoveFileW(hive.c_str(), u"C:\\Users\\anna\\saved.dat"));
  for (const bool isFolder : {true, false}) {
    if (isFolder)
      MakeFolder(hive);
    else
      ASSERT_TRUE(CreateSymbolicLinkEntry(hive.c_str(), u"C:\\Users\\jan\\NTUSER.DAT", {.forceFileLink = true}));
    UserProfile profile;
    ASSERT_EQ(GetUserProfile(u"anna", profile), 1);
    EXPECT_EQ(profile.hiveState, kHiveMissing);
    profile.hiveState = kHiveNotLoaded;  // it has become one since
    EXPECT_EQ(RewriteWallpaper(profile, u"C:\\Users\\anna", u"D:\\P\\anna"), 0);
    ASSERT_TRUE(!isFolder || win32::RemoveDirectoryW(hive.c_str()));
  }
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
  EXPECT_EQ(Wallpaper(u"C:\\Users\\jan"), wallpaper);
}

// Under its other name, the file would be open to everybody for good.
TEST_F(ProfileRules, AClosedFileWithSeveralNamesStays) {
  const std::u16string vault = u"C:\\Users\\anna\\vault", mine = vault + u"\\mine.txt", other = u"C:\\Kept\\other.txt";
  MakeFolder(vault);
  MakeFile(mine, "mine");
  MakeFolder(u"C:\\Kept");
  ASSERT_TRUE(win32::CreateHardLinkW(other.c_str(), mine.c_str(), nullptr));
  for (const auto* closed : {u"C:\\Users\\anna\\vault\\mine.txt", u"C:\\Users\\anna\\vault"}) {
    SCOPED_TRACE(Utf8(closed));
    const FolderDescriptor open = ReadDescriptor(closed);
    test::SetSecurity(closed, u"O:" + test::kSidOfAnna + u"D:P(A;OICI;FA;;;" + test::kSidOfAnna + u")");
    const Items before = AllOf(u"C:\\Users\\anna");
    const std::u16string outside = Security(other);
    ExpectRefused(Move(u"anna", u"D:\\P"),
                  {u"#ERROR: The file " + mine +
                       u" has several names (hard links), and administrators may not read it or a folder "
                       u"that it is in. Let them read both, or remove its other names, and try again.",
                   u"#ERROR: Unable to get list of files for path = C:\\Users\\anna."});
    ExpectSame(AllOf(u"C:\\Users\\anna"), before);
    EXPECT_EQ(Security(other), outside);
    ASSERT_TRUE(WriteDescriptor(closed, open));
  }
  EXPECT_EQ(Move(u"anna", u"D:\\P").exitCode, 0);
}

TEST_F(ProfileRules, WhatCouldNotFollowIsAskedBeforeTheMove) {
  const Items before = AllOf(u"C:\\Users\\anna");
  MakeFile(u"D:\\list.txt", "list");
  ASSERT_EQ(Run({u"/RedirectFile", u"D:\\list.txt", u"/loc:C:\\Users\\anna"}).exitCode, 0);
  const RunResult run = Move(u"anna", u"D:\\P");
  ASSERT_EQ(run.exitCode, 1);
  EXPECT_TRUE(
      run.Logged(u"#ERROR: The file D:\\list.txt is redirected into the User Profile, to "
                 u"C:\\Users\\anna\\list.txt. Remove this redirection first."));
  EXPECT_EQ(test::Contents(u"D:\\list.txt"), "list");
  ASSERT_EQ(Run({u"/RedirectFile", u"D:\\list.txt", u"/loc:C:\\Users\\anna", u"/d"}).exitCode, 0);
  EXPECT_FALSE(Exists(u"D:\\P"));
  // Read from the registry, it would be another folder.
  ExpectRefused(Move(u"anna", u"D:\\%TEMP%"), {u"#ERROR: Unable to update user profile path in registry."});
  EXPECT_FALSE(Exists(u"D:\\%TEMP%"));
  Items now = AllOf(u"C:\\Users\\anna");
  ExpectSame(now, before);
}

// The answers of Windows' version and of Keelroom, and what the console then says first.
TEST(ProfileOnKeelroom, OldDriversAreRefusedOrWarnedOf) {
  const std::u16string apps =
      u"Please note that redirecting a User Profile may temporarily make some Metro apps unusable. You will have to "
      u"log-off and log-in again before you can use those Metro Apps.";
  const std::u16string old =
      u"This computer has old version of Rimehold Keelroom. Please, update to the latest version of Rimehold before "
      u"redirecting User Profile. Redirecting User Profile to old version of Keelroom will make some Metro Apps "
      u"unusable.";
  const std::u16string refusal =
      u"#ERROR: Cannot redirect User Profile to old version of Rimehold Keelroom on Windows 10. Please, update to the "
      u"latest version of Rimehold before redirecting User Profile.";
  struct Case {
    win32::DWORD major, minor;
    std::string_view driver;  // of Keelroom on D:; empty for none
    std::u16string said;      // at the beginning
    bool refused;
  };
  const std::vector<Case> cases = {{6, 0, "", {}, false},      {6, 1, "8.32", {}, false}, {6, 2, "", apps, false},
                                   {6, 2, "8.32", old, false}, {6, 2, "8.33", {}, false}, {6, 3, "8.32", old, false},
                                   {6, 3, "", apps, false},    {10, 0, "", apps, false},  {10, 0, "8.32", {}, true},
                                   {10, 0, "9.0", {}, false}};
  for (const Case& one : cases) {
    SCOPED_TRACE(std::to_string(one.major) + "." + std::to_string(one.minor) + " " + std::string(one.driver));
    const auto machine = test::InstalledMachine({.majorVersion = one.major, .minorVersion = one.minor});
    if (!one.driver.empty()) {
      test::InstallKeeldisk(*machine, one.driver);
      test::AddKeelroomVolume(*machine, u"Volume1", u"D:");
    }
    const RunResult run = test::RunProgram(*machine, {u"/RedirectUP", u"anna", u"/loc:d:\\Profiles"});
    EXPECT_EQ(run.exitCode, one.refused ? 1 : 0) << Utf8(run.log);
    EXPECT_EQ(run.Logged(refusal), one.refused);
    EXPECT_EQ(run.Said(apps), one.said == apps);
    EXPECT_EQ(run.Said(old), one.said == old);
    EXPECT_TRUE(one.said.empty() || run.said.starts_with(one.said)) << Utf8(run.said);
    const RunResult back = test::RunProgram(*machine, {u"/RedirectUPDefault", u"anna"});
    EXPECT_FALSE(back.Said(apps) || back.Said(old) || back.Logged(refusal));
    EXPECT_EQ(back.exitCode, one.refused ? 1 : 0) << Utf8(back.log);  // refused: it has never left
  }
}

}  // namespace
