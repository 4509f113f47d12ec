// Junctions and symbolic links.
#include <cstring>

#include "links/junction.h"
#include "links/real_path.h"
#include "support/engine.h"

namespace {

using namespace win32;
using test::Exists, test::MakeFile, test::MakeFolder;

class Junction : public test::Engine {
 protected:
  std::vector<BYTE> ReparseData(const std::u16string& path) {
    const UniqueFile file{CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, 7, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
    std::vector<BYTE> data(MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
    DWORD size = 0;
    DeviceIoControl(file.get(), FSCTL_GET_REPARSE_POINT, nullptr, 0, data.data(), MAXIMUM_REPARSE_DATA_BUFFER_SIZE,
                    &size, nullptr);
    data.resize(size);
    return data;
  }

  const std::u16string junction = u"C:\\Data\\link";
};

TEST_F(Junction, IsWrittenByteForByte) {
  ASSERT_EQ(CreateJunction(junction.c_str(), u"D:\\T"), 1);
  const std::u16string name = u"\\??\\D:\\T";
  std::vector<BYTE> expected = {0x03, 0, 0, 0xA0, 28, 0, 0, 0, 0, 0, 16, 0, 18, 0, 0, 0};
  for (const char16_t unit : name) {
    expected.push_back(static_cast<BYTE>(unit));
    expected.push_back(0);
  }
  expected.insert(expected.end(), 4, 0);
  EXPECT_EQ(ReparseData(junction), expected);
}

TEST_F(Junction, LeadsToItsTargetAndBecomesAFolderAgain) {
  MakeFile(target + u"\\x.txt", "there");
  ASSERT_EQ(CreateJunction(junction.c_str(), (target + u"\\").c_str()), 1);
  EXPECT_EQ(test::Contents(junction + u"\\x.txt"), "there");
  EXPECT_EQ(IsJunction(junction.c_str()), 1);
  EXPECT_EQ(IsJunction(junction.c_str(), {.excludeMountedVolume = true}), 1);
  EXPECT_EQ(IsSymbolicLink(junction.c_str()), 0);
  std::u16string found;
  EXPECT_EQ(GetJunctionTarget(junction.c_str(), found), 1);
  EXPECT_EQ(found, target);  // less exactly one backslash
  EXPECT_EQ(GetFinalTargetPath((junction + u"\\x.txt").c_str(), found), 1);
  EXPECT_EQ(found, target + u"\\x.txt");

  ASSERT_EQ(DeleteJunction(junction.c_str()), 1);
  EXPECT_EQ(test::Attributes(junction) & FILE_ATTRIBUTE_REPARSE_POINT, 0u);
  EXPECT_TRUE(Exists(target + u"\\x.txt"));
  EXPECT_EQ(DeleteJunction(junction.c_str()), 0);
  EXPECT_TRUE(Logged(u"#ERROR: Path C:\\Data\\link is not junction."));
}

TEST_F(Junction, IsNotMadeOnAFolderThatHoldsSomething) {
  MakeFolder(junction);
  MakeFile(junction + u"\\mine.txt", "kept");
  EXPECT_EQ(CreateJunction(junction.c_str(), target.c_str()), 0);
  EXPECT_EQ(test::Contents(junction + u"\\mine.txt"), "kept");
}

TEST_F(Junction, LeavesNothingBehindWhenItCannotBeSet) {
  machine->gate.FailCall("DeviceIoControl", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(CreateJunction(junction.c_str(), target.c_str()), 0);
  EXPECT_FALSE(Exists(junction));
}

TEST_F(Junction, TriesAgainToMakeItsFolder) {
  machine->gate.FailCall("CreateDirectoryW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(CreateJunction(junction.c_str(), target.c_str()), 1);
  EXPECT_EQ(machine->sleptMilliseconds, 2000u);
  machine->gate.FailCallsFrom("CreateDirectoryW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(CreateJunction(u"C:\\Data\\other", target.c_str()), 0);
  EXPECT_TRUE(Logged(u"#ERROR: Failed To create directory = C:\\Data\\other."));
}

TEST_F(Junction, TakesTargetsOfAtMost255Characters) {
  const std::u16string longest = u"D:\\" + std::u16string(252, u'x');
  EXPECT_EQ(CreateJunction(junction.c_str(), longest.c_str()), 1);
  EXPECT_EQ(ReparseData(junction).size(), (255u + 4) * 2 + 20);
  std::u16string found;
  EXPECT_EQ(GetJunctionTarget(junction.c_str(), found), 1);
  EXPECT_EQ(found, longest);
  EXPECT_EQ(CreateJunction(u"C:\\Data\\second", (longest + u"x").c_str()), 0);
  EXPECT_FALSE(Exists(u"C:\\Data\\second"));
}

TEST_F(Junction, HeldOpenBySomebodyElseIsNotRead) {
  ASSERT_EQ(CreateJunction(junction.c_str(), target.c_str()), 1);
  const UniqueFile held{CreateFileW(junction.c_str(), GENERIC_READ, 7, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
  ASSERT_TRUE(held);
  EXPECT_EQ(IsJunction(junction.c_str()), 0);
  EXPECT_EQ(DeleteJunction(junction.c_str()), 0);
}

TEST_F(Junction, NullPathsAreNamedInTheLog) {
  std::u16string found;
  EXPECT_EQ(CreateJunction(nullptr, u"D:\\T"), 0);
  EXPECT_EQ(DeleteJunction(nullptr), 0);
  EXPECT_EQ(IsJunction(nullptr), 0);
  EXPECT_EQ(GetJunctionTarget(nullptr, found), 0);
  EXPECT_FALSE(OpenReparseDirectory(nullptr));
  for (const char16_t* line : {u"ERROR: Source or target path is missing.", u"#ERROR: Directory is Path Missing.",
                               u"#ERROR: Directoy path is missing.", u"#ERROR: Directory Path is Missing."})
    EXPECT_TRUE(Logged(line));
}

TEST_F(Junction, PathsTooLongForThePlainFormAreReached) {
  std::u16string deep = u"\\\\?\\C:\\Data";
  for (int i = 0; i < 3; ++i) {
    deep += u"\\" + std::u16string(90, u'd');
    MakeFolder(deep);
  }
  const std::u16string link = deep + u"\\link";
  ASSERT_EQ(CreateJunction(link.c_str(), target.c_str()), 1);
  EXPECT_EQ(IsJunction(link.substr(4).c_str()), 1);
  std::u16string found;
  EXPECT_EQ(GetJunctionTarget(link.substr(4).c_str(), found), 1);
  EXPECT_EQ(DeleteJunction(link.substr(4).c_str()), 1);
}

TEST_F(Junction, SymbolicLinksAreToldFromJunctions) {
  MakeFile(target + u"\\file.txt", "data");
  const std::u16string fileLink = u"C:\\Data\\file", folderLink = u"C:\\Data\\folder", forced = u"C:\\Data\\forced";
  ASSERT_EQ(CreateSymbolicLinkEntry(fileLink.c_str(), (target + u"\\file.txt").c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry(folderLink.c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry(forced.c_str(), target.c_str(), {.forceFileLink = true}), 1);
  EXPECT_EQ(IsSymbolicLink(fileLink.c_str()), 1);
  EXPECT_EQ(IsSymbolicLink(folderLink.c_str()), 1);
  EXPECT_TRUE(Logged(u"IsSymbolicLink()::The specified directory or file C:\\Data\\folder is symbolic link"));
  EXPECT_EQ(IsJunction(folderLink.c_str()), 0);
  EXPECT_NE(test::Attributes(folderLink) & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_EQ(test::Attributes(forced) & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_EQ(test::Contents(fileLink), "data");
  std::u16string found;
  EXPECT_EQ(GetFinalTargetPath(fileLink.c_str(), found), 1);
  EXPECT_EQ(found, target + u"\\file.txt");
  EXPECT_EQ(DeleteJunction(folderLink.c_str()), 0);
  EXPECT_TRUE(Exists(folderLink));
  EXPECT_FALSE(Logged(u"is not junction"));
}

TEST_F(Junction, MountedVolumesCountUnlessExcluded) {
  Restart({.volumes = 1});
  MakeFolder(u"C:\\Data\\mnt");
  std::u16string volume;
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == 0) volume = mounted->guidName;
  ASSERT_TRUE(SetVolumeMountPointW(u"C:\\Data\\mnt\\", volume.c_str())) << GetLastError();
  EXPECT_EQ(IsJunction(u"C:\\Data\\mnt"), 1);
  EXPECT_EQ(IsJunction(u"C:\\Data\\mnt", {.excludeMountedVolume = true}), 0);
}

}  // namespace
