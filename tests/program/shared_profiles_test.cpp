// The Default and Public profiles redirected by themselves; and whichever call of a command fails: each file of the two
// profiles is complete where Windows' profile list says, and the command tells the truth.
#include "program/shared_profiles.h"

#include <iostream>

#include "fsops/folders.h"
#include "fsops/delete_tree.h"
#include "support/every_call.h"
#include "support/keelroom.h"
#include "support/shares.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram, test::RunResult,
    test::SetSecurity, test::Share, test::Shares;

const std::u16string kPlace = u"D:\\Profiles";

class SharedProfilesCommands : public test::SharedProfilesTest {};

TEST_F(SharedProfilesCommands, GoAndComeBack) {
  Share(u"public", kPublic);
  Share(u"papers", kPublic + u"\\Documents");
  const auto shares = Shares();
  const Values values = ProfileValues();
  const Files ofPublic = FilesOf(kPublic), ofDefault = FilesOf(kDefault);
  RunResult run = Redirect(u"PublicProfile", kPlace);
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(run.said.ends_with(u"Redirect user profile was successful.")) << Utf8(run.said);
  EXPECT_EQ(Value(u"Public"), kPlace + u"\\Public");
  EXPECT_EQ(Value(u"Default"), u"%SystemDrive%\\Users\\Default");
  EXPECT_EQ(Config().status, u"0");
  EXPECT_EQ(Shares(), (std::map<std::u16string, std::u16string>{{u"public", kPlace + u"\\Public"},
                                                                {u"papers", kPlace + u"\\Public\\Documents"}}));
  run = Redirect(u"PublicProfile", u"D:\\Other");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.said.ends_with(kErrors + u"\nRedirect user profile was unsuccessful."));
  EXPECT_TRUE(run.Logged(u"is redirected already: it is not in C:\\Users."));
  EXPECT_TRUE(Redirect(u"DefaultProfile", kPlace + u"\\Public\\x").Logged(u" lies in the profile "));
  ASSERT_EQ(Redirect(u"DefaultProfile", kPlace).exitCode, 0);
  EXPECT_EQ(FilesOf(kPlace + u"\\Default"), ofDefault);
  machine->Advance(60000);
  const std::string documents = test::Describe(kPlace + u"\\Public\\Documents");
  ASSERT_EQ(BringBack(u"PublicProfile").exitCode, 0);
  EXPECT_EQ(FilesOf(kPublic), ofPublic);
  EXPECT_EQ(test::Describe(kPublic + u"\\Documents"), documents);
  EXPECT_FALSE(Exists(kPlace + u"\\Public"));
  EXPECT_EQ(Shares(), shares);
  run = BringBack(u"PublicProfile");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"#ERROR: No profile that was named is redirected."));
  ASSERT_EQ(BringBack(u"DefaultProfile").exitCode, 0);
  EXPECT_EQ(ProfileValues(), values);

  // Without security and shares, at a drive's root, and with a value that replaces no variables.
  const std::u16string text = u"C:\\Users\\Public";
  machine->registry().SetText(kList, u"Public", text, win32::REG_SZ);
  const Values plain = ProfileValues();
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectUP", u"/PublicProfile", u"/loc:D:\\", u"/-NTFS", u"/-Share"}).exitCode, 0);
  EXPECT_EQ(Value(u"Public"), u"D:\\Public");
  EXPECT_EQ(Shares(), shares);
  MakeFile(u"D:\\Public\\Documents\\added.txt", "added");
  run = RunProgram(*machine, {u"/RedirectUPDefault", u"/PublicProfile", u"/-NTFS", u"/-Share"});
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(ProfileValues(), plain);
  EXPECT_EQ(FilesOf(kPublic).size(), ofPublic.size() + 1);
  EXPECT_FALSE(Exists(u"D:\\Public"));

  // The place of the copy is gone for good: the old folder is all that there is.
  ASSERT_EQ(Redirect(u"DefaultProfile", kPlace).exitCode, 0);
  ASSERT_TRUE(win32::MoveFileW(kPlace.c_str(), u"D:\\Lost"));
  run = BringBack(u"DefaultProfile");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(
      run.Logged(u"#INFO: The folder D:\\Profiles\\Default is not there any more. Nothing comes back from it."));
  EXPECT_EQ(FilesOf(kDefault), ofDefault);
}

