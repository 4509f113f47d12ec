// Drives, volume names and where volumes begin.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

class Volumes : public FileTest {
 protected:
  static DWORD NameError(const std::u16string& mountPoint) {
    char16_t name[50];
    return ErrorOf(GetVolumeNameForVolumeMountPointW(mountPoint.c_str(), name, 50));
  }
  static DWORD InformationError(const std::u16string& root, char16_t* system = nullptr) {
    return ErrorOf(GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, system, 100));
  }

  const std::u16string scratch = Path(u"").substr(0, Path(u"").size() - 1);
  const std::u16string drive = scratch.substr(0, 3), letter = scratch.substr(0, 2);
};

TEST_F(Volumes, DrivesAndWhatTheyAre) {
  char16_t drives[200], target[300], system[100] = {};
  const DWORD length = GetLogicalDriveStringsW(200, drives);
  EXPECT_NE(std::u16string(drives, length).find(u"C:\\"), std::u16string::npos);
  EXPECT_EQ(GetLogicalDriveStringsW(2, drives), length + 1) << "the size that is needed, with the last end";
  EXPECT_EQ(GetDriveTypeW(drive.c_str()), DRIVE_FIXED);
  for (const char16_t* const none : {u"Q:\\", u"", u"C"}) EXPECT_EQ(GetDriveTypeW(none), DRIVE_NO_ROOT_DIR);
  ASSERT_NE(QueryDosDeviceW(letter.c_str(), target, 300), 0u);
  EXPECT_TRUE(std::u16string_view(target).starts_with(u"\\Device\\HarddiskVolume"));
  EXPECT_EQ(ErrorOf(QueryDosDeviceW(u"Q:", target, 300)), ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(InformationError(drive, system), 0u);
  EXPECT_EQ(InformationError(scratch + u"\\"), ERROR_DIR_NOT_ROOT);
  ULARGE_INTEGER available{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(scratch.c_str(), &available, nullptr, nullptr));
  EXPECT_EQ(ErrorOf(GetDiskFreeSpaceExW((scratch + u"\\missing").c_str(), &available, nullptr, nullptr)),
            OnWine() ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  if (OnWine()) return;
  EXPECT_EQ(std::u16string(system), u"NTFS");
}

TEST_F(Volumes, InformationAsksForARootWhateverTheWayToIt) {
  SKIP_ON_WINE("it mounts no volumes");
  const std::u16string mount = scratch + u"\\mount", below = mount + scratch.substr(2);
  char16_t volume[50] = {};
  MakeDirectory(mount);
  ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(drive.c_str(), volume, 50));
  ASSERT_TRUE(SetVolumeMountPointW((mount + u"\\").c_str(), volume)) << GetLastError();
  for (const auto& [path, error] : {std::pair{scratch, ERROR_INVALID_NAME},
                                    {mount, ERROR_INVALID_NAME},
                                    {mount + u"\\", 0u},
                                    {below + u"\\", ERROR_DIR_NOT_ROOT},
                                    {mount + u"\\missing\\", ERROR_FILE_NOT_FOUND},
                                    {scratch + u"\\missing\\", ERROR_FILE_NOT_FOUND}})
    EXPECT_EQ(InformationError(path), error);
  EXPECT_TRUE(DeleteVolumeMountPointW((mount + u"\\").c_str()));
}

TEST_F(Volumes, NamesPathsAndEnumeration) {
  char16_t volume[50] = {};
  ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(drive.c_str(), volume, 50));
  const std::u16string name = volume;
  ASSERT_EQ(name.size(), 49u);
  EXPECT_TRUE(name.starts_with(u"\\\\?\\Volume{") && name.ends_with(u"}\\"));
  EXPECT_EQ(NameError(letter), ERROR_INVALID_NAME);
  EXPECT_EQ(NameError(u"Q:\\"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(NameError(scratch + u"\\"), ERROR_NOT_A_REPARSE_POINT);

  char16_t paths[400], found[50];
  DWORD length = 0;
  ASSERT_TRUE(GetVolumePathNamesForVolumeNameW(name.c_str(), paths, 400, &length));
  EXPECT_TRUE(std::u16string_view(paths).size() == 3 && paths[length - 1] == 0);
  for (const auto& [asked, size, error] :
       {std::tuple(name, 2u, ERROR_MORE_DATA),
        {name.substr(0, 48), 400u, ERROR_INVALID_NAME},
        {std::u16string(u"\\\\?\\Volume{00000000-00de-c0de-0000-000000000000}\\"), 400u, ERROR_FILE_NOT_FOUND}}) {
    DWORD needed = 0;
    EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(asked.c_str(), paths, size, &needed)), error);
    EXPECT_TRUE(error != ERROR_MORE_DATA || needed == length);
  }
  const HANDLE search = FindFirstVolumeW(found, 50);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  bool isFound = false;
  do isFound = isFound || name == found;
  while (FindNextVolumeW(search, found, 50));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(isFound && FindVolumeClose(search));
}

