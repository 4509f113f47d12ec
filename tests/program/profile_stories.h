// What the stories of user profiles share: a workstation with small profiles, the commands, and what there is to see of
// a profile.
#pragma once

#include "program/everything.h"
#include "program/redirections.h"

namespace test {

using Lines = std::vector<std::u16string>;

inline const std::u16string kProfileList = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
inline const std::u16string kSidOfAnna = u"S-1-5-21-1004336348-1177238915-682003330-1001";
inline const std::u16string kSidOfJan = u"S-1-5-21-1004336348-1177238915-682003330-1002";
inline const std::u16string kPlace = u"D:\\Profiles";

class ProfileStories : public ::testing::Test {
 protected:
  static inline const std::u16string kAnna = u"C:\\Users\\anna";
  static inline const std::u16string kDefault = u"C:\\Users\\Default", kPublic = u"C:\\Users\\Public";

  ProfileStories() { Restart(); }

  // A junction as Windows makes them for old programs: nobody may list what it leads to by it.
  static void MakeProfileLink(const std::u16string& link, const std::u16string& target) {
    MakeFolder(u"C:\\Template");
    SetSecurity(u"C:\\Template", u"O:SYD:P(D;;CC;;;WD)(A;;0x1200a9;;;WD)(A;;FA;;;SY)(A;;FA;;;BA)");
    EXPECT_TRUE(CreateJunction(link.c_str(), target.c_str()) && WriteDescriptor(link, ReadDescriptor(u"C:\\Template")));
    EXPECT_TRUE(win32::RemoveDirectoryW(u"C:\\Template"));
  }

