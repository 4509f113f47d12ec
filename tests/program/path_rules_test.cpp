// The rules for one path: what each question answers when it is asked alone, and which rule speaks first.
#include "program/validation.h"

namespace {

using namespace test;
using namespace win32;

const std::u16string kNoDriveNumber = u"#ERROR: Unable to get Drive Number for path  = ";
const std::u16string kSuccess = u".The operation completed successfully.";

using Speaks = std::function<Lines(const std::u16string& path)>;
Speaks Line(const char16_t* before, const char16_t* after,
            const char16_t* elsewhere = u" Browse to a different location.") {
  return [=](const std::u16string& path) { return Lines{before + path + after + elsewhere}; };
}
const Speaks Silent = [](const std::u16string&) { return Lines{}; };
const Speaks Passed = [](const std::u16string&) { return Lines{u"(passed)"}; };
const Speaks Missing =
    Line(u"#ERROR: The selected folder ", u" does not exist.", u"The system cannot find the file specified.");
const Speaks Invalid = Line(u"#ERROR:Invalid path : ", u"", u"");
const Speaks NoDrive = Line(u"#ERROR: ", u" - The specified drive does not exists.", u"");
const Speaks Root = Line(u"#ERROR: ", u" - A folder is required for folder redirection.");
const Speaks NotNtfs = Line(u"#ERROR: Folder ", u" must be on NTFS formatted volume.");
const Speaks Network = Line(u"#ERROR: The selected folder ", u" is a UNC path representing a network resource.");
const Speaks NoDirectory = Line(u"#ERROR: The specified path ", u" is not a valid directory path.", u"");
const Speaks TooLong =
    Line(u"#ERROR: The specified path ", u" exceeds the system-defined maximum length of 248 characters.");
const Speaks WrongDrive = Line(u"#ERROR: Folder ", u" must be on fixed or removable drive.");
const Speaks System = Line(u"#ERROR: ", u" - Cannot redirect from or to Windows system folders.");
const Speaks Relative =
    Line(u"#ERROR: The selected folder ", u" is a relative path.", u" Browse to a different location");

// A path of so many characters below a drive's root, in components that a directory can hold.
std::u16string PathOf(std::size_t length, char16_t letter) {
  std::u16string path = {letter, u':'};
  while (path.size() + 101 < length) path += u"\\" + std::u16string(100, u'a');
  return path += u"\\" + std::u16string(length - path.size() - 1, u'b');
}

// C:, D: and E: are there; the others are known by name alone.
class PathRules : public ValidationTest {
 protected:
  PathRules() : ValidationTest({.extraDrives = 1, .shortNames = true}) {
    const std::tuple<char16_t, UINT, const char16_t*> drives[] = {
        {u'F', DRIVE_REMOVABLE, u"NTFS"}, {u'G', DRIVE_REMOTE, u"NTFS"},   {u'H', DRIVE_CDROM, u"CDFS"},
        {u'I', DRIVE_CDROM, u"NTFS"},     {u'J', DRIVE_FIXED, u"FAT"},     {u'K', DRIVE_REMOVABLE, u"exFAT"},
        {u'L', DRIVE_REMOVABLE, u""},     {u'M', DRIVE_REMOTE, u"FAT32"},  // no medium in L:
        {u'N', DRIVE_RAMDISK, u"NTFS"},   {u'O', DRIVE_UNKNOWN, u"NTFS5"}, {u'P', DRIVE_FIXED, u"ntfs"}};
    for (const auto& [letter, type, fileSystem] : drives) {
      machine->volumes.push_back(std::make_unique<emulated::MountedVolume>());
      machine->volumes.back()->letter = letter;
      machine->volumes.back()->driveType = type;
      machine->volumes.back()->fileSystem = fileSystem;
    }
    for (const char16_t* file : {u"C:\\file", u"D:\\file"}) MakeFile(file, "x");
    MakeFolder(u"E:\\x");
  }

