// Drives, volume names and mounted folders.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

class Volumes : public FileTest {
 protected:
  static std::u16string NameOf(const char16_t* mountPoint) {
    char16_t name[50];
    return GetVolumeNameForVolumeMountPointW(mountPoint, name, 50) ? std::u16string(name) : std::u16string();
  }

  const std::u16string scratch = Path(u"").substr(0, Path(u"").size() - 1);
  const std::u16string drive = scratch.substr(0, 3);
};

TEST_F(Volumes, DrivesAndTheirTypes) {
  char16_t drives[200];
  const DWORD length = GetLogicalDriveStringsW(200, drives);
  const std::u16string all(drives, length);
  EXPECT_NE(all.find(u"C:\\"), std::u16string::npos);
  EXPECT_EQ(length % 4, 0u);
  EXPECT_EQ(drives[length], 0);
  EXPECT_EQ(GetLogicalDriveStringsW(2, drives), length + 1) << "the size that is needed, with the last end";
  EXPECT_EQ(GetDriveTypeW(drive.c_str()), DRIVE_FIXED);
  EXPECT_EQ(GetDriveTypeW(u"Q:\\"), DRIVE_NO_ROOT_DIR);
}

TEST_F(Volumes, DosDevices) {
  char16_t target[300];
  ASSERT_NE(QueryDosDeviceW(drive.substr(0, 2).c_str(), target, 300), 0u);
  EXPECT_TRUE(std::u16string_view(target).starts_with(u"\\Device\\HarddiskVolume"));
  EXPECT_EQ(ErrorOf(QueryDosDeviceW(u"Q:", target, 300)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(QueryDosDeviceW(drive.substr(0, 2).c_str(), target, 4)), ERROR_INSUFFICIENT_BUFFER);
}

TEST_F(Volumes, Information) {
  char16_t label[100], system[100];
  DWORD serial = 0, component = 0, flags = 0;
  ASSERT_TRUE(GetVolumeInformationW(drive.c_str(), label, 100, &serial, &component, &flags, system, 100));
  EXPECT_EQ(component, 255u);
  EXPECT_TRUE(GetVolumeInformationW(drive.c_str(), nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(
      ErrorOf(GetVolumeInformationW((scratch + u"\\").c_str(), label, 100, nullptr, nullptr, nullptr, nullptr, 0)),
      ERROR_DIR_NOT_ROOT);
  EXPECT_TRUE(GetVolumeInformationW((u"\\\\?\\" + drive).c_str(), label, 100, nullptr, nullptr, nullptr, nullptr, 0));
  EXPECT_TRUE(OnWine() ||  // which answers that it is no root
              ErrorOf(GetVolumeInformationW(scratch.c_str(), label, 100, nullptr, nullptr, nullptr, nullptr, 0)) ==
                  ERROR_INVALID_NAME);
  EXPECT_NE(ErrorOf(GetVolumeInformationW(u"Q:\\", label, 100, nullptr, nullptr, nullptr, nullptr, 0)), 0u);
  if (!OnWine()) {
    EXPECT_EQ(std::u16string(system), u"NTFS");
  }
}

TEST_F(Volumes, FreeSpaceOfAnyFolder) {
  ULARGE_INTEGER available{}, total{}, free{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(scratch.c_str(), &available, &total, &free));
  EXPECT_LE(available.QuadPart, free.QuadPart);
  EXPECT_LT(free.QuadPart, total.QuadPart);
  EXPECT_TRUE(GetDiskFreeSpaceExW((scratch + u"\\").c_str(), &available, nullptr, nullptr));
  const DWORD error = ErrorOf(GetDiskFreeSpaceExW((scratch + u"\\missing").c_str(), &available, nullptr, nullptr));
  EXPECT_EQ(error, OnWine() ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
}

TEST_F(Volumes, NamesOfMountPoints) {
  const std::u16string name = NameOf(drive.c_str());
  ASSERT_EQ(name.size(), 49u);
  EXPECT_TRUE(name.starts_with(u"\\\\?\\Volume{") && name.ends_with(u"}\\"));
  char16_t buffer[50];
  EXPECT_EQ(ErrorOf(GetVolumeNameForVolumeMountPointW(drive.c_str(), buffer, 49)), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_EQ(ErrorOf(GetVolumeNameForVolumeMountPointW(drive.substr(0, 2).c_str(), buffer, 50)), ERROR_INVALID_NAME);
  EXPECT_EQ(ErrorOf(GetVolumeNameForVolumeMountPointW(u"Q:\\", buffer, 50)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(GetVolumeNameForVolumeMountPointW((scratch + u"\\").c_str(), buffer, 50)),
            ERROR_NOT_A_REPARSE_POINT);
  const DWORD error = ErrorOf(GetVolumeNameForVolumeMountPointW((scratch + u"\\missing\\").c_str(), buffer, 50));
  EXPECT_EQ(error, OnWine() ? ERROR_NOT_A_REPARSE_POINT : ERROR_FILE_NOT_FOUND);
}

TEST_F(Volumes, AreEnumerated) {
  const std::u16string ours = NameOf(drive.c_str());
  char16_t name[50];
  EXPECT_EQ(ErrorOf(FindFirstVolumeW(name, 49)), ERROR_FILENAME_EXCED_RANGE);
  const HANDLE search = FindFirstVolumeW(name, 50);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  bool found = false;
  do found = found || ours == name;
  while (FindNextVolumeW(search, name, 50));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(found);
  EXPECT_TRUE(FindVolumeClose(search));
}

TEST_F(Volumes, PathsOfAVolume) {
  const std::u16string name = NameOf(drive.c_str());
  char16_t paths[400];
  DWORD length = 0;
  ASSERT_TRUE(GetVolumePathNamesForVolumeNameW(name.c_str(), paths, 400, &length));
  EXPECT_EQ(std::u16string_view(paths).size(), 3u);
  EXPECT_EQ(paths[length - 1], 0);
  DWORD needed = 0;
  EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(name.c_str(), paths, 2, &needed)), ERROR_MORE_DATA);
  EXPECT_EQ(needed, length);
  EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(name.substr(0, 48).c_str(), paths, 400, &length)),
            ERROR_INVALID_NAME);
  EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(u"C:\\", paths, 400, &length)), ERROR_INVALID_NAME);
  EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(u"\\\\?\\Volume{00000000-00de-c0de-0000-000000000000}\\", paths,
                                                     400, &length)),
            ERROR_FILE_NOT_FOUND);
}

