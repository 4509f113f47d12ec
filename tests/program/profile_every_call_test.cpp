// Whichever call of a command on profiles fails: no file is lost, Windows' records name the folder that holds the
// profile, the hive is unloaded, and what console and log say is true.
#include "program/shared_profiles.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::kPlace, test::kSidOfAnna, test::kVolume, test::MakeFile, test::MakeFolder,
    test::RunResult;

class ProfileCalls : public test::SharedProfilesTest {
 protected:
  // Every call once; then every function from some call on, which fails what is taken back, too. Each of the lines
  // must have been written in one of the runs; `names` says what stands there for which path.
  template <typename Command, typename Examine>
  void RefuseEach(Command command, const std::vector<std::pair<std::u16string, std::u16string>>& names,
                  const std::set<std::string>& lines, Examine examine) {
    std::set<std::string> written;
    int runs = 0;
    for (const bool fromThenOn : {false, true}) {
      const auto look = [&](const RunResult& run, const std::string& when) {
        ++runs;
        for (std::u16string line : LinesOf(run)) {
          for (const auto& [path, name] : names)
            for (std::size_t at; (at = line.find(path)) != line.npos;) line.replace(at, path.size(), name);
          written.insert(Utf8(line));
        }
        examine(run, when, fromThenOn);
      };
      const test::Disks disks = machine->Snapshot();
      if (fromThenOn)
        test::WithEachFunctionRefused(machine, command, look);
      else
        test::WithEachCallRefused(machine, command, look);
      test::StartAgain(machine, disks);
    }
    std::cout << runs << " runs\n";
    for (const std::string& line : lines) EXPECT_TRUE(written.contains(line)) << line;
  }
};

// What a move from folder to folder may say, there and back.
const std::set<std::string> kOfFolders = {
    "#ERROR: It must name the folder that holds the profile: [old].",
    "#ERROR: Unable to get Junction Target Path.",
    "#ERROR: Unable to create junction for Source = D:\\Shown and Target = [new]\\Shown.",
    "#ERROR: Unable to update redirected folder path in registry.",
    "#ERROR: Unable to update user profile path in registry.",
    "#INFO: Unable to load the user's registry file [new]\\ntuser.dat.",
    "#INFO: Unable to unload the user's registry file [new]\\ntuser.dat.",
    "#INFO: Unable to update the desktop wallpaper path in the user's registry."};

// A small profile in which an administrator may not read everything, with a folder that is redirected out of it and
// another one that is redirected into it.
class UserProfileCalls : public ProfileCalls {
 protected:
  static constexpr const char16_t* kInner = u"\\vault\\inner.txt";
  UserProfileCalls() {
    Restart({});
    Fill();
  }
  void Fill() {
    for (const auto* item : {u"\\Pictures", u"\\Documents\\old.bin", u"\\Documents\\letter.txt", u"\\Documents",
                             u"\\Application Data", u"\\AppData"}) {
      win32::SetFileAttributesW((kAnna + item).c_str(), win32::FILE_ATTRIBUTE_NORMAL);
      EXPECT_TRUE(win32::DeleteFileW((kAnna + item).c_str()) || win32::RemoveDirectoryW((kAnna + item).c_str()));
    }
    MakeFolder(kAnna + u"\\vault");
    MakeFile(kAnna + kInner, "inner");
    MakeFile(kAnna + kInner + u":note", "a named stream");
    test::SetSecurity(kAnna + u"\\vault", u"O:" + kSidOfAnna + u"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;" + kSidOfAnna + u")");
  }
  // A folder that is redirected out of the profile, one that is redirected into it, and all else that follows.
  void AddWhatFollows() {
    Wallpaper(kAnna, kAnna + u"\\x.jpg");
    MakeProfileLink(kAnna + u"\\Application Data", kAnna + u"\\vault");
    for (const auto* folder : {u"D:\\Shown", u"C:\\Users\\anna\\Out"}) MakeFolder(folder);
    EXPECT_EQ(Run({u"/RedirectFolder", u"D:\\Shown", u"/loc:C:\\Users\\anna"}).exitCode, 0);
    EXPECT_EQ(Run({u"/RedirectFolder", kAnna + u"\\Out", u"/loc:D:\\Kept"}).exitCode, 0);
    EnablePrivileges();
  }

