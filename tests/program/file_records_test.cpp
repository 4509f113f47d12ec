// Redirected files that were recorded before: again, and from where they went.
#include "program/file_redirection.h"
#include "records/records.h"

namespace {

using test::Contents, test::MakeFolder, test::RunProgram;
using test::kRecords, test::kSource, test::kTarget, test::kText;

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

// Neither goes on from there; of two that an earlier version made, the last is removed first.
TEST_F(FileRecordsTest, ARedirectedFileGoesNoFurther) {
  const std::u16string third = u"C:\\Third\\file.txt";
  MakeFolder(u"C:\\Third");
  ASSERT_EQ(Redirect().exitCode, 0);
  ExpectFailure(Redirect(kTarget, u"C:\\Third"), u"#ERROR: " + kTarget + u" belongs to another redirection, Source = " +
                                                     kSource + u" and Target = " + kTarget +
                                                     u". Remove that one first.");
  ExpectRedirected();

  ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), third.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  MakeLink(kTarget, third);
  machine->registry().SetText(kRecords + u"\\1", u"Target", third);
  ASSERT_EQ(AddJunctionRegKey(kTarget.c_str(), third.c_str(), 1), 1);
  const auto refuse = [&] {
    ExpectRemovalFailure(Remove(u"C:\\Third"), u"#ERROR: Symbolic Link " + kSource +
                                                   u" leads through another redirection, Source = " + kTarget +
                                                   u" and Target = " + third + u". Remove that one first.");
    EXPECT_TRUE(IsLink(kSource) && IsLink(kTarget));
  };
  refuse();
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  MakeLink(kSource, third);  // past the second one, as it is when the folder around it was moved since
  refuse();
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFile", kTarget, u"/loc:C:\\Third", u"/d"}).exitCode, 0);
  EXPECT_EQ(Record(u"1", u"Target"), kTarget);
  EXPECT_TRUE(Contents(kTarget) == kText);
}

}  // namespace