  Lines ForSource(const std::u16string& path) {
    return Refusal([&] { return ValidateSourcePath(path.c_str()); });
  }
  Lines ForTarget(const std::u16string& path, const TargetPathOptions& options = {}) {
    return Refusal([&] { return ValidateTargetPath(path.c_str(), options); });
  }
};

TEST_F(PathRules, EachAnswersForItself) {
  ASSERT_EQ(CreateJunction(u"C:\\Link", u"C:\\System Volume Information"), 1);
  const std::u16string guid = Drive(u'D').guidName;
  const auto name = [](std::size_t length) { return u"%SystemDrive%\\" + std::u16string(length, u'x'); };
  const std::pair<const char*, std::vector<std::u16string>> cases[] = {
      {"drive fixed ntfs usable ordinary outside ",
       {u"C:\\Data", u"d:\\target\\", u"F:\\x", u"P:\\x", u"C:\\annul\\console", u"C:\\System Volume Informations"}},
      {"drive fixed usable ordinary outside ", {u"J:\\x", u"K:\\x", u"L:\\x"}},
      {"drive ntfs usable ordinary outside ", {u"I:\\x", u"N:\\x"}},
      {"drive usable ordinary outside ", {u"H:\\x", u"O:\\x"}},
      {"drive network ntfs usable ordinary outside ", {u"G:\\x"}},
      {"drive network usable ordinary outside ", {u"M:\\x"}},
      {"usable ordinary outside ", {u"Q:\\x"}},
      {"root drive fixed ntfs usable ordinary outside ", {u"C:\\", u"c:"}},
      {"root drive fixed ntfs extended outside ", {u"\\\\?\\C:\\"}},
      {"root usable ordinary outside ", {u"Q:\\"}},
      {"drive fixed ntfs extended outside ", {u"\\\\?\\C:\\Data"}},
      {"network ntfs usable outside ", {Drive(u'D').guidName}},
      {"network usable ordinary outside ", {u"\\\\server\\share", u"5:\\", u" C:\\Data", u"\"C:\\Data\""}},
      {"network usable outside ", {u"\\\\?\\UNC\\server\\share\\x"}},
      {"network outside ", {u"\\\\.\\C:\\x", u"\\??\\C:\\x", u"\\new"}},
      {"drive network relative usable ordinary outside ", {u"%SystemDrive%\\New", name(256)}},
      {"network relative usable ordinary outside ", {name(257), u"%Nowhere%\\New", u"folder\\new", u"CD\\"}},
      {"network relative outside ", {u"", u"  folder "}},
      {"drive fixed ntfs outside ",
       {u"C:\\a\\..\\b", u"C:\\a\\.", u"C:\\a\\\\b", u"C:\\a/b", u"C:\\a.\\b", u"C:\\a \\b", u"C:\\nul",
        u"C:\\a\\Com1.txt\\b"}},
      {"drive fixed ntfs usable ordinary ",
       {u"C:\\$Recycle.Bin", u"D:\\a\\system volume information\\b", u"C:\\Link\\b"}}};
  const auto answersTo = [](const std::u16string& path) {
    const char16_t* const text = path.c_str();
    const char* const questions[] = {"root",     "drive",    "network", "fixed",    "ntfs",
                                     "relative", "extended", "usable",  "ordinary", "outside"};
    const bool answers[] = {
        IsDriveRoot(text),    DriveExists(text),           IsNetworkPath(text),       IsOnFixedOrRemovableDrive(text),
        IsOnNtfs(text),       IsRelativePath(text),        IsExtendedDrivePath(path), IsUsablePath(path),
        IsOrdinaryPath(path), IsOutsideSystemFolders(path)};
    std::string given;
    for (std::size_t i = 0; i < std::size(answers); ++i) given += answers[i] ? std::string(questions[i]) + " " : "";
    return given;
  };
  for (const auto& [answers, paths] : cases)
    for (const std::u16string& path : paths) EXPECT_EQ(answersTo(path), answers) << emulated::Utf8(path);
}

// What the log tells of the answers, and what is made of a path on the way.
TEST_F(PathRules, QuestionsThatRefuseSayWhy) {
  const auto asked = [&](bool (*question)(const std::u16string&), const std::u16string& path, const Speaks& speaks) {
    EXPECT_LINES(LinesOf([&] { question(path); }), speaks(path));
  };
  asked(IsUsablePath, u"\\\\?\\C:\\Data", Invalid);
  asked(IsUsablePath, u"C:\\a\\..\\b", Relative);
  asked(IsUsablePath, u"C:\\a.", Invalid);
  asked(IsOrdinaryPath, u"\\\\.\\C:\\x", Invalid);
  asked(IsOutsideSystemFolders, u"C:\\$RECYCLE.BIN\\x", System);
  EXPECT_FALSE(HasAllowedLength(PathOf(247, u'C')));
  asked(HasAllowedLength, PathOf(247, u'C'), TooLong);
  asked(HasAllowedLength, PathOf(246, u'C'), Silent);
  EXPECT_LINES(LinesOf([] { IsNetworkPath(u"x"); }),
               Lines{kNoDriveNumber + u"x" + kSuccess,
                     u"#ERROR: Unable to get Drive Name for path = x drive =\nThe operation completed successfully."});
  EXPECT_LINES(LinesOf([] { IsOnNtfs(u"x"); }), Lines{kNoDriveNumber + u"x."});
  EXPECT_LINES(LinesOf([] { DriveExists(u"%Nowhere%\\x"); }), Lines(2, kNoDriveNumber + u"%Nowhere%\\x" + kSuccess));

  EXPECT_EQ(TrimAndUnquote(u"  \" C:\\x \"  "), u" C:\\x ");
  std::u16string parent = u"none";
  EXPECT_EQ(GetParentDirPath(u"C:", parent) + GetParentDirPath(nullptr, parent), 0);
  EXPECT_EQ(parent, u"none");
  for (const auto& [path, found] : {std::pair(u"C:\\a\\b", u"C:\\a"), {u"C:\\", u"C:"}, {u"\\", u""}})
    EXPECT_TRUE(GetParentDirPath(path, parent) && parent == found);
}

// As a source, as a target, and as a location for registry data.
TEST_F(PathRules, TheFirstThatDoesNotHoldSpeaks) {
  constexpr TargetPathOptions kLocation{
      .mustExist = true, .allowDriveRoot = true, .systemFolder = {.insideProductOnly = true}};
  MakeFolder(u"C:\\Windows\\Own");
  for (const unsigned length : {103u, 204u}) MakeFolder(PathOf(247, u'C').substr(0, length));
  MakeFolder(PathOf(246, u'C'));
  MakeFolder(u"\\\\?\\" + PathOf(247, u'C'));
  const std::tuple<std::vector<std::u16string>, Speaks, Speaks, Speaks> cases[] = {
      {{u"c:\\dATA\\", u"\\\\?\\C:\\Data", PathOf(246, u'C')}, Passed, Passed, Passed},
      {{u"C:\\missing"}, Missing, Passed, Missing},
      {{u"C:missing"}, Missing, Invalid, Missing},
      {{u"C:Data", u"c:"}, Invalid, Invalid, Invalid},
      {{u"C:\\", u"\\\\?\\C:\\"}, Root, Passed, Passed},
      {{u"C:\\file"}, NoDirectory, NoDirectory, NoDirectory},
      {{PathOf(247, u'C')}, TooLong, TooLong, TooLong},
      {{u"C:\\Windows"}, System, Passed, System},
      {{u"C:\\Windows\\Own", u"C:\\Program Files\\Velmora"}, Passed, Passed, Silent}};
  for (const auto& [paths, asSource, asTarget, asLocation] : cases)
    for (const std::u16string& path : paths) {
      EXPECT_LINES(ForSource(path), asSource(path));
      EXPECT_LINES(ForTarget(path), asTarget(path));
      EXPECT_LINES(ForTarget(path, kLocation), asLocation(path));
    }
  EXPECT_LINES(ForTarget(u"Q:\\x"), NoDrive(u"Q:\\x"));
  // Without a drive letter it is asked for twice (environment names may hide it), and the kind of path is told.
  for (const auto& [path, kind] : std::initializer_list<std::pair<std::u16string, Speaks>>{
           {u"\\\\server\\share", Network}, {u"folder\\new", Relative}, {u"\\new", Silent}}) {
    Lines lines(2, kNoDriveNumber + path + kSuccess);
    for (const Speaks& speaks : {NoDrive, kind}) std::ranges::copy(speaks(path), std::back_inserter(lines));
    EXPECT_LINES(ForTarget(path), lines);
  }
  EXPECT_LINES(ForTarget(u"C:\\", {.mustExist = true}), Root(u"C:\\"));
  EXPECT_LINES(
      LinesOf([] { ValidateTargetPath(u"D:\\New"); }),
      Lines{u"#INFO: The selected target folder D:\\New does not exist. Ignoring PathIsDirectory validation."});
  for (const auto& decide : {+[] { return ValidateSourcePath(nullptr); }, +[] { return ValidateTargetPath(nullptr); }})
    EXPECT_LINES(Decision(decide), Lines{u"#ERROR: Input path missing."});
  // A source that breaks two rules shows the line of the first.
  MakeFile(u"E:\\file", "x");
  const std::tuple<UINT, const char16_t*, const char16_t*, Speaks> sources[] = {
      {DRIVE_FIXED, u"FAT32", u"E:\\", Root},
      {DRIVE_REMOTE, u"FAT32", u"E:\\file", NotNtfs},
      {DRIVE_REMOTE, u"ntfs", u"E:\\file", Network},
      {DRIVE_CDROM, u"NTFS", u"E:\\x", WrongDrive},
      {DRIVE_REMOVABLE, u"NTFS", u"E:\\x", Passed}};
  for (const auto& [type, fileSystem, path, speaks] : sources) {
    Drive(u'E').driveType = type;
    Drive(u'E').fileSystem = fileSystem;
    EXPECT_LINES(ForSource(path), speaks(path));
  }
  // Windows cannot name the drives at the first question, the one whether there is such a drive.
  machine->gate.FailCall("GetLogicalDriveStringsW", 1, ERROR_ACCESS_DENIED);
  EXPECT_LINES(ForSource(u"C:\\"), Lines{u"#ERROR: Unable to get Logical Drive Strings.", NoDrive(u"C:\\").front()});
  machine->gate.ClearFailures();
  Drive(u'C').driveType = DRIVE_CDROM;
  EXPECT_LINES(ForSource(u"C:\\Windows"), WrongDrive(u"C:\\Windows"));
}

TEST_F(PathRules, WindowsOwnFoldersWarnOrRefuse) {
  const std::u16string none, windows = LoadResourceString(180), programs = LoadResourceString(181);
  const SystemFolderOptions any, quiet{.quiet = true}, product{.insideProductOnly = true};
  const std::tuple<std::vector<std::u16string>, SystemFolderOptions, Speaks, std::u16string> cases[] = {
      {{u"C:\\Data", u"C:\\Data~"}, any, Passed, none},
      {{u"c:\\WINDOWS", u"C:\\Windows\\", u"\\\\?\\C:\\Windows", u"C:\\Windows\\SYSTEM32\\drivers"}, any, System, none},
      {{u"C:\\Program Files", u"C:\\PROGRA~1", u"c:\\program files (X86)"}, any, System, none},
      {{u"C:\\Windows\\Fonts"}, any, Passed, windows},
      {{u"C:\\Program Files\\App", u"C:\\PROGRA~1\\New", u"C:\\Program Files (x86)\\App"}, any, Passed, programs},
      {{u"C:\\Windows\\System32"}, quiet, System, none},
      {{u"C:\\Windows\\Fonts", u"C:\\Program Files\\App"}, quiet, Passed, none},
      {{u"C:\\Windows\\System32"}, product, System, none},
      {{u"C:\\Windows\\Fonts", u"C:\\Program Files\\App"}, product, Silent, none},
      {{u"C:\\Data", u"C:\\Program Files\\Velmora\\Rimehold\\x"}, product, Passed, none},
      {{u"C:\\program files (x86)\\velmora\\rimehold"}, product, Passed, none},
  };
  MakeFolder(u"C:\\Data~");
  const auto decide = [&](const char16_t* path, const SystemFolderOptions& options) {
    return Decision([&] { return 1 - IsSystemFolder(path, options); });  // 1 refuses
  };
  for (const auto& [paths, options, speaks, console] : cases)
    for (const std::u16string& path : paths) {
      machine->console.clear();
      EXPECT_LINES(decide(path.c_str(), options), speaks(path));
      std::erase(machine->console, '\r');
      EXPECT_EQ(machine->console, emulated::Utf8(console)) << emulated::Utf8(path);
    }
  for (const std::uint64_t question : {1u, 2u, 3u, 4u}) {
    machine->gate.FailCall("SHGetSpecialFolderPathW", question, ERROR_ACCESS_DENIED);
    EXPECT_LINES(decide(u"C:\\Data", any),
                 Lines{u"#ERROR: Unable to tell the Windows system folders, of which C:\\Data may be one."});
    machine->gate.ClearFailures();
  }
}

}  // namespace
