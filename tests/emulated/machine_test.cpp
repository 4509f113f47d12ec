// What the emulated machine is beyond its files and keys: planned failures, mounted folders, profiles, and what
// it reads that somebody else has written.
#include "emulated/on_machine.h"
#include "support/keelroom.h"
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

TEST_F(Machine, TellsOfPlannedFailuresOfCallsThatWereNeverMade) {
  std::vector<std::string> told;
  machine->gate.onUnreached = [&](const std::string& call) { told.push_back(call); };
  machine->gate.FailCall("Sleep", 2, ERROR_ACCESS_DENIED);
  machine->gate.FailCall("GetTickCount", 1, ERROR_ACCESS_DENIED);
  Sleep(1);
  machine->gate.ClearFailures();
  EXPECT_EQ(told, (std::vector<std::string>{"Sleep, call 2", "GetTickCount, call 1"}));
}

TEST_F(Machine, AMountedFolderIsFoundAfterMovesAndRestarts) {
  MakeDirectory(u"C:\\Data");
  MakeDirectory(u"C:\\Data\\mnt");
  ASSERT_TRUE(SetVolumeMountPointW(u"C:\\Data\\mnt\\", kVolume) && SetVolumeMountPointW(u"x:\\", kVolume));
  ASSERT_TRUE(MoveFileW(u"C:\\Data", u"C:\\Moved") && MoveFileW(u"C:\\Moved\\mnt", u"C:\\Moved\\renamed"));
  Restart();
  char16_t paths[100];  // each with its end
  DWORD length = 0;
  EXPECT_TRUE(GetVolumePathNamesForVolumeNameW(kVolume, paths, 100, &length));
  const std::u16string all(paths, length);
  EXPECT_TRUE(all.find(u"X:\\") != all.npos && all.find(u"C:\\Moved\\renamed\\") != all.npos && length == 23);
}

TEST_F(Machine, MakesNoHalfDirectoryAfterATemplate) {
  MakeDirectory(u"C:\\template");
  Put(u"C:\\template:icon", std::string(300000, 'i'));
  Put(u"D:\\fill", std::string(volume(u'D').FreeBytes() - 150000, 'f'));  // room for the folder, not its stream
  EXPECT_EQ(ErrorOf(CreateDirectoryExW(u"C:\\template", u"D:\\half", nullptr)), ERROR_DISK_FULL);
  EXPECT_FALSE(Exists(u"D:\\half"));
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
  EXPECT_TRUE(std::u16string(shares[4].shi502_path) == u"C:\\x" && std::u16string(shares[5].shi502_path).empty());
  EXPECT_EQ(NetApiBufferFree(buffer), NERR_Success);
  const emulated::Bytes good = emulated::MountPointData(kVolume);
  EXPECT_EQ(emulated::MountedVolumeName(good), kVolume);
  for (std::size_t length = 0; length < good.size() - 4; ++length)
    EXPECT_EQ(emulated::MountedVolumeName(emulated::ByteView(good).first(length)), std::nullopt) << length;
  for (const auto& [field, value] : {std::pair(8u, 1u), {8u, 0xFFFEu}, {10u, 3u}, {10u, 0xFFFEu}}) {
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
