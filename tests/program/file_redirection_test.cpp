// File redirection as an administrator sees it: a machine, a command, and what console, log, registry and disks say.
#include <map>

#include "program/file_redirection.h"
#include "win32/emulated/files/file_service.h"

namespace {

using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram;
using test::kSource, test::kTarget, test::kText;

const std::u16string kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";

class FileRedirectionTest : public test::FileRedirection {};

TEST_F(FileRedirectionTest, GoesAndComesBackWithAllThatItHas) {
  Secure(kSource, u"O:SYD:AI(A;;FA;;;BA)(A;;0x1200a9;;;SY)(A;ID;FA;;;BA)(A;ID;FA;;;SY)(A;ID;FR;;;AU)");
  test::SetTimes(kSource, 7);
  ASSERT_TRUE(win32::SetFileAttributesW(kSource.c_str(), win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                                             win32::FILE_ATTRIBUTE_SYSTEM |
                                                             win32::FILE_ATTRIBUTE_ARCHIVE));
  const std::string before = test::Describe(kSource);
  const std::u16string dacl = test::Dacl(kSource);
  for (const std::u16string& location : {std::u16string(u"D:\\Target"), std::u16string(u"D:\\Target\\"), kTarget}) {
    const auto redirected = Redirect();
    ASSERT_EQ(redirected.exitCode, 0) << emulated::Utf8(redirected.log);
    EXPECT_EQ(redirected.said, u"File Redirection was successful.");
    EXPECT_TRUE(redirected.log.ends_with(u"File Redirection was successful."));
    ExpectRedirected();
    EXPECT_EQ(test::Describe(kTarget), before);
    EXPECT_EQ(test::Dacl(kTarget), dacl);
    EXPECT_TRUE(test::Security(kTarget).starts_with(u"O:SY"));
    EXPECT_EQ(RunProgram(*machine, {u"/RedirectFile"}).said,
              u"Source   Target\n\n" + kSource + u"   " + kTarget + u"\n");

    const auto removed = Remove(location);
    ASSERT_EQ(removed.exitCode, 0) << emulated::Utf8(removed.log);
    EXPECT_EQ(removed.said, u"File Redirection Removal was successful.");
    ExpectAtHome();
    EXPECT_EQ(test::Describe(kSource), before);
    EXPECT_EQ(test::Dacl(kSource), dacl);
    EXPECT_TRUE(test::Security(kSource).starts_with(u"O:SY"));
    EXPECT_FALSE(Exists(kTarget));
    EXPECT_EQ(RecordCount(), 0u);
  }
}

TEST_F(FileRedirectionTest, WithoutPermissionsTheCopyHasThoseOfItsFolder) {
  Secure(kSource, u"O:BAD:P(A;;FA;;;BA)");
  MakeFile(u"D:\\Target\\plain.txt", "as any new file there");
  const auto run = RunProgram(*machine, {u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/-NTFS"});
  ASSERT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
  EXPECT_EQ(test::Dacl(kTarget), test::Dacl(u"D:\\Target\\plain.txt"));
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d", u"/-NTFS"}).exitCode, 1);
  ExpectRedirected();
}

TEST_F(FileRedirectionTest, ReplacesAFileOfItsNameAndPutsItBackWhenItFails) {
  MakeFile(kTarget, "theirs");
  Secure(kTarget, u"O:SYD:P(A;;FA;;;BA)");
  const std::string theirs = test::Describe(kTarget);
  machine->gate.FailCall("RegCreateKeyExW", 1, win32::ERROR_ACCESS_DENIED);
  ExpectFailure(Redirect(), u"#ERROR: Unable to add Junction Point to Registry for Source = " + kSource +
                                u" and Target = " + kTarget + u".");
  ExpectAtHome();
  EXPECT_EQ(test::Describe(kTarget), theirs);
  EXPECT_EQ(test::Names(u"D:\\Target").size(), 1u);

  ASSERT_EQ(Redirect().exitCode, 0);
  ExpectRedirected();
  EXPECT_EQ(test::Names(u"D:\\Target").size(), 1u);
}

TEST_F(FileRedirectionTest, DoesNotReplaceWhatProtectsItself) {
  MakeFile(kTarget, "theirs", win32::FILE_ATTRIBUTE_READONLY);
  const std::u16string logged =
      u"#ERROR: Unable to copy file from Source = " + kSource + u" and Target = " + kTarget + u". Error: 5";
  ExpectFailure(Redirect(), logged);
  EXPECT_EQ(Contents(kTarget), "theirs");
  ASSERT_TRUE(win32::SetFileAttributesW(kTarget.c_str(), win32::FILE_ATTRIBUTE_NORMAL));
  ASSERT_TRUE(win32::DeleteFileW(kTarget.c_str()));
  MakeFolder(kTarget);
  MakeFile(kTarget + u"\\inside", "theirs");
  ExpectFailure(Redirect(), logged);
  EXPECT_EQ(Contents(kTarget + u"\\inside"), "theirs");
  ExpectAtHome();
}

TEST_F(FileRedirectionTest, RefusesPathsThatAreNotThoseOfAFileAndAFolder) {
  const auto refused = [&](const std::u16string& source, const std::u16string& folder, const std::u16string& logged) {
    ExpectFailure(Redirect(source, folder), logged);
    EXPECT_EQ(RecordCount(), 0u);
    EXPECT_TRUE(ServiceRuns());
    ExpectAtHome();
  };
  refused(u"C:\\Data", u"D:\\Target", u"#ERROR: Source path 'C:\\Data' should be a file path.");
  refused(u"C:\\", u"D:\\Target", u"#ERROR: Source path 'C:\\' should be a file path.");
  refused(u"C:\\Data\\no.txt", u"D:\\Target", u"#ERROR: Source file 'C:\\Data\\no.txt' doesn't exists. Error: 2");
  refused(kSource + u"\\", u"D:\\Target", u"#ERROR: Source file 'C:\\Data\\file.txt\\' doesn't exists. Error: ");
  refused(u"C:\\Data\\.\\file.txt", u"D:\\Target", u"#ERROR: The selected folder C:\\Data\\.\\file.txt is a relative");
  refused(u"file.txt", u"D:\\Target", u"#ERROR: The selected folder file.txt is a relative path.");
  refused(kSource, u"Target", u"#ERROR: The selected folder Target is a relative path.");
  refused(kSource + u":note", u"D:\\Target", u"#ERROR:Invalid path : C:\\Data\\file.txt:note");
  refused(u"C:\\Data\\nul.txt", u"D:\\Target", u"#ERROR:Invalid path : C:\\Data\\nul");
  refused(kSource, u"D:\\com1\\x", u"#ERROR:Invalid path : D:\\com1\\x");
  refused(u"C:file.txt", u"D:\\Target", u"#ERROR:Invalid path : C:file.txt");
  refused(u"C:\\Data\\f*.txt", u"D:\\Target", u"#ERROR: Source file 'C:\\Data\\f*.txt' doesn't exists. Error: ");
  refused(kSource, u"D:", u"#ERROR:Invalid path : D:");
  refused(kSource, u"\\\\server\\share",
          u"#ERROR: Target '\\\\server\\share' must be a NTFS formatted volume. Browse to a different location.");
  refused(kSource, u"C:\\data",
          u"Checking source folder equals to target.\nSource: C:\\Data\\file.txt Target: C:\\Data\\file.txt #ERROR: "
          u"Cannot redirect when Source and Target folder are the same. Browse to a different location.");
  refused(kSource, u"C:\\Data\\inner",
          u"Checking source folder contained in target.\nSource: C:\\Data\\file.txt Target: "
          u"C:\\Data\\inner\\file.txt #ERROR: Cannot redirect within the same Source folder.");
  EXPECT_FALSE(Exists(u"C:\\Data\\inner"));
  refused(kSource, u"Q:\\Target", u"#ERROR: Target 'Q:\\Target' must be a NTFS formatted volume.");
  MakeFile(u"D:\\Target\\taken", "a file");
  refused(kSource, u"D:\\Target\\taken", u"#ERROR: Target directory 'D:\\Target\\taken' doesn't exists. Error: ");
}

TEST_F(FileRedirectionTest, RefusesASourceOrTargetOf247Characters) {
  const std::u16string folder = u"D:\\" + std::u16string(246 - 3 - 9, u't');  // with "\file.txt" 246
  ASSERT_EQ(Redirect(kSource, folder).exitCode, 0);
  ASSERT_EQ(Remove(folder).exitCode, 0);
  const std::u16string tooLong =
      u"' exceeds the system-defined maximum length of 248 characters. Browse to a different";
  ExpectFailure(Redirect(kSource, folder + u"t"), u"#ERROR: The specified path '" + folder + u"t\\file.txt" + tooLong);
  const std::u16string source = u"C:\\" + std::u16string(244, u's');
  MakeFile(source, "long");
  ExpectFailure(Redirect(source), u"#ERROR: The specified path '" + source + tooLong);
  EXPECT_EQ(Contents(source), "long");
}

TEST_F(FileRedirectionTest, RefusesLinksAndTheFileByAnotherName) {
  MakeLink(u"C:\\Data\\link.txt", kSource);
  ExpectFailure(Redirect(u"C:\\Data\\link.txt"),
                u"#ERROR: Symbolic Link already exists for Source = C:\\Data\\link.txt and Target = " + kSource + u".");
  MakeLink(kTarget, kSource);
  ExpectFailure(Redirect(), u"#ERROR: The target file '" + kTarget +
                                u"' is already a Symbolic Link. Browse to a different location.");
  MakeLink(u"C:\\Linked", u"C:\\Data", win32::SYMBOLIC_LINK_FLAG_DIRECTORY);
  ExpectFailure(Redirect(u"C:\\Linked\\file.txt", u"D:\\Other"),
                u"#ERROR: The parent folder of C:\\Linked\\file.txt is Symbolic Link. Browse to a different location.");
  ExpectFailure(Redirect(kSource, u"C:\\Linked"),
                u"#ERROR: Cannot redirect when Source and Target folder are the same.");
  ExpectAtHome();
  EXPECT_FALSE(Exists(u"D:\\Other"));
}

TEST_F(FileRedirectionTest, NeedsAccessRoomAndNtfs) {
  Secure(u"D:\\Target", u"O:SYD:P(A;;0x1f01bf;;;WD)");
  ExpectFailure(Redirect(),
                u"#ERROR: The target folder " + kTarget + u" can not be created. Insufficient permissions.");
  Secure(u"D:\\Target", u"O:SYD:P(A;;FA;;;WD)");
  Secure(kSource, u"O:SYD:P(A;;FA;;;SY)(A;;0xd0000;;;WD)");
  ExpectFailure(Redirect(), u"#ERROR: (Source) " + kSource +
                                u" - Insufficient permissions. The minimum permissions requirement is read & execute.");
  Secure(kSource, u"O:BAD:P(A;;FA;;;WD)");
  MakeFile(u"C:\\Data\\big.bin", std::string(40 * 1024 * 1024, 'b'));
  ExpectFailure(Redirect(u"C:\\Data\\big.bin"),
                u"#ERROR: There is not enough free disk space on target D:\\Target\\big.bin.");
  machine->FindByLetter(u'D')->fileSystem = u"FAT32";
  ExpectFailure(Redirect(), u"#ERROR: Target 'D:\\Target' must be a NTFS formatted volume.");
  ExpectAtHome();
}

TEST_F(FileRedirectionTest, AFileInUseStays) {
  auto held = machine->files().OpenForeign(4242, kSource, win32::GENERIC_READ, win32::FILE_SHARE_READ);
  ExpectFailure(Redirect(), u"#ERROR: (Source) " + kSource + u" - File is locked.");
  machine->files().CloseForeign(held);
  ExpectAtHome();
  EXPECT_TRUE(ServiceRuns());

  ASSERT_EQ(Redirect().exitCode, 0);
  held = machine->files().OpenForeign(4242, kTarget, win32::GENERIC_WRITE,
                                      win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE);
  ExpectRemovalFailure(Remove(), u"#ERROR: (Target) " + kTarget + u" - File is locked.");
  ExpectRedirected();
  machine->files().CloseForeign(held);
  EXPECT_EQ(Remove().exitCode, 0);
}

TEST_F(FileRedirectionTest, WaitsForWhoLooksAtTheFileJustWhenItIsDeleted) {
  std::shared_ptr<emulated::FileObject> scanner;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (std::string_view(name) == "DeleteFileW" && !scanner)
      scanner = machine->files().OpenForeign(4242, kSource, win32::FILE_READ_DATA,
                                             win32::FILE_SHARE_READ | win32::FILE_SHARE_DELETE);
  });
  machine->onSleep = [&](std::uint64_t) {
    if (scanner) machine->files().CloseForeign(scanner);
  };
  EXPECT_EQ(Redirect().exitCode, 0);
  machine->gate.Observe({});
  ASSERT_TRUE(scanner);
  ExpectRedirected();
}

TEST_F(FileRedirectionTest, AFileKeepsItsNameHoweverItIsTyped) {
  ASSERT_EQ(Redirect(u"c:\\data\\FILE.TXT").exitCode, 0);
  EXPECT_EQ(test::Names(u"D:\\Target"), std::vector<std::u16string>{u"\\file.txt"});
  EXPECT_EQ(Record(u"1", u"Source"), kSource);
  EXPECT_EQ(Record(u"1", u"Target"), kTarget);
  EXPECT_EQ(RunProgram(*machine, {u"/RedirectFile", u"C:\\DATA\\File.Txt", u"/loc:d:\\target", u"/d"}).exitCode, 0);
  ExpectAtHome();
  EXPECT_EQ(test::Names(u"C:\\Data"), std::vector<std::u16string>{u"\\file.txt"});
  EXPECT_EQ(RecordCount(), 0u);
}

TEST_F(FileRedirectionTest, RemovesOnlyItsOwnLinks) {
  machine->gate.FailCall("CheckTokenMembership", 1, win32::ERROR_ACCESS_DENIED);  // nobody says: an administrator
  EXPECT_TRUE(Remove().log.ends_with(u"RemoveFileRedirection - EXIT"));
  ExpectRemovalFailure(Remove(u"D:\\No"), u"#ERROR: Target = D:\\No\\file.txt Path Does Not Exist.");
  MakeFile(kTarget, "theirs");
  ExpectRemovalFailure(Remove(), u"#ERROR: Symbolic Link doesn't exists for Source = " + kSource + u".");
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  ExpectRemovalFailure(Remove(), u"#ERROR: Source = " + kSource + u" Path Does Not Exist.");
  MakeLink(kSource, kTarget);
  const std::u16string foreign =
      u"#ERROR: Symbolic Link wasn't created by Quillbay for Source = " + kSource + u" and Target = " + kTarget + u".";
  ExpectRemovalFailure(Remove(), foreign);
  EXPECT_TRUE(IsLink(kSource));

  // Recorded, but made anew by somebody since.
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  MakeFile(kSource, kText);
  MakeFile(u"D:\\Target\\other.txt", "other");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  MakeLink(kSource, u"D:\\Target\\other.txt");
  ExpectRemovalFailure(Remove(), foreign);
  EXPECT_EQ(Contents(kSource), "other");
  EXPECT_TRUE(Contents(kTarget) == kText);
}

TEST_F(FileRedirectionTest, AFailureIsTakenBackOrToldWhereTheFileIs) {
  machine->gate.FailCall("CreateSymbolicLinkW", 1, win32::ERROR_ACCESS_DENIED);
  ExpectFailure(Redirect(),
                u"#ERROR: Unable to create junction for Source = " + kSource + u" and Target = " + kTarget + u".");
  ExpectAtHome();
  EXPECT_FALSE(Exists(kTarget));

  machine->gate.FailCall("CreateSymbolicLinkW", 1, win32::ERROR_ACCESS_DENIED);
  machine->gate.FailCall("CopyFileW", 2, win32::ERROR_DISK_FULL);
  const auto stays = Redirect();
  ExpectFailure(stays, u"#ERROR: Unable to copy back file from Source = " + kSource + u" and Target = " + kTarget +
                           u". Error: 112");
  EXPECT_TRUE(stays.Logged(u"#ERROR: The file stays in " + kTarget + u"."));
  EXPECT_TRUE(Contents(kTarget) == kText);
  EXPECT_FALSE(Exists(kSource));
  EXPECT_TRUE(ServiceRuns());

  // A link that was made already stands as long as the file cannot take its place.
  ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), kSource.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  for (const char* call : {"DeleteFileW", "MoveFileW"}) {
    machine->gate.FailCall("RegCreateKeyExW", 1, win32::ERROR_ACCESS_DENIED);
    machine->gate.FailCall(call, std::string_view(call) == "DeleteFileW" ? 2 : 1, win32::ERROR_ACCESS_DENIED);
    const auto linked = Redirect();
    ExpectFailure(linked, u"#ERROR: The file stays in " + kTarget + u".");
    EXPECT_TRUE(linked.Logged(u". Error: 5"));
    EXPECT_EQ(IsLink(kSource), std::string_view(call) == "DeleteFileW");
    EXPECT_TRUE(Contents(kTarget) == kText);
    EXPECT_FALSE(Exists(kSource + u".copy1"));
    machine->gate.ClearFailures();
    ASSERT_TRUE(EnablePrivileges());
    win32::DeleteFileW(kSource.c_str());
    ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), kSource.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  }
}

