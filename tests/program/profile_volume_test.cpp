// A profile on a volume: which volumes it may take, and what must not come home with it.
#include "program/profile_stories.h"

#include <functional>

#include "win32/emulated/files/file_service.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::kVolume, test::MakeFile, test::MakeFolder, test::RunResult;

const std::u16string kAnna = u"C:\\Users\\anna";

class ProfileVolume : public test::ProfileStories {
 protected:
  static void Mount(const std::u16string& folder, const std::u16string& volume) {
    MakeFolder(folder);
    ASSERT_TRUE(win32::SetVolumeMountPointW((folder + u"\\").c_str(), volume.c_str())) << Utf8(folder);
  }
  static void Unmount(const std::u16string& folder) {
    ASSERT_TRUE(win32::DeleteVolumeMountPointW((folder + u"\\").c_str()));
    ASSERT_TRUE(win32::RemoveDirectoryW(folder.c_str()));
  }
  void NameFolder(const std::u16string& sid, const std::u16string& folder) {
    machine->registry().SetText(test::kProfileList + u"\\" + sid, u"ProfileImagePath", folder, win32::REG_EXPAND_SZ);
  }
  // Refused for this reason, with the profile as it was.
  void ExpectRefused(const RunResult& run, const std::u16string& line, const Items& before) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.Logged(line)) << Utf8(run.log);
    ExpectSame(AllOf(kAnna), before);
  }
};

// The profile would mingle with what is on the volume, and take it along on its way home.
TEST_F(ProfileVolume, InUseIsRefused) {
  const std::u16string system = machine->volumes[0]->guidName, data = machine->volumes[1]->guidName;
  ASSERT_EQ(Move(u"jan", kVolume).exitCode, 0);
  const auto nothing = [] {};
  struct Case {
    const char* name;
    std::u16string volume;
    std::function<void()> arrange, tidyUp;
  };
  const std::vector<Case> cases = {
      {"the system's", system, nothing, nothing},
      {"the system's, mounted where the profile's belongs", system, [&] { Mount(kAnna + u".mount", system); },
       [] { Unmount(kAnna + u".mount"); }},
      {"a drive", data, nothing, nothing},
      {"another profile's", kVolume, nothing, nothing},
      {"another profile's, mounted where this one's belongs", kVolume, [] { Mount(kAnna + u".mount", kVolume); },
       [] { Unmount(kAnna + u".mount"); }},
      {"on another folder", kVolume,
       [&] {
         ASSERT_EQ(MoveHome(u"jan").exitCode, 0);
         Mount(u"C:\\Shelf", kVolume);
       },
       [] { Unmount(u"C:\\Shelf"); }},
      {"nobody tells", kVolume,
       [&] { machine->gate.FailCall("GetVolumePathNamesForVolumeNameW", 1, win32::ERROR_ACCESS_DENIED); }, nothing}};
  const Items before = AllOf(kAnna);
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    one.arrange();
    ExpectRefused(Move(u"anna", one.volume), u"#ERROR: The selected volume " + one.volume + u" already mounted.",
                  before);
    one.tidyUp();
    EXPECT_FALSE(Exists(kAnna + u".mount"));
  }
  EXPECT_EQ(Move(u"anna", kVolume).exitCode, 0);
}

// Whoever else has his profile there, by whatever path, would lose it.
TEST_F(ProfileVolume, SharedWithAnotherProfileIsNotLeft) {
  ASSERT_EQ(Move(u"anna", kVolume).exitCode, 0);
  Mount(u"C:\\Shelf", kVolume);
  MakeFolder(u"C:\\Shelf\\jan");
  const Items before = AllOf(kAnna);
  for (const std::u16string& folder : {std::u16string(u"C:\\Shelf\\jan"), kVolume + u"jan"}) {
    NameFolder(test::kSidOfJan, folder);
    ExpectRefused(MoveHome(u"anna"),
                  u"#ERROR: The volume of the User Profile " + kAnna + u" holds another User Profile: " + folder +
                      u". Move that one first.",
                  before);
    EXPECT_FALSE(Exists(kAnna + u".temp"));
  }
  NameFolder(test::kSidOfJan, u"C:\\Users\\jan");
  EXPECT_EQ(MoveHome(u"anna").exitCode, 0);
}

// Home again, the volume's name would lead to an empty volume.
TEST_F(ProfileVolume, IsNoLongerNamedByAProfileThatIsHome) {
  ASSERT_EQ(Move(u"anna", kVolume).exitCode, 0);
  const Items before = AllOf(kAnna);
  NameFolder(test::kSidOfAnna, kVolume);
  const auto held = machine->files().OpenForeign(4242, kAnna + u"\\NTUSER.DAT", win32::GENERIC_READ, 0);
  ExpectRefused(MoveHome(u"anna"), u"#ERROR: PreScanning failed", before);
  machine->files().CloseForeign(held);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), kVolume);

  const RunResult home = MoveHome(u"anna");
  ASSERT_EQ(home.exitCode, 0) << Utf8(home.log);
  EXPECT_EQ(ImagePath(test::kSidOfAnna), kAnna);
  ExpectSame(AllOf(kAnna), before);
}

// What stands where the folders change places.
TEST_F(ProfileVolume, TakesNobodysFolderAlong) {
  const Items before = AllOf(kAnna);
  const auto put = [](const std::u16string& folder) {
    MakeFolder(folder);
    MakeFile(folder + u"\\foreign.txt", "foreign");
  };
  const auto expectUntouched = [](const std::u16string& folder) {
    EXPECT_EQ(Contents(folder + u"\\foreign.txt"), "foreign");
    EXPECT_TRUE(win32::DeleteFileW((folder + u"\\foreign.txt").c_str()));  // an empty one will do
  };
  put(kAnna + u".mount");
  ExpectRefused(Move(u"anna", kVolume), u"#ERROR: Failed to Mount Volume on Target Folder: " + kAnna + u".mount",
                before);
  expectUntouched(kAnna + u".mount");

  const RunResult there = Move(u"anna", kVolume);
  ASSERT_EQ(there.exitCode, 0) << Utf8(there.log);
  EXPECT_FALSE(there.Logged(u"#ERROR: Unable to obtain")) << Utf8(there.log);
  put(kAnna + u".temp");
  ExpectRefused(MoveHome(u"anna"),
                u"#ERROR: The folder " + kAnna +
                    u".temp already exists and is not empty. Rename it, and remove the redirection again.",
                before);
  expectUntouched(kAnna + u".temp");

  const RunResult home = MoveHome(u"anna");
  ASSERT_EQ(home.exitCode, 0) << Utf8(home.log);
  EXPECT_FALSE(home.Logged(u"#ERROR: Unable to obtain")) << Utf8(home.log);
  ExpectSame(AllOf(kAnna), before);
}

// Cut off between the unmounting and the last rename: an empty folder must not be taken for the profile.
TEST_F(ProfileVolume, HasLeftTheProfileBesideItsFolder) {
  ASSERT_TRUE(win32::MoveFileW(kAnna.c_str(), (kAnna + u".temp").c_str()));
  MakeFolder(kAnna);
  for (const RunResult& run : {MoveHome(u"anna"), Move(u"anna", u"D:\\P"), Move(u"anna", kVolume)}) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.Logged(u"The profile is in " + kAnna + u".temp: ")) << Utf8(run.log);
  }
  EXPECT_TRUE(Exists(kAnna + u".temp\\NTUSER.DAT"));
  EXPECT_EQ(ImagePath(test::kSidOfAnna), kAnna);
}

}  // namespace
