// Drive letters and mounted folders: what the calls leave behind, and what still holds after a restart.
#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "win32/emulated/files/volume_names.h"
#include "win32/emulated/registry/registry.h"
#include "win32/file.h"
#include "win32/system.h"
#include "win32/volume.h"

namespace {

using namespace win32;

constexpr const char16_t* kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
constexpr const char16_t* kUnknown = u"\\\\?\\Volume{99999999-0000-4000-8000-000000000000}\\";

class VolumeMountPoints : public ::testing::Test {
 protected:
  VolumeMountPoints() : machine(test::InstalledMachine({.volumes = 1})) {}

  void Restart() {
    machine->objects.CloseAll(machine->process.id);
    test::Disks disks = machine->Snapshot();
    machine.reset();
    machine = test::BootFrom(std::move(disks));
  }

  // The paths of a volume, separated by "|"; the returned length must agree.
  static std::u16string Paths(const char16_t* volume) {
    char16_t buffer[400];
    DWORD length = 0;
    if (!GetVolumePathNamesForVolumeNameW(volume, buffer, 400, &length))
      return u"error " + std::u16string(1, static_cast<char16_t>(GetLastError()));
    std::u16string paths(buffer, length);
    for (char16_t& unit : paths)
      if (unit == 0) unit = u'|';
    return paths;
  }

  static std::u16string PathName(const char16_t* path) {
    char16_t buffer[300];
    return GetVolumePathNameW(path, buffer, 300) ? std::u16string(buffer)
                                                 : u"error " + std::u16string(1, static_cast<char16_t>(GetLastError()));
  }

  static DWORD ErrorOf(BOOL result) { return result ? 0 : GetLastError(); }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(VolumeMountPoints, MountedFolderIsFoundAfterMovesAndRestarts) {
  EXPECT_EQ(Paths(kVolume), u"|");
  ASSERT_TRUE(CreateDirectoryW(u"C:\\Data", nullptr));
  ASSERT_TRUE(CreateDirectoryW(u"C:\\Data\\mnt", nullptr));
  ASSERT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\Data\\mnt\\", kVolume)), 0u);
  EXPECT_EQ(GetFileAttributesW(u"C:\\Data\\mnt") & 0x410, 0x410u);
  EXPECT_EQ(Paths(kVolume), u"C:\\Data\\mnt\\||");
  char16_t name[50];
  ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(u"C:\\Data\\mnt\\", name, 50));
  EXPECT_EQ(std::u16string(name), kVolume);
  ASSERT_TRUE(CreateDirectoryW(u"C:\\Data\\mnt\\on the volume", nullptr));
  emulated::FileId folder = 0;
  EXPECT_EQ(machine->FindByGuidName(kVolume)->volume->LookupPath(u"\\on the volume", folder), 0u);

  ASSERT_TRUE(MoveFileW(u"C:\\Data", u"C:\\Moved"));
  ASSERT_TRUE(MoveFileW(u"C:\\Moved\\mnt", u"C:\\Moved\\renamed"));
  EXPECT_EQ(Paths(kVolume), u"C:\\Moved\\renamed\\||");
  Restart();
  EXPECT_EQ(Paths(kVolume), u"C:\\Moved\\renamed\\||");
  EXPECT_EQ(PathName(u"C:\\Moved\\renamed\\on the volume\\missing"), u"C:\\Moved\\renamed\\");

  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\Moved\\renamed\\", kVolume)), ERROR_DIR_NOT_EMPTY)
      << "a mounted folder counts as not empty";
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(u"C:\\Moved\\renamed\\")), 0u);
  EXPECT_EQ(Paths(kVolume), u"|");
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(u"C:\\Moved\\renamed\\")), ERROR_NOT_A_REPARSE_POINT);
  EXPECT_TRUE(RemoveDirectoryW(u"C:\\Moved\\renamed"));
  EXPECT_EQ(machine->FindByGuidName(kVolume)->volume->LookupPath(u"\\on the volume", folder), 0u)
      << "what is on the volume stays";
}

