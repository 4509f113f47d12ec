// Redirected files that were recorded before: again, and on to a third place.
#include "program/file_redirection.h"

namespace {

using test::Contents, test::Exists, test::MakeFolder, test::RunProgram;
using test::kSource, test::kTarget, test::kText;

class FileRecordsTest : public test::FileRedirection {};

TEST_F(FileRecordsTest, APairThatIsRecordedAlreadyIsNoFailure) {
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), kSource.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  const auto run = Redirect();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.Logged(u"ERROR: Source and Target Path already exists in Registry."));
  EXPECT_EQ(RecordCount(), 1u);
  ExpectRedirected();
}

TEST_F(FileRecordsTest, RecordsFollowAFileThatMovesOn) {
  MakeFolder(u"C:\\Third");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_EQ(Redirect(kTarget, u"C:\\Third").exitCode, 0);
  EXPECT_EQ(Record(u"1", u"Target"), u"C:\\Third\\file.txt");
  EXPECT_TRUE(Contents(kSource) == kText);
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFile", kTarget, u"/loc:C:\\Third", u"/d"}).exitCode, 0);
  EXPECT_EQ(Record(u"1", u"Target"), kTarget);
  ASSERT_EQ(Remove().exitCode, 0);
  ExpectAtHome();
}

TEST_F(FileRecordsTest, RecordsThatDoNotFollowAreAFailure) {
  const std::u16string third = u"C:\\Third\\file.txt";
  const std::u16string location = u"/loc:C:\\Third";
  MakeFolder(u"C:\\Third");
  ASSERT_EQ(Redirect().exitCode, 0);
  machine->gate.FailCall("RegSetValueExW", 1, win32::ERROR_ACCESS_DENIED);
  ExpectFailure(Redirect(kTarget, u"C:\\Third"), u"#ERROR: Unable to update redirected folder path in registry.");
  ExpectRedirected();
  EXPECT_FALSE(Exists(third));

  ASSERT_EQ(Redirect(kTarget, u"C:\\Third").exitCode, 0);
  machine->gate.FailCall("RegSetValueExW", 1, win32::ERROR_ACCESS_DENIED);
  const auto removed = RunProgram(*machine, {u"/RedirectFile", kTarget, location, u"/d"});
  ExpectRemovalFailure(removed, u"#ERROR: Unable to update redirected file path in registry.");
  EXPECT_TRUE(removed.Logged(u"#INFO: The file is complete in " + kTarget + u"."));
  EXPECT_TRUE(Contents(kTarget) == kText);
  // Redirected once more and removed, all is in order again.
  ASSERT_EQ(Redirect(kTarget, u"C:\\Third").exitCode, 0);
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFile", kTarget, location, u"/d"}).exitCode, 0);
  ASSERT_EQ(Remove().exitCode, 0);
  ExpectAtHome();
}

TEST_F(FileRecordsTest, TheLastOfTwoRedirectionsIsRemovedFirst) {
  MakeFolder(u"C:\\Third");
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_EQ(Redirect(kTarget, u"C:\\Third").exitCode, 0);
  const auto records = Records();
  ExpectRemovalFailure(Remove(u"C:\\Third"), u"#ERROR: Symbolic Link " + kSource +
                                                 u" leads through another redirection, Source = " + kTarget +
                                                 u" and Target = C:\\Third\\file.txt. Remove that one first.");
  EXPECT_TRUE(IsLink(kSource) && IsLink(kTarget));
  EXPECT_EQ(Records(), records);
}

}  // namespace
