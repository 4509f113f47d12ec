// The rules for one path: each alone, and each before the next.
#include "links/junction.h"
#include "program/validation.h"
#include "validate/path_rules.h"

namespace {

using namespace win32;
using test::Lines, test::MakeFile, test::MakeFolder;

const std::u16string kNoDriveNumber = u"#ERROR: Unable to get Drive Number for path  = ";
const std::u16string kSuccess = u"The operation completed successfully.";

// The one line about a path.
auto About(const char16_t* before, const char16_t* after) {
  return [line = test::About(before, after)](const std::u16string& path) { return Lines{line(path)}; };
}
const auto Missing =
    About(u"#ERROR: The selected folder ", u" does not exist.The system cannot find the file specified.");
const auto Invalid = About(u"#ERROR:Invalid path : ", u"");
const auto NoDrive = About(u"#ERROR: ", u" - The specified drive does not exists.");
const auto Root =
    About(u"#ERROR: ", u" - A folder is required for folder redirection. Browse to a different location.");
const auto NotNtfs = About(u"#ERROR: Folder ", u" must be on NTFS formatted volume. Browse to a different location.");
const auto Network = About(u"#ERROR: The selected folder ",
                           u" is a UNC path representing a network resource. Browse to a different location.");
const auto NoDirectory = About(u"#ERROR: The specified path ", u" is not a valid directory path.");
const auto TooLong =
    About(u"#ERROR: The specified path ",
          u" exceeds the system-defined maximum length of 248 characters. Browse to a different location.");
const auto WrongDrive =
    About(u"#ERROR: Folder ", u" must be on fixed or removable drive. Browse to a different location.");
const auto System =
    About(u"#ERROR: ", u" - Cannot redirect from or to Windows system folders. Browse to a different location.");
const auto Relative = About(u"#ERROR: The selected folder ", u" is a relative path. Browse to a different location");
Lines DrivesUntold(const std::u16string& path) {
  return {u"#ERROR: Unable to get Logical Drive Strings.", NoDrive(path).front()};
}
// A path without a drive letter: asked twice (environment names may hide the letter), then named for what it is.
Lines Driveless(const std::u16string& path, const Lines& kind) {
  Lines lines = {kNoDriveNumber + path + u"." + kSuccess, kNoDriveNumber + path + u"." + kSuccess,
                 NoDrive(path).front()};
  lines.insert(lines.end(), kind.begin(), kind.end());
  return lines;
}

// A path of so many characters below a drive's root, in components that a directory can hold.
std::u16string PathOf(std::size_t length, char16_t letter) {
  std::u16string path = {letter, u':'};
  while (path.size() + 101 < length) path += u"\\" + std::u16string(100, u'a');
  return path += u"\\" + std::u16string(length - path.size() - 1, u'b');
}

class PathRules : public test::ValidationTest {
 protected:
  PathRules() : ValidationTest({.extraDrives = 1}) {}

