// Drive letters and mounted folders: what the calls leave behind, and what still holds after a restart.
#include "emulated/on_machine.h"
#include "win32/emulated/files/volume_names.h"

namespace {

using namespace contract;
using namespace win32;

constexpr const char16_t* kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
constexpr const char16_t* kUnknown = u"\\\\?\\Volume{99999999-0000-4000-8000-000000000000}\\";

class VolumeMountPoints : public test::OnWindows {
 protected:
  VolumeMountPoints() : OnWindows({.volumes = 1}) {}

  // The paths of the volume, separated by "|"; the returned length must agree.
  static std::string Paths() {
    char16_t buffer[4000];
    DWORD length = 0;
    EXPECT_TRUE(GetVolumePathNamesForVolumeNameW(kVolume, buffer, 4000, &length));
    std::string paths = emulated::Utf8(std::u16string(buffer, length));
    std::ranges::replace(paths, '\0', '|');
    return paths;
  }
  static std::u16string PathName(const std::u16string& path) {
    char16_t buffer[300];
    EXPECT_TRUE(GetVolumePathNameW(path.c_str(), buffer, 300)) << GetLastError();
    return buffer;
  }
  static DWORD Mount(const std::u16string& point, const char16_t* volume = kVolume) {
    return ErrorOf(SetVolumeMountPointW(point.c_str(), volume));
  }
  static DWORD Unmount(const char16_t* point) { return ErrorOf(DeleteVolumeMountPointW(point)); }
};

TEST_F(VolumeMountPoints, MountedFolderIsFoundAfterMovesAndRestarts) {
  EXPECT_EQ(Paths(), "|");
  MakeDirectory(u"C:\\Data");
  MakeDirectory(u"C:\\Data\\mnt");
  ASSERT_EQ(Mount(u"C:\\Data\\mnt\\"), 0u);
  EXPECT_EQ(Paths(), "C:\\Data\\mnt\\||");
  MakeDirectory(u"C:\\Data\\mnt\\on the volume");
  EXPECT_TRUE(Exists(kVolume + std::u16string(u"on the volume")));
  ULARGE_INTEGER here{}, there{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(u"C:\\Data\\mnt", nullptr, &here, nullptr));
  ASSERT_TRUE(GetDiskFreeSpaceExW(kVolume, nullptr, &there, nullptr));
  EXPECT_EQ(here.QuadPart, there.QuadPart);

  ASSERT_TRUE(MoveFileW(u"C:\\Data", u"C:\\Moved"));
  ASSERT_TRUE(MoveFileW(u"C:\\Moved\\mnt", u"C:\\Moved\\renamed"));
  EXPECT_EQ(Paths(), "C:\\Moved\\renamed\\||");
  Restart();
  EXPECT_EQ(Paths(), "C:\\Moved\\renamed\\||");
  EXPECT_EQ(PathName(u"C:\\Moved\\renamed\\on the volume\\missing"), u"C:\\Moved\\renamed\\");
  EXPECT_EQ(Mount(u"C:\\Moved\\renamed\\"), ERROR_DIR_NOT_EMPTY) << "a mounted folder counts as not empty";
  EXPECT_EQ(Unmount(u"C:\\Moved\\renamed\\"), 0u);
  EXPECT_EQ(Paths(), "|");
  EXPECT_EQ(Unmount(u"C:\\Moved\\renamed\\"), ERROR_NOT_A_REPARSE_POINT);
  EXPECT_TRUE(RemoveDirectoryW(u"C:\\Moved\\renamed"));
  EXPECT_TRUE(Exists(kVolume + std::u16string(u"on the volume"))) << "what is on the volume stays";
}

TEST_F(VolumeMountPoints, ManyReparsePointsDoNotHideAMountedFolder) {
  for (char16_t i = 0; i < 200; ++i) {
    const std::u16string path = u"D:\\j" + std::u16string(1, static_cast<char16_t>(0x4E00 + i));
    MakeDirectory(path);
    ASSERT_EQ(Mount(path + u"\\"), 0u);
  }
  EXPECT_EQ(std::ranges::count(Paths(), '|'), 201);
  char16_t buffer[100];
  DWORD length = 0;
  EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(kVolume, buffer, 100, &length)), ERROR_MORE_DATA);
  EXPECT_EQ(length, 200u * 7 + 1);
}