  // The profile in that folder, and what names it.
  Items Now(const std::u16string& folder) {
    Items state = AllOf(folder);
    state[u"image path"] = Utf8(ImagePath());
    state[u"shown"] = Utf8(test::Exists(u"D:\\Shown") ? TextOfLink(ReadLinkData(u"D:\\Shown")).path : u"");
    for (const auto& [source, target] : AllRecords()) state[u"record " + source] = Utf8(target);
    return state;
  }
  // From `place` to `other`; `side` is where it goes first. `lines`: beside those that each of these commands writes.
  template <typename Command>
  void FailEach(Command command, const std::u16string& place, const std::u16string& other, const std::u16string& side,
                std::set<std::string> lines) {
    lines.insert({"#ERROR: Failed To Create Target Folder: [new]", "#ERROR: Failed to obtain User Profile Information.",
                  "#ERROR: Failed to obtain User Profile Information. User: anna",
                  "#ERROR: PreScanning failed for Source = [old] and Target = [new].",
                  "#ERROR: The User Profile, or a part of it, stays in [new].",
                  "#ERROR: Unable to get list of files for path = [old].",
                  "#ERROR: Unable to give the folder [new] the security of [old].",
                  "#ERROR: Unable to move files and folders from Source = [old] to Target = [new].",
                  "#ERROR: Unable to restore access rights to file and folder in Target Path = [new].",
                  "#ERROR: Unable to restore the access rights of [old]\\vault. Access is denied."});
    const Items before = Now(place);
    const test::Disks disks = machine->Snapshot();
    ASSERT_EQ(command().exitCode, 0);
    EnablePrivileges();
    const Items after = Now(other);
    test::StartAgain(machine, disks);
    const auto examine = [&](const RunResult& run, const std::string& when, bool fromThenOn) {
      EnablePrivileges();
      const bool succeeded = run.exitCode == 0;
      const std::u16string holder = ImagePath();
      if (HiveIsLoaded()) {
        EXPECT_TRUE(run.Logged(u"Unable to unload the user's registry file ")) << when;
        UnloadForgottenHive();
        EXPECT_FALSE(HiveIsLoaded()) << when;
      }
      EXPECT_TRUE(Exists(holder + u"\\NTUSER.DAT") || run.Logged(u"#ERROR: It must name ")) << Utf8(holder) << when;
      EXPECT_TRUE(succeeded || !run.Said(u"Redirect user profile was successful.")) << when;
      if (succeeded ? Now(other) == after : Now(place) == before) return;
      // A handle that is not closed keeps its file from being made anew. The copy does not ask for the other answers.
      const std::string call = when.substr(0, when.find(','));
      EXPECT_TRUE(fromThenOn || (succeeded ? call == "SetNamedSecurityInfoW" || call == "SetFileAttributesW"
                                           : call == "CloseHandle" || call == "FindClose"))
          << when;
      ExpectFilesIn({place, other, side}, when);
    };
    RefuseEach(command, {{side, u"[new]"}, {place, u"[old]"}, {other, u"[new]"}}, lines, examine);
  }
  static void ExpectFilesIn(const std::vector<std::u16string>& folders, const std::string& when) {
    EnablePrivileges();
    EXPECT_TRUE(std::ranges::any_of(folders, [](const auto& folder) { return Exists(folder + u"\\NTUSER.DAT"); }))
        << when;
    EXPECT_TRUE(std::ranges::any_of(folders, [](const auto& folder) {
      return Contents(folder + kInner) == "inner" && Contents(folder + kInner + u":note") == "a named stream";
    })) << when;
  }
};

TEST_F(UserProfileCalls, OfAMoveToAFolder) {
  AddWhatFollows();
  std::set<std::string> lines = kOfFolders;
  lines.insert("#ERROR: Unable to give the folder D:\\Profiles the access rights of C:\\Users. Access is denied.");
  FailEach([this] { return Move(u"anna", kPlace); }, kAnna, kPlace + u"\\anna", kPlace + u"\\anna", lines);
}

TEST_F(UserProfileCalls, OfTheWayHome) {
  AddWhatFollows();
  ASSERT_EQ(Move(u"anna", kPlace).exitCode, 0);
  std::set<std::string> lines = kOfFolders;
  lines.insert({"#ERROR: Failed to obtain information from config file.", "#ERROR: Failed to read config file.",
                "#ERROR: Unable to read what is noted of redirected profiles in registry.",
                "#ERROR: Unable to restore the security, attributes and times of [new]."});
  FailEach([this] { return MoveHome(u"anna"); }, kPlace + u"\\anna", kAnna, kAnna, lines);
}

TEST_F(UserProfileCalls, OfAMoveToAVolume) {
  Restart();
  Fill();
  FailEach([this] { return Move(u"anna", kVolume); }, kAnna, kAnna, kAnna + u".mount",
           {"#ERROR: Failed to Mount Volume on Target Folder: [new]", "#ERROR: Unable to make folder [old] again.",
            "#ERROR: Unable to remove folder [old]. Access is denied.",
            "#ERROR: Unable to rename folder [new]. Access is denied."});
}