// Every user may write to D:, and to what somebody makes there; nobody but administrators may change what new profiles
// are made from. Public is everybody's to write to, also without its files' security - but not all of it.
TEST_F(SharedProfilesCommands, TakeNoEntriesFromTheFolderAboveThem) {
  const auto entries = [](const std::u16string& path) { return test::Dacl(path).substr(test::Dacl(path).find(u'(')); };
  for (const auto* flag : {u"/NTFS", u"/-NTFS"})
    for (const std::u16string place : {u"D:", u"D:\\Made", u"D:\\New"}) {
      SCOPED_TRACE(Utf8(flag) + " " + Utf8(place));
      Restart();
      if (place == u"D:\\Made") MakeFolder(place);
      SetSecurity(kPublic + u"\\Music", u"O:BAG:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;IU)");
      for (const std::u16string name : {u"Default", u"Public"}) {
        const std::u16string copy = place + u"\\" + name;
        const RunResult run =
            RunProgram(*machine, {u"/RedirectUP", u"/" + name + u"Profile", u"/loc:" + place + u"\\", flag});
        ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
        EXPECT_EQ(run.Logged(u"#INFO: The folder D:\\Made was there before and keeps its access rights. Its entry "
                             u"(A;OICIID;0x1301bf;;;AU) lets others rename or replace it, or what is in it."),
                  place == u"D:\\Made");
        EXPECT_TRUE(test::Dacl(copy).starts_with(u"D:P")) << Utf8(test::Dacl(copy));
        for (const std::u16string& item : test::Names(copy))
          EXPECT_EQ(test::Dacl(copy + item).find(u";AU)"), std::u16string::npos) << Utf8(item);
        const std::u16string file = name == u"Public" ? u"\\Documents\\report.txt" : u"\\NTUSER.DAT";
        EXPECT_EQ(entries(copy + file).find(u"0x1301bf;;;IU)") != std::u16string::npos, name == u"Public");
      }
      EXPECT_EQ(entries(place + u"\\Public\\Music"), entries(kPublic + u"\\Music"));
      EXPECT_EQ(test::Security(place) == test::Security(u"C:\\Users"), place == u"D:\\New");
    }
}

// A name in Public may belong to a file elsewhere, which whoever made the name may not write.
TEST_F(SharedProfilesCommands, WriteIntoNoFileOfSeveralNames) {
  const std::u16string documents = kPublic + u"\\Documents\\", copies = kPlace + u"\\Public\\Documents\\";
  const std::u16string open = u"O:BAG:BAD:PAI(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;BU)";
  for (const bool withSecurity : {true, false}) {
    SCOPED_TRACE(withSecurity);
    Restart();
    MakeFolder(u"C:\\Closed");
    MakeFile(u"C:\\Closed\\secret.txt", "the machine's");
    SetSecurity(u"C:\\Closed\\secret.txt", u"O:SYG:SYD:PAI(A;;FA;;;SY)(A;;FA;;;BA)");
    MakeFile(u"C:\\Closed\\fixed.txt", "fixed", win32::FILE_ATTRIBUTE_READONLY);
    MakeFile(documents + u"one.txt", "two names");
    MakeFile(documents + u"guarded.txt", "guarded");
    MakeFile(documents + std::u16string(200, u'n') + u".txt", "a long name");
    SetSecurity(documents + u"guarded.txt", u"O:BAG:BAD:PAI(A;;FA;;;SY)(A;;FA;;;BA)");
    for (const auto& [name, file] : {std::pair{u"bait.txt", u"C:\\Closed\\secret.txt"},
                                     {u"fixed link.txt", u"C:\\Closed\\fixed.txt"},
                                     {u"other.txt", u"C:\\Users\\Public\\Documents\\one.txt"}})
      ASSERT_TRUE(win32::CreateHardLinkW((documents + name).c_str(), file, nullptr));
    const test::Tree closed = test::DescribeTree(u"C:\\Closed");
    const std::u16string secret = test::Security(u"C:\\Closed\\secret.txt");
    const auto entries = [&] {  // who may do what, without how that came to be
      const std::u16string security = test::Security(documents + u"guarded.txt");
      return security.substr(security.find(u'('));
    };
    const std::u16string guarded = entries();
    const Files old = FilesOf(kPublic);

    const std::u16string flag = withSecurity ? u"/NTFS" : u"/-NTFS";
    ASSERT_EQ(RunProgram(*machine, {u"/RedirectUP", u"/PublicProfile", u"/loc:" + kPlace, flag}).exitCode, 0);
    SetSecurity(copies + u"bait.txt", open);
    MakeFile(copies + u"bait.txt", "the user's");
    MakeFile(copies + u"one.txt", "edited");
    machine->gate.FailCall("RegSetValueExW", 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_EQ(BringBack(u"PublicProfile").exitCode, 1);
    machine->gate.ClearFailures();
    EXPECT_EQ(FilesOf(kPublic), old) << "the old folder is as it was";
    const RunResult run = RunProgram(*machine, {u"/RedirectUPDefault", u"/PublicProfile", flag});
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    EXPECT_EQ(test::Security(u"C:\\Closed\\secret.txt"), secret);
    EXPECT_EQ(test::Contents(u"C:\\Closed\\secret.txt"), "the machine's");
    EXPECT_EQ(test::DescribeTree(u"C:\\Closed"), closed);
    EXPECT_EQ(entries(), guarded);
    Files expected = old;
    expected[u"\\Documents\\bait.txt"] = "the user's";
    expected[u"\\Documents\\one.txt"] = "edited";
    // Its other name would lose the read-only mark with this one.
    expected[u"\\Documents\\fixed link (old).txt"] = "fixed";
    EXPECT_EQ(FilesOf(kPublic), expected);
  }
}

TEST_F(SharedProfilesCommands, ComeBackFromADriveOnlyWhenItIsThere) {
  Restart({.extraDrives = 1});
  ASSERT_EQ(Redirect(u"PublicProfile", u"E:\\Profiles").exitCode, 0);
  MakeFile(u"E:\\Profiles\\Public\\added.txt", "added");
  std::u16string volume;
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == u'E') volume = mounted->guidName;
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"E:\\"));
  const Values values = ProfileValues();
  const RunResult run = BringBack(u"PublicProfile");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"#ERROR: The volume with the folder E:\\Profiles\\Public is not there. Connect it"));
  EXPECT_EQ(ProfileValues(), values);
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"E:\\", volume.c_str()));
  ASSERT_EQ(BringBack(u"PublicProfile").exitCode, 0);
  EXPECT_EQ(Contents(kPublic + u"\\added.txt"), "added");
}

