// The redirection of a file and its removal with every call failing once, and with the machine stopped dead at each.
#include "program/file_redirection.h"

namespace {

using test::Answer, test::Contents, test::Exists, test::Failed, test::Failure, test::MakeFile, test::RunProgram,
    test::Succeeded;
using test::kSource, test::kTarget, test::kText;

const std::string kLinked = "#INFO: The file SOURCE is in TARGET until it is back in its place.\n";
const std::string kKept = "#INFO: The file TARGET is kept as TARGET.kept1 until it can be replaced.\n";
const std::string kGone = "#INFO: The file SOURCE is now in TARGET.\n";
const std::string kNotLinked = "#ERROR: Unable to create junction for Source = SOURCE and Target = TARGET.\n";
const std::string kNotRecorded =
    "#ERROR: Unable to add Junction Point to Registry for Source = SOURCE and Target = TARGET.\n";
const std::string kBack = "#INFO: The file SOURCE is back in its place.\n";
const std::string kNotBack = "#ERROR: Unable to copy back file from Source = SOURCE and Target = TARGET. Error: ";
const std::string kStays = "#ERROR: The file stays in TARGET.\n";
const std::string kCopyFailed = "#ERROR: Unable to copy file from Source = SOURCE and Target = TARGET. Error: ";
const std::string kNotRemoved = "#INFO: The file TARGET could not be removed. Access is denied.\n\n";
const std::string kNotRelinked = "#ERROR: Unable to re-create symlink for Source = SOURCE and Target = TARGET.\n";
const std::string kRecord =
    "new: QUILLBAY\\FileJunctions\\1 Source = SOURCE\nnew: QUILLBAY\\FileJunctions\\1 Target = TARGET\n";
const std::string kNoRecord =
    "gone: QUILLBAY\\FileJunctions\\1 Source = SOURCE\ngone: QUILLBAY\\FileJunctions\\1 Target = TARGET\n";
const std::string kIdle = "gone: service: 4, starts 2\nnew: service: 1, starts 3\n";

// Somebody's file of its name is at the target.
class FailuresOfAFile : public test::FileRedirection {
 protected:
  FailuresOfAFile() {
    MakeFile(kTarget, "theirs");
    test::SetSecurity(kTarget, u"O:SYD:P(A;;FA;;;BA)");
  }
};

TEST_F(FailuresOfAFile, ARedirectionIsTakenBackOrItsLogTellsWhereTheFileIs) {
  const auto expected = [](const Failure& row) {
    const std::string log = row.log;
    return row.done ? Succeeded("File Redirection", log) : Failed("File Redirection", log);
  };
  ExpectFailures({u"/RedirectFile", kSource, u"/loc:D:\\New\\Deep"}, expected,
                 {
                     {"SHCreateDirectoryExW 1", "#ERROR: Target directory 'D:\\New\\Deep' doesn't exists. Error: 5\n"},
                     {"CopyFileW 1",
                      "#INFO: Target D:\\New\\Deep\\file.txt doesn't exists so checking free space using parent "
                      "directory D:\\New\\Deep\n#ERROR: Unable to copy file from Source = SOURCE and Target = "
                      "D:\\New\\Deep\\file.txt. Error: 5\n"},
                 });
  ExpectFailures(
      {u"/RedirectFile", kSource, u"/loc:D:\\Target"}, expected,
      {
          {"CreateFileW 8", kCopyFailed + "5\n"},
          {"MoveFileW 1", kCopyFailed + "5\n"},
          {"CopyFileW 1", kKept + kCopyFailed + "5\n"},
          {"SetFileAttributesW 1", kKept + kCopyFailed + "5\n"},
          {"FlushFileBuffers 1", kKept + kCopyFailed + "5\n"},
          {"SetFileTime 1",
           kKept +
               "#ERROR: Unable to copy times, attributes and permissions from SOURCE to TARGET. Access is denied.\n\n"},

          {"GetFileSecurityW 3", kKept + kNotLinked},
          {"DeleteFileW 1", kKept + kGone + kNotLinked + kBack},
          {"CreateSymbolicLinkW 1", kKept + kGone + kNotLinked + kBack},
          {"RegCreateKeyExW 1", kKept + kGone + kNotRecorded + kBack},
          // Not all can be taken back.
          {"CreateSymbolicLinkW 1, CopyFileW 2", kKept + kGone + kNotLinked + kNotBack + "5\n" + kStays,
           "gone: SOURCE\nchanged: TARGET\nnew: TARGET.kept1\n"},
          {"CreateSymbolicLinkW 1, SetFileTime 2",
           kKept + kGone + kNotLinked +
               "#ERROR: Unable to copy times, attributes and permissions from TARGET to SOURCE. Access is denied.\n\n" +
               kBack,
           "changed: SOURCE\n"},
          {"RegCreateKeyExW 1, DeleteFileW 2",
           kKept + kGone + kNotRecorded + "#ERROR: Unable to delete Symbolic Link SOURCE. Access is denied.\n\n" +
               kNotBack + "5\n" + kStays,
           "changed: SOURCE\nchanged: TARGET\nnew: TARGET.kept1\n"},
          {"RegCreateKeyExW 1, DeleteFileW 3",
           kKept + kGone + kNotRecorded + kBack + kNotRemoved +
               "#ERROR: Unable to put the file TARGET back. It stays in TARGET.kept1. Cannot create a file when that "
               "file already exists.\n\n",
           "changed: TARGET\nnew: TARGET.kept1\n"},
          {"RegCreateKeyExW 1, FlushFileBuffers 3",
           kKept + kGone + kNotRecorded + kNotRemoved + kBack +
               "#ERROR: Unable to put the file TARGET back. It stays in TARGET.kept1. Cannot create a file when that "
               "file already exists.\n\n",
           "changed: TARGET\nnew: TARGET.kept1\n"},
          // It is done all the same.
          {"DeleteFileW 2", kKept + kGone + "#INFO: The file TARGET.kept1 could not be removed. Access is denied.\n\n",
           "changed: SOURCE\nchanged: TARGET\nnew: TARGET.kept1\n" + kRecord, "", true},
      });
}

TEST_F(FailuresOfAFile, ARemovalIsTakenBackUnlessTheFileIsHome) {
  Delete(kTarget);
  ASSERT_EQ(Redirect().exitCode, 0);
  const auto expected = [](const Failure& row) {
    return Removal(row.done, row.log,
                   row.changes.find("starts 3") == std::string::npos ? Service::HasWork : Service::IsIdle);
  };
  ExpectFailures(
      {u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"}, expected,
      {
          {"CreateFileW 5", "" + kCopyFailed + "5\n"},
          {"CopyFileW 1", kLinked + kCopyFailed + "5\n"},
          {"FlushFileBuffers 1", kLinked + kCopyFailed + "5\n"},
          {"SetFileTime 1",
           kLinked +
               "#ERROR: Unable to copy times, attributes and permissions from TARGET to SOURCE. Access is denied.\n\n"},
          {"DeviceIoControl 2", kLinked + kCopyFailed + "5\n"},
          {"DeleteFileW 1", kLinked + kCopyFailed + "5\n"},
          {"MoveFileW 1", kLinked + kCopyFailed + "5\n"},
          {"MoveFileW 1, CreateFileW 14",
           kLinked + kCopyFailed + "5\n" + kNotRelinked + "#INFO: The file is complete in TARGET.\n", "gone: SOURCE\n"},
          {"RegDeleteKeyW 1",
           kLinked + kBack +
               "#ERROR: Unable to remove Symbolic Link from Registry for Source = SOURCE and Target = TARGET.\n" +
               kNotRelinked + "#INFO: The file is complete in SOURCE.\n",
           "changed: SOURCE\ngone: TARGET\n"},
          {"RegQueryInfoKeyW 5",
           kLinked + kBack + "#ERROR: Unable to update redirected file path in registry.\n" + kNotRelinked +
               "#INFO: The file is complete in SOURCE.\n",
           "changed: SOURCE\ngone: TARGET\n" + kNoRecord + kIdle},
          {"FlushFileBuffers 2", kLinked + kBack + kNotRemoved, "changed: SOURCE\n" + kNoRecord + kIdle, "", true},
          {"DeleteFileW 2", kLinked + kBack + kNotRemoved, "changed: SOURCE\n" + kNoRecord + kIdle, "", true},
      });
}

// Whichever call fails and wherever the machine stops dead: the file is complete at one of its two places.
class EveryCallOfAFile : public test::FileRedirection {
 protected:
  using Words = std::initializer_list<std::u16string>;

  static bool IsComplete(const std::u16string& path) {
    return !IsLink(path) && Contents(path) == kText && Contents(path + u":note") == "a named stream";
  }
  // What was at the target before, where it was or kept beside it.
  static bool TheirsIsThere() { return Contents(kTarget) == "theirs" || Contents(kTarget + u".kept1") == "theirs"; }
  // All but its owner; entries that were inherited may be its own.
  static std::string WithoutOwner(const std::u16string& path) {
    std::string entries = emulated::Utf8(Entries(path));
    for (std::size_t at = 0; (at = entries.find(";ID;")) != std::string::npos;) entries.erase(at + 1, 2);
    return test::Describe(path) + entries;
  }
  void ExpectNothingLost(const std::string& when) override {
    const std::u16string& place = IsComplete(kSource) ? kSource : kTarget;
    EXPECT_TRUE(WithoutOwner(place) == described) << when;
    EXPECT_TRUE(!replaces || place == kTarget || TheirsIsThere()) << when;
  }
  void StopAtEach(Words words) {
    test::AtEveryMoment(
        *machine, [&](auto& on) { return RunProgram(on, words); },
        [&](emulated::Machine& after, const std::string& moment) {
          for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
            after.process.token->EnablePrivilege(privilege, true);
          EXPECT_TRUE(IsComplete(kSource) || IsComplete(kTarget)) << moment;
          EXPECT_TRUE(!replaces || TheirsIsThere() || IsComplete(kTarget)) << moment;
        });
  }

  const std::string described = WithoutOwner(kSource);
  bool replaces = false;
};

const std::string kStopped = "gone: service: 4, starts 2\nnew: service: 1, starts 2\n";

TEST_F(EveryCallOfAFile, OfARedirectionMayFail) {
  MakeFile(kTarget, "theirs");
  replaces = true;
  RefuseEachCall(
      {u"/RedirectFile", kSource, u"/loc:D:\\Target"},
      {{"changed: TARGET\n", u"was successful."},  // without the privilege to give it its owner
       {"gone: SOURCE\nchanged: TARGET\nnew: TARGET.kept1\n", u"#ERROR: The file stays in D:\\Target\\file.txt."},
       {"new: TARGET.kept1\n", u"#INFO: The file D:\\Target\\file.txt.kept1 could not be removed."},
       {kStopped, u"#ERROR: Failed to start Quillbay Service."}});
}

TEST_F(EveryCallOfAFile, OfARemovalMayFail) {
  ASSERT_EQ(Redirect().exitCode, 0);
  const std::u16string notRelinked = u"#ERROR: Unable to re-create symlink for Source = C:\\Data\\file.txt";
  const std::string atHome = "changed: SOURCE\ngone: TARGET\n";
  RefuseEachCall({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"},
                 {{"changed: SOURCE\n", u"was successful."},
                  {"gone: SOURCE\n", u"#INFO: The file is complete in D:\\Target\\file.txt."},
                  {"new: SOURCE.copy1\n", u"#INFO: The file C:\\Data\\file.txt.copy1 could not be removed."},
                  {"new: TARGET\n", u"#INFO: The file D:\\Target\\file.txt could not be removed."},
                  {atHome, notRelinked},
                  {atHome + kNoRecord + kIdle, notRelinked},
                  {"gone: service: 1, starts 3\nnew: service: 4, starts 2\n", u"Enabled: 1"},
                  {"gone: service: 1, starts 3\nnew: service: 1, starts 2\n", u" failed (5)"},
                  {"gone: service: 1, starts 3\nnew: service: 4, starts 3\n", u"Service disabled successfully."}});
}

TEST_F(EveryCallOfAFile, MayBeTheLastBeforeThePowerFails) {
  MakeFile(kTarget, "theirs");
  replaces = true;
  StopAtEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"});
  replaces = false;
  StopAtEach({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"});
}

// Somebody may have put a file in the place of the link, an unfinished copy from a backup, say.
TEST_F(EveryCallOfAFile, LosesNoWholeCopyToAnUnfinishedFileInThePlaceOfTheLink) {
  ASSERT_EQ(Redirect().exitCode, 0);
  Delete(kSource);
  const std::string unfinished(kText.size(), '\0');
  MakeFile(kSource, unfinished);
  EXPECT_EQ(Answer(Remove()),
            Removal(false, "#ERROR: Symbolic Link doesn't exists for Source = SOURCE.\n", Service::HasWork));
  ASSERT_TRUE(win32::SetFileAttributesW(kTarget.c_str(), win32::FILE_ATTRIBUTE_NORMAL));  // or it is not replaced
  EXPECT_EQ(Answer(Redirect()),
            Succeeded("File Redirection", kKept + kGone +
                                              "ERROR: Source and Target Path already exists in Registry.\n#INFO: The "
                                              "file that was TARGET before stays in TARGET.kept1.\n"));
  EXPECT_TRUE(IsComplete(kTarget + u".kept1"));
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Contents(kSource), unfinished);
  EXPECT_TRUE(IsComplete(kTarget + u".kept1"));
}

}  // namespace