TEST_F(FileRedirectionTest, AFailedRemovalPutsTheLinkBackUnlessTheFileIsHome) {
  ASSERT_EQ(Redirect().exitCode, 0);
  machine->gate.FailCall("CopyFileW", 1, win32::ERROR_DISK_FULL);
  ExpectRemovalFailure(Remove(), u"#ERROR: Unable to copy file from Source = " + kSource + u" and Target = " + kTarget +
                                     u". Error: 112");
  ExpectRedirected();

  machine->gate.FailCall("RegDeleteKeyW", 1, win32::ERROR_ACCESS_DENIED);
  const auto home = Remove();
  ExpectRemovalFailure(home, u"#ERROR: Unable to remove Symbolic Link from Registry for Source = " + kSource +
                                 u" and Target = " + kTarget + u".");
  EXPECT_TRUE(
      home.Logged(u"#ERROR: Unable to re-create symlink for Source = " + kSource + u" and Target = " + kTarget + u"."));
  ExpectAtHome();
  // The same command brings everything in order again.
  ASSERT_EQ(Redirect().exitCode, 0);
  ExpectRedirected();
  EXPECT_EQ(Remove().exitCode, 0);
}

TEST_F(FileRedirectionTest, OtherNamesOfTheFileKeepIt) {
  ASSERT_TRUE(win32::CreateHardLinkW(u"C:\\Data\\second.txt", kSource.c_str(), nullptr));
  const auto run = Redirect();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.Logged(u"#INFO: The file " + kSource + u" has 2 names."));
  ExpectRedirected();
  EXPECT_TRUE(Contents(u"C:\\Data\\second.txt") == kText);
}

