// File redirection as an administrator sees it: a machine, a command, and what console, log, registry and disks say.
#include "program/file_redirection.h"

namespace {

using emulated::Utf8;
using test::Answer, test::Contents, test::Exists, test::Failed, test::MakeFile, test::MakeFolder, test::Records,
    test::Succeeded;
using test::kSource, test::kTarget, test::kText, test::kVolume;

const std::u16string kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::string kWent =
    "#INFO: Target TARGET doesn't exists so checking free space using parent directory D:\\Target\n#INFO: The file "
    "SOURCE is now in TARGET.\n";
const std::string kCame =
    "#INFO: The file SOURCE is in TARGET until it is back in its place.\n#INFO: The file SOURCE is back in its "
    "place.\n";

const std::string kTooLong =
    "' exceeds the system-defined maximum length of 248 characters. Browse to a different location.\n";

class FileRedirectionTest : public test::FileRedirection {};

TEST_F(FileRedirectionTest, GoesAndComesBackWithAllThatItHas) {
  MakeFile(u"C:\\Data\\other.txt", "other");
  ASSERT_EQ(Redirect(u"C:\\Data\\other.txt").exitCode, 0);
  const State before = Now();
  for (const auto& [typed, location] : {std::pair(u"C:\\Data\\file.txt", u"D:\\Target"),
                                        {u"c:\\DATA\\File.TXT", u"d:\\target\\"},
                                        {u"C:\\Data\\file.txt", u"D:\\Target\\file.txt"}}) {
    EXPECT_EQ(Answer(Redirect(typed)), Succeeded("File Redirection", kWent));
    ExpectRedirected();
    EXPECT_EQ(ChangesSince(before),
              "changed: SOURCE\nnew: TARGET\nnew: QUILLBAY\\FileJunctions\\2 Source = SOURCE\nnew: "
              "QUILLBAY\\FileJunctions\\2 Target = TARGET\n");
    EXPECT_EQ(AnswerTo({u"/RedirectFile"}),
              "exit 0\nSource   Target\n\nSOURCE   TARGET\nC:\\Data\\other.txt   D:\\Target\\other.txt\n");
    EXPECT_EQ(
        Answer(Redirect()),
        Failed("File Redirection", "#ERROR: Symbolic Link already exists for Source = SOURCE and Target = TARGET.\n"));
    EXPECT_EQ(AnswerTo({u"/RedirectFile", typed, std::u16string(u"/loc:") + location, u"/d"}),
              Removal(true, kCame, Service::HasWork));
    ExpectAtHome();
    EXPECT_EQ(ChangesSince(before), "");
  }
}

TEST_F(FileRedirectionTest, WithoutPermissionsTheCopyHasThoseOfItsFolder) {
  MakeFile(u"D:\\Target\\plain.txt", "as any new file there");
  EXPECT_EQ(AnswerTo({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/-NTFS"}), Succeeded("File Redirection", kWent));
  EXPECT_EQ(test::Security(kTarget), test::Security(u"D:\\Target\\plain.txt"));
  EXPECT_EQ(test::Describe(kTarget), item.substr(0, test::Describe(kTarget).size()));
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(test::Security(kSource), test::Security(u"D:\\Target\\plain.txt"));
}

// Each rule alone, and nothing changes.
TEST_F(FileRedirectionTest, IsRefused) {
  for (const auto* folder :
       {u"D:\\Links", u"D:\\Closed", u"D:\\Blind", u"D:\\Folder", u"D:\\Folder\\file.txt", u"D:\\Hidden", u"D:\\Read"})
    MakeFolder(folder);
  State before = Now();
  const auto refused = [&](const std::u16string& source, const std::u16string& folder, const std::string& log) {
    EXPECT_EQ(Answer(Redirect(source, folder)), Failed("File Redirection", log)) << Utf8(source + u" " + folder);
    EXPECT_EQ(ChangesSince(before), "") << Utf8(source + u" " + folder);
  };
  const std::u16string to = u"D:\\Target";
  refused(u"C:\\Data", to, "#ERROR: Source path 'C:\\Data' should be a file path.\n");
  refused(u"C:\\Data\\no.txt", to, "#ERROR: Source file 'C:\\Data\\no.txt' doesn't exists. Error: 2\n");
  refused(kSource + u":note", to, "#ERROR:Invalid path : SOURCE:note\n");
  refused(kSource, u"D:", "#ERROR:Invalid path : D:\n");
  refused(kSource, u"\\\\server\\share",
          "#ERROR: Unable to get Drive Number for path  = \\\\server\\share.\n#ERROR: Target '\\\\server\\share' must "
          "be a NTFS formatted volume. Browse to a different location.\n");
  refused(kSource, u"C:\\data",
          "Checking source folder equals to target.\nSource: SOURCE Target: SOURCE #ERROR: Cannot redirect when Source "
          "and Target folder are the same. Browse to a different location.\n");
  refused(kSource, u"C:\\Data\\inner",
          "Checking source folder contained in target.\nSource: SOURCE Target: C:\\Data\\inner\\file.txt #ERROR: "
          "Cannot redirect within the same Source folder. Browse to a different location.\n#INFO: Target "
          "C:\\Data\\inner\\file.txt doesn't exists so checking free space using parent directory C:\\Data\\inner\n");

  MakeFile(u"D:\\Target\\taken", "theirs");
  MakeFile(u"C:\\Data\\cloud.txt", "");
  test::SetTag(u"C:\\Data\\cloud.txt", 0x9000001A);
  MakeLink(u"C:\\Data\\link.txt", kSource);
  MakeLink(u"C:\\Linked", u"C:\\Data", win32::SYMBOLIC_LINK_FLAG_DIRECTORY);
  MakeLink(u"D:\\Links\\file.txt", kSource);
  const std::u16string source247 = u"C:\\Data\\" + std::u16string(239, u's');
  MakeFile(source247, "long");
  before = Now();
  refused(kSource, u"D:\\Target\\taken", "#ERROR: Target directory 'D:\\Target\\taken' doesn't exists. Error: 80\n");
  refused(u"C:\\Data\\cloud.txt", to,
          "#ERROR: C:\\Data\\cloud.txt - Its contents are kept elsewhere (reparse tag 0x9000001A), by a cloud service, "
          "deduplication or a storage tier. Bring them back to this disk and try again.\n");
  refused(u"C:\\Data\\link.txt", to,
          "#ERROR: Symbolic Link already exists for Source = C:\\Data\\link.txt and Target = SOURCE.\n");
  refused(u"C:\\Linked\\file.txt", u"D:\\Other",
          "#ERROR: The parent folder of C:\\Linked\\file.txt is Symbolic Link. Browse to a different location.\n#INFO: "
          "Target D:\\Other\\file.txt doesn't exists so checking free space using parent directory D:\\Other\n");
  refused(
      kSource, u"D:\\Links",
      "#ERROR: The target file 'D:\\Links\\file.txt' is already a Symbolic Link. Browse to a different location.\n");
  refused(source247, to, "#ERROR: The specified path '" + Utf8(source247) + kTooLong);
  const std::u16string longest = u"D:\\" + std::u16string(246 - 3 - 9, u't');  // with "\file.txt" 246
  ASSERT_EQ(Redirect(kSource, longest).exitCode + Remove(longest).exitCode, 0);
  before = Now();
  refused(kSource, longest + u"t", "#ERROR: The specified path '" + Utf8(longest) + "t\\file.txt" + kTooLong);

  test::SetSecurity(u"D:\\Closed", u"O:SYD:P(A;;0x1f01bf;;;WD)");  // all but one right
  MakeFile(u"D:\\Blind\\file.txt", "theirs");
  test::SetSecurity(u"D:\\Blind", u"O:SYD:P(A;;0x80;;;WD)");
  MakeFile(u"C:\\Data\\secret.txt", "theirs");
  test::SetSecurity(u"C:\\Data\\secret.txt", u"O:SYD:P(A;;FA;;;SY)(A;;0xd0000;;;WD)");
  MakeFile(u"C:\\Data\\big.bin", std::string(AvailableBytes(u"E:\\").value_or(0), 'b'));  // not a byte is left
  before = Now();
  refused(kSource, u"D:\\Closed",
          "#ERROR: The target folder D:\\Closed\\file.txt can not be created. Insufficient permissions. The minimum "
          "permissions requirement to create the target folder is full control.\n#INFO: Target D:\\Closed\\file.txt "
          "doesn't exists so checking free space using parent directory D:\\Closed\n");
  refused(kSource, u"D:\\Blind",
          "#ERROR: (Target) D:\\Blind - Insufficient permissions. The minimum permissions requirement is read & "
          "execute.\n");
  refused(u"C:\\Data\\secret.txt", to,
          "#INFO: Target D:\\Target\\secret.txt doesn't exists so checking free space using parent directory "
          "D:\\Target\n#ERROR: (Source) C:\\Data\\secret.txt - Insufficient permissions. The minimum permissions "
          "requirement is read & execute.\n");
  refused(u"C:\\Data\\big.bin", u"E:\\",
          "#INFO: Target E:\\big.bin doesn't exists so checking free space using parent directory E:\\\n#ERROR: There "
          "is not enough free disk space on target E:\\big.bin. Browse to a different location or delete one or more "
          "files to free disk space, and try again.\n");

  // These when the service has been stopped already.
  MakeFile(u"C:\\Data\\used.txt", "used");
  const auto used =
      machine->files().OpenForeign(4242, u"C:\\Data\\used.txt", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  MakeFile(u"D:\\Read\\file.txt", "theirs", win32::FILE_ATTRIBUTE_READONLY);
  MakeFile(u"D:\\Hidden\\file.txt", "theirs", win32::FILE_ATTRIBUTE_HIDDEN);
  EXPECT_TRUE(win32::CreateHardLinkW(u"C:\\file.txt", kSource.c_str(), nullptr));
  before = Now();
  refused(u"C:\\Data\\used.txt", to,
          "#INFO: Target D:\\Target\\used.txt doesn't exists so checking free space using parent directory "
          "D:\\Target\n#ERROR: (Source) C:\\Data\\used.txt - File is locked.\n");
  for (const std::u16string folder : {u"D:\\Read", u"D:\\Folder", u"D:\\Hidden"})
    refused(kSource, folder,
            "#INFO: The file SOURCE has 2 names. The others keep the file as it is now.\n#ERROR: Unable to copy file "
            "from Source = SOURCE and Target = " +
                Utf8(folder) + "\\file.txt. Error: 5\n");
  refused(kSource, u"C:\\",
          "#INFO: C:\\ is on the same volume as SOURCE: what is discarded there at a restart is discarded at both "
          "places.\nChecking source folder equals to target.\nSource: SOURCE Target: C:\\file.txt #ERROR: Cannot "
          "redirect when Source and Target folder are the same. Browse to a different location.\n");
  machine->files().CloseForeign(used);

  machine->FindByLetter(u'D')->fileSystem = u"FAT32";
  refused(kSource, to,
          "#ERROR: Target 'D:\\Target' must be a NTFS formatted volume. Browse to a different location.\n");
  refused(u"D:\\Blind\\file.txt", u"E:\\",
          "#ERROR: Source 'D:\\Blind\\file.txt' must be a NTFS formatted volume. Browse to a different location.\n");
}

// Nothing that is not this program's is removed, and nothing that is in use.
TEST_F(FileRedirectionTest, RemovalIsRefused) {
  State before = Now();
  const auto refused = [&](const std::u16string& location, const std::string& log, Service service) {
    EXPECT_EQ(Answer(Remove(location)), Removal(false, log, service));
    EXPECT_EQ(ChangesSince(before), "");
    before = Now();
  };
  machine->services().SetState(kQuillbayService, win32::SERVICE_STOPPED);
  Remove();  // a failure, too, ends with a service without work switched off
  before = Now();
  refused(u"D:\\No", "#ERROR: Target = D:\\No\\file.txt Path Does Not Exist.\n", Service::IsIdle);
  MakeFile(kTarget, "theirs");
  before = Now();
  refused(u"D:\\Target", "#ERROR: Symbolic Link doesn't exists for Source = SOURCE.\n", Service::IsIdle);
  Delete(kSource);
  before = Now();
  refused(u"D:\\Target", "#ERROR: Source = SOURCE Path Does Not Exist.\n", Service::IsIdle);
  MakeLink(kSource, kTarget);
  before = Now();
  refused(u"D:\\Target", "#ERROR: Symbolic Link wasn't created by Quillbay for Source = SOURCE and Target = TARGET.\n",
          Service::IsIdle);

  // Recorded, but made anew by somebody since.
  Delete(kSource);
  MakeFile(kSource, kText);
  MakeFile(u"D:\\Target\\other.txt", "other");
  ASSERT_EQ(Redirect().exitCode, 0);
  Delete(kSource);
  MakeLink(kSource, u"D:\\Target\\other.txt");
  before = Now();
  refused(u"D:\\Target", "#ERROR: Symbolic Link wasn't created by Quillbay for Source = SOURCE and Target = TARGET.\n",
          Service::HasWork);
  Delete(kSource);
  MakeLink(kSource, kTarget);
  const auto held = machine->files().OpenForeign(
      4242, kTarget, win32::GENERIC_WRITE, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE);
  before = Now();
  refused(u"D:\\Target", "#ERROR: (Target) TARGET - File is locked.\n", Service::HasWork);
  machine->files().CloseForeign(held);
  EXPECT_EQ(Remove().exitCode, 0);
}

// Somebody who looks at the file just when it is deleted keeps its name for that long.
TEST_F(FileRedirectionTest, WaitsSomeSecondsForTheName) {
  for (const int letsGo : {5, 6}) {
    std::shared_ptr<emulated::FileObject> scanner;
    int slept = 0;
    machine->gate.Observe([&](const char* name, std::uint64_t) {
      if (std::string_view(name) == "DeleteFileW" && !scanner)
        scanner = machine->files().OpenForeign(4242, kSource, win32::FILE_READ_DATA,
                                               win32::FILE_SHARE_READ | win32::FILE_SHARE_DELETE);
    });
    machine->onSleep = [&](std::uint64_t) {
      if (scanner && ++slept == letsGo) machine->files().CloseForeign(scanner);
    };
    const std::string answer = Answer(Redirect());
    machine->gate.Observe({});
    machine->onSleep = {};
    EXPECT_TRUE(Item(kTarget) == item);
    if (letsGo == 5) {
      EXPECT_EQ(answer, Succeeded("File Redirection", kWent));
      EXPECT_EQ(Remove().exitCode, 0);
      continue;
    }
    machine->files().CloseForeign(scanner);
    const std::string of = " Source = SOURCE and Target = TARGET.";
    EXPECT_EQ(answer, Failed("File Redirection", kWent + "#ERROR: Unable to create junction for" + of +
                                                     "\n#ERROR: Unable to copy back file from" + of +
                                                     " Error: 183\n#ERROR: The file stays in TARGET.\n"));
  }
}

TEST_F(FileRedirectionTest, TheServiceIsStoppedForTheMoveAndStartedAgain) {
  std::map<std::string, bool> ranDuring;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (std::string_view(name) == "CopyFileW" || std::string_view(name) == "DeleteFileW")
      ranDuring[name] |= ServiceRuns();
  });
  MakeFile(u"C:\\Data\\b.txt", "b");
  ASSERT_EQ(Redirect(u"C:\\Data\\b.txt").exitCode, 0);
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_TRUE(ServiceRuns());
  ASSERT_EQ(Remove().exitCode, 0);
  EXPECT_TRUE(ServiceRuns());
  machine->gate.Observe({});
  EXPECT_EQ(ranDuring, (std::map<std::string, bool>{{"CopyFileW", false}, {"DeleteFileW", false}}));

  machine->services().SetState(kQuillbayService, win32::SERVICE_STOPPED);
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_FALSE(ServiceRuns());  // it was not running before

  machine->services().SetState(kQuillbayService, win32::SERVICE_RUNNING);
  machine->services().Behaviour(kQuillbayService).startError = win32::ERROR_FILE_NOT_FOUND;
  const std::string notStarted = "\n#ERROR: Failed to start Quillbay Service.";
  std::string removal = Removal(true, kCame, Service::HasWork);
  removal.insert(removal.find("\nRemoveFileRedirection - Is"), notStarted);
  EXPECT_EQ(Answer(Remove()), removal);
  machine->services().SetState(kQuillbayService, win32::SERVICE_RUNNING);
  EXPECT_EQ(Answer(Redirect()), Succeeded("File Redirection", kWent) + notStarted);
  ExpectRedirected();
}

// It has work while a file is redirected, or registry keys are.
TEST_F(FileRedirectionTest, AServiceWithoutWorkIsSwitchedOff) {
  MakeFolder(u"D:\\Registry");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"}).exitCode, 0);
  std::string removal = Removal(true, kCame, Service::HasWork);
  removal.replace(removal.find("Enabled: 0 and IsFileRedirectionEnabled: 1"), 42,
                  "Enabled: 1 and IsFileRedirectionEnabled: 0");
  EXPECT_EQ(Answer(Remove()), removal);
  EXPECT_TRUE(ServiceRuns());
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteFileW(kConfig.c_str()));
  const State before = Now();
  EXPECT_EQ(Answer(Remove()), Removal(true, kCame, Service::IsIdle));
  EXPECT_EQ(ChangesSince(before),
            "changed: SOURCE\ngone: TARGET\ngone: QUILLBAY\\FileJunctions\\1 Source = SOURCE\ngone: "
            "QUILLBAY\\FileJunctions\\1 Target = TARGET\ngone: service: 4, starts 2\nnew: service: 1, starts 3\n");
}

TEST_F(FileRedirectionTest, AConfigurationThatCannotBeReadStopsNoService) {
  MakeFile(kConfig, "no XML at all");
  const State before = Now();
  EXPECT_TRUE(Remove().Logged(u"IsRegistryRedirectionEnabled: 1 and IsFileRedirectionEnabled: 0 "));
  EXPECT_EQ(ChangesSince(before), "");
  const std::u16string statusAlone = u"\uFEFF<Config><OutDir/><OutDir><Status>0</Status></OutDir></Config>";
  MakeFile(kConfig, {reinterpret_cast<const char*>(statusAlone.data()), statusAlone.size() * sizeof(char16_t)});
  EXPECT_TRUE(Remove().Logged(u"IsRegistryRedirectionEnabled: 0 and IsFileRedirectionEnabled: 0 "));
  EXPECT_FALSE(ServiceRuns());
}

// Neither goes on from there; of two that an earlier version made, the last is removed first.
TEST_F(FileRedirectionTest, ARedirectedFileGoesNoFurther) {
  const std::u16string third = u"C:\\Third\\file.txt";
  MakeFolder(u"C:\\Third");
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_EQ(Answer(Redirect(kTarget, u"C:\\Third")), Failed("File Redirection",
                                                            "#ERROR: TARGET belongs to another redirection, Source = "
                                                            "SOURCE and Target = TARGET. Remove that one first.\n"));
  ExpectRedirected();

  ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), third.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  MakeLink(kTarget, third);
  machine->registry().SetText(test::kQuillbay + u"\\FileJunctions\\1", u"Target", third);
  ASSERT_EQ(AddJunctionRegKey(kTarget.c_str(), third.c_str(), 1), 1);
  const auto refuse = [&] {
    const State before = Now();
    EXPECT_EQ(Answer(Remove(u"C:\\Third")),
              Removal(false,
                      "#ERROR: Symbolic Link SOURCE leads through another redirection, Source = TARGET and Target = "
                      "C:\\Third\\file.txt. Remove that one first.\n",
                      Service::HasWork));
    EXPECT_EQ(ChangesSince(before), "");
  };
  refuse();
  Delete(kSource);
  MakeLink(kSource, third);  // past the second one, as it is when the folder around it was moved since
  refuse();
  ASSERT_EQ(Run({u"/RedirectFile", kTarget, u"/loc:C:\\Third", u"/d"}).exitCode, 0);
  EXPECT_EQ(AllRecords(u"FileJunctions"), (Records{{u"1", {kSource, kTarget}}}));
  EXPECT_TRUE(Contents(kTarget) == kText);
}

}  // namespace