  struct Case {
    std::u16string path;
    Lines lines;
  };
  void ExpectForSources(const std::vector<Case>& cases) {
    for (const Case& each : cases)
      EXPECT_LINES(Refusal([&] { return ValidateSourcePath(each.path.c_str()); }), each.lines);
  }
  void ExpectForTargets(const std::vector<Case>& cases, const TargetPathOptions& options = {}) {
    for (const Case& each : cases)
      EXPECT_LINES(Refusal([&] { return ValidateTargetPath(each.path.c_str(), options); }), each.lines);
  }
  // With Windows unable to name the drives at the first question, which is the rule about the drive's: it is asked when
  // no rule before it decides.
  void ExpectWithoutDrives(const std::u16string& path, const Lines& lines) {
    const std::uint64_t before = machine->gate.failures();
    machine->gate.FailCall("GetLogicalDriveStringsW", 1, ERROR_ACCESS_DENIED);
    EXPECT_LINES(Refusal([&] { return ValidateSourcePath(path.c_str()); }), lines);
    EXPECT_EQ(machine->gate.failures() != before, lines == DrivesUntold(path));
    machine->gate.ClearFailures();
  }
};

TEST_F(PathRules, ForSourcesOneByOne) {
  MakeFile(u"C:\\file", "x");
  MakeFolder(u"E:\\x");
  for (const char16_t* path : {u"C:\\Data", u"c:\\dATA\\", u"\\\\?\\C:\\Data", u"C:\\Data "})
    ExpectForSources({{path, passed}});
  for (const char16_t* path : {u"C:Data", u"C:/Data", u"c:"}) ExpectForSources({{path, Invalid(path)}});
  ExpectForSources(
      {{u"C:\\missing", Missing(u"C:\\missing")},
       {u"Q:\\x", {u"#ERROR: The selected folder Q:\\x does not exist.The system cannot find the path specified."}},
       {u"C:\\", Root(u"C:\\")},
       {u"\\\\?\\C:\\", Root(u"\\\\?\\C:\\")},
       {u"C:\\file", NoDirectory(u"C:\\file")},
       {u"C:\\Windows", System(u"C:\\Windows")}});
  ExpectWithoutDrives(u"C:\\Data", DrivesUntold(u"C:\\Data"));
  EXPECT_LINES(Refusal([] { return ValidateSourcePath(nullptr); }), Lines{u"#ERROR: Input path missing."});
  for (const char16_t* fileSystem : {u"FAT", u"FAT32", u"exFAT", u"CDFS", u"NTFS5"}) {
    Drive(u'E').fileSystem = fileSystem;
    ExpectForSources({{u"E:\\x", NotNtfs(u"E:\\x")}});
  }
  Drive(u'E').fileSystem = u"ntfs";
  const std::pair<UINT, Lines> types[] = {{DRIVE_FIXED, passed},
                                          {DRIVE_REMOVABLE, passed},
                                          {DRIVE_REMOTE, Network(u"E:\\x")},
                                          {DRIVE_CDROM, WrongDrive(u"E:\\x")},
                                          {DRIVE_RAMDISK, WrongDrive(u"E:\\x")},
                                          {DRIVE_UNKNOWN, WrongDrive(u"E:\\x")}};
  for (const auto& [type, lines] : types) {
    Drive(u'E').driveType = type;
    ExpectForSources({{u"E:\\x", lines}});
  }
}

// A path that breaks two rules shows the line of the first.
TEST_F(PathRules, ForSourcesInTheirOrder) {
  ExpectForSources({{u"C:missing", Missing(u"C:missing")}});
  ExpectWithoutDrives(u"C:Data", Invalid(u"C:Data"));
  ExpectWithoutDrives(u"C:\\", DrivesUntold(u"C:\\"));
  MakeFile(u"E:\\file", "x");
  MakeFolder(u"E:\\Windows");
  const std::u16string longFile = PathOf(247, u'C'), longFolder = PathOf(247, u'E');
  for (const std::u16string& path : {longFile, longFolder}) {
    MakeFolder(path.substr(0, 103));
    MakeFolder(path.substr(0, 204));
  }
  MakeFile(longFile, "x");
  MakeFolder(u"\\\\?\\" + longFolder);
  Drive(u'E').fileSystem = u"FAT32";
  ExpectForSources({{u"E:\\", Root(u"E:\\")}});
  Drive(u'E').driveType = DRIVE_REMOTE;
  ExpectForSources({{u"E:\\file", NotNtfs(u"E:\\file")}});
  Drive(u'E').fileSystem = u"NTFS";
  ExpectForSources({{u"E:\\file", Network(u"E:\\file")}, {longFile, NoDirectory(longFile)}});
  Drive(u'E').driveType = DRIVE_CDROM;
  ExpectForSources({{longFolder, TooLong(longFolder)}});
  Drive(u'C').driveType = DRIVE_CDROM;
  ExpectForSources({{u"C:\\Windows", WrongDrive(u"C:\\Windows")}});
}

TEST_F(PathRules, LengthsCountToTheCharacter) {
  MakeFolder(PathOf(247, u'C').substr(0, 103));
  MakeFolder(PathOf(247, u'C').substr(0, 204));
  for (const std::size_t length : {std::size_t{246}, std::size_t{247}}) {
    const std::u16string path = PathOf(length, u'C');
    ExpectForTargets({{path, length == 246 ? passed : TooLong(path)}});
    MakeFolder(u"\\\\?\\" + path);
    ExpectForSources({{path, length == 246 ? passed : TooLong(path)}});
  }
  const std::u16string extended = u"\\\\?\\" + PathOf(243, u'C');
  ExpectForTargets({{extended, TooLong(extended)}});
}

TEST_F(PathRules, ForTargets) {
  MakeFile(u"D:\\file", "x");
  const std::tuple<char16_t, UINT, const char16_t*> drives[] = {
      {u'F', DRIVE_REMOVABLE, u"NTFS"}, {u'G', DRIVE_REMOTE, u"NTFS"}, {u'H', DRIVE_CDROM, u"CDFS"},
      {u'I', DRIVE_CDROM, u"NTFS"},     {u'J', DRIVE_FIXED, u"FAT"},   {u'K', DRIVE_REMOVABLE, u"exFAT"},
      {u'L', DRIVE_REMOVABLE, u""},     {u'M', DRIVE_REMOTE, u"FAT32"}};  // no medium in L:
  for (const auto& [letter, type, fileSystem] : drives) AddDrive(letter, type, fileSystem);
  const auto expect = [&](const std::function<Lines(const std::u16string&)>& lines,
                          const std::vector<std::u16string>& paths) {
    for (const std::u16string& path : paths) ExpectForTargets({{path, lines(path)}});
  };
  expect([&](const std::u16string&) { return passed; },
         {u"D:\\Target", u"d:\\target\\", u"D:\\New", u"D:\\New \\", u"D:\\", u"C:\\Windows", u"F:\\x"});
  expect(Invalid, {u"D:", u"D:New", u"Q:New"});
  expect(NoDrive, {u"Q:\\x", u"\\\\?\\Q:\\x"});
  expect(Network, {u"G:\\x"});
  expect(NotNtfs, {u"H:\\x", u"J:\\x", u"K:\\x", u"L:\\x", u"M:\\x"});
  expect(WrongDrive, {u"I:\\x"});
  expect(TooLong, {PathOf(247, u'I')});
  expect(NoDirectory, {u"D:\\file"});
  expect([](const std::u16string& path) { return Driveless(path, Network(path)); },
         {u"\\\\server\\share", u"\\\\?\\UNC\\server\\share\\x", u"\\\\.\\C:\\x"});
  expect([](const std::u16string& path) { return Driveless(path, Relative(path)); },
         {u"folder\\new", u"  folder", u""});
  expect([](const std::u16string& path) { return Driveless(path, {}); }, {u"\\new", u" D:\\New", u"\"D:\\New\""});
  EXPECT_LINES(
      LinesOf([] { ValidateTargetPath(u"D:\\New"); }),
      Lines{u"#INFO: The selected target folder D:\\New does not exist. Ignoring PathIsDirectory validation."});
  EXPECT_LINES(Refusal([] { return ValidateTargetPath(nullptr); }), Lines{u"#ERROR: Input path missing."});
  // The letter may be in an environment name, but a file system has only what begins with a letter.
  const std::u16string named = u"%SystemDrive%\\New";
  ExpectForTargets(
      {{named, {kNoDriveNumber + named + u"." + kSuccess, kNoDriveNumber + named + u".", NotNtfs(named).front()}}});
}

TEST_F(PathRules, ForTargetsThatMustExist) {
  ExpectForTargets({{u"D:\\Target", passed},
                    {u"D:\\New", Missing(u"D:\\New")},
                    {u"D:\\", Root(u"D:\\")},
                    {u"C:\\Windows", System(u"C:\\Windows")},
                    {u"C:\\Program Files\\Velmora", passed}},
                   {.mustExist = true});
  // With drives allowed, only the product's own folders are let through among Windows' and the programs'.
  ExpectForTargets({{u"D:\\", passed},
                    {u"C:\\Program Files\\Velmora", {}},
                    {u"C:\\Windows\\System32", System(u"C:\\Windows\\System32")}},
                   {.mustExist = true, .allowDriveRoot = true, .systemFolder = {.insideProductOnly = true}});
}

TEST_F(PathRules, WindowsOwnFoldersWarnOrRefuse) {
  const std::string windows =
      "Redirecting sub-folders of Windows could lead to incorrect functionality of Windows. "
      "Ensure Windows works correctly on a Frozen computer once this folder is Thawed.\n";
  const std::string programs =
      "Redirecting sub-folders of Program Files could lead to incorrect behavior of some "
      "programs. Ensure this program works correctly on a Frozen computer once this folder is "
      "Thawed.\n";
  const std::string none;
  struct {
    const char16_t* path;
    SystemFolderOptions options;
    int refused;
    bool logged;
    std::string console;
  } const cases[] = {
      {u"C:\\Data", {}, 0, false, none},
      {u"C:\\Data", {.insideProductOnly = true}, 0, false, none},
      {u"c:\\WINDOWS", {}, 1, true, none},
      {u"C:\\Windows\\", {}, 1, true, none},
      {u"\\\\?\\C:\\Windows", {}, 1, true, none},
      {u"C:\\Windows\\SYSTEM32", {.quiet = true}, 1, true, none},
      {u"C:\\Windows\\System32\\drivers", {.insideProductOnly = true}, 1, true, none},
      {u"C:\\Program Files", {}, 1, true, none},
      {u"C:\\PROGRA~1", {}, 1, true, none},
      {u"C:\\PROGRA~1\\App~", {}, 0, false, programs},
      {u"C:\\Data~", {}, 0, false, none},
      {u"c:\\program files (X86)", {}, 1, true, none},
      {u"C:\\Windows\\Fonts", {}, 0, false, windows},
      {u"C:\\Windows\\Fonts", {.quiet = true}, 0, false, none},
      {u"C:\\Windows\\Fonts", {.insideProductOnly = true}, 1, false, none},
      {u"C:\\Program Files\\App", {}, 0, false, programs},
      {u"C:\\Program Files (x86)\\App", {}, 0, false, programs},
      {u"C:\\Program Files\\App", {.insideProductOnly = true}, 1, false, none},
      {u"C:\\Program Files\\Velmora\\Rimehold\\x", {.insideProductOnly = true}, 0, false, none},
      {u"C:\\program files (x86)\\velmora\\rimehold", {.insideProductOnly = true}, 0, false, none},
  };
  // The machine makes no short names; a junction that looks like one leads to the same folder.
  MakeFolder(u"C:\\Data~");
  MakeFolder(u"C:\\Program Files\\App~");
  ASSERT_EQ(CreateJunction(u"C:\\PROGRA~1", u"C:\\Program Files"), 1);
  for (const auto& each : cases) {
    machine->console.clear();
    int refused = -1;
    const Lines lines = LinesOf([&] { refused = IsSystemFolder(each.path, each.options); });
    std::string console = machine->console;
    std::erase(console, '\r');
    EXPECT_EQ(refused, each.refused) << emulated::Utf8(each.path);
    EXPECT_EQ(test::Shown(lines), test::Shown(each.logged ? System(each.path) : Lines{}));
    EXPECT_EQ(console, each.console) << emulated::Utf8(each.path);
  }
  for (const std::uint64_t question : {1u, 2u, 3u, 4u}) {  // which are Windows' own is not told
    machine->gate.FailCall("SHGetSpecialFolderPathW", question, ERROR_ACCESS_DENIED);
    EXPECT_EQ(IsSystemFolder(u"C:\\Data"), 1);
    machine->gate.ClearFailures();
  }
}

}  // namespace