  static Disks SmallProfiles(const MachineFacts& facts) {
    const auto machine = InstalledMachine(facts);
    UseProgramModule(*machine);
    EXPECT_TRUE(EnablePrivileges());
    for (const std::u16string profile : {u"anna", u"jan", u"Default", u"Public"}) {
      const std::u16string folder = u"C:\\Users\\" + profile, hive = folder + u"\\NTUSER.DAT";
      const bool hasHive = win32::MoveFileW(hive.c_str(), u"C:\\kept.dat");
      EXPECT_TRUE(DeleteDirectoryTree(folder.c_str(), {.stopOnFailure = true}));
      EXPECT_EQ(hasHive, win32::MoveFileW(u"C:\\kept.dat", hive.c_str()));
    }
    for (const auto* folder : {u"anna\\AppData", u"anna\\Documents", u"anna\\Pictures", u"jan\\Documents",
                               u"Default\\AppData", u"Public\\AccountPictures", u"Public\\Documents", u"Public\\Music"})
      MakeFolder(u"C:\\Users\\" + std::u16string(folder));
    MakeProfileLink(kAnna + u"\\Application Data", kAnna + u"\\AppData");
    MakeFile(kAnna + u"\\Documents\\letter.txt", "Dear Jan");
    MakeFile(kAnna + u"\\Documents\\letter.txt:note", "a named stream");
    MakeFile(kAnna + u"\\Documents\\old.bin", std::string(9000, 'x'),
             win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
    MakeFile(kDefault + u"\\AppData\\settings.ini", "new users start with this");
    MakeProfileLink(kDefault + u"\\Old Data", kDefault + u"\\AppData");
    MakeFile(kPublic + u"\\AccountPictures\\anna.jpg", "a face");
    MakeFile(kPublic + u"\\Documents\\report.txt", "first");
    MakeFile(kPublic + u"\\Documents\\report.txt:note", "a named stream");
    MakeFile(kPublic + u"\\Documents\\fixed.txt", "read-only and hidden",
             win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM);
    MakeProfileLink(kPublic + u"\\Documents\\Old Music", kPublic + u"\\Music");
    EXPECT_TRUE(!facts.product || CQBConfig().Init());
    return machine->Snapshot();
  }

  void Restart(const MachineFacts& facts = {.volumes = 1}) {
    const std::string name = "profiles-" + std::to_string(facts.majorVersion) + std::to_string(facts.minorVersion) +
                             std::to_string(facts.extraDrives) + std::to_string(facts.product) +
                             std::to_string(facts.shortNames);
    machine.reset();
    Boot(KeptDisks(name, [&] { return SmallProfiles(facts); }));
  }
  // As after a restart, or a power failure.
  void Boot(Disks disks) {
    machine.reset();
    machine = BootFrom(std::move(disks));
    UseProgramModule(*machine);
    EnablePrivileges();  // the test looks at what is the user's own
  }

  RunResult Run(std::initializer_list<std::u16string> words) { return RunPlanned(*machine, words); }
  RunResult Move(const std::u16string& user, const std::u16string& location) {
    return Run({u"/RedirectUP", user, u"/loc:" + location});
  }
  RunResult MoveHome(const std::u16string& user) { return Run({u"/RedirectUPDefault", user}); }

  // The exit code; the console without the items that were copied; the messages of the log.
  static std::string Told(const RunResult& run) {
    std::string text = std::to_string(run.exitCode) + "\n";
    std::istringstream said(emulated::Utf8(run.said));
    for (std::string line; std::getline(said, line);) {
      const bool isItem = line.find(" -> ") != line.npos;
      text += line.substr(0, isItem ? line.find(":\\") - 1 : line.npos) + (isItem || said.eof() ? "" : "\n");
    }
    text += "\n--";
    for (const std::u16string& line : Messages(run.log)) text += "\n" + emulated::Utf8(line);
    return text;
  }

  // What Told says of a command on a user's profile that is refused: these messages, nothing done.
  static std::string Refused(const std::u16string& log, bool isWayHome = false) {
    const std::string result = "Redirect user profile was unsuccessful.";
    return "1\n" + std::string(isWayHome ? "" : kApps) +
           "Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.\n" + result + "\n--\n" +
           emulated::Utf8(log) + "\n" + result;
  }
  static constexpr const char* kApps =
      "Please note that redirecting a User Profile may temporarily make some Metro apps unusable. You will have to "
      "log-off and log-in again before you can use those Metro Apps.\n";

  std::u16string ImagePath(const std::u16string& sid = kSidOfAnna) {
    const auto value = machine->registry().Query(kProfileList + u"\\" + sid, u"ProfileImagePath");
    return value ? value->Text() : u"(none)";
  }
  void NameFolder(const std::u16string& sid, const std::u16string& folder, win32::DWORD type = win32::REG_EXPAND_SZ) {
    machine->registry().SetText(kProfileList + u"\\" + sid, u"ProfileImagePath", folder, type);
  }
  using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;
  // Source and target of the records of folders, or of files.
  Pairs AllRecords(const std::u16string& kind = u"Junctions") {
    const std::u16string list = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\" + kind;
    Pairs pairs;
    for (const std::u16string& number : machine->registry().SubKeys(list)) {
      const auto source = machine->registry().Query(list + u"\\" + number, u"Source");
      const auto target = machine->registry().Query(list + u"\\" + number, u"Target");
      pairs.emplace_back(source ? source->Text() : u"(none)", target ? target->Text() : u"(none)");
    }
    return pairs;
  }
  bool HiveIsLoaded() { return machine->registry().KeyExists(u"HKU\\_ntuser"); }
  // The wallpaper in the hive of the profile in that folder; a new one is written where it is given.
  std::u16string Wallpaper(const std::u16string& folder, const std::u16string& written = {}) {
    emulated::Registry& registry = machine->registry();
    if (registry.LoadHive(u"HKU\\look", folder + u"\\NTUSER.DAT") != 0) return u"(no hive)";
    if (!written.empty()) registry.SetText(u"HKU\\look\\Control Panel\\Desktop", u"WallPaper", written);
    const auto value = registry.Query(u"HKU\\look\\Control Panel\\Desktop", u"WallPaper");
    const std::u16string text = value ? value->Text() : u"(none)";
    EXPECT_EQ(registry.UnloadHive(u"HKU\\look"), 0u);
    return text;
  }
  std::shared_ptr<void> Hold(const std::u16string& file, win32::DWORD access = win32::GENERIC_READ,
                             win32::DWORD share = 0) {
    const auto held = machine->files().OpenForeign(4242, file, access, share);
    EXPECT_TRUE(held) << emulated::Utf8(file);
    return {nullptr, [this, held](void*) { machine->files().CloseForeign(held); }};
  }

  // Everything in a profile, wherever it is: descriptions, owners and entries; of a junction, where below the profile
  // it leads. The folder's own descriptor is there, too. The hive is looked into by itself.
  using Items = std::map<std::u16string, std::string>;
  static Items AllOf(const std::u16string& folder) {
    EnablePrivileges();
    Items all{{u"(itself)", emulated::Utf8(Security(folder))}};
    for (const auto& [path, description] : DescribeTree(folder)) {
      if (path == u"\\NTUSER.DAT" || path == u"\\$RECYCLE.BIN") continue;
      std::u16string target;
      const bool isLink = (Attributes(folder + path) & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
      if (isLink) GetJunctionTarget((folder + path).c_str(), target);
      all[path] = (isLink ? emulated::Utf8(ReplaceFolder(target, folder, u"*")) : description) + " " +
                  emulated::Utf8(Security(folder + path));
    }
    return all;
  }

  std::unique_ptr<emulated::Machine> machine;
};

}  // namespace test