// The volume that the folder itself is on: it needs no other.
TEST_F(Volumes, AVolumeIsMountedOnAnEmptyFolder) {
  SKIP_ON_WINE("it mounts no volumes");
  char16_t name[50] = {}, found[50] = {}, paths[2000] = {};
  ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(drive.c_str(), name, 50));
  const std::u16string mount = Path(u"mnt\\"), link = Path(u"link");
  MakeDirectory(mount);
  MakeJunction(link, ObjectName(drive));
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW((scratch + u"\\").c_str(), name)), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(Path(u"mnt").c_str(), name)), ERROR_INVALID_NAME);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(mount.c_str(), drive.c_str())), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(mount.c_str(), name)), 0u);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(mount.c_str(), name)), ERROR_DIR_NOT_EMPTY);
  EXPECT_TRUE(GetVolumeNameForVolumeMountPointW(mount.c_str(), found, 50) && std::u16string(found) == name);
  EXPECT_TRUE(InformationError(mount) == 0 && Exists(mount + scratch.substr(3)));
  EXPECT_TRUE(GetVolumePathNamesForVolumeNameW(name, paths, 2000, nullptr));
  EXPECT_NE(std::u16string(paths, 2000).find(mount), std::u16string::npos);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(mount.c_str())), 0u);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(mount.c_str())), ERROR_NOT_A_REPARSE_POINT);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW((link + u"\\").c_str())), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(Path(u"none\\").c_str())), ERROR_FILE_NOT_FOUND);
}

TEST_F(Volumes, WhereThePathsVolumeBegins) {
  char16_t root[300];
  const struct {
    std::u16string path;
    DWORD size, error;
    std::u16string begin;
  } cases[] = {{scratch + u"\\missing\\below", 300, 0, drive},
               {u"c:/windows", 300, 0, u"C:\\"},
               {u"\\\\?\\c:\\missing", 300, 0, u"\\\\?\\c:\\"},
               {u"C:\\windows", 3, 0, u"C:"},  // the backslash is left out when it alone has no room
               {u"C:\\", 2, ERROR_FILENAME_EXCED_RANGE, u""},
               {u"\\\\?\\NoDrive:\\x", 300, ERROR_INVALID_NAME, u""},
               {u"\\\\nowhere\\share:\\x", 300, ERROR_INVALID_NAME, u""},
               {u"", 300, ERROR_INVALID_PARAMETER, u""},
               {u"Q:\\x", 300, ERROR_FILE_NOT_FOUND, u""}};
  for (const auto& one : cases) {
    EXPECT_EQ(ErrorOf(GetVolumePathNameW(one.path.c_str(), root, one.size)), one.error) << &one - cases;
    EXPECT_TRUE(one.error != 0 || one.begin == root) << &one - cases;
  }
}

}  // namespace
