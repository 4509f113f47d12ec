// A redirection onto a folder, or its removal, that a power failure cut off: the same command afterwards, and the
// repairs by hand of docs/what-is-refused.md ("After a power failure, folder form").
#include <gtest/gtest.h>

#include "links/junction.h"
#include "records/records.h"
#include "support/every_call.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace {

using emulated::Utf8;
using test::AtEveryMoment, test::Contents, test::DescribeTree, test::MakeFile, test::MakeFolder, test::RunProgram,
    test::RunResult;

class CutOff : public ::testing::Test {
 protected:
  CutOff() {
    MakeFolder(folder);
    MakeFolder(folder + u"\\inner");
    MakeFile(folder + u"\\one.txt", "first");
    MakeFile(folder + u"\\inner\\two.bin", std::string(70'000, 'x'));
  }

  RunResult Redirect(emulated::Machine& on) const {
    return RunProgram(on, {u"/RedirectFolder", folder, u"/loc:D:\\Kept"});
  }
  RunResult Remove(emulated::Machine& on) const {
    return RunProgram(on, {u"/RedirectFolder", folder, u"/loc:D:\\Kept", u"/d"});
  }
  bool IsRecorded() const { return JunctionRegKeyExists(folder.c_str(), kept.c_str(), 0) != 0; }
  void ExpectAllInFolder(const std::string& moment) const {
    EXPECT_EQ(Contents(folder + u"\\one.txt"), "first") << moment;
    EXPECT_TRUE(Contents(folder + u"\\inner\\two.bin") == std::string(70'000, 'x')) << moment;
  }
  // What is there already stays as it is.
  static void CopyMissing(const std::u16string& from, const std::u16string& to) {
    for (const std::u16string& name : test::Names(from))
      if ((test::Attributes(from + name) & win32::FILE_ATTRIBUTE_DIRECTORY) != 0)
        win32::CreateDirectoryW((to + name).c_str(), nullptr);
      else
        win32::CopyFileW((from + name).c_str(), (to + name).c_str(), win32::TRUE);
  }

  const std::u16string folder = u"C:\\Data", kept = u"D:\\Kept\\Data";
  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

TEST_F(CutOff, ARedirectionIsFinishedByTheSameCommand) {
  int finished = 0, unrecorded = 0;
  AtEveryMoment(
      *machine, [this](auto& on) { return Redirect(on); },
      [&](emulated::Machine& after, const std::string& moment) {
        if (IsRecorded()) return;
        RunResult run = Redirect(after);
        if (run.exitCode == 0) {
          ++finished;
        } else {
          ++unrecorded;
          EXPECT_TRUE(
              run.Logged(u"#INFO: The folder C:\\Data is a junction to D:\\Kept\\Data, but no "
                         u"redirection is recorded"))
              << moment << Utf8(run.log);
          ExpectAllInFolder(moment);
          EXPECT_TRUE(win32::RemoveDirectoryW(folder.c_str())) << moment;
          EXPECT_TRUE(win32::CreateDirectoryW(folder.c_str(), nullptr)) << moment;
          run = Redirect(after);
          EXPECT_EQ(run.exitCode, 0) << moment << Utf8(run.log);
        }
        EXPECT_TRUE(IsRecorded()) << moment;
        ExpectAllInFolder(moment);
      });
  EXPECT_GE(finished, test::OfTheRuns(100));
  EXPECT_GE(unrecorded, test::OfTheRuns(1));
}

TEST_F(CutOff, ARemovalTellsWhereThingsAreAndChangesNothing) {
  ASSERT_EQ(Redirect(*machine).exitCode, 0);
  int finished = 0, halfway = 0;
  AtEveryMoment(
      *machine, [this](auto& on) { return Remove(on); },
      [&](emulated::Machine& after, const std::string& moment) {
        const bool recorded = IsRecorded();
        const auto inFolder = DescribeTree(folder), inKept = DescribeTree(kept);
        RunResult run = Remove(after);
        if (run.exitCode == 0) {
          ++finished;
        } else if (recorded) {
          ++halfway;
          const std::u16string line =
              u"#INFO: The folder C:\\Data is no junction, although its redirection "
              u"is recorded";
          EXPECT_TRUE(run.Logged(line)) << moment << Utf8(run.log);
          run = Redirect(after);
          EXPECT_EQ(run.exitCode, 1) << moment;
          EXPECT_TRUE(run.Logged(line)) << moment << Utf8(run.log);
          EXPECT_EQ(DescribeTree(folder), inFolder) << moment;
          EXPECT_EQ(DescribeTree(kept), inKept) << moment;
          // The folder that the contents were on their way from gets back what it has no more.
          CopyMissing(folder, kept);
          EXPECT_TRUE(win32::MoveFileW(folder.c_str(), u"C:\\Data.old")) << moment;
          EXPECT_TRUE(CreateJunction(folder.c_str(), kept.c_str())) << moment;
          run = Remove(after);
          EXPECT_EQ(run.exitCode, 0) << moment << Utf8(run.log);
        }
        EXPECT_FALSE(IsRecorded()) << moment;
        ExpectAllInFolder(moment);
      });
  EXPECT_GE(finished, test::OfTheRuns(100));
  EXPECT_GE(halfway, test::OfTheRuns(100));
}

}  // namespace
