// The rules for a source and a target together, those for a volume that is to be mounted in a folder's place, and the
// whole decisions: each rule alone, which are still tried after one has failed, and what the flags change.
#include "program/validation.h"

namespace {

using namespace test;
using namespace win32;

const std::u16string kJunction = u"C:\\Links\\junction", kSymbolic = u"C:\\Links\\symbolic",
                     kMounted = u"C:\\Links\\mounted", kElsewhere = u" Browse to a different location.";
const auto NotNtfs = About(u"#ERROR: Volume ", u" must be a NTFS formatted volume. Browse to a different location.");
const auto Mounted = About(u"#ERROR: The selected volume ", u" already mounted.");
const auto NotWritable = About(u"#ERROR: The selected volume ", u" doesn't have write permission.");
const auto NoVolume = About(u"#ERROR: The selected volume ", u" does not exist.");
const auto Unreadable =
    About(u"#ERROR: ", u" - Insufficient permissions. The minimum permissions requirement is read & execute.");
const auto NoDirectory = About(u"#ERROR: The specified path ", u" is not a valid directory path.");

// The lines of the rules, each with a letter: about the source (a capital) or the target.
std::u16string LineOf(char rule, const std::u16string& source, const std::u16string& target) {
  const std::u16string places = u"\nSource: " + source + u" Target: " + target + u" #ERROR: Cannot redirect w";
  if (rule == '=')
    return u"Checking source folder equals to target." + places + u"hen Source and Target folder are the same." +
           kElsewhere;
  if (rule == '<')
    return u"Checking source folder contained in target." + places + u"ithin the same Source folder." + kElsewhere;
  static const std::map<char, std::function<std::u16string(const std::u16string&)>> lines{
      {'+', [](const std::u16string&) { return u"(passed)"; }},
      {'j', About(u"#ERROR: The folder ", u" is already redirected. Browse to a different location.")},
      {'s', About(u"#ERROR: The folder ", u" is Symbolic Link. Browse to a different location.")},
      {'a', BelowRedirected},  // a junction above it, or a symbolic link
      {'b', About(u"#ERROR: The parent folder of ", u" is Symbolic Link. Browse to a different location.")},
      {'c', About(u"#ERROR: The target folder ",
                  u" can not be created. Insufficient permissions. The minimum permissions requirement to create the "
                  u"target folder is full control.")},
      {'r', NoRoom},
      // No refusal: the question whether something that does not exist is a junction.
      {'n',
       About(u"#ERROR: Unable to get File Attributes for path = ", u"The system cannot find the file specified.")}};
  const bool ofSource = rule >= 'A' && rule <= 'Z';
  return lines.at(ofSource ? static_cast<char>(rule - 'A' + 'a') : rule)(ofSource ? source : target);
}

// "junction" and "symbolic" lead to D:\Other, and a volume is mounted on "mounted"; each shows a folder "sub". Nothing
// is mounted of another volume.
class Validation : public ValidationTest {
 protected:
  Validation() : ValidationTest({.volumes = 2}) {
    volume = machine->volumes[machine->volumes.size() - 2]->guidName;
    MakeFolder(u"C:\\Links");
    MakeFolder(u"D:\\Other");
    MakeFolder(u"D:\\Other\\sub");
    Mount(kMounted, machine->volumes.back()->guidName);
    MakeFolder(kMounted + u"\\sub");
    EXPECT_EQ(CreateJunction(kJunction.c_str(), u"D:\\Other"), 1);
    EXPECT_EQ(CreateSymbolicLinkEntry(kSymbolic.c_str(), u"D:\\Other"), 1);
  }
  static void Mount(const std::u16string& folder, const std::u16string& name) {
    MakeFolder(folder);
    EXPECT_TRUE(SetVolumeMountPointW((folder + u"\\").c_str(), name.c_str()));
  }
  static void Grant(const std::u16string& path, const std::u16string& rights) {
    SetSecurity(path, u"O:SYD:P(A;OICI;" + rights + u";;;BA)(A;OICI;FA;;;SY)");
  }

