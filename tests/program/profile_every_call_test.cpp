// Whichever call of a command on profiles fails: no file is lost, Windows' records name the folder that holds the
// profile, the hive is unloaded, and what console and log say is true.
#include "program/shared_profiles.h"

namespace {

using namespace test;
using emulated::Utf8;

class ProfileCalls : public SharedProfilesTest {
 protected:
  // Every call once; then every function from some call on, which fails what is taken back, too. Each of the lines must
  // have been written in one of the runs.
  template <typename Command, typename Examine>
  void RefuseEach(Command command, const std::set<std::string>& lines, Examine examine) {
    std::set<std::string> written;
    bool fromThenOn = false;
    const auto look = [&](const RunResult& run, const std::string& when) {
      for (const std::u16string& line : Messages(run.log)) written.insert(Utf8(line));
      examine(run, when, fromThenOn);
    };
    const Disks disks = machine->Snapshot();
    WithEachCallRefused(machine, command, look);
    fromThenOn = true;
    StartAgain(machine, disks);
    WithEachFunctionRefused(machine, command, look);
    StartAgain(machine, disks);
    for (const std::string& line : lines) EXPECT_TRUE(written.contains(line)) << line;
  }
};

// A small profile in which an administrator may not read everything, with a folder that is redirected out of it and
// another one that is redirected into it.
class UserProfileCalls : public ProfileCalls {
 protected:
  static constexpr const char16_t* kInner = u"\\vault\\inner.txt";
  UserProfileCalls() {
    for (const auto* item : {u"\\Pictures", u"\\Documents\\old.bin", u"\\Documents\\letter.txt", u"\\Documents",
                             u"\\Application Data", u"\\AppData"}) {
      win32::SetFileAttributesW((kAnna + item).c_str(), win32::FILE_ATTRIBUTE_NORMAL);
      EXPECT_TRUE(win32::DeleteFileW((kAnna + item).c_str()) || win32::RemoveDirectoryW((kAnna + item).c_str()));
    }
    MakeFolder(kAnna + u"\\vault");
    MakeFile(kAnna + kInner, "inner");
    MakeFile(kAnna + kInner + u":note", "a named stream");
    SetSecurity(kAnna + u"\\vault", u"O:" + kSidOfAnna + u"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;" + kSidOfAnna + u")");
  }
  // The profile in that folder, and what names it.
  Items Now(const std::u16string& folder) {
    Items state = AllOf(folder);
    state[u"image path"] = Utf8(ImagePath());
    state[u"shown"] = Utf8(Exists(u"D:\\Shown") ? TextOfLink(ReadLinkData(u"D:\\Shown")).path : u"");
    for (const auto& [source, target] : AllRecords()) state[u"record " + source] = Utf8(target);
    return state;
  }
  // From `place` to `other`; `side` is where it goes first.
  template <typename Command>
  void FailEach(Command command, const std::u16string& place, const std::u16string& other, const std::u16string& side,
                const std::set<std::string>& lines) {
    const Items before = Now(place);
    const Disks disks = machine->Snapshot();
    ASSERT_EQ(command().exitCode, 0);
    EnablePrivileges();
    const Items after = Now(other);
    StartAgain(machine, disks);
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
    RefuseEach(command, lines, examine);
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

// With a folder that is redirected out of the profile, one that is redirected into it, and all else that follows.
TEST_F(UserProfileCalls, OfAMoveToAFolderAndHome) {
  Wallpaper(kAnna, kAnna + u"\\x.jpg");
  MakeProfileLink(kAnna + u"\\Application Data", kAnna + u"\\vault");
  for (const auto* folder : {u"D:\\Shown", u"C:\\Users\\anna\\Out"}) MakeFolder(folder);
  ASSERT_EQ(Run({u"/RedirectFolder", u"D:\\Shown", u"/loc:C:\\Users\\anna"}).exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectFolder", kAnna + u"\\Out", u"/loc:D:\\Kept"}).exitCode, 0);
  EnablePrivileges();
  const std::u16string there = kPlace + u"\\anna";
  FailEach([this] { return Move(u"anna", kPlace); }, kAnna, there, there,
           {"#ERROR: It must name the folder that holds the profile: C:\\Users\\anna.",
            "#ERROR: The User Profile, or a part of it, stays in D:\\Profiles\\anna.",
            "#ERROR: Unable to give the folder D:\\Profiles\\anna the security of C:\\Users\\anna.",
            "#ERROR: Unable to restore the access rights of C:\\Users\\anna\\vault. Access is denied.",
            "#ERROR: Unable to update redirected folder path in registry.",
            "#INFO: Unable to unload the user's registry file D:\\Profiles\\anna\\ntuser.dat.",
            "#INFO: Unable to update the desktop wallpaper path in the user's registry."});
  ASSERT_EQ(Move(u"anna", kPlace).exitCode, 0);
  FailEach([this] { return MoveHome(u"anna"); }, there, kAnna, kAnna,
           {"#ERROR: Unable to read what is noted of redirected profiles in registry.",
            "#ERROR: Unable to restore the security, attributes and times of C:\\Users\\anna."});
}

TEST_F(UserProfileCalls, LoseNothingWhenThePowerFails) {
  const auto move = [](emulated::Machine& on) { return RunProgram(on, {u"/RedirectUP", u"anna", u"/loc:" + kPlace}); };
  AtEveryMoment(*machine, move, [](emulated::Machine&, const std::string& moment) {
    ExpectFilesIn({kAnna, kPlace + u"\\anna"}, moment);
  });
}

TEST_F(UserProfileCalls, OfAMoveToAVolumeAndHome) {
  FailEach([this] { return Move(u"anna", kVolume); }, kAnna, kAnna, kAnna + u".mount",
           {"#ERROR: Unable to make folder C:\\Users\\anna again."});
  ASSERT_EQ(Move(u"anna", kVolume).exitCode, 0);
  FailEach([this] { return MoveHome(u"anna"); }, kAnna, kAnna, kAnna + u".temp",
           {"#INFO: Unable to remove the note that folder C:\\Users\\anna.temp is being filled.",
            "#INFO: Unable to remove what is remembered of the security of volume " + Utf8(kVolume) + ".",
            "#INFO: Unable to restore the security of volume " + Utf8(kVolume) + "."});
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
  void FailEach(Command command, bool goesOut, const std::set<std::string>& lines = {}) {
    const Values values = ProfileValues();
    const Configuration config = Config();
    const std::map<const char16_t*, Files> files = {{u"Default", FilesOf(FolderOf(u"Default"))},
                                                    {u"Public", FilesOf(FolderOf(u"Public"))}};
    const Disks disks = machine->Snapshot();
    ASSERT_EQ(command().exitCode, 0);
    const Values newValues = ProfileValues();
    const Configuration newConfig = Config();
    StartAgain(machine, disks);
    const auto examine = [&](const RunResult& run, const std::string& when, bool fromThenOn) {
      const bool succeeded = run.exitCode == 0;
      EXPECT_TRUE(succeeded || !run.log.empty() || fromThenOn) << when;
      for (const auto* success : {u"user profile was successful.", u"profile location - ", u" has been removed."})
        EXPECT_TRUE(succeeded || !run.Said(success)) << when;
      for (const auto& [name, before] : files) {
        const Files now = FilesOf(FolderOf(name));
        for (const auto& [file, contents] : before)
          EXPECT_TRUE(std::ranges::any_of(now, [&, &held = contents](const auto& each) { return each.second == held; }))
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
    RefuseEach(command, lines, examine);
  }
};

TEST_F(SharedProfileCalls, OfAutomaticRedirectionAndItsRemoval) {
  FailEach(
      [this] { return SetWithBoth(kPlace); }, true,
      {"#ERROR: Unable to copy files and folders from Source = C:\\Users\\Public to Target = D:\\Profiles\\Public.",
       "#ERROR: Unable to delete all of the copy D:\\Profiles\\Default.",
       "#ERROR: Unable to note in registry where profiles are redirected to.",
       "#ERROR: Unable to set the location of new user profiles in config file.",
       "#ERROR: Unable to update the profile list: Public cannot name C:\\Users\\Public again.",
       "#ERROR: Unable to update the profile list: ProfilesDirectory cannot name D:\\Profiles."});
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  for (const auto* file : {u"added.txt", u"report.txt", u"report.txt:note"})
    MakeFile(kPlace + u"\\Public\\Documents\\" + file, Utf8(file));
  FailEach(
      [this] { return Remove(); }, false,
      {"#ERROR: Unable to delete all that was copied to C:\\Users\\Public.", "#ERROR: Unable to read the profile list.",
       "#ERROR: Unable to remove the location of new user profiles from config file.",
       "#ERROR: Unable to rename C:\\Users\\Default\\NTUSER (old).DAT to C:\\Users\\Default\\NTUSER.DAT again.",
       "#INFO: No need to update profile image file paths for Public User in OSes < Windows 8.",
       std::string("#INFO: The former file C:\\Users\\Public\\Documents\\report.txt stays as ") +
           "C:\\Users\\Public\\Documents\\report (old).txt. Access is denied.",
       "#INFO: Unable to remove what is noted of redirected profiles in registry."});
}

TEST_F(SharedProfileCalls, OfADefaultProfileByItself) {
  FailEach([this] { return Redirect(u"DefaultProfile", kPlace); }, true);
  ASSERT_EQ(Redirect(u"DefaultProfile", kPlace).exitCode, 0);
  FailEach([this] { return BringBack(u"DefaultProfile"); }, false);
}

}  // namespace