TEST_F(Volumes, WhereThePathsVolumeBegins) {
  char16_t root[300];
  ASSERT_TRUE(GetVolumePathNameW((scratch + u"\\missing\\below").c_str(), root, 300));
  EXPECT_EQ(std::u16string(root), drive);
  const struct {
    std::u16string path;
    DWORD size, error;
    std::u16string begin;
  } cases[] = {{u"c:/windows", 300, 0, u"C:\\"},
               {u"\\\\?\\c:\\missing", 300, 0, u"\\\\?\\c:\\"},
               {u"C:\\windows", 3, 0, u"C:"},  // the backslash is left out when it alone has no room
               {u"C:\\", 2, ERROR_FILENAME_EXCED_RANGE, u""},
               {u"\\\\?\\NoDrive:\\x", 300, ERROR_INVALID_NAME, u""},
               {u"\\\\nowhere\\share:\\x", 300, ERROR_INVALID_NAME, u""},
               {u"?:x\\y", 300, ERROR_FILE_NOT_FOUND, u""},
               {scratch, 0, ERROR_INVALID_PARAMETER, u""},
               {u"", 300, ERROR_INVALID_PARAMETER, u""},
               {u"Q:\\x", 300, ERROR_FILE_NOT_FOUND, u""}};
  for (const auto& one : cases) {
    EXPECT_EQ(ErrorOf(GetVolumePathNameW(one.path.c_str(), root, one.size)), one.error) << &one - cases;
    EXPECT_TRUE(one.error != 0 || one.begin == root) << &one - cases;
  }
}

TEST_F(Volumes, MountedFolders) {
  SKIP_ON_WINE("Wine mounts no volumes on folders");
  const std::u16string volume = NameOf(u"D:\\"), folder = scratch + u"\\mnt", mountPoint = folder + u"\\";
  ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
  ASSERT_EQ(ErrorOf(SetVolumeMountPointW(mountPoint.c_str(), volume.c_str())), 0u);
  EXPECT_EQ(GetFileAttributesW(folder.c_str()) & 0x410, 0x410u);
  EXPECT_EQ(NameOf(mountPoint.c_str()), volume);
  char16_t root[300];
  ASSERT_TRUE(GetVolumePathNameW((mountPoint + u"x").c_str(), root, 300));
  EXPECT_EQ(std::u16string(root), mountPoint);
  DWORD serial = 0, other = 0;
  EXPECT_TRUE(GetVolumeInformationW(mountPoint.c_str(), nullptr, 0, &serial, nullptr, nullptr, nullptr, 0));
  EXPECT_TRUE(GetVolumeInformationW(u"D:\\", nullptr, 0, &other, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(serial, other);
  EXPECT_EQ(GetDriveTypeW(mountPoint.c_str()), DRIVE_FIXED);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(mountPoint.c_str())), 0u);
  EXPECT_TRUE(RemoveDirectoryW(folder.c_str()));
}

}  // namespace