  void Relate(const std::u16string& from, const std::u16string& to, std::string_view rules,
              const RelationOptions& options = {}) {
    Lines lines;
    for (const char rule : rules) lines.push_back(LineOf(rule, from, to));
    EXPECT_LINES(Refusal([&] { return CheckPathRelations(from.c_str(), to.c_str(), options); }), lines);
  }
  void RelateBothWays(const std::u16string& path, char asSource, char asTarget, const RelationOptions& options = {}) {
    Relate(path, target, {&asSource, 1}, options);
    Relate(source, path, {&asTarget, 1}, options);
  }
  // The whole decision, and all that is logged.
  void Decide(std::optional<std::u16string> from, std::optional<std::u16string> to, const RedirectionOptions& options,
              const Lines& lines) {
    EXPECT_LINES(Decision([&] {
                   return ValidateRedirectionPaths(from ? from->c_str() : nullptr, to ? to->c_str() : nullptr, options);
                 }),
                 lines);
  }
  void Volume(const std::u16string& name, const Lines& lines) {
    EXPECT_LINES(Decision([&] { return ValidateVolume(name.c_str()); }), lines);
  }
  void Move(const std::u16string& from, const Lines& lines) {
    EXPECT_LINES(Refusal([&] { return ValidateVolumeRedirection(from.c_str(), volume.c_str()); }), lines);
  }
  void FailWithMounts(DWORD error) { machine->gate.FailCall("GetVolumePathNamesForVolumeNameW", 1, error); }
  std::u16string volume;
};

TEST_F(Validation, LinksOnEitherSide) {
  for (const std::u16string& path : {kJunction, kMounted}) {
    RelateBothWays(path, 'J', 'j');
    RelateBothWays(path + u"\\sub", 'A', 'a');
  }
  RelateBothWays(kSymbolic, 'S', 's');
  RelateBothWays(kSymbolic + u"\\sub", 'B', 'b');
  Relate(source, target, "+");
  Relate(kJunction + u"\\", target, "J");  // which is the first of the folders above itself
  Relate(u"\\\\?\\" + kJunction + u"\\sub", target, "A");
  Relate(source, kJunction + u"\\new", "na");
  // In a profile operation symbolic links are let through, and a mounted volume is a folder like any other.
  for (const RelationOptions& options :
       {RelationOptions{.sourceIsRedirectedProfile = true}, RelationOptions{.quietSystemFolder = true}}) {
    for (const std::u16string& path : {kMounted, kSymbolic}) RelateBothWays(path + u"\\sub", '+', '+', options);
    RelateBothWays(kJunction, 'J', 'j', options);
    RelateBothWays(kJunction + u"\\sub", 'A', 'a', options);
    RelateBothWays(kMounted, '+', 'j', options);
    RelateBothWays(kSymbolic, '+', options.quietSystemFolder ? 's' : '+', options);
  }
  // excludeMountedVolume is about the target alone, and not about one that comes back from a redirection.
  RelateBothWays(kMounted, 'J', '+', {.excludeMountedVolume = true});
  Relate(source, kMounted + u"\\sub", "a", {.excludeMountedVolume = true});
  Relate(source, kMounted, "j", {.sourceIsRedirectedProfile = true, .excludeMountedVolume = true});
}

TEST_F(Validation, EveryRelationSpeaksInItsOrder) {
  const std::u16string inner = kSymbolic + u"\\inner", deep = inner + u"\\deep", sub = kJunction + u"\\sub";
  const RelationOptions skip{.skipTarget = true};
  ASSERT_EQ(CreateJunction(u"D:\\Other\\inner", u"D:\\Target"), 1);
  MakeFolder(u"D:\\Target\\deep");
  // Above both lie a junction and a symbolic link; neither hides the other.
  Relate(deep, deep, "ABab=");
  // What is a link itself is not asked for links above it, and is left where it stands.
  Relate(inner, target, "J");
  Relate(kJunction, kJunction, "Jj");
  Relate(kSymbolic, kSymbolic, "Ss=");
  // A target that is a symbolic link ends the questions about what is above, of the source as well.
  Relate(sub, kSymbolic, "s");
  // Without the target's rules, those of the source and of the two places are left.
  Relate(sub, kJunction, "A", skip);
  Relate(source, u"", "+", skip);
  Relate(u"", target, "+");
  // The two places.
  for (const char16_t* folder : {u"C:\\Data\\inner", u"C:\\Database"}) MakeFolder(folder);
  Relate(source, u"c:\\DATA", "=", skip);
  Relate(source + u"\\", source, "=", skip);
  const std::u16string longPath = source + u"\\" + std::u16string(120, u'a') + u"\\" + std::u16string(150, u'b');
  for (const std::u16string to : {u"C:\\Data\\", u"C:\\DATA\\missing\\x", longPath.c_str(), u"C:\\Windows\\..\\Data\\x",
                                  u"\\\\?\\C:\\Data\\inner"})
    Relate(source, to, "<", skip);
  for (const std::u16string to : {u"C:\\Database", u"C:\\Database\\x", u"\\\\server\\share\\Data", sub.c_str()})
    Relate(source, to, "+", skip);
  for (const char16_t* root : {u"C:\\", u"C:"}) Relate(root, u"c:\\Data\\x", "<", skip);
  Relate(u"C:\\Data\\inner", source, "+");
}

TEST_F(Validation, TheTargetMustBeOpenToTheUser) {
  for (const char16_t* path : {u"D:\\closed", u"D:\\closed\\open"}) {
    MakeFolder(path);
    Grant(path, u"FA");
  }
  Grant(u"D:\\closed", u"FRFX");
  Relate(source, u"D:\\closed", "c");
  Relate(source, u"D:\\closed\\open", "+");
  Relate(source, u"D:\\closed\\new", "ncc");  // what it takes to make the folder, and what it takes to fill it
  Relate(source, u"D:\\new", "+n");
  EXPECT_LINES(Refusal([&] { return CheckPathRelations(source.c_str(), u"new", {}); }),
               Lines{LineOf('n', u"", u"new"), u"#ERROR: Unable to get Parent Directory for path = new.",
                     u"#ERROR: Failed to get parent directory for path = new.", LineOf('r', u"", u"new")});
  // Rights, links above and room are not asked of a target that is a junction.
  ASSERT_EQ(CreateJunction(u"C:\\Links\\closed", u"D:\\closed"), 1);
  Relate(source, u"C:\\Links\\closed", "j");
  Grant(u"D:\\closed\\open", u"0x1E01FF");  // all but to delete it
  Relate(source, u"D:\\closed\\open", "c");
}

TEST_F(Validation, EveryFlagReachesItsRule) {
  Decide(source, target, {}, passed);
  EXPECT_LINES(Refusal(kSymbolic.c_str(), target.c_str()), Lines{LineOf('S', kSymbolic, target)});
  // Nobody is warned of a profile below Windows' own folders.
  MakeFolder(u"C:\\Windows\\Profiles");
  for (const RedirectionOptions& options :
       {RedirectionOptions{.sourceIsRedirectedProfile = true}, RedirectionOptions{.quietSystemFolder = true}}) {
    EXPECT_LINES(Refusal(kSymbolic.c_str(), target.c_str(), options), passed);
    Decide(u"C:\\Windows\\Profiles", target, options, passed);
  }
  EXPECT_EQ(machine->console, "");
  Decide(u"C:\\Windows\\Profiles", target, {}, passed);
  EXPECT_NE(machine->console, "");
  Decide(source, kMounted, {.excludeMountedVolume = true}, passed);
  Decide(source, kMounted, {}, {LineOf('j', source, kMounted)});

  const std::u16string closed = source + u"\\closed";
  MakeFolder(closed);
  SetSecurity(closed, u"O:SYD:P(A;;FA;;;SY)");
  Decide(source, target, {}, {Unreadable(closed)});
  // What is open is asked below both places, and only when the scan is to look for it.
  MakeFolder(source + u"\\held");
  const auto held = HoldOpen(source + u"\\held", GENERIC_READ, 7);
  EXPECT_LINES(Refusal(source.c_str(), target.c_str()), Lines{Unreadable(closed), InUse(source + u"\\held")});
  Decide(source, target, {.prescan = false, .allowLockedSpecialCase = true},
         {passed[0], u"#INFO: C:\\Data\\closed - Insufficient permissions but allowing it anyways (special case)."});
  // Of a source whose own rules do not count, the target alone is read.
  MakeFolder(u"C:\\Empty");
  Decide(u"C:\\Empty", target, {.allowLockedSpecialCase = true, .targetOnly = true},
         {passed[0], u"##INFO: D:\\Target - Folder locked but allowing it anyways (special case)."});
  Grant(target, u"FW");
  EXPECT_LINES(Refusal(u"C:\\Empty", target.c_str(), {.targetOnly = true}),
               Lines{LineOf('c', u"", target), u"#" + Unreadable(target)});
}

TEST_F(Validation, AFailedSourceEndsItAndAFailedTargetDoesNot) {
  machine->services().Install(u"WMPNetworkSvc", u"C:\\Windows\\System32\\svchost.exe", SERVICE_DEMAND_START);
  machine->services().SetState(u"WMPNetworkSvc", SERVICE_RUNNING);
  const std::u16string busy = source + u"\\busy", file = u"D:\\file", missing = u"#ERROR: Input path missing.",
                       inaccessible = u"#INFO: " + busy + u" - File is not accessible.";
  for (const std::u16string& path : {busy, file}) MakeFile(path, "x");
  const auto held = HoldOpen(busy, GENERIC_READ, 0);
  const RedirectionOptions opensOnly{.prescan = false};  // nobody is asked for the handles of others
  Decide(u"C:\\", file, {.stopMediaSharing = true},
         {u"#ERROR: C:\\ - A folder is required for folder redirection." + kElsewhere});
  Decide(source, target, opensOnly, {inaccessible, InUse(busy)});
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_RUNNING);
  Decide(source, file, {.prescan = false, .stopMediaSharing = true}, {NoDirectory(file), inaccessible, InUse(busy)});
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_STOPPED) << "whatever the target";
  // Of the relations those that look at the two places alone are left.
  Decide(source, busy, opensOnly, {NoDirectory(busy), LineOf('<', source, busy), inaccessible, InUse(busy)});
  Decide(source, std::nullopt, opensOnly,
         {missing, u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing.",
          inaccessible, InUse(busy)});
  Decide(std::nullopt, target, opensOnly, {missing});
  MakeFolder(u"C:\\Empty");
  Decide(u"C:\\Empty", file, {}, {NoDirectory(file)});
}

