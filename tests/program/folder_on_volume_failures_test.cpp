// A redirection onto a volume that fails, at any call: what is then where.
#include <set>

#include "probes/privileges.h"
#include "program/folder_on_volume.h"
#include "support/every_call.h"
#include "win32/emulated/files/file_service.h"

namespace {

using emulated::Utf8;
using test::Contents, test::MakeFile, test::MakeFolder;

class FailuresOnVolume : public FolderOnVolume {};

TEST_F(FailuresOnVolume, AMountFolderThatStandsThereIsUsedOrLeft) {
  MakeFolder(u"C:\\Data.mount");
  test::SetTimes(u"C:\\Data.mount", 5);
  MakeFile(u"C:\\Data.mount\\mine.txt", "mine");
  const std::u16string access = test::Security(u"C:\\Data.mount");
  std::string before;
  const auto unchanged = [&] {
    EXPECT_EQ(test::Describe(u"C:\\Data.mount"), before);
    EXPECT_EQ(test::Security(u"C:\\Data.mount"), access);
    EXPECT_EQ(MountPaths(), u"");
    EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
  };
  const std::u16string failed = u"#ERROR: Failed to Mount Volume on Target Folder: C:\\Data.mount";
  ExpectFailure(Redirect(), failed);
  EXPECT_EQ(Contents(u"C:\\Data.mount\\mine.txt"), "mine");
  ASSERT_TRUE(win32::DeleteFileW(u"C:\\Data.mount\\mine.txt"));
  test::SetTimes(u"C:\\Data.mount", 5);
  before = test::Describe(u"C:\\Data.mount");
  ASSERT_TRUE(win32::DeleteFileW(u"C:\\Data:label"));
  test::SetTimes(u"C:\\Data", 7);
  machine->gate.FailCall("SetVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED);
  ExpectFailure(Redirect(), failed);
  unchanged();
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  ExpectFailure(Redirect(), u"#ERROR: Unable to rename folder C:\\Data.mount.");
  unchanged();
  EXPECT_EQ(Redirect().exitCode, 0);
  ExpectRedirected();
}

TEST_F(FailuresOnVolume, ARemovalTakesNobodysFolder) {
  ASSERT_EQ(Redirect().exitCode, 0);
  MakeFolder(u"C:\\Data.mount");
  MakeFile(u"C:\\Data.mount\\one.txt", "mine");
  const auto mine = test::DescribeTree(u"C:\\Data.mount");
  const auto before = Shown();
  const auto run = Remove();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"#ERROR: The folder C:\\Data.mount already exists and is not empty.")) << Utf8(run.log);
  EXPECT_EQ(test::DescribeTree(u"C:\\Data.mount"), mine);
  EXPECT_EQ(Shown(), before);
  EXPECT_EQ(MountPaths(), u"C:\\Data\\|");
  EXPECT_EQ(RecordCount(), 1u);
  // A removal that failed and was taken back leaves nothing that would make it the program's own.
  ASSERT_TRUE(win32::MoveFileW(u"C:\\Data.mount", u"C:\\Mine"));
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Remove().exitCode, 1);
  ExpectRedirected();
  ASSERT_TRUE(win32::MoveFileW(u"C:\\Mine", u"C:\\Data.mount"));
  EXPECT_TRUE(Remove().Logged(u"#ERROR: The folder C:\\Data.mount already exists and is not empty."));
  ASSERT_TRUE(win32::DeleteFileW(u"C:\\Data.mount\\one.txt"));
  EXPECT_EQ(Remove().exitCode, 0) << "an empty one becomes the folder";
  ExpectPlain();
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
  EXPECT_TRUE(machine->registry().Values(kRemovals).empty());
}

TEST_F(FailuresOnVolume, AFailureLeavesTheFolderAsItWas) {
  const auto before = Shown();
  const std::string folder = test::Describe(u"C:\\Data");
  const auto access = AccessOfAll();
  const auto fails = [&](const char* call, std::uint64_t number, const std::u16string& logged) {
    machine->gate.FailCall(call, number, win32::ERROR_ACCESS_DENIED);
    ExpectFailure(Redirect(), logged);
    machine->gate.ClearFailures();
    ExpectPlain(call);
    EXPECT_EQ(Shown(), before) << call;
    EXPECT_EQ(test::Describe(u"C:\\Data"), folder) << call;
    EXPECT_EQ(AccessOfAll(), access) << call;
  };
  fails("SHCreateDirectoryExW", 1, u"#ERROR: Failed To Create Target Folder: C:\\Data.mount");
  fails("SetVolumeMountPointW", 1, u"#ERROR: Failed to Mount Volume on Target Folder: C:\\Data.mount");
  fails("MoveFileW", 1, u"#ERROR: Unable to rename folder C:\\Data.mount.");
  const auto held =
      machine->files().OpenForeign(4242, u"C:\\Data\\one.txt", win32::GENERIC_READ, win32::FILE_SHARE_READ);
  ExpectFailure(Redirect(), u"one.txt");
  machine->files().CloseForeign(held);
}

