// The rules for a redirection's paths, and the scan of its source.
#include "fsops/security.h"
#include "redirect/junction.h"
#include "support/engine.h"
#include "validate/prescan.h"
#include "validate/relations.h"
#include "validate/validate.h"

namespace {

using namespace win32;
using test::MakeFile, test::MakeFolder;

class Validation : public test::Engine {
 protected:
  // Validates and tells which lines that validation logged.
  int Validate(const std::u16string& from, const std::u16string& to) {
    const std::size_t before = LogText().size();
    const int result = ValidateRedirectionPaths(from.c_str(), to.c_str(), 1, 0, 0, 0, 0, 0, 0);
    lines = LogText().substr(before);
    return result;
  }
  bool Says(std::u16string_view text) const { return lines.find(text) != std::u16string::npos; }
  std::u16string lines;
};

TEST_F(Validation, AnOrdinaryFolderMayGo) {
  MakeFile(source + u"\\f", "x");
  EXPECT_EQ(Validate(source, target), 1);
  EXPECT_EQ(lines, u"");
  EXPECT_EQ(Validate(source, u"D:\\New"), 1);
  EXPECT_TRUE(Says(u"#INFO: The selected target folder D:\\New does not exist. Ignoring PathIsDirectory validation."));
  EXPECT_TRUE(Says(u"so checking free space using parent directory D:\\"));
}

TEST_F(Validation, EachSourceRuleHasItsLine) {
  MakeFile(u"C:\\file", "x");
  const std::pair<std::u16string, std::u16string_view> cases[] = {
      {u"C:\\missing", u"#ERROR: The selected folder C:\\missing does not exist."},
      {u"C:\\", u"#ERROR: C:\\ - A folder is required for folder redirection. Browse to a different location."},
      {u"C:\\file", u"#ERROR: The specified path C:\\file is not a valid directory path."},
      {u"C:\\Windows", u"#ERROR: C:\\Windows - Cannot redirect from or to Windows system folders."},
      {u"C:\\Windows\\System32", u"Cannot redirect from or to Windows system folders."}};
  for (const auto& [path, line] : cases) {
    EXPECT_EQ(Validate(path, target), 0);
    EXPECT_TRUE(Says(line)) << std::string(path.begin(), path.end());
  }
}

TEST_F(Validation, TargetsWithoutADriveAreNamedForWhatTheyAre) {
  EXPECT_EQ(Validate(source, u"\\\\server\\share"), 0);
  EXPECT_TRUE(Says(u"#ERROR: \\\\server\\share - The specified drive does not exists."));
  EXPECT_TRUE(Says(u"is a UNC path representing a network resource."));
  EXPECT_EQ(Validate(source, u"relative"), 0);
  EXPECT_TRUE(Says(u"#ERROR: Unable to get Drive Number for path  = relative."));
  EXPECT_TRUE(Says(u"#ERROR: The selected folder relative is a relative path. Browse to a different location"));
  EXPECT_EQ(Validate(source, u"D:x"), 0);
  EXPECT_TRUE(Says(u"#ERROR:Invalid path : D:x"));
  EXPECT_EQ(Validate(source, u"Q:\\x"), 0);
  EXPECT_TRUE(Says(u"#ERROR: Q:\\x - The specified drive does not exists."));
}

TEST_F(Validation, TheLengthLimitIs246Characters) {
  std::u16string path = u"C:\\" + std::u16string(100, u'a');
  MakeFolder(path);
  path += u"\\" + std::u16string(100, u'b');
  MakeFolder(path);
  const std::u16string longest = path + u"\\" + std::u16string(246 - path.size() - 1, u'c');
  MakeFolder(longest);
  EXPECT_EQ(Validate(longest, target), 1);
  MakeFolder(u"\\\\?\\" + longest + u"c");
  EXPECT_EQ(Validate(longest + u"c", target), 0);
  EXPECT_TRUE(Says(u"exceeds the system-defined maximum length of 248 characters."));
}

TEST_F(Validation, OtherFileSystemsAreRefused) {
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == u'D') mounted->fileSystem = u"FAT32";
  EXPECT_EQ(Validate(source, target), 0);
  EXPECT_TRUE(Says(u"#ERROR: Folder D:\\Target must be on NTFS formatted volume. Browse to a different location."));
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == u'D') mounted->fileSystem = u"NTFS", mounted->driveType = DRIVE_REMOTE;
  EXPECT_EQ(Validate(source, target), 0);
  EXPECT_TRUE(Says(u"is a UNC path representing a network resource."));
}

TEST_F(Validation, RelationsOfTheTwo) {
  EXPECT_EQ(Validate(source, u"c:\\DATA"), 0);
  EXPECT_TRUE(Says(u"Cannot redirect when Source and Target folder are the same."));
  EXPECT_EQ(Validate(source, u"C:\\data\\below\\it"), 0);
  EXPECT_TRUE(Says(u"#ERROR: Cannot redirect within the same Source folder. Browse to a different location."));
  EXPECT_EQ(Validate(source, u"C:\\Windows\\..\\Data\\x"), 0);
  EXPECT_TRUE(Says(u"Cannot redirect within the same Source folder."));
  MakeFolder(u"C:\\Data\\inner");
  EXPECT_EQ(Validate(u"C:\\Data\\inner", source), 1) << "a source below the target is allowed";
  EXPECT_EQ(Validate(u"C:\\Data\\", u"C:\\Database"), 1);
}