TEST_F(SharedProfilesCommands, ComeBackWithoutRoomForOldAndNew) {
  const std::string film(26 << 20, 'f');
  MakeFile(kPublic + u"\\film.avi", film);
  win32::ULARGE_INTEGER available{};
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  ASSERT_TRUE(win32::GetDiskFreeSpaceExW(u"C:\\", &available, nullptr, nullptr));
  ASSERT_LT(available.QuadPart, film.size());
  const RunResult run = BringBack(u"PublicProfile");
  EXPECT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(Contents(kPublic + u"\\film.avi") == film);
  EXPECT_FALSE(Exists(kPlace + u"\\Public"));
}

TEST_F(SharedProfilesCommands, DoNotGoToAnOldKeelroomOnWindows10) {
  test::AddKeelroomVolume(*machine, u"Volume1", u"D:");
  for (const RunResult& run : {Redirect(u"DefaultProfile", kPlace), SetWithBoth(kPlace)}) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(
        run.Logged(u"#ERROR: Cannot redirect User Profile to old version of Rimehold Keelroom on Windows 10. "
                   u"Please, update to the latest version of Rimehold before redirecting User Profile."));
  }
  EXPECT_FALSE(Exists(kPlace));
}

// Folders of Public that are redirected themselves, and other folders whose contents lie in it.
TEST_F(SharedProfilesCommands, RedirectedFoldersInThemFollow) {
  const auto redirect = [&](const std::u16string& source, const std::u16string& target, bool back) {
    return back ? RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target, u"/d"})
                : RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target});
  };
  MakeFolder(kPublic + u"\\Papers");
  MakeFile(kPublic + u"\\Papers\\sheet.txt", "paper");
  ASSERT_EQ(redirect(kPublic + u"\\Papers", u"D:\\", false).exitCode, 0);
  MakeFolder(u"D:\\Data");
  ASSERT_EQ(redirect(u"D:\\Data", kPublic, false).exitCode, 0);
  RunResult run = Redirect(u"PublicProfile", kPlace);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(
      run.Logged(u"#ERROR: The profile C:\\Users\\Public holds what D:\\Data is redirected to. Remove that "
                 u"redirection first."));
  ASSERT_EQ(redirect(u"D:\\Data", kPublic, true).exitCode, 0);
  run = Redirect(u"PublicProfile", kPlace);
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(LinkTarget(kPlace + u"\\Public\\Papers"), u"D:\\Papers");
  run = redirect(kPlace + u"\\Public\\Papers", u"D:\\", true);
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(Contents(kPlace + u"\\Public\\Papers\\sheet.txt"), "paper");
  run = BringBack(u"PublicProfile");
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(Contents(kPublic + u"\\Papers\\sheet.txt"), "paper");
  EXPECT_EQ(LinkTarget(kPublic + u"\\Papers (old)"), u"D:\\Papers");
  EXPECT_FALSE(Exists(kPlace + u"\\Public"));
}