TEST_F(VolumeMountPoints, DriveLettersAreInTheRegistry) {
  EXPECT_EQ(Mount(u"D:\\"), ERROR_DIR_NOT_EMPTY) << "taken";
  ASSERT_EQ(Mount(u"x:\\"), 0u);
  EXPECT_EQ(Paths(), "X:\\||");
  EXPECT_TRUE(registry().Query(u"HKLM\\SYSTEM\\MountedDevices", u"\\DosDevices\\X:"));
  EXPECT_EQ(Mount(u"Y:\\"), ERROR_INVALID_PARAMETER) << "a volume has one letter";
  Restart();
  MakeDirectory(u"X:\\folder");
  ASSERT_EQ(Unmount(u"X:\\"), 0u);
  EXPECT_EQ(Unmount(u"X:\\"), ERROR_FILE_NOT_FOUND);
  Restart();
  EXPECT_EQ(Paths(), "|");
  EXPECT_EQ(GetDriveTypeW(u"X:\\"), DRIVE_NO_ROOT_DIR);
}

TEST_F(VolumeMountPoints, WhatCannotBeMounted) {
  MakeDirectory(u"C:\\full");
  MakeDirectory(u"C:\\full\\inside");
  const struct {
    const char16_t *point, *volume;
    DWORD error;
  } cases[] = {{u"C:\\full\\", kVolume, ERROR_DIR_NOT_EMPTY},
               {u"C:\\full\\inside", kVolume, ERROR_INVALID_NAME},
               {u"C:\\missing\\", kVolume, ERROR_FILE_NOT_FOUND},
               {u"C:\\Windows\\win.ini\\", kVolume, ERROR_DIRECTORY},
               {u"C:\\full\\inside\\", u"D:\\", ERROR_INVALID_PARAMETER},
               {u"C:\\full\\inside\\", kUnknown, ERROR_FILE_NOT_FOUND}};
  for (const auto& one : cases) EXPECT_EQ(Mount(one.point, one.volume), one.error) << emulated::Utf8(one.point);
  LoseElevation();
  EXPECT_EQ(Mount(u"C:\\full\\inside\\"), ERROR_ACCESS_DENIED);
}

TEST_F(VolumeMountPoints, JunctionsAreNoMountPoints) {
  char16_t name[50];
  EXPECT_EQ(ErrorOf(GetVolumeNameForVolumeMountPointW(u"C:\\Documents and Settings\\", name, 50)),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Unmount(u"C:\\Documents and Settings\\"), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(GetFileAttributesW(u"C:\\Documents and Settings") & 0x410, 0x410u);
  for (const auto& [path, root] :
       {std::pair<std::u16string, const char16_t*>{u"C:\\Documents and Settings\\Public", u"C:\\"},
        {u"\\\\?\\D:\\x", u"\\\\?\\D:\\"},
        {u"D:x", u"D:\\"},
        {kVolume + std::u16string(u"a\\b"), kVolume}})
    EXPECT_EQ(PathName(path), root);
}

// A reparse buffer comes from the disk: no length in it is believed.
TEST(MountPointData, MalformedBuffersNameNoVolume) {
  const emulated::Bytes good = emulated::MountPointData(kVolume);
  EXPECT_EQ(emulated::MountedVolumeName(good), kVolume);
  for (std::size_t length = 0; length < good.size() - 4; ++length)
    EXPECT_EQ(emulated::MountedVolumeName(emulated::ByteView(good).first(length)), std::nullopt) << length;
  for (const std::size_t field : {8u, 10u}) {
    for (const unsigned value : {1u, 3u, 0xFFFEu, 0xFFFFu}) {
      emulated::Bytes bad = good;
      emulated::StoreLittleEndian(std::span(bad), field, static_cast<std::uint16_t>(value));
      EXPECT_EQ(emulated::MountedVolumeName(bad), std::nullopt);
    }
  }
}

}  // namespace