TEST_F(VolumeMountPoints, ManyReparsePointsDoNotHideAMountedFolder) {
  for (char16_t i = 0; i < 200; ++i) {
    const std::u16string path = u"D:\\j" + std::u16string(1, static_cast<char16_t>(0x4E00 + i));
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    ASSERT_EQ(ErrorOf(SetVolumeMountPointW((path + u"\\").c_str(), kVolume)), 0u);
  }
  char16_t buffer[4000];
  DWORD length = 0;
  ASSERT_TRUE(GetVolumePathNamesForVolumeNameW(kVolume, buffer, 4000, &length));
  EXPECT_EQ(length, 200u * 7 + 1);
  EXPECT_EQ(ErrorOf(GetVolumePathNamesForVolumeNameW(kVolume, buffer, 100, &length)), ERROR_MORE_DATA);
  EXPECT_EQ(length, 200u * 7 + 1);
}

TEST_F(VolumeMountPoints, DriveLettersAreInTheRegistry) {
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"D:\\", kVolume)), ERROR_DIR_NOT_EMPTY) << "taken";
  ASSERT_EQ(ErrorOf(SetVolumeMountPointW(u"x:\\", kVolume)), 0u);
  EXPECT_EQ(Paths(kVolume), u"X:\\||");
  EXPECT_TRUE(machine->registry().Query(u"HKLM\\SYSTEM\\MountedDevices", u"\\DosDevices\\X:"));
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"Y:\\", kVolume)), ERROR_INVALID_PARAMETER) << "a volume has one letter";
  Restart();
  EXPECT_TRUE(CreateDirectoryW(u"X:\\folder", nullptr));
  ASSERT_EQ(ErrorOf(DeleteVolumeMountPointW(u"X:\\")), 0u);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(u"X:\\")), ERROR_FILE_NOT_FOUND);
  Restart();
  EXPECT_EQ(Paths(kVolume), u"|");
  EXPECT_EQ(GetDriveTypeW(u"X:\\"), DRIVE_NO_ROOT_DIR);
}

TEST_F(VolumeMountPoints, WhatCannotBeMounted) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\full", nullptr));
  ASSERT_TRUE(CreateDirectoryW(u"C:\\full\\inside", nullptr));
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\full\\", kVolume)), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\full\\inside", kVolume)), ERROR_INVALID_NAME);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\missing\\", kVolume)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\Windows\\win.ini\\", kVolume)), ERROR_DIRECTORY);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\full\\inside\\", u"D:\\")), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\full\\inside\\", kUnknown)), ERROR_FILE_NOT_FOUND);
  machine->process.token = emulated::MakeFilteredAdministratorToken(machine->process.token->user);
  EXPECT_EQ(ErrorOf(SetVolumeMountPointW(u"C:\\full\\inside\\", kVolume)), ERROR_ACCESS_DENIED);
}

TEST_F(VolumeMountPoints, JunctionsAreNoMountPoints) {
  char16_t name[50];
  EXPECT_EQ(ErrorOf(GetVolumeNameForVolumeMountPointW(u"C:\\Documents and Settings\\", name, 50)),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(u"C:\\Documents and Settings\\")), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(GetFileAttributesW(u"C:\\Documents and Settings") & 0x410, 0x410u);
}

TEST_F(VolumeMountPoints, PathsAreFollowedToTheirVolumes) {
  EXPECT_EQ(PathName(u"C:\\Documents and Settings\\Public"), u"C:\\");
  EXPECT_EQ(PathName(u"\\\\?\\D:\\x"), u"\\\\?\\D:\\");
  EXPECT_EQ(PathName(u"D:x"), u"D:\\");
  EXPECT_EQ(PathName((kVolume + std::u16string(u"a\\b")).c_str()), kVolume);
  ASSERT_TRUE(CreateDirectoryW(u"C:\\mnt", nullptr));
  ASSERT_TRUE(SetVolumeMountPointW(u"C:\\mnt\\", kVolume));
  ULARGE_INTEGER here{}, there{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(u"C:\\mnt", nullptr, &here, nullptr));
  ASSERT_TRUE(GetDiskFreeSpaceExW(kVolume, nullptr, &there, nullptr));
  EXPECT_EQ(here.QuadPart, there.QuadPart);
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