TEST_F(SharedProfilesCommands, VolumesThatAreMountedInThemAreNotEntered) {
  Restart({.volumes = 1});
  std::u16string volume;
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == 0) volume = mounted->guidName;
  MakeFolder(kPublic + u"\\Shelf");
  ASSERT_TRUE(win32::SetVolumeMountPointW((kPublic + u"\\Shelf\\").c_str(), volume.c_str()));
  MakeFile(kPublic + u"\\Shelf\\book.txt", "on the volume");
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  EXPECT_EQ(Contents(kPlace + u"\\Public\\Shelf\\book.txt"), "on the volume");
  for (const bool fails : {true, false}) {
    if (fails) machine->gate.FailCall("RegSetValueExW", 1, win32::ERROR_ACCESS_DENIED);
    const RunResult run = BringBack(u"PublicProfile");
    EXPECT_EQ(run.exitCode, fails ? 1 : 0) << Utf8(run.log);
    EXPECT_EQ(Contents(kPublic + u"\\Shelf\\book.txt"), "on the volume");
    EXPECT_EQ(Exists(kPlace + u"\\Public\\Shelf\\book.txt"), fails);
  }
  EXPECT_EQ(Contents(volume + u"book.txt"), "on the volume");
}

// What a user does in the copy while it is left: what came back is complete, and what he did stays.
TEST_F(SharedProfilesCommands, FilesThatChangeWhileTheyComeBackStay) {
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  const std::u16string pictures = kPlace + u"\\Public\\AccountPictures\\";
  // While the service is asked to follow. By then nothing is there twice: a run that ends here has done its work.
  bool done = false;
  machine->onSleep = [&](std::uint64_t) {
    if (std::exchange(done, true)) return;
    for (const auto& [name, contents] : FilesOf(kPlace + u"\\Public"))
      EXPECT_TRUE(name.starts_with(u"\\AccountPictures\\")) << Utf8(name);
    for (const auto& [name, contents] : FilesOf(kPublic)) EXPECT_EQ(name.find(u" (old)"), name.npos) << Utf8(name);
    MakeFile(pictures + u"anna.jpg", "late");
    MakeFile(pictures + u"late.jpg", "late, too");
  };
  const RunResult run = BringBack(u"PublicProfile");
  machine->onSleep = {};
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  ASSERT_TRUE(done);
  EXPECT_TRUE(run.Logged(u"anna.jpg was changed after it had been copied back. It stays."));
  EXPECT_TRUE(run.Logged(u"#INFO: The folder D:\\Profiles\\Public is not empty. It stays."));
  EXPECT_EQ(Contents(kPublic + u"\\AccountPictures\\anna.jpg"), "a face");
  EXPECT_EQ(FilesOf(kPlace + u"\\Public").size(), 2u);
  EXPECT_EQ(Contents(pictures + u"late.jpg"), "late, too");
}