TEST_F(FileRedirectionTest, TheServiceIsStoppedForTheMoveAndStartedAgain) {
  std::map<std::string, bool> ranDuring;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (std::string_view(name) == "CopyFileW" || std::string_view(name) == "DeleteFileW")
      ranDuring[name] |= ServiceRuns();
  });
  ASSERT_EQ(Redirect().exitCode, 0);
  machine->gate.Observe({});
  EXPECT_EQ(ranDuring, (std::map<std::string, bool>{{"CopyFileW", false}, {"DeleteFileW", false}}));
  EXPECT_TRUE(ServiceRuns());

  machine->services().SetState(kQuillbayService, win32::SERVICE_STOPPED);
  MakeFile(u"C:\\Data\\b.txt", "b");
  ASSERT_EQ(Redirect(u"C:\\Data\\b.txt").exitCode, 0);
  EXPECT_FALSE(ServiceRuns());  // it was not running before

  machine->services().SetState(kQuillbayService, win32::SERVICE_RUNNING);
  machine->services().Behaviour(kQuillbayService).startError = win32::ERROR_FILE_NOT_FOUND;
  MakeFile(u"C:\\Data\\c.txt", "c");
  const auto run = Redirect(u"C:\\Data\\c.txt");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.log.ends_with(u"#ERROR: Failed to start Quillbay Service."));
}

