// What the emulated machine is beyond its files and keys: planned failures, threads, mounted folders, profiles, and
// what it reads that somebody else has written.
#include "emulated/on_machine.h"
#include "support/keelroom.h"
#include "support/tree.h"
#include "win32/emulated/files/volume_names.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/setup/first_logon.h"
#include "win32/emulated/system/pe_resources.h"
#include "win32/emulated/workstation.h"
#include "win32/net.h"

namespace {

using namespace contract;
using namespace win32;

constexpr const char16_t* kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";

class Machine : public test::OnMachine {
 protected:
  Machine() : OnMachine({.volumes = 1}) {}
};

// A plan that is never carried out is told of; who asks how many were knows himself.
TEST_F(Machine, TellsOfPlannedFailuresOfCallsThatWereNeverMade) {
  std::vector<std::string> told;
  machine->gate.onUnreached = [&](const std::string& call) { told.push_back(call); };
  machine->gate.FailCall("Sleep", 2, ERROR_ACCESS_DENIED);
  machine->gate.FailCall("GetTickCount", 1, ERROR_ACCESS_DENIED);
  machine->gate.FailCall(1, ERROR_ACCESS_DENIED);
  Sleep(1);
  machine->gate.ClearFailures();
  EXPECT_EQ(told, (std::vector<std::string>{"Sleep, call 2", "GetTickCount, call 1"}));
  EXPECT_EQ(machine->gate.failed(), std::set<std::string>{"Sleep"});
  machine->gate.FailCall("Sleep", 9, ERROR_ACCESS_DENIED);
  EXPECT_EQ(machine->gate.failures(), 1u);
  machine->gate.ClearFailures();
  EXPECT_EQ(told.size(), 2u);
}

TEST_F(Machine, AMountedFolderIsFoundAfterMovesAndRestarts) {
  const auto paths = [] {  // the paths of the volume, each with its end
    char16_t buffer[4000];
    DWORD length = 0;
    EXPECT_TRUE(GetVolumePathNamesForVolumeNameW(kVolume, buffer, 4000, &length));
    return std::u16string(buffer, length);
  };
  const auto mount = [](const char16_t* point, const char16_t* volume = kVolume) {
    return ErrorOf(SetVolumeMountPointW(point, volume));
  };
  MakeDirectory(u"C:\\Data");
  MakeDirectory(u"C:\\Data\\mnt");
  EXPECT_EQ(mount(u"C:\\Data\\"), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(mount(u"C:\\Data\\mnt"), ERROR_INVALID_NAME);
  EXPECT_EQ(mount(u"C:\\missing\\"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(mount(u"C:\\Data\\mnt\\", u"D:\\"), ERROR_INVALID_PARAMETER);
  ASSERT_EQ(mount(u"C:\\Data\\mnt\\"), 0u);
  char16_t root[300];
  EXPECT_TRUE(GetVolumePathNameW(u"C:\\Data\\mnt\\x", root, 300) && std::u16string(root) == u"C:\\Data\\mnt\\");
  MakeDirectory(u"C:\\Data\\mnt\\on the volume");
  ASSERT_TRUE(MoveFileW(u"C:\\Data", u"C:\\Moved") && MoveFileW(u"C:\\Moved\\mnt", u"C:\\Moved\\renamed"));
  ASSERT_EQ(mount(u"x:\\"), 0u);
  EXPECT_EQ(mount(u"Y:\\"), ERROR_INVALID_PARAMETER) << "a volume has one letter";
  for (int pass = 0; pass < 2; ++pass) {
    const std::u16string all = paths();
    EXPECT_TRUE(all.find(u"X:\\") != all.npos && all.find(u"C:\\Moved\\renamed\\") != all.npos && all.size() == 23);
    Restart();
  }
  EXPECT_EQ(mount(u"C:\\Moved\\renamed\\"), ERROR_DIR_NOT_EMPTY) << "a mounted folder counts as not empty";
  EXPECT_TRUE(DeleteVolumeMountPointW(u"X:\\") && DeleteVolumeMountPointW(u"C:\\Moved\\renamed\\"));
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(u"C:\\Moved\\renamed\\")), ERROR_NOT_A_REPARSE_POINT);
  EXPECT_EQ(ErrorOf(DeleteVolumeMountPointW(u"C:\\Documents and Settings\\")), ERROR_INVALID_PARAMETER);
  EXPECT_TRUE(RemoveDirectoryW(u"C:\\Moved\\renamed") && Exists(kVolume + std::u16string(u"on the volume")));
  Restart();
  EXPECT_EQ(paths(), std::u16string(1, u'\0'));
}

TEST_F(Machine, MakesDirectoriesAfterATemplateWholeOrNotAtAll) {
  MakeDirectory(u"C:\\template");
  Put(u"C:\\template:icon", std::string(300000, 'i'));
  EXPECT_TRUE(SetFileAttributesW(u"C:\\template", FILE_ATTRIBUTE_HIDDEN));
  const auto make = [](const char16_t* path) { return ErrorOf(CreateDirectoryExW(u"C:\\template", path, nullptr)); };
  ASSERT_EQ(make(u"D:\\new"), 0u);
  EXPECT_EQ(test::Streams(u"D:\\new"), test::Streams(u"C:\\template"));
  EXPECT_EQ(GetFileAttributesW(u"D:\\new"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(make(u"D:\\new"), ERROR_ALREADY_EXISTS);
  Put(u"D:\\new:fill", std::string(volume(u'D').FreeBytes() - 150000, 'f'));  // room for the folder, not its stream
  EXPECT_EQ(make(u"D:\\half"), ERROR_DISK_FULL);
  EXPECT_FALSE(Exists(u"D:\\half"));
  EXPECT_EQ(ErrorOf(EncryptFileW(u"C:\\template")), ERROR_NOT_SUPPORTED);
}

// A workstation in a folder: its state and its images are saved together, or what is half can be made again.
TEST_F(Machine, SavesItsStateAndItsImagesTogether) {
  const std::u16string sid = u"S-1-5-21-1-2-3-1101";
  const emulated::DomainAccount maria{u"CORP", u"corp.example", u"maria", emulated::SidFromText(sid)};
  const emulated::Account account{maria.domain, maria.name, maria.sid, 1};
  const test::TemporaryFolder folder;
  for (const auto& [name, device] : machine->Snapshot()) device->SaveTo(folder / name);
  machine.reset();
  std::string error;
  std::u16string home;
  std::filesystem::create_directories(folder / "state.new" / "in the way");
  {
    const auto station = emulated::Workstation::Open(folder.path(), error);
    ASSERT_TRUE(station) << error;
    station->state().domainAccounts.push_back(maria);
    ASSERT_EQ(emulated::CreateUserProfile(station->machine(), account, home), 0U);
    EXPECT_FALSE(station->Save(error)) << "the state cannot be written";
    const auto logOn = [](emulated::WorkstationState& state) { state.account = "user"; };
    EXPECT_FALSE(emulated::Workstation::ChangeState(folder.path(), logOn, error)) << "the folder is in use";
  }
  std::filesystem::remove_all(folder / "state.new");
  {  // a run that ends between the two, and the next
    const auto station = emulated::Workstation::Open(folder.path(), error);
    EXPECT_FALSE(station->machine().registry().KeyExists(std::u16string(emulated::kProfileList) + u"\\" + sid));
    station->state().domainAccounts.push_back(maria);
    EXPECT_TRUE(station->SaveState(error)) << error;
  }
  const auto station = emulated::Workstation::Open(folder.path(), error);
  EXPECT_EQ(station->machine().domainAccounts.size(), 1U);
  EXPECT_EQ(emulated::CreateUserProfile(station->machine(), account, home), 0U);
  EXPECT_TRUE(station->Save(error)) << error;
}

// A share is whatever somebody wrote into the registry, a reparse buffer whatever stands on the disk.
TEST_F(Machine, BelievesNeitherSharesNorMountPointsThatAreDamaged) {
  constexpr std::u16string_view kShares = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares";
  registry().Set(kShares, u"odd", REG_MULTI_SZ, emulated::Bytes{'P', 0, 'a', 0, 't', 0, 'h'});
  registry().Set(kShares, u"number", REG_MULTI_SZ,
                 emulated::RegistryMultiText({u"Type=99999999999", u"Path=C:\\x", u"no equals"}));
  registry().SetText(kShares, u"text", u"Path=C:\\y");
  BYTE* buffer = nullptr;
  DWORD read = 0, total = 0;
  ASSERT_EQ(NetShareEnum(nullptr, 502, &buffer, MAX_PREFERRED_LENGTH, &read, &total, nullptr), NERR_Success);
  ASSERT_EQ(read, 6u);
  const auto* const shares = reinterpret_cast<const SHARE_INFO_502*>(buffer);
  EXPECT_EQ(std::u16string(shares[4].shi502_path), u"C:\\x");
  EXPECT_EQ(std::u16string(shares[5].shi502_path), u"");
  EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);

  const emulated::Bytes good = emulated::MountPointData(kVolume);
  EXPECT_EQ(emulated::MountedVolumeName(good), kVolume);
  for (std::size_t length = 0; length < good.size() - 4; ++length)
    EXPECT_EQ(emulated::MountedVolumeName(emulated::ByteView(good).first(length)), std::nullopt) << length;
  for (const std::size_t field : {8u, 10u})
    for (const unsigned value : {1u, 3u, 0xFFFEu, 0xFFFFu}) {
      emulated::Bytes bad = good;
      emulated::StoreLittleEndian(std::span(bad), field, static_cast<std::uint16_t>(value));
      EXPECT_EQ(emulated::MountedVolumeName(bad), std::nullopt);
    }
}

TEST_F(Machine, DamagedExecutablesAndVersionBlocksAreHarmless) {
  const emulated::Bytes file = test::KeeldiskDriver("8.33");  // a program file as the Windows tools make it
  const auto found = emulated::FindPeResource(file, 16);
  ASSERT_TRUE(found);
  const emulated::Bytes version(found->begin(), found->end());
  const auto resources = static_cast<std::size_t>(found->data() - file.data());  // the directories stand before it
  unsigned random = 7;
  const auto next = [&] { return (random = random * 1103515245u + 12345u) >> 8; };
  for (int round = 0; round < 20000; ++round) {
    emulated::Bytes image = file, block = version;
    for (int i = 0; i < 4; ++i) {
      const std::size_t from = i % 2 == 0 ? 0 : resources - 0x60;
      image[from + next() % (i % 2 == 0 ? 0x260 : 0x60)] = static_cast<std::uint8_t>(next());
    }
    if (round % 3 == 0) image.resize(next() % image.size());
    emulated::FindPeResource(emulated::Bytes(image), 16);
    for (int i = 0; round != 0 && i < 4; ++i)
      block[2 + next() % (block.size() - 2)] = static_cast<std::uint8_t>(next());
    void* value = nullptr;
    UINT length = 0;
    const bool isFound = VerQueryValueW(block.data(), u"\\StringFileInfo\\040904b0\\CompanyName", &value, &length) != 0;
    EXPECT_TRUE(!isFound || static_cast<std::uint8_t*>(value) + length * 2 <= block.data() + block.size());
    EXPECT_TRUE(round != 0 || (isFound && std::u16string(static_cast<char16_t*>(value)) == u"Velmora" && length == 8));
  }
}

}  // namespace