// Any user may make folders in Public that only he may write, or read: in the live one, and in the one that stayed.
TEST_F(SharedProfilesCommands, ComeBackWithWhatItsUsersKeepToThemselves) {
  const std::u16string anna = u"S-1-5-21-1004336348-1177238915-682003330-1001";
  const std::u16string writes = u"O:" + anna + u"G:" + anna + u"D:P(A;OICI;0x1200a9;;;WD)(A;OICI;FA;;;" + anna + u")";
  const std::u16string reads = u"O:" + anna + u"G:" + anna + u"D:P(A;OICI;FA;;;" + anna + u")";
  const auto fill = [&](const std::u16string& profile, const std::string& text) {
    for (const auto* name : {u"\\Hers", u"\\Hers\\Inner", u"\\Secret"}) MakeFolder(profile + name);
    for (const auto* name : {u"\\Hers\\a.txt", u"\\Hers\\Inner\\b.txt", u"\\Secret\\c.txt"})
      MakeFile(profile + name, text);
    for (const auto* name : {u"\\Hers\\a.txt", u"\\Secret\\c.txt"}) SetSecurity(profile + name, reads);
    SetSecurity(profile + u"\\Hers\\Inner", writes);
    SetSecurity(profile + u"\\Hers", writes);
    SetSecurity(profile + u"\\Secret", reads);
  };
  const auto securityOf = [](const std::u16string& profile) {
    EnablePrivileges();
    std::map<std::u16string, std::u16string> all;
    for (const auto* name : {u"\\Hers", u"\\Hers\\a.txt", u"\\Hers\\Inner", u"\\Secret", u"\\Secret\\c.txt"})
      all[name] = DescriptorText(ReadDescriptor(profile + name), 7);
    return all;
  };
  for (const bool automatic : {false, true})
    for (const bool stayed : {false, true}) {
      SCOPED_TRACE(std::string(automatic ? "automatic" : "by itself") + (stayed ? ", in the old folder, too" : ""));
      Restart();
      ASSERT_EQ((automatic ? SetWithBoth(kPlace) : Redirect(u"PublicProfile", kPlace)).exitCode, 0);
      if (stayed) fill(kPublic, "old");
      fill(kPlace + u"\\Public", "new");
      const auto live = securityOf(kPlace + u"\\Public"), old = securityOf(kPublic);
      machine->gate.FailCall("RegSetValueExW", 1, win32::ERROR_ACCESS_DENIED);
      EXPECT_EQ((automatic ? Remove() : BringBack(u"PublicProfile")).exitCode, 1);
      machine->gate.ClearFailures();
      EXPECT_EQ(securityOf(kPlace + u"\\Public"), live);
      EXPECT_EQ(securityOf(kPublic), old);
      const RunResult run = automatic ? Remove() : BringBack(u"PublicProfile");
      ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
      EXPECT_EQ(securityOf(kPublic), live);
      const Files files = FilesOf(kPublic);
      for (const auto* name : {u"\\Hers\\a.txt", u"\\Hers\\Inner\\b.txt"}) EXPECT_EQ(Contents(kPublic + name), "new");
      EXPECT_FALSE(Exists(kPlace + u"\\Public"));
    }
}

// A command, with each of its calls refused.
class SharedProfilesEveryCall : public test::SharedProfilesTest {
 protected:
  // Of what a profile holds by the dozen, one of each kind is enough.
  SharedProfilesEveryCall() {
    const auto remove = [](const std::u16string& path) {
      if (!Exists(path)) return;
      if (!IsJunction(path.c_str())) DeleteDirectoryTree(path.c_str(), {.stopOnFailure = true});
      EXPECT_TRUE(RemoveEmptyFolder(path)) << Utf8(path);
    };
    for (const auto* name : {u"AppData\\Local",
                             u"AppData\\Roaming\\Microsoft",
                             u"Application Data",
                             u"Cookies",
                             u"Local Settings",
                             u"My Documents",
                             u"NetHood",
                             u"PrintHood",
                             u"Recent",
                             u"SendTo",
                             u"Start Menu",
                             u"Templates",
                             u"Documents",
                             u"Contacts",
                             u"Desktop",
                             u"Downloads",
                             u"Favorites",
                             u"Links",
                             u"Music",
                             u"Pictures",
                             u"Saved Games",
                             u"Videos"})
      remove(kDefault + u"\\" + name);
    for (const auto* name : {u"Desktop", u"Downloads", u"Libraries", u"Pictures", u"Videos", u"AccountPictures",
                             u"Documents\\My Music", u"Documents\\My Pictures", u"Documents\\My Videos"})
      remove(kPublic + u"\\" + name);
    MakeFolder(kPublic + u"\\AccountPictures");
  }

  std::u16string FolderOf(const char16_t* name) {
    const std::u16string value = Value(name), drive = u"%SystemDrive%";
    return value.starts_with(drive) ? u"C:" + value.substr(drive.size()) : value;
  }

