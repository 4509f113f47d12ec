// The machine stops dead between any two calls of a redirection or its removal; what the disks then hold is booted
// again.

#include <algorithm>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "links/mounted_folder.h"
#include "records/records.h"
#include "support/every_call.h"
#include "support/installed_machine.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace {

using test::Contents, test::RunProgram;

const std::map<std::u16string, std::string>& Files() {
  static const std::map<std::u16string, std::string> files = {
      {u"\\one.txt", "first"}, {u"\\one.txt:note", "a named stream"}, {u"\\inner\\two.bin", std::string(70'000, 'x')}};
  return files;
}

class PowerFailure : public testing::Test {
 protected:
  PowerFailure() {
    test::MakeFolder(u"C:\\Data");
    test::MakeFolder(u"C:\\Data\\inner");
    for (const auto& [name, contents] : Files()) test::MakeFile(u"C:\\Data" + name, contents);
    EXPECT_TRUE(win32::SetFileAttributesW(u"C:\\Data\\inner\\two.bin", win32::FILE_ATTRIBUTE_READONLY));
  }

  // Each file is whole in one of the places.
  static void ExpectFiles(const std::vector<std::u16string>& places, const std::string& when) {
    for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
      emulated::Machine::Current().process.token->EnablePrivilege(privilege, true);
    for (const auto& file : Files()) {
      const bool found = std::ranges::any_of(
          places, [&](const std::u16string& place) { return Contents(place + file.first) == file.second; });
      EXPECT_TRUE(found) << when << ": " << emulated::Utf8(file.first);
    }
  }

  // At each moment every file is whole in one of the places.
  template <typename Examine>
  void StopEverywhere(std::initializer_list<std::u16string> words, const std::vector<std::u16string>& places,
                      Examine afterwards) {
    test::AtEveryMoment(
        *machine, [&](auto& on) { return RunProgram(on, words); },
        [&](emulated::Machine& after, const std::string& moment) {
          ExpectFiles(places, moment);
          afterwards(after, moment);
        });
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine({.volumes = 1});
};

TEST_F(PowerFailure, AtAnyCallLosesNoFile) {
  const std::vector<std::u16string> places{u"C:\\Data", u"D:\\Kept\\Data"};
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept"}, places, [](auto&, auto&) {});
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept", u"/d"}, places, [](auto&, auto&) {});
}

// What the same command does afterwards, and the repairs by hand of docs/what-is-refused.md ("After a power failure,
// volume form").
class PowerFailureOnVolume : public PowerFailure {
 protected:
  test::RunResult Redirect(emulated::Machine& on) const {
    return RunProgram(on, {u"/RedirectFolder", u"C:\\Data", u"/vol:" + volume + u"\\"});
  }
  test::RunResult Remove(emulated::Machine& on) const {
    return RunProgram(on, {u"/RedirectFolder", u"C:\\Data", u"/vol:" + volume + u"\\", u"/d"});
  }
  bool IsRecorded() const { return JunctionRegKeyExists(u"C:\\Data", (volume + u"\\").c_str(), 0) != 0; }
  // What is there already stays as it is.
  static void CopyMissing(const std::u16string& from, const std::u16string& to) {
    win32::CreateDirectoryW(to.c_str(), nullptr);
    for (const std::u16string& name : test::Names(from)) {
      if (name.starts_with(u"\\$RECYCLE.BIN")) continue;
      if ((test::Attributes(from + name) & win32::FILE_ATTRIBUTE_DIRECTORY) != 0)
        win32::CreateDirectoryW((to + name).c_str(), nullptr);
      else
        win32::CopyFileW((from + name).c_str(), (to + name).c_str(), win32::TRUE);
    }
  }

  const std::u16string folder = u"C:\\Data", beside = u"C:\\Data.mount";
  const std::u16string volume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}";
  const std::vector<std::u16string> places{folder, beside, volume};
  const std::u16string hint = u"See \"After a power failure, volume form\" in what-is-refused.md.";
};

TEST_F(PowerFailureOnVolume, OfARedirectionLosesNoFile) {
  int begunAnew = 0, halfway = 0, unrecorded = 0;
  StopEverywhere({u"/RedirectFolder", folder, u"/vol:" + volume + u"\\"}, places,
                 [&](emulated::Machine& after, const std::string& moment) {
                   const bool isBeside = IsVolumeMountPoint(beside.c_str()) != 0;
                   const auto run = Redirect(after);
                   ExpectFiles(places, moment + ", once more");
                   EXPECT_EQ(run.Logged(hint), isBeside) << moment << emulated::Utf8(run.log);
                   if (run.exitCode == 0) {
                     ++begunAnew;
                   } else if (isBeside) {
                     // The volume, mounted beside the folder, has what the folder has no more.
                     CopyMissing(beside, folder);
                     EXPECT_TRUE(UnmountVolume(beside) && win32::RemoveDirectoryW(beside.c_str())) << moment;
                     EXPECT_EQ(Redirect(after).exitCode, 0) << moment;
                     ++halfway;
                   } else if (!IsRecorded()) {
                     EXPECT_TRUE(UnmountVolume(folder)) << moment;
                     EXPECT_EQ(Redirect(after).exitCode, 0) << moment;
                     ++unrecorded;
                   }
                   EXPECT_TRUE(IsRecorded()) << moment;
                   ExpectFiles({folder}, moment + ", repaired");
                 });
  EXPECT_GE(begunAnew, test::OfTheRuns(100));
  EXPECT_GE(halfway, test::OfTheRuns(100));
  EXPECT_GE(unrecorded, test::OfTheRuns(1));
}

// The same command goes on with it, until the record is gone; then all that is left is to put the folder in its place.
TEST_F(PowerFailureOnVolume, OfARemovalLosesNoFile) {
  ASSERT_EQ(Redirect(*machine).exitCode, 0);
  int finished = 0, unrecorded = 0;
  StopEverywhere({u"/RedirectFolder", folder, u"/vol:" + volume + u"\\", u"/d"}, places,
                 [&](emulated::Machine& after, const std::string& moment) {
                   const bool recorded = IsRecorded(), isMounted = IsVolumeMountPoint(folder.c_str()) != 0;
                   const auto run = Remove(after);
                   ExpectFiles(places, moment + ", once more");
                   EXPECT_EQ(run.exitCode == 0, recorded) << moment << emulated::Utf8(run.log);
                   EXPECT_EQ(run.Logged(hint), !recorded && isMounted) << moment << emulated::Utf8(run.log);
                   finished += run.exitCode == 0;
                   if (test::Exists(beside)) {
                     EXPECT_EQ(UnmountVolume(folder), isMounted) << moment;
                     win32::RemoveDirectoryW(folder.c_str());
                     EXPECT_TRUE(win32::MoveFileW(beside.c_str(), folder.c_str())) << moment;
                     ++unrecorded;
                   }
                   ExpectFiles({folder}, moment + ", repaired");
                 });
  EXPECT_GE(finished, test::OfTheRuns(100));
  EXPECT_GE(unrecorded, test::OfTheRuns(1));
}

}  // namespace