TEST_F(FailuresOnVolume, AVolumeThatFillsUpTakesNothing) {
  // Files take whole clusters, which their sizes do not tell.
  for (char16_t i = 0; i < 200; ++i)
    MakeFile(u"C:\\Data\\small" + std::u16string(1, static_cast<char16_t>(0x4E00 + i)), std::string(1500, 's'));
  test::SetTimes(u"C:\\Data", 7);
  win32::ULARGE_INTEGER available{};
  ASSERT_TRUE(win32::GetDiskFreeSpaceExW(kVolume.c_str(), &available, nullptr, nullptr));
  MakeFile(kVolume + u"filler", std::string(available.QuadPart - 600'000, 'f'));
  const auto before = Shown();
  const std::string folder = test::Describe(u"C:\\Data");
  ExpectFailure(Redirect(), u"#ERROR: Unable to move files and folders from Source = C:\\Data to Target");
  ExpectPlain();
  EXPECT_EQ(Shown(), before);
  EXPECT_EQ(test::Describe(u"C:\\Data"), folder);
  EXPECT_EQ(test::Names(kVolume.substr(0, kVolume.size() - 1)),
            (std::vector<std::u16string>{u"\\$RECYCLE.BIN", u"\\filler"}));
}

TEST_F(FailuresOnVolume, WhenTheWayBackFailsTooTheLogSaysWhereTheFilesAre) {
  machine->gate.FailCall("RegCreateKeyExW", 2, win32::ERROR_ACCESS_DENIED);  // the record; the first is the root's
  machine->gate.FailCall("MoveFileW", 2, win32::ERROR_ACCESS_DENIED);
  ExpectFailure(Redirect(),
                u"#ERROR: The files and folders stay on volume " + kVolume + u", which is mounted at C:\\Data.");
  EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(u"C:\\Data\\"));
  EXPECT_EQ(Contents(kVolume + u"inner\\two.bin"), std::string(70000, 'x'));
}

TEST_F(FailuresOnVolume, ARemovalThatCannotMountAgainLeavesTheContentsBeside) {
  ASSERT_EQ(Redirect().exitCode, 0);
  machine->gate.FailCall("MoveFileW", 1, win32::ERROR_ACCESS_DENIED);
  machine->gate.FailCall("SetVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED);
  const auto run = Remove();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.Logged(u"The files and folders stay in C:\\Data.mount.")) << Utf8(run.log);
  EXPECT_EQ(Contents(u"C:\\Data.mount\\one.txt:note"), "a named stream");
  EXPECT_EQ(Contents(u"C:\\Data.mount\\inner\\two.bin"), std::string(70000, 'x'));
}

// Whichever call fails: the redirection is there or it is not, with every file and nothing left over.
class EveryCallOnVolume : public FolderOnVolume {
 protected:
  void ExpectAllFiles(const std::string& when) {
    EXPECT_EQ(Contents(u"C:\\Data\\one.txt"), "first") << when;
    EXPECT_EQ(Contents(u"C:\\Data\\one.txt:note"), "a named stream") << when;
    EXPECT_TRUE(Contents(u"C:\\Data\\inner\\two.bin") == std::string(70000, 'x')) << when;
    EXPECT_EQ(ShownNames(), names) << when;
  }
  static void ExpectFilesSomewhere(const test::RunResult& run, const std::string& when) {
    const auto somewhere = [&](const std::u16string& name, const std::string& contents) {
      if (Contents(u"C:\\Data\\" + name) == contents) return;
      EXPECT_TRUE(Contents(u"C:\\Data.mount\\" + name) == contents || Contents(kVolume + name) == contents) << when;
      EXPECT_TRUE(run.Logged(u"stay")) << when;
    };
    somewhere(u"one.txt", "first");
    somewhere(u"one.txt:note", "a named stream");
    somewhere(u"inner\\two.bin", std::string(70000, 'x'));
  }
  template <typename Command>
  void FailEach(Command command, bool redirectedOnSuccess) {
    test::WithEachCallRefused(machine, command, [&](const test::RunResult& run, const std::string& when) {
      ASSERT_TRUE(run.exitCode == 0 || run.exitCode == 1) << when;
      ASSERT_TRUE(EnablePrivileges());
      // A handle that could not be closed keeps its folder from going: what is in it may have to stay where it is.
      if (when.starts_with("FindClose") || when.starts_with("CloseHandle")) return ExpectFilesSomewhere(run, when);
      ExpectAllFiles(when);
      const bool redirected = (run.exitCode == 0) == redirectedOnSuccess;
      if (redirected) {
        ExpectRedirected(when);
      } else {
        // The root's security comes last of all: if that fails, the rest is done and the log tells.
        const bool told = run.Logged(u" the security of volume");
        if (!told) ExpectPlain(when);
      }
      if (run.exitCode == 1) {
        EXPECT_EQ(LabelOfFolderItself(), "of the folder") << when;
        EXPECT_EQ(Access(u"C:\\Data"), folderAccess) << when;
      }
    });
  }
  // The stream of the folder, not of the volume's root.
  static std::string LabelOfFolderItself() {
    const std::string streams = test::Streams(u"C:\\Data");
    return streams.find("of the folder") == std::string::npos ? streams : "of the folder";
  }
  static std::set<std::u16string> ShownNames() {
    std::set<std::u16string> names;
    for (const auto& [name, description] : Shown())
      if (name != u"\\temp.check") names.insert(name);  // the rules' probe, should its deletion fail
    return names;
  }
  const std::set<std::u16string> names = ShownNames();
  const std::u16string folderAccess = Access(u"C:\\Data");
};

TEST_F(EveryCallOnVolume, OfARedirectionMayFail) {
  FailEach([this] { return Redirect(); }, true);
}

TEST_F(EveryCallOnVolume, OfARemovalMayFail) {
  ASSERT_EQ(Redirect().exitCode, 0);
  FailEach([this] { return Remove(); }, false);
}

}  // namespace