TEST_F(UserProfileCalls, OfTheWayHomeFromAVolume) {
  Restart();
  Fill();
  ASSERT_EQ(Move(u"anna", kVolume).exitCode, 0);
  const std::string volume = Utf8(kVolume);
  FailEach(
      [this] { return MoveHome(u"anna"); }, kAnna, kAnna, kAnna + u".temp",
      {"#ERROR: The volume of the User Profile [old] holds another User Profile: C:\\Users\\jan. Move that one first.",
       "#ERROR: Unable to copy the times of folder [old].", "#ERROR: Unable to remove folder [old]. Access is denied.",
       "#ERROR: Unable to rename folder [new]. Access is denied.",
       "#ERROR: Unable to unmount the volume from folder [old]. Access is denied.",
       "#INFO: Unable to remove the note that folder [new] is being filled.",
       "#INFO: Unable to remove what is remembered of the security of volume " + volume + ".",
       "#INFO: Unable to restore the security of volume " + volume + "."});
}

// Default and Public, by themselves and as a part of automatic redirection.
class SharedProfileCalls : public ProfileCalls {
 protected:
  SharedProfileCalls() { Restart({}); }

  std::u16string FolderOf(const char16_t* name) {
    const std::u16string value = Value(name), drive = u"%SystemDrive%";
    return value.starts_with(drive) ? u"C:" + value.substr(drive.size()) : value;
  }
  // A configuration that cannot be read is replaced by the default, by the class that reads it.
  static inline const std::set<std::string> kReplacing{
      "PathFileExistsW",        "CreateFileW", "SetFilePointer", "GetFileSize", "ReadFile", "CreateInstance",
      "put_preserveWhiteSpace", "loadXML",     "CoInitializeEx"};

  template <typename Command>
  void FailEach(Command command, bool goesOut, const std::set<std::string>& lines) {
    const Values values = ProfileValues();
    const Configuration config = Config();
    const std::map<const char16_t*, Files> files = {{u"Default", FilesOf(FolderOf(u"Default"))},
                                                    {u"Public", FilesOf(FolderOf(u"Public"))}};
    const test::Disks disks = machine->Snapshot();
    ASSERT_EQ(command().exitCode, 0);
    const Values newValues = ProfileValues();
    const Configuration newConfig = Config();
    test::StartAgain(machine, disks);
    const auto examine = [&](const RunResult& run, const std::string& when, bool fromThenOn) {
      const bool succeeded = run.exitCode == 0;
      EXPECT_TRUE(succeeded || !run.log.empty() || fromThenOn) << when;
      for (const auto* success : {u"user profile was successful.", u"profile location - ", u" has been removed."})
        EXPECT_TRUE(succeeded || !run.Said(success)) << when;
      for (const auto& [name, before] : files) {
        const Files now = FilesOf(FolderOf(name));
        for (const auto& [file, contents] : before)
          EXPECT_TRUE(std::ranges::any_of(now, [&](const auto& each) { return each.second == contents; }))
              << Utf8(file) << " is lost: " << when;
        if (fromThenOn) continue;
        Files found = now;
        if (run.Logged(u"#INFO: The former file "))
          std::erase_if(found, [](const auto& file) { return file.first.find(u" (old)") != std::u16string::npos; });
        EXPECT_EQ(found, before) << when;
        // Whatever happens, what leads home is noted.
        const bool isAway = !FolderOf(name).starts_with(u"C:\\Users");
        EXPECT_TRUE(!isAway || machine->registry().Query(kNotes, name)) << when;
      }
      if (fromThenOn) return;
      EXPECT_EQ(ProfileValues(), succeeded ? newValues : values) << when;
      const Configuration now = Config();
      const bool replaced = now != config && now != newConfig && !succeeded;
      EXPECT_TRUE(replaced ? kReplacing.contains(when.substr(0, when.find(',')))
                           : now == (succeeded ? newConfig : config))
          << when;
      EXPECT_TRUE(FolderOf(u"ProfilesDirectory") == u"C:\\Users" || machine->registry().Query(kNotes, u"NewProfiles"))
          << when;
      const bool left = goesOut != succeeded && (Exists(kPlace + u"\\Default") || Exists(kPlace + u"\\Public"));
      EXPECT_TRUE(!left || run.Logged(u"Unable to delete all of the copy") || run.Logged(u" It stays.") ||
                  run.Logged(u"at the next restart"))
          << when;
    };
    const std::u16string home = u"C:\\Users";
    RefuseEach(command, {{goesOut ? home : kPlace, u"[old]"}, {goesOut ? kPlace : home, u"[new]"}}, lines, examine);
  }
};