TEST_F(FileRedirectionTest, AServiceWithoutWorkIsSwitchedOff) {
  const std::u16string settings = u"RemoveFileRedirection - IsRegistryRedirectionEnabled: ";
  MakeFile(u"C:\\Data\\b.txt", "b");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_EQ(Redirect(u"C:\\Data\\b.txt").exitCode, 0);
  EXPECT_TRUE(Remove().Logged(settings + u"0 and IsFileRedirectionEnabled: 1 "));
  EXPECT_TRUE(ServiceRuns());
  EXPECT_EQ(ServiceStart(), win32::SERVICE_AUTO_START);

  MakeFolder(u"D:\\Registry");
  const auto location = RunProgram(*machine, {u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"});
  ASSERT_EQ(location.exitCode, 0) << emulated::Utf8(location.log);
  const auto withLocation = RunProgram(*machine, {u"/RedirectFile", u"C:\\Data\\b.txt", u"/loc:D:\\Target", u"/d"});
  EXPECT_TRUE(withLocation.Logged(settings + u"1 and IsFileRedirectionEnabled: 0 "))
      << emulated::Utf8(withLocation.log);
  EXPECT_TRUE(ServiceRuns());

  ASSERT_TRUE(win32::DeleteFileW(kConfig.c_str()));
  const auto last = Remove();  // not redirected any more: a failure that ends the same way
  EXPECT_EQ(last.exitCode, 1);
  EXPECT_TRUE(last.Logged(settings + u"0 and IsFileRedirectionEnabled: 0 "));
  EXPECT_TRUE(last.Logged(u"RemoveFileRedirection - Going to stop Quillbay Service"));
  EXPECT_TRUE(last.log.ends_with(u"RemoveFileRedirection - EXIT"));
  EXPECT_FALSE(ServiceRuns());
  EXPECT_EQ(ServiceStart(), win32::SERVICE_DEMAND_START);
  EXPECT_FALSE(Exists(kConfig));
}

TEST_F(FileRedirectionTest, AConfigurationThatCannotBeReadStopsNoService) {
  MakeFile(kConfig, "no XML at all");
  EXPECT_TRUE(Remove().Logged(u"IsRegistryRedirectionEnabled: 1 and IsFileRedirectionEnabled: 0 "));
  EXPECT_TRUE(ServiceRuns());
  EXPECT_EQ(Contents(kConfig), "no XML at all");

  const std::u16string statusAlone = u"\uFEFF<Config><OutDir/><OutDir><Status>0</Status></OutDir></Config>";
  MakeFile(kConfig, {reinterpret_cast<const char*>(statusAlone.data()), statusAlone.size() * sizeof(char16_t)});
  EXPECT_TRUE(Remove().Logged(u"IsRegistryRedirectionEnabled: 0 and IsFileRedirectionEnabled: 0 "));
}

}  // namespace
