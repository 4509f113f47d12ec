// File redirection as an administrator sees it: a machine, a command, and what console, log, registry and disks say.
#include "program/redirections.h"

namespace {

using emulated::Utf8;
using namespace test;

const std::u16string kSource = u"C:\\Data\\file.txt", kTarget = u"D:\\Target\\file.txt";
const std::u16string kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::string kOf = " Source = SOURCE and Target = TARGET.";
const std::string kText(70'000, 'x');
const std::string kGone = "#INFO: The file SOURCE is now in TARGET.\n";
const std::string kWent =
    "#INFO: Target TARGET doesn't exists so checking free space using parent directory D:\\Target\n" + kGone;
const std::string kLinked = "#INFO: The file SOURCE is in TARGET until it is back in its place.\n",
                  kBack = "#INFO: The file SOURCE is back in its place.\n", kCame = kLinked + kBack;
const std::string kNoRecord =
    "gone: QUILLBAY\\FileJunctions\\1 Source = SOURCE\ngone: QUILLBAY\\FileJunctions\\1 Target = TARGET\n";
const std::string kIdle = "gone: service: 4, starts 2\nnew: service: 1, starts 3\n";

// One file with all that a file has.
class FileRedirectionTest : public Redirections {
 protected:
  FileRedirectionTest() {
    timesOfFolders = false;  // a file that goes, and comes back, leaves its mark on those of its folder
    EXPECT_TRUE(EnablePrivileges());
    MakeFolder(u"C:\\Data");
    MakeFolder(u"D:\\Target");
    MakeFile(kSource, kText);
    MakeFile(kSource + u":note", "a named stream");
    SetSecurity(kSource, u"O:SYD:AI(A;;FA;;;BA)(A;;0x1200a9;;;SY)(A;ID;FA;;;BA)(A;ID;FA;;;SY)(A;ID;FR;;;AU)");
    SetTimes(kSource, 7);
    EXPECT_TRUE(
        win32::SetFileAttributesW(kSource.c_str(), win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                                       win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE));
    item = Item(kSource);
  }
  RunResult Redirect(const std::u16string& source = kSource, const std::u16string& folder = u"D:\\Target") {
    return Run({u"/RedirectFile", source, u"/loc:" + folder});
  }
  RunResult Remove(const std::u16string& location = u"D:\\Target") {
    return Run({u"/RedirectFile", kSource, u"/loc:" + location, u"/d"});
  }
  // What a removal answers; the service keeps running while another file is redirected, or a location is set.
  enum class Service { HasWork, IsIdle };
  static std::string Removal(bool done, const std::string& log, Service service) {
    const std::string what = "File Redirection Removal", begin = "RemoveFileRedirection - ENTER\n" + log;
    const std::string settings =
        "\nRemoveFileRedirection - IsRegistryRedirectionEnabled: 0 and IsFileRedirectionEnabled: ";
    return (done ? Succeeded(what, begin) : Failed(what, begin)) + settings +
           (service == Service::HasWork
                ? "1 \n"
                : "0 \nRemoveFileRedirection - Going to stop Quillbay Service\nService disabled "
                  "successfully.\n\n") +
           "RemoveFileRedirection - EXIT";
  }
  void ExpectNotRemoved(const std::string& log, Service service = Service::IsIdle,
                        const std::u16string& location = u"D:\\Target") {
    const State before = Now();
    EXPECT_EQ(AnswerOf(Remove(location)), Removal(false, log, service));
    EXPECT_EQ(ChangesSince(before), "");
  }
  // All that the file is, but for its group.
  static std::string Item(const std::u16string& path) { return Describe(path) + Utf8(Access(path) + Dacl(path)); }
  static void MakeLink(const std::u16string& path, const std::u16string& target) {
    ASSERT_TRUE(CreateSymbolicLinkEntry(path.c_str(), target.c_str(), {.forceFileLink = target != u"C:\\Data"}));
  }
  static void Delete(const std::u16string& path) {
    win32::SetFileAttributesW(path.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
    ASSERT_TRUE(win32::DeleteFileW(path.c_str()));
  }
  bool ServiceRuns() { return machine->services().State(kQuillbayService) == win32::SERVICE_RUNNING; }
  void ExpectRedirected() {
    EXPECT_TRUE(IsLink(kSource) && Contents(kSource) == kText);
    EXPECT_TRUE(Item(kTarget) == item);
  }

  std::string item;  // what the file is at first
};

TEST_F(FileRedirectionTest, GoesAndComesBackWithAllThatItHas) {
  MakeFile(u"C:\\Data\\other.txt", "other");
  ASSERT_EQ(Redirect(u"C:\\Data\\other.txt").exitCode, 0);
  const State before = Now();
  for (const auto& [typed, location] : {std::pair(u"C:\\Data\\file.txt", u"D:\\Target"),
                                        {u"c:\\DATA\\File.TXT", u"d:\\target\\"},
                                        {u"C:\\Data\\file.txt", u"D:\\Target\\file.txt"}}) {
    EXPECT_EQ(AnswerOf(Redirect(typed)), Succeeded("File Redirection", kWent));
    ExpectRedirected();
    EXPECT_EQ(ChangesSince(before),
              "changed: SOURCE\nnew: TARGET\nnew: QUILLBAY\\FileJunctions\\2 Source = SOURCE\nnew: "
              "QUILLBAY\\FileJunctions\\2 Target = TARGET\n");
    EXPECT_EQ(AnswerTo({u"/RedirectFile"}),
              "exit 0\nSource   Target\n\nSOURCE   TARGET\nC:\\Data\\other.txt   D:\\Target\\other.txt\n");
    ExpectRefused(u"/RedirectFile",
                  {{kSource, u"D:\\Target", "#ERROR: Symbolic Link already exists for" + kOf + "\n"}});
    EXPECT_EQ(AnswerTo({u"/RedirectFile", typed, std::u16string(u"/loc:") + location, u"/d"}),
              Removal(true, kCame, Service::HasWork));
    EXPECT_FALSE(IsLink(kSource));
    EXPECT_EQ(ChangesSince(before), "");
  }
  MakeFile(u"D:\\Target\\plain.txt", "as any new file there");
  EXPECT_EQ(AnswerTo({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/-NTFS"}), Succeeded("File Redirection", kWent));
  EXPECT_EQ(Security(kTarget), Security(u"D:\\Target\\plain.txt"));
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Security(kSource), Security(u"D:\\Target\\plain.txt"));
}

TEST_F(FileRedirectionTest, IsRefused) {
  for (const auto* folder : {u"D:\\Links", u"D:\\Closed", u"D:\\Blind", u"D:\\Hidden"}) MakeFolder(folder);
  const auto refused = [&](const std::vector<Refusal>& rows) { ExpectRefused(u"/RedirectFile", rows); };
  const std::u16string there = u"D:\\Target";
  refused({{u"C:\\Data", there, "#ERROR: Source path 'C:\\Data' should be a file path.\n"},
           {u"C:\\Data\\no.txt", there, "#ERROR: Source file 'C:\\Data\\no.txt' doesn't exists. Error: 2\n"},
           {kSource + u":note", there, "#ERROR:Invalid path : SOURCE:note\n"},
           {kSource, u"\\\\server\\share", "#ERROR: Target '\\\\server\\share' must be a NTFS formatted volume."},
           {kSource, u"C:\\data", "#ERROR: Cannot redirect when Source and Target folder are the same."},
           {kSource, u"C:\\Data\\inner", "#ERROR: Cannot redirect within the same Source folder."}});

  MakeFile(u"D:\\Target\\taken", "theirs");
  MakeFile(u"C:\\Data\\cloud.txt", "");
  SetTag(u"C:\\Data\\cloud.txt", 0x9000001A);
  MakeLink(u"C:\\Data\\link.txt", kSource);
  MakeLink(u"C:\\Linked", u"C:\\Data");
  MakeLink(u"D:\\Links\\file.txt", kSource);
  const std::u16string source247 = u"C:\\Data\\" + std::u16string(239, u's');
  MakeFile(source247, "long");
  const std::u16string longest = u"D:\\" + std::u16string(246 - 3 - 9, u't');  // with "\file.txt" 246
  ASSERT_EQ(Redirect(kSource, longest).exitCode + Remove(longest).exitCode, 0);
  const std::string tooLong = "' exceeds the system-defined maximum length of 248 characters.";
  refused(
      {{kSource, u"D:\\Target\\taken", "#ERROR: Target directory 'D:\\Target\\taken' doesn't exists. Error: 80\n"},
       {u"C:\\Data\\cloud.txt", there, "#ERROR: C:\\Data\\cloud.txt - Its contents are kept elsewhere"},
       {u"C:\\Data\\link.txt", there,
        "#ERROR: Symbolic Link already exists for Source = C:\\Data\\link.txt and Target = SOURCE.\n"},
       {u"C:\\Linked\\file.txt", u"D:\\Other", "#ERROR: The parent folder of C:\\Linked\\file.txt is Symbolic Link."},
       {kSource, u"D:\\Links", "#ERROR: The target file 'D:\\Links\\file.txt' is already a Symbolic Link."},
       {source247, there, "#ERROR: The specified path '" + Utf8(source247) + tooLong},
       {kSource, longest + u"t", "t\\file.txt" + tooLong}});

  SetSecurity(u"D:\\Closed", u"O:SYD:P(A;;0x1f01bf;;;WD)");  // all but one right
  MakeFile(u"D:\\Blind\\file.txt", "theirs");
  SetSecurity(u"D:\\Blind", u"O:SYD:P(A;;0x80;;;WD)");
  MakeFile(u"C:\\Data\\secret.txt", "theirs");
  SetSecurity(u"C:\\Data\\secret.txt", u"O:SYD:P(A;;FA;;;SY)(A;;0xd0000;;;WD)");
  MakeFile(u"C:\\Data\\big.bin", std::string(AvailableBytes(u"E:\\").value_or(0), 'b'));  // not a byte is left
  MakeFile(u"C:\\Data\\used.txt:stream", "used");
  const auto used =
      machine->files().OpenForeign(4242, u"C:\\Data\\used.txt:stream", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  MakeFile(u"D:\\Hidden\\file.txt", "theirs", win32::FILE_ATTRIBUTE_HIDDEN);
  EXPECT_TRUE(win32::CreateHardLinkW(u"C:\\file.txt", kSource.c_str(), nullptr));
  const std::string twoNames =
      "#INFO: The file SOURCE has 2 names. The others keep the file as it is now.\n#ERROR: Unable to copy file from "
      "Source = SOURCE and Target = D:\\";
  refused({{kSource, u"D:\\Closed", "#ERROR: The target folder D:\\Closed\\file.txt can not be created."},
           {kSource, u"D:\\Blind", "#ERROR: (Target) D:\\Blind - Insufficient permissions."},
           {u"C:\\Data\\secret.txt", there, "#ERROR: (Source) C:\\Data\\secret.txt - Insufficient permissions."},
           {u"C:\\Data\\big.bin", u"E:\\", "#ERROR: There is not enough free disk space on target E:\\big.bin."},
           // These when the service has been stopped already.
           {u"C:\\Data\\used.txt", there, "#ERROR: (Source) C:\\Data\\used.txt - File is locked."},
           {kSource, u"D:\\Hidden", twoNames + "Hidden\\file.txt. Error: 5\n"},
           {kSource, u"C:\\", "#ERROR: Cannot redirect when Source and Target folder are the same."}});
  machine->files().CloseForeign(used);
  machine->FindByLetter(u'D')->fileSystem = u"FAT32";
  refused({{kSource, there, "#ERROR: Target 'D:\\Target' must be a NTFS formatted volume."},
           {u"D:\\Blind\\file.txt", u"E:\\", "#ERROR: Source 'D:\\Blind\\file.txt' must be a NTFS formatted volume."}});
}

// Nothing that is not this program's is removed, and nothing that is in use.
TEST_F(FileRedirectionTest, RemovalIsRefused) {
  machine->services().SetState(kQuillbayService, win32::SERVICE_STOPPED);
  Remove();  // a failure, too, ends with a service without work switched off
  ExpectNotRemoved("#ERROR: Target = D:\\No\\file.txt Path Does Not Exist.\n", Service::IsIdle, u"D:\\No");
  MakeFile(kTarget, "theirs");
  ExpectNotRemoved("#ERROR: Symbolic Link doesn't exists for Source = SOURCE.\n");
  Delete(kSource);
  ExpectNotRemoved("#ERROR: Source = SOURCE Path Does Not Exist.\n");
  const std::string notOurs = "#ERROR: Symbolic Link wasn't created by Quillbay for" + kOf + "\n";
  MakeLink(kSource, kTarget);
  ExpectNotRemoved(notOurs);

  // Recorded, but made anew by somebody since.
  Delete(kSource);
  MakeFile(kSource, kText);
  MakeFile(u"D:\\Target\\other.txt", "other");
  ASSERT_EQ(Redirect().exitCode, 0);
  Delete(kSource);
  MakeLink(kSource, u"D:\\Target\\other.txt");
  ExpectNotRemoved(notOurs, Service::HasWork);
  Delete(kSource);
  MakeLink(kSource, kTarget);
  const auto held = machine->files().OpenForeign(
      4242, kTarget, win32::GENERIC_WRITE, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE);
  ExpectNotRemoved("#ERROR: (Target) TARGET - File is locked.\n", Service::HasWork);
  machine->files().CloseForeign(held);
  EXPECT_EQ(Remove().exitCode, 0);
}

// Somebody who looks at the file just when it is deleted keeps its name for that long.
TEST_F(FileRedirectionTest, WaitsSomeSecondsForTheName) {
  for (const int letsGo : {5, 6}) {
    std::shared_ptr<emulated::FileObject> scanner;
    int slept = 0;
    bool looked = false;
    machine->gate.Observe([&](const char* name, std::uint64_t) {
      if (std::string_view(name) == "DeleteFileW" && !std::exchange(looked, true))
        scanner = machine->files().OpenForeign(4242, kSource, win32::FILE_READ_DATA,
                                               win32::FILE_SHARE_READ | win32::FILE_SHARE_DELETE);
    });
    machine->onSleep = [&](std::uint64_t) {
      if (scanner && ++slept == letsGo) machine->files().CloseForeign(std::exchange(scanner, {}));
    };
    const std::string answer = AnswerOf(Redirect());
    machine->gate.Observe({});
    machine->onSleep = {};
    EXPECT_TRUE(Item(kTarget) == item);
    if (scanner) machine->files().CloseForeign(scanner);
    EXPECT_EQ(answer.starts_with("exit 0"), letsGo == 5) << answer;
    EXPECT_EQ(answer.find("Error: 183\n#ERROR: The file stays in TARGET.\n") == std::string::npos, letsGo == 5);
    EXPECT_TRUE(letsGo == 6 || Remove().exitCode == 0);
  }
}

TEST_F(FileRedirectionTest, TheServiceIsStoppedForTheMoveAndStartedAgain) {
  std::map<std::string, bool> ranDuring;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (std::string_view(name) == "CopyFileExW" || std::string_view(name) == "DeleteFileW")
      ranDuring[name] |= ServiceRuns();
  });
  MakeFile(u"C:\\Data\\b.txt", "b");
  EXPECT_TRUE(Redirect(u"C:\\Data\\b.txt").exitCode == 0 && ServiceRuns());
  EXPECT_TRUE(Redirect().exitCode == 0 && ServiceRuns());
  EXPECT_TRUE(Remove().exitCode == 0 && ServiceRuns());
  machine->gate.Observe({});
  EXPECT_EQ(ranDuring, (std::map<std::string, bool>{{"CopyFileExW", false}, {"DeleteFileW", false}}));

  machine->services().SetState(kQuillbayService, win32::SERVICE_STOPPED);
  ASSERT_EQ(Redirect().exitCode, 0);
  EXPECT_FALSE(ServiceRuns());  // it was not running before
}

// It has work while a file is redirected, or registry keys are.
TEST_F(FileRedirectionTest, AServiceWithoutWorkIsSwitchedOff) {
  MakeFolder(u"D:\\Registry");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_EQ(Run({u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"}).exitCode, 0);
  EXPECT_TRUE(Remove().Logged(u"IsRegistryRedirectionEnabled: 1 and IsFileRedirectionEnabled: 0 "));
  EXPECT_TRUE(ServiceRuns());
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteFileW(kConfig.c_str()));
  const State before = Now();
  EXPECT_EQ(AnswerOf(Remove()), Removal(true, kCame, Service::IsIdle));
  EXPECT_EQ(ChangesSince(before), "changed: SOURCE\ngone: TARGET\n" + kNoRecord + kIdle);

  // One that cannot be read stops no service.
  MakeFile(kConfig, "no XML at all");
  machine->services().SetState(kQuillbayService, win32::SERVICE_RUNNING);
  const State unread = Now();
  EXPECT_TRUE(Remove().Logged(u"IsRegistryRedirectionEnabled: 1 and IsFileRedirectionEnabled: 0 "));
  EXPECT_EQ(ChangesSince(unread), "");
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
  ExpectRefused(u"/RedirectFile", {{kTarget, u"C:\\Third",
                                    "#ERROR: TARGET belongs to another redirection, Source = SOURCE and Target = "
                                    "TARGET. Remove that one first.\n"}});
  ExpectRedirected();

  ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), third.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  MakeLink(kTarget, third);
  machine->registry().SetText(kQuillbay + u"\\FileJunctions\\1", u"Target", third);
  ASSERT_EQ(AddJunctionRegKey(kTarget.c_str(), third.c_str(), 1), 1);
  const std::string leadsOn =
      "#ERROR: Symbolic Link SOURCE leads through another redirection, Source = TARGET and Target = "
      "C:\\Third\\file.txt. Remove that one first.\n";
  ExpectNotRemoved(leadsOn, Service::HasWork, u"C:\\Third");
  Delete(kSource);
  MakeLink(kSource, third);  // past the second one, as it is when the folder around it was moved since
  ExpectNotRemoved(leadsOn, Service::HasWork, u"C:\\Third");
  ASSERT_EQ(Run({u"/RedirectFile", kTarget, u"/loc:C:\\Third", u"/d"}).exitCode, 0);
  EXPECT_EQ(AllRecords(u"FileJunctions"), (Records{{u"1", {kSource, kTarget}}}));
  EXPECT_TRUE(Contents(kTarget) == kText);
}

// Whichever call fails and wherever the machine stops dead: the file is complete at one of its two places.
class EveryCallOfAFile : public FileRedirectionTest {
 protected:
  static bool IsComplete(const std::u16string& path) {
    return !IsLink(path) && Contents(path) == kText && Contents(path + u":note") == "a named stream";
  }
  // Somebody's file of its name, where it was or kept beside it.
  void MakeTheirs() {
    MakeFile(kTarget, "theirs");
    SetSecurity(kTarget, u"O:SYD:P(A;;FA;;;BA)");
    replaces = true;
  }
  bool TheirsIsThere() const {
    return !replaces || Contents(kTarget) == "theirs" || Contents(kTarget + u".kept1") == "theirs";
  }
  // All but its owner; entries that were inherited may be its own.
  static std::string WithoutOwner(const std::u16string& path) {
    std::string entries = Utf8(Entries(path));
    for (std::size_t at = 0; (at = entries.find(";ID;")) != std::string::npos;) entries.erase(at + 1, 2);
    return Describe(path) + entries;
  }
  void ExpectNothingLost(const std::string& when) override {
    const std::u16string& place = IsComplete(kSource) ? kSource : kTarget;
    EXPECT_TRUE(WithoutOwner(place) == described) << when;
    EXPECT_TRUE(place == kTarget || TheirsIsThere()) << when;
  }
  const std::string described = WithoutOwner(kSource);
  bool replaces = false;
};

const std::string kNotLinked = "#ERROR: Unable to create junction for" + kOf + "\n";
const std::string kCopyFailed = "#ERROR: Unable to copy file from" + kOf + " Error: 5\n";
const std::string kKept = "#INFO: The file TARGET is kept as TARGET.kept1 until it can be replaced.\n";
TEST_F(EveryCallOfAFile, OfARedirectionIsTakenBackOrItsLogTellsWhereTheFileIs) {
  const std::string notBack =
      "#ERROR: Unable to copy back file from" + kOf + " Error: 5\n#ERROR: The file stays in TARGET.\n";
  const std::string notRecorded = "#ERROR: Unable to add Junction Point to Registry for" + kOf + "\n";
  const std::string notCarried = "#ERROR: Unable to copy times, attributes and permissions from ";
  const std::string gone = kKept + kGone, stays = "changed: TARGET\nnew: TARGET.kept1\n";
  MakeTheirs();
  ExpectFailures(
      {u"/RedirectFile", kSource, u"/loc:D:\\Target"}, "File Redirection", "",
      {
          {"MoveFileW 1", kCopyFailed},
          {"CopyFileExW 1", kKept + kCopyFailed},
          {"SetFileTime 1", kKept + notCarried + "SOURCE to TARGET. Access is denied.\n\n"},
          {"GetFileSecurityW 3", kKept + kNotLinked},
          {"CreateSymbolicLinkW 1", gone + kNotLinked + kBack},
          {"RegCreateKeyExW 1", gone + notRecorded + kBack},
          // Not all can be taken back.
          {"CreateSymbolicLinkW 1, CopyFileExW 2", gone + kNotLinked + notBack, "gone: SOURCE\n" + stays},
          {"CreateSymbolicLinkW 1, SetFileTime 2",
           gone + kNotLinked + notCarried + "TARGET to SOURCE. Access is denied.\n\n" + kBack, "changed: SOURCE\n"},
          {"RegCreateKeyExW 1, DeleteFileW 2",
           gone + notRecorded + "#ERROR: Unable to delete Symbolic Link SOURCE. Access is denied.\n\n" + notBack,
           "changed: SOURCE\n" + stays},
          {"RegCreateKeyExW 1, DeleteFileW 3",
           gone + notRecorded + kBack +
               "#INFO: The file TARGET could not be removed. Access is denied.\n\n#ERROR: Unable to put the file "
               "TARGET "
               "back. It stays in TARGET.kept1. Cannot create a file when that file already exists.\n\n",
           stays},
      });
  RefuseEachCall(
      {u"/RedirectFile", kSource, u"/loc:D:\\Target"},
      {{"changed: TARGET\n", u"was successful."},  // without the privilege to give it its owner
       {"gone: SOURCE\n" + stays, u"#ERROR: The file stays in D:\\Target\\file.txt."},
       {"new: TARGET.kept1\n", u"#INFO: The file D:\\Target\\file.txt.kept1 could not be removed."},
       {"gone: service: 4, starts 2\nnew: service: 1, starts 2\n", u"#ERROR: Failed to start Quillbay Service."}});
}

TEST_F(EveryCallOfAFile, OfARemovalIsTakenBackUnlessTheFileIsHome) {
  ASSERT_EQ(Redirect().exitCode, 0);
  const std::string notRelinked = "#ERROR: Unable to re-create symlink for" + kOf + "\n#INFO: The file is complete in ",
                    atHome = "changed: SOURCE\ngone: TARGET\n";
  ExpectFailures(
      {u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"}, "File Redirection Removal",
      "RemoveFileRedirection - ENTER\n",
      {
          {"CreateFileW 5", kCopyFailed},
          {"MoveFileW 1", kLinked + kCopyFailed},
          {"MoveFileW 1, CreateFileW 14", kLinked + kCopyFailed + notRelinked + "TARGET.\n", "gone: SOURCE\n"},
          {"RegDeleteKeyW 1",
           kCame + "#ERROR: Unable to remove Symbolic Link from Registry for" + kOf + "\n" + notRelinked + "SOURCE.\n",
           atHome},
          {"RegQueryInfoKeyW 5",
           kCame + "#ERROR: Unable to update redirected file path in registry.\n" + notRelinked + "SOURCE.\n",
           atHome + kNoRecord + kIdle},
          {"DeleteFileW 2", kCame + "#INFO: The file TARGET could not be removed. Access is denied.\n\n",
           "changed: SOURCE\n" + kNoRecord + kIdle, "", true},
      });
  const std::u16string told = u"#ERROR: Unable to re-create symlink for Source = C:\\Data\\file.txt";
  RefuseEachCall({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"},
                 {{"changed: SOURCE\n", u"was successful."},
                  {"gone: SOURCE\n", u"#INFO: The file is complete in D:\\Target\\file.txt."},
                  {"new: SOURCE.copy1\n", u"#INFO: The file C:\\Data\\file.txt.copy1 could not be removed."},
                  {"new: TARGET\n", u"#INFO: The file D:\\Target\\file.txt could not be removed."},
                  {atHome, told},
                  {atHome + kNoRecord + kIdle, told},
                  {"gone: service: 1, starts 3\nnew: service: 4, starts 2\n", u"Enabled: 1"},
                  {"gone: service: 1, starts 3\nnew: service: 1, starts 2\n", u" failed (5)"},
                  {"gone: service: 1, starts 3\nnew: service: 4, starts 3\n", u"Service disabled successfully."}});
}

TEST_F(EveryCallOfAFile, MayBeTheLastBeforeThePowerFails) {
  MakeTheirs();
  for (const std::u16string way : {u"/c", u"/d"}) {
    AtEveryMoment(
        *machine,
        [&](auto& on) {
          return RunProgram(on, {u"/RedirectFile", kSource, u"/loc:D:\\Target", way});
        },
        [&](emulated::Machine& after, const std::string& moment) {
          for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
            after.process.token->EnablePrivilege(privilege, true);
          EXPECT_TRUE(IsComplete(kTarget) || (IsComplete(kSource) && TheirsIsThere())) << moment;
        });
    replaces = false;
  }
}

// Somebody may have put a file in the place of the link, an unfinished copy from a backup, say.
TEST_F(EveryCallOfAFile, LosesNoWholeCopyToAnUnfinishedFileInThePlaceOfTheLink) {
  ASSERT_EQ(Redirect().exitCode, 0);
  Delete(kSource);
  const std::string unfinished(kText.size(), '\0');
  MakeFile(kSource, unfinished);
  ExpectNotRemoved("#ERROR: Symbolic Link doesn't exists for Source = SOURCE.\n", Service::HasWork);
  ASSERT_TRUE(win32::SetFileAttributesW(kTarget.c_str(), win32::FILE_ATTRIBUTE_NORMAL));  // or it is not replaced
  EXPECT_EQ(AnswerOf(Redirect()),
            Succeeded("File Redirection", kKept + kGone +
                                              "ERROR: Source and Target Path already exists in Registry.\n#INFO: The "
                                              "file that was TARGET before stays in TARGET.kept1.\n"));
  EXPECT_TRUE(IsComplete(kTarget + u".kept1"));
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Contents(kSource), unfinished);
  EXPECT_TRUE(IsComplete(kTarget + u".kept1"));
}

}  // namespace