TEST_F(Validation, RedirectedFoldersAndWhatLiesBelowThem) {
  MakeFolder(u"D:\\Other");
  MakeFolder(u"D:\\Other\\sub");
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), u"D:\\Other"), 1);
  EXPECT_EQ(Validate(source + u"\\j", target), 0);
  EXPECT_TRUE(Says(u"#ERROR: The folder C:\\Data\\j is already redirected."));
  EXPECT_EQ(Validate(source + u"\\j\\sub", target), 0);
  EXPECT_TRUE(Says(u"#ERROR: The parent folder of C:\\Data\\j\\sub is already redirected."));
  EXPECT_EQ(Validate(target, source + u"\\j\\new"), 0);
  EXPECT_TRUE(Says(u"#ERROR: The parent folder of C:\\Data\\j\\new is already redirected."));
  EXPECT_EQ(Validate(source, target), 1) << "a junction inside is no obstacle";
}

TEST_F(Validation, AFailedTargetLeavesTheOtherRulesToSpeak) {
  MakeFile(source + u"\\busy", "x");
  const auto held = HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  EXPECT_EQ(Validate(source, u"Q:\\x"), 0);
  EXPECT_TRUE(Says(u"The specified drive does not exists."));
  EXPECT_TRUE(Says(u"#INFO: C:\\Data\\busy - File is not accessible."));
  EXPECT_FALSE(Says(u"full control"));
  EXPECT_FALSE(Says(u"free disk space"));
}

TEST_F(Validation, TargetsMustBeOpenToTheUserAndLargeEnough) {
  test::SetSecurity(target, u"O:SYD:P(A;OICI;FR;;;BA)(A;OICI;FA;;;SY)");
  EXPECT_EQ(Validate(source, target), 0);
  EXPECT_TRUE(Says(u"#ERROR: The target folder D:\\Target can not be created. Insufficient permissions."));
  for (int i = 0; i < 4; ++i) MakeFile(source + u"\\" + static_cast<char16_t>(u'0' + i), std::string(9 << 20, 'x'));
  EXPECT_EQ(HasEnoughFreeSpace(source.c_str(), u"D:\\"), 0);
  EXPECT_TRUE(Logged(u"#ERROR: There is not enough free disk space on target"));
  EXPECT_EQ(HasEnoughFreeSpace((source + u"\\none").c_str(), u"D:\\"), 0);
}

TEST_F(Validation, SystemFoldersWarnOrRefuse) {
  const auto system = [&](const char16_t* path, int insideProductOnly, int quiet) {
    machine->console.clear();
    return IsSystemFolder(path, insideProductOnly, quiet, 0);
  };
  EXPECT_EQ(system(u"C:\\WINDOWS\\Fonts", 0, 0), 0);
  EXPECT_EQ(system(u"C:\\Data", 1, 0), 0);
  EXPECT_EQ(system(u"c:\\program files", 0, 0), 1);
  EXPECT_EQ(system(u"C:\\Windows\\System32\\drivers", 0, 1), 1);
  EXPECT_EQ(system(u"C:\\Program Files\\App", 1, 0), 1);
  EXPECT_EQ(system(u"C:\\Program Files\\Velmora\\Rimehold\\x", 1, 0), 0);
}

TEST_F(Validation, VolumesAreTakenByNameAlone) {
  Restart({.volumes = 1});
  std::u16string volume, mountedVolume;
  for (const auto& mounted : machine->volumes) (mounted->letter == 0 ? volume : mountedVolume) = mounted->guidName;
  EXPECT_EQ(ValidateVolumeRedirection(source.c_str(), volume.c_str()), 1);
  EXPECT_FALSE(test::Exists(volume + u"temp.check"));
  EXPECT_EQ(ValidateVolume(mountedVolume.c_str()), 0);
  EXPECT_TRUE(Logged(u"#ERROR: The selected volume " + mountedVolume + u" already mounted."));
  EXPECT_EQ(ValidateVolume(u"\\\\?\\Volume{no}\\"), 0);
  EXPECT_EQ(ValidateVolume(nullptr), 0);
}

class PreScan : public test::Engine {};