  template <typename Command>
  void FailEach(Command command) {
    const Values values = ProfileValues();
    const Configuration config = Config();
    const Files ofDefault = FilesOf(FolderOf(u"Default")), ofPublic = FilesOf(FolderOf(u"Public"));
    std::optional<std::pair<Values, Configuration>> after;
    const auto run = [&] {
      const RunResult result = command();
      if (!after) after = {ProfileValues(), Config()};
      return result;
    };
    std::map<std::string, int> outcomes;
    int calls = 0;
    test::WithEachCallRefused(machine, run, [&](const RunResult& result, const std::string& when) {
      ++calls;
      const std::string call = when.substr(0, when.find(','));
      const bool isOld = ProfileValues() == values, isNew = ProfileValues() == after->first;
      const Configuration now = Config();
      // A file that cannot be read is replaced by the default, by the class that reads it.
      const bool replaced = now != config && now != after->second && result.exitCode == 1;
      EXPECT_TRUE(isOld || isNew) << when;
      EXPECT_EQ(isNew, result.exitCode == 0) << when;
      EXPECT_TRUE(replaced ? kReplacing.contains(call) : now == (isNew ? after->second : config)) << when;
      for (const auto* success : {u"user profile was successful.", u"profile location - ",
                                  u"Newly created user profile location at D:\\Profiles "
                                  u"has been removed."})
        EXPECT_TRUE(result.exitCode == 0 || !result.Said(success)) << when;
      for (const auto& [name, files] : {std::pair{u"Default", &ofDefault}, {u"Public", &ofPublic}}) {
        Files found = FilesOf(FolderOf(name));
        if (result.Logged(u"#INFO: The former file "))
          std::erase_if(found, [](const auto& file) { return file.first.find(u" (old)") != std::u16string::npos; });
        EXPECT_EQ(found, *files) << when;
        // Whatever happens, what leads home is noted.
        const bool isAway = !FolderOf(name).starts_with(u"C:\\Users");
        EXPECT_TRUE(!isAway || machine->registry().Query(kNotes, name)) << when;
      }
      EXPECT_TRUE(FolderOf(u"ProfilesDirectory") == u"C:\\Users" || machine->registry().Query(kNotes, u"NewProfiles"))
          << when;
      EXPECT_TRUE(result.exitCode == 0 || !result.log.empty()) << when;
      const bool left =
          goesOut == (result.exitCode == 1) && (Exists(kPlace + u"\\Default") || Exists(kPlace + u"\\Public"));
      EXPECT_TRUE(!left || result.Logged(u"Unable to delete all of the copy") || result.Logged(u" It stays.") ||
                  result.Logged(u"at the next restart"))
          << when;
      ++outcomes[std::string(result.exitCode == 0 ? "success" : "failure") + (replaced ? ", default file" : "") +
                 (left ? ", something of the copy left" : "")];
    });
    std::cout << calls << " calls refused\n";
    for (const auto& [outcome, count] : outcomes) std::cout << outcome << ": " << count << "\n";
  }
  static inline const std::set<std::string> kReplacing{
      "PathFileExistsW",        "CreateFileW", "SetFilePointer", "GetFileSize", "ReadFile", "CreateInstance",
      "put_preserveWhiteSpace", "loadXML",     "CoInitializeEx"};
  bool goesOut = true;
};

TEST_F(SharedProfilesEveryCall, OfSettingAutomaticRedirection) {
  FailEach([&] { return SetWithBoth(kPlace); });
}
TEST_F(SharedProfilesEveryCall, OfRemovingAutomaticRedirection) {
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  goesOut = false;
  FailEach([&] { return Remove(); });
}
TEST_F(SharedProfilesEveryCall, OfRedirectingTheDefaultProfile) {
  FailEach([&] { return Redirect(u"DefaultProfile", kPlace); });
}
TEST_F(SharedProfilesEveryCall, OfRedirectingThePublicProfile) {
  FailEach([&] { return Redirect(u"PublicProfile", kPlace); });
}
TEST_F(SharedProfilesEveryCall, OfBringingTheDefaultProfileBack) {
  ASSERT_EQ(Redirect(u"DefaultProfile", kPlace).exitCode, 0);
  goesOut = false;
  FailEach([&] { return BringBack(u"DefaultProfile"); });
}
TEST_F(SharedProfilesEveryCall, OfBringingThePublicProfileBack) {
  ASSERT_EQ(Redirect(u"PublicProfile", kPlace).exitCode, 0);
  MakeFile(kPlace + u"\\Public\\Documents\\added.txt", "added");
  MakeFile(kPlace + u"\\Public\\Documents\\report.txt", "second");
  MakeFile(kPlace + u"\\Public\\Documents\\report.txt:note", "second, too");
  goesOut = false;
  FailEach([&] { return BringBack(u"PublicProfile"); });
}

}  // namespace