TEST_F(SharedProfileCalls, OfSettingAutomaticRedirection) {
  FailEach(
      [this] { return SetWithBoth(kPlace); }, true,
      {"#ERROR: Failed To Create Target Folder: [new]", "#ERROR: Failed To Create Target Folder: [new]\\Public",
       "#ERROR: Failed to obtain User Profile Information.", "#ERROR: Failed to obtain information from config file.",
       "#ERROR: Failed to obtain available free space on : D:\\Access is denied.",
       "#ERROR: Failed to read config file.",
       "#ERROR: The specified path [old]\\Default is not a valid directory path.",
       "#ERROR: There was an error during path validation. Error message: Unable to get list of files for path = "
       "[old]\\Public.",
       "#ERROR: Unable to copy files and folders from Source = [old]\\Public to Target = [new]\\Public.",
       "#ERROR: Unable to delete all of the copy [new]\\Default.",
       "#ERROR: Unable to get Registry Redirect Location from config file.",
       "#ERROR: Unable to give the folder [new] the access rights of [old]. Access is denied.",
       "#ERROR: Unable to note in registry where profiles are redirected to.",
       "#ERROR: Unable to read the network shares of folder [old]\\Public.", "#ERROR: Unable to read the profile list.",
       "#ERROR: Unable to read the security, attributes and times of [new]\\Default. Access is denied.",
       "#ERROR: Unable to set the location of new user profiles in config file.",
       "#ERROR: Unable to update the profile list: Public cannot name [old]\\Public again.",
       "#ERROR: Unable to update the profile list: ProfilesDirectory cannot name [new]."});
}
TEST_F(SharedProfileCalls, OfRemovingAutomaticRedirection) {
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  MakeFile(kPlace + u"\\Public\\Documents\\added.txt", "added");
  MakeFile(kPlace + u"\\Public\\Documents\\report.txt", "second");
  MakeFile(kPlace + u"\\Public\\Documents\\report.txt:note", "second, too");
  FailEach(
      [this] { return Remove(); }, false,
      {"#ERROR: Failed To Create Target Folder: [new]\\Public",
       "#ERROR: The specified path [new] is not a valid directory path.",
       "#ERROR: There was an error during path validation. Error message: Unable to get list of files for path = "
       "[old]\\Default.",
       "#ERROR: Unable to copy files and folders from Source = [old]\\Public to Target = [new]\\Public.",
       "#ERROR: Unable to delete all that was copied to [new]\\Public.",
       "#ERROR: Unable to read the network shares of folder [old]\\Public.", "#ERROR: Unable to read the profile list.",
       "#ERROR: Unable to remove the location of new user profiles from config file.",
       "#ERROR: Unable to rename [new]\\Default\\NTUSER (old).DAT to [new]\\Default\\NTUSER.DAT again.",
       "#ERROR: Unable to update the profile list: ProfilesDirectory cannot name [new].",
       "#ERROR: Unable to update the profile list: Public cannot name [old]\\Public again.",
       "#ERROR: [new]\\Public\\Documents\\report.txt stands where [old]\\Public\\Documents\\report.txt is to come "
       "back, "
       "and cannot be renamed. Access is denied.",
       "#INFO: No need to update profile image file paths for Public User in OSes < Windows 8.",
       "#INFO: The configuration file does not say so, but new user profiles are created in [old] (ProfilesDirectory "
       "in "
       "the profile list).",
       "#INFO: The folder [new]\\Public\\Documents was there already. Its access list was replaced by that of the "
       "folder that was merged into it.",
       "#INFO: The former file [new]\\Public\\Documents\\report.txt stays as [new]\\Public\\Documents\\report "
       "(old).txt. "
       "Access is denied.",
       "#INFO: Unable to remove what is noted of redirected profiles in registry."});
}
TEST_F(SharedProfileCalls, OfRedirectingADefaultProfile) {
  FailEach([this] { return Redirect(u"DefaultProfile", kPlace); }, true,
           {"#ERROR: Failed To Create Target Folder: [new]\\Default",
            "#ERROR: Unable to update the profile list: Default cannot name [new]\\Default."});
}
TEST_F(SharedProfileCalls, OfBringingADefaultProfileBack) {
  ASSERT_EQ(Redirect(u"DefaultProfile", kPlace).exitCode, 0);
  FailEach([this] { return BringBack(u"DefaultProfile"); }, false,
           {"#ERROR: Failed to obtain information from config file.", "#ERROR: Failed to read config file.",
            "#ERROR: Unable to read what is noted of redirected profiles in registry.",
            "#ERROR: Unable to update the profile list: Default cannot name [new]\\Default."});
}

}  // namespace