TEST_F(PreScan, NamesEveryItemThatCannotBeMoved) {
  MakeFolder(source + u"\\secret");
  MakeFile(source + u"\\secret\\f", "x");
  MakeFile(source + u"\\busy", "x");
  MakeFile(source + u"\\readonly", "x", FILE_ATTRIBUTE_READONLY);
  for (const char16_t* item : {u"\\secret", u"\\secret\\f"}) test::SetSecurity(source + item, u"O:SYD:P(A;;FA;;;SY)");
  const auto held = HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  EXPECT_EQ(PreScanSource(source.c_str(), nullptr, 1, 0), 0);
  for (const char16_t* line :
       {u"#ERROR: C:\\Data\\secret - Insufficient permissions. The minimum permissions requirement is read & execute.",
        u"#ERROR: C:\\Data\\secret\\f - Insufficient permissions.", u"#INFO: C:\\Data\\busy - File is not accessible.",
        u"#ERROR: C:\\Data\\busy - File or folder is used by another process.  Close any application that might be "
        u"using the "
        u"file or folder and try again."})
    EXPECT_TRUE(Logged(line));
  EXPECT_FALSE(Logged(u"readonly"));
  machine->files().CloseForeign(held);
  ASSERT_TRUE(DeleteFileW((source + u"\\secret\\f").c_str()));
  EXPECT_EQ(PreScanSource(source.c_str(), nullptr, 1, 0), 0);
  EXPECT_EQ(PreScanSource(source.c_str(), nullptr, 1, 1), 1) << "the special case lets folders through";
  EXPECT_TRUE(Logged(u"#INFO: C:\\Data\\secret - Insufficient permissions but allowing it anyways (special case)."));
}

TEST_F(PreScan, PassesEmptyTreesAndWindowsOwnFolders) {
  EXPECT_EQ(PreScanSource(source.c_str(), nullptr, 1, 0), 1);
  EXPECT_EQ(PreScanSource(nullptr, nullptr, 1, 0), 0);
  EXPECT_EQ(PreScanSource(u"C:\\missing", nullptr, 1, 0), 0);
  MakeFolder(source + u"\\$recycle.bin");
  MakeFile(source + u"\\$recycle.bin\\busy", "x");
  const auto held = HoldOpen(source + u"\\$recycle.bin\\busy", GENERIC_READ, 0);
  EXPECT_EQ(PreScanSource(source.c_str(), nullptr, 1, 0), 1);
}

TEST_F(PreScan, LinksAreListedButNotEntered) {
  MakeFile(target + u"\\f", "x");
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\s").c_str(), target.c_str(), 0), 1);
  MakeFolder(source + u"\\d");
  MakeFile(source + u"\\d\\f", "x");
  TreeListing listing;
  ASSERT_EQ(GetFileList(source, listing), 1);
  EXPECT_EQ(listing.entries.size(), 4u);
  EXPECT_EQ(listing.links.size(), 2u);
  for (const char* call : {"FindFirstFileW", "FindNextFileW"}) {
    machine->gate.FailCall(call, 3, ERROR_ACCESS_DENIED);
    EXPECT_EQ(GetFileList(source, listing), 0) << "a listing that breaks off is none";
    machine->gate.ClearFailures();
  }
}

class SavedSecurity : public test::Engine {};

TEST_F(SavedSecurity, OpensUpAndPutsBack) {
  const std::u16string file = source + u"\\f";
  MakeFile(file, "x");
  test::SetSecurity(file, u"O:BAD:P(A;;FR;;;SY)");
  const std::u16string before = test::Security(file);
  SavedSecurityMap saved;
  ASSERT_EQ(SaveSecurityInfo(file, saved[file]), 1);
  ASSERT_EQ(GrantEveryoneAndAdministrators(file), 1);
  EXPECT_NE(test::Dacl(file), before);
  EXPECT_EQ(HasAccess(ImpersonatedCaller().token(), file, kReadAndExecute), 1);
  ASSERT_EQ(RestoreRemovedSecurityInfo(saved), 1);
  EXPECT_EQ(test::Security(file), before);
  ASSERT_TRUE(DeleteFileW(file.c_str()));
  EXPECT_EQ(RestoreRemovedSecurityInfo(saved), 0);
  EXPECT_EQ(machine->sleptMilliseconds, 2000u);
}

TEST_F(SavedSecurity, TakesOwnershipOnlyWhenAccessIsDenied) {
  const std::u16string file = source + u"\\f";
  MakeFile(file, "x");
  test::SetSecurity(file, u"O:SYD:P(A;;FA;;;SY)");
  machine->gate.FailCall("SetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(GrantEveryoneAndAdministrators(file), 1);
  EXPECT_TRUE(test::Security(file).starts_with(u"O:BA"));
  machine->gate.FailCall("SetNamedSecurityInfoW", 1, ERROR_SHARING_VIOLATION);
  EXPECT_EQ(GrantEveryoneAndAdministrators(file), 0);
}

TEST_F(SavedSecurity, InheritanceIsLookedAtOnce) {
  MakeFile(source + u"\\f", "x");
  InheritanceCache cache;
  EXPECT_EQ(HaveInheritedPermissions(cache, source + u"\\f"), 1);
  test::SetSecurity(source + u"\\f", u"O:BAD:P(A;;FA;;;BA)");
  EXPECT_EQ(HaveInheritedPermissions(cache, source + u"\\f"), 1);
  cache.clear();
  EXPECT_EQ(HaveInheritedPermissions(cache, source + u"\\f"), 0);
}

}  // namespace