TEST_F(Validation, AVolumeAlone) {
  Volume(u"\\\\?\\VOLUME" + volume.substr(10), passed);
  EXPECT_LINES(Decision([] { return ValidateVolume(nullptr); }), Lines{});
  const std::u16string noVolumes[] = {u"\\\\?\\Volume{no}\\", volume.substr(0, volume.size() - 1), volume + u"x",
                                      u"D:\\"};
  for (const std::u16string& name : noVolumes) Volume(name, {NoVolume(name)});
  machine->FindByGuidName(volume)->fileSystem = u"exFAT";
  Volume(volume, {NotNtfs(volume)});
  machine->FindByGuidName(volume)->fileSystem = u"NTFS";
  for (const std::u16string& name : {machine->volumes.back()->guidName, Drive(u'D').guidName})
    Volume(name, {Mounted(name)});
  // Paths that do not fit the room for them are paths; what cannot be told is none.
  FailWithMounts(ERROR_MORE_DATA);
  Volume(volume, {Mounted(volume)});
  FailWithMounts(ERROR_INVALID_NAME);
  Volume(volume, passed);
  // The probe leaves nothing, and a file of its name is somebody's. Only "access denied" is no.
  const std::u16string probe = volume + u"temp.check";
  EXPECT_FALSE(Exists(probe));
  for (const DWORD attributes : {FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_READONLY}) {
    MakeFile(probe, "theirs", attributes);
    const std::string before = Describe(probe);
    Volume(volume, attributes == FILE_ATTRIBUTE_READONLY ? Lines{NotWritable(volume)} : passed);
    EXPECT_EQ(Describe(probe), before);
    SetFileAttributesW(probe.c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileW(probe.c_str());
  }
  for (const auto& [call, error] :
       {std::pair(1u, ERROR_WRITE_PROTECT), {1u, ERROR_SHARING_VIOLATION}, {2u, ERROR_DISK_FULL}})
    EXPECT_LINES(Decision([&, number = call, code = error] {
                   machine->gate.FailCall("CreateFileW", number, code);
                   return ValidateVolume(volume.c_str());
                 }),
                 passed);
  Grant(volume, u"FRFX");
  Volume(volume, {NotWritable(volume)});
}

// It may be mounted where a profile is to go, and nowhere else.
TEST_F(Validation, AVolumeOfProfiles) {
  const auto expect = [&](const std::u16string& folder, const Lines& lines) {
    EXPECT_LINES(Decision([&] { return ValidateProfileVolume(volume.c_str(), folder.c_str()); }), lines);
  };
  expect(u"C:\\place", passed);
  Mount(u"C:\\place", volume);
  expect(u"C:\\place", passed);
  for (const std::u16string& folder : {source, kMounted}) expect(folder, {Mounted(volume)});
  FailWithMounts(ERROR_ACCESS_DENIED);
  expect(u"C:\\place", {Mounted(volume)});
  Mount(u"C:\\second", volume);
  expect(u"C:\\place", {Mounted(volume)});
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  expect(u"C:\\place", {NotNtfs(volume)});
  volume = u"\\\\?\\Volume{no}\\";
  expect(u"C:\\place", {NoVolume(volume)});
}

// Of a volume all rules are tried; one that fails is not measured, but the source is examined.
TEST_F(Validation, AVolumeWithASource) {
  const std::u16string held = source + u"\\held", hole = source + u"\\hole", below = kJunction + u"\\sub";
  MakeFolder(held);
  Move(source, passed);
  Move(below, {BelowRedirected(below)});
  auto handle = HoldOpen(held, GENERIC_READ, 7);
  Move(source, {InUse(held)});  // that only the handle table tells
  machine->files().CloseForeign(handle);
  // The source may fill the volume to the last byte.
  ULARGE_INTEGER room{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(volume.c_str(), &room, nullptr, nullptr));
  for (const unsigned more : {0u, 1u}) {
    MakeHole(hole, room.QuadPart + more);
    Move(source, more == 0 ? passed : Lines{u"#ERROR: Volume " + volume + u" doesn't have enough free disk space."});
  }
  handle = HoldOpen(held, GENERIC_READ, 7);
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  Mount(u"C:\\mounted", volume);
  Grant(volume, u"FRFX");
  Move(u"C:\\missing",
       {u"#ERROR: The selected folder C:\\missing does not exist.The system cannot find the file specified."});
  Move(source, {NotNtfs(volume), Mounted(volume), NotWritable(volume), InUse(held)});
  Move(below, {NotNtfs(volume), Mounted(volume), NotWritable(volume), BelowRedirected(below)});
}

}  // namespace
