// The registry on a machine: hives and their files, views, links, access.
#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/hive_format.h"
#include "win32/emulated/registry/registry.h"
#include "win32/handle.h"

namespace {

using namespace win32;

constexpr DWORD kBadDatabase = 1009;

class RegistryMachine : public ::testing::Test {
 protected:
  RegistryMachine() : machine(test::InstalledMachine()) {}

  emulated::Registry& registry() { return machine->registry(); }
  void BecomeUser() { machine->process.token = emulated::MakeUserToken(machine->process.token->user); }
  void EnableLoading() {
    machine->process.token->EnablePrivilege(u"SeBackupPrivilege", true);
    machine->process.token->EnablePrivilege(u"SeRestorePrivilege", true);
  }
  static LSTATUS Open(HKEY root, const char16_t* path, DWORD access, UniqueKey& key, DWORD options = 0) {
    return RegOpenKeyExW(root, path, options, access, key.put());
  }
  static UniqueKey Create(HKEY root, const char16_t* path, DWORD access = KEY_ALL_ACCESS, DWORD options = 0) {
    UniqueKey key;
    EXPECT_EQ(RegCreateKeyExW(root, path, 0, nullptr, options, access, nullptr, key.put(), nullptr), 0);
    return key;
  }
  static LSTATUS SetNumber(HKEY key, const char16_t* name, DWORD number) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
  }
  static DWORD OpenFileError(const char16_t* path) {
    const UniqueFile file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, 0, nullptr));
    return file ? ERROR_SUCCESS : GetLastError();
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(RegistryMachine, ChangesOutliveARestartAndVolatileKeysDoNot) {
  SetNumber(Create(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Kept").get(), u"n", 5);
  SetNumber(Create(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Lost", KEY_ALL_ACCESS, REG_OPTION_VOLATILE).get(), u"n", 5);
  SetNumber(Create(HKEY_CURRENT_USER, u"Software\\Mine").get(), u"n", 6);
  machine = test::BootFrom(machine->Snapshot());
  EXPECT_TRUE(registry().Query(u"HKLM\\software\\kept", u"N"));
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\SOFTWARE\\Lost"));
  UniqueKey mine;
  EXPECT_EQ(Open(HKEY_CURRENT_USER, u"Software\\Mine", KEY_READ, mine), 0);
}

TEST_F(RegistryMachine, CurrentControlSetIsALinkToTheSelectedSet) {
  SetNumber(Create(HKEY_LOCAL_MACHINE, u"SYSTEM\\CurrentControlSet\\Control\\Test").get(), u"n", 1);
  EXPECT_TRUE(registry().KeyExists(u"HKLM\\SYSTEM\\ControlSet001\\Control\\Test"));
  UniqueKey link;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SYSTEM\\CurrentControlSet", KEY_READ, link, REG_OPTION_OPEN_LINK), 0);
  DWORD type = 0;
  EXPECT_EQ(RegQueryValueExW(link.get(), u"SymbolicLinkValue", nullptr, &type, nullptr, nullptr), 0);
  EXPECT_EQ(type, REG_LINK);
  // It is made at every start and is in no file.
  registry().SetDword(u"HKLM\\SYSTEM\\Select", u"Current", 2);
  link.reset();
  auto disks = machine->Snapshot();
  machine.reset();
  emulated::Machine next;
  for (auto& [name, device] : disks) ASSERT_EQ(next.Attach(std::move(device), name), 0U);
  std::string error;
  ASSERT_TRUE(next.registry().LoadSystemHives(error)) << error;
  EXPECT_FALSE(next.registry().KeyExists(u"HKLM\\SYSTEM\\CurrentControlSet\\Control"));  // there is no second set
}

TEST_F(RegistryMachine, The32BitViewIsWow6432NodeButForSharedKeys) {
  SetNumber(Create(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Maker\\Product", KEY_ALL_ACCESS | KEY_WOW64_32KEY).get(), u"n", 1);
  EXPECT_TRUE(registry().KeyExists(u"HKLM\\SOFTWARE\\Wow6432Node\\Maker\\Product"));
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\SOFTWARE\\Maker"));
  UniqueKey key, child;
  // Naming the node itself means the 32-bit view in either.
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Wow6432Node\\Maker", KEY_READ | KEY_WOW64_64KEY, key), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Wow6432Node\\Maker", KEY_READ | KEY_WOW64_32KEY, key), 0);
  // A handle keeps its view.
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ | KEY_WOW64_32KEY, key), 0);
  EXPECT_EQ(Open(key.get(), u"Maker\\Product", KEY_READ | KEY_WOW64_64KEY, child), 0);
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(Open(key.get(), u"Maker", KEY_READ, child), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Open(key.get(), u"Maker", KEY_READ | KEY_WOW64_32KEY, child), 0);
  EXPECT_EQ(Open(key.get(), u"", KEY_READ | KEY_WOW64_32KEY | KEY_WOW64_64KEY, child), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\S-1-5-18",
                 KEY_READ | KEY_WOW64_32KEY, child),
            0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SYSTEM\\Select", KEY_READ | KEY_WOW64_32KEY, child), 0);
}

TEST_F(RegistryMachine, AccessFollowsTheKeysDescriptorsAndTheHandlesRights) {
  UniqueKey key, other;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(SetNumber(key.get(), u"n", 1), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteValueW(key.get(), u"n"), ERROR_ACCESS_DENIED);
  // Creating asks the key, not the handle.
  EXPECT_EQ(RegCreateKeyExW(key.get(), u"New", 0, nullptr, 0, KEY_READ, nullptr, other.put(), nullptr), 0);
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_SET_VALUE, key), 0);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"n", nullptr, nullptr, nullptr, nullptr), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            ERROR_ACCESS_DENIED);

  BecomeUser();
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ | KEY_WRITE, other), ERROR_ACCESS_DENIED);
  EXPECT_EQ(other.get(), nullptr);
  EXPECT_EQ(RegCreateKeyExW(key.get(), u"Mine", 0, nullptr, 0, KEY_READ, nullptr, other.put(), nullptr),
            ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(key.get(), u"New"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(SetNumber(HKEY_LOCAL_MACHINE, u"n", 1), ERROR_ACCESS_DENIED);
  // His own hive is his.
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"Software\\Mine", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, other.put(),
                            nullptr),
            0);
  EXPECT_EQ(SetNumber(other.get(), u"n", 1), 0);
}

TEST_F(RegistryMachine, NewKeysInheritAndTakeTheCreatorsDescriptor) {
  Create(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Plain");
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:P(A;;KR;;;WD)", 1, &descriptor, nullptr));
  const UniqueLocalMemory owner(descriptor);
  const SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
  UniqueKey key;
  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", 0, nullptr, 0, KEY_ALL_ACCESS, &attributes,
                            key.put(), nullptr),
            0);
  EXPECT_EQ(SetNumber(key.get(), u"n", 1), 0);  // the creator's handle has what he asked for
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_SET_VALUE, key), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_READ, key), 0);
  BecomeUser();
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Plain", KEY_READ, key), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Plain", KEY_WRITE, key), ERROR_ACCESS_DENIED);
}

TEST_F(RegistryMachine, LoadedHivesKeepTheirFilesToThemselves) {
  constexpr const char16_t* kFile = u"C:\\Users\\anna\\NTUSER.DAT";
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", kFile), ERROR_PRIVILEGE_NOT_HELD);
  EnableLoading();
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"", kFile), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegLoadKeyW(HKEY_CURRENT_USER, u"Anna", kFile), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", u"C:\\none\\NTUSER.DAT"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenFileError(kFile), ERROR_SUCCESS);
  ASSERT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", kFile), 0);
  EXPECT_EQ(OpenFileError(kFile), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Again", kFile), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", u"C:\\Users\\jan\\NTUSER.DAT"), ERROR_ACCESS_DENIED);
  UniqueKey desktop;
  ASSERT_EQ(Open(HKEY_USERS, u"Anna\\Control Panel\\Desktop", KEY_ALL_ACCESS, desktop), 0);
  EXPECT_EQ(SetNumber(desktop.get(), u"changed", 77), 0);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), ERROR_ACCESS_DENIED);
  desktop.reset();
  EXPECT_EQ(RegDeleteKeyW(HKEY_USERS, u"Anna"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), 0);
  EXPECT_EQ(OpenFileError(kFile), ERROR_SUCCESS);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u".DEFAULT"), ERROR_ACCESS_DENIED);
  // What was changed is in the file, under whatever name it is loaded next.
  ASSERT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Other", kFile), 0);
  EXPECT_TRUE(registry().Query(u"HKLM\\Other\\Control Panel\\Desktop", u"changed"));
  EXPECT_EQ(RegUnLoadKeyW(HKEY_LOCAL_MACHINE, u"Other"), 0);
}

TEST_F(RegistryMachine, LoadingMakesAMissingHiveAndRefusesADamagedOne) {
  EnableLoading();
  ASSERT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Fresh", u"D:\\fresh.dat"), 0);
  SetNumber(Create(HKEY_LOCAL_MACHINE, u"Fresh\\Key").get(), u"n", 1);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_LOCAL_MACHINE, u"Fresh"), 0);
  {
    const UniqueFile file(
        CreateFileW(u"D:\\fresh.dat", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    const DWORD wrong = 0x12345678;
    DWORD done = 0;
    SetFilePointer(file.get(), 4096, nullptr, FILE_BEGIN);
    ASSERT_TRUE(WriteFile(file.get(), &wrong, sizeof wrong, &done, nullptr));
  }
  EXPECT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Fresh", u"D:\\fresh.dat"), kBadDatabase);
  EXPECT_EQ(OpenFileError(u"D:\\fresh.dat"), ERROR_SUCCESS);
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\Fresh"));
}

TEST_F(RegistryMachine, TheLoggedOnUsersHiveIsLoadedAndOthersAreNot) {
  EXPECT_EQ(OpenFileError(u"C:\\Users\\Administrator\\NTUSER.DAT"), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(OpenFileError(u"C:\\Users\\anna\\NTUSER.DAT"), ERROR_SUCCESS);
  EXPECT_EQ(OpenFileError(u"C:\\Windows\\System32\\config\\SYSTEM"), ERROR_SHARING_VIOLATION);
  machine->process.token = emulated::MakeAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-4000"));
  UniqueKey key;
  EXPECT_EQ(Open(HKEY_CURRENT_USER, u"Environment", KEY_READ, key), 0);  // without a hive of his own: the default one
  EXPECT_EQ(Open(HKEY_CURRENT_USER, u"Control Panel", KEY_READ, key), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryMachine, StartsOnlyOnSoundHives) {
  const auto bootAfter = [&](const char16_t* hive, std::size_t offset) {
    auto disks = machine->Snapshot();
    emulated::Machine broken;
    for (auto& [name, device] : disks) EXPECT_EQ(broken.Attach(std::move(device), name), 0U);
    emulated::Bytes content;
    emulated::Volume& volume = *broken.SystemVolume()->volume;
    const std::u16string path = std::u16string(u"\\Windows\\System32\\config\\") + hive;
    EXPECT_EQ(emulated::ReadWholeFile(volume, path, content), 0U);
    content[offset] ^= 1;
    emulated::StoreLittleEndian(std::span(content), emulated::regf::kChecksum,
                                emulated::regf::Checksum(content.data()));
    EXPECT_EQ(emulated::WriteWholeFile(volume, path, content), 0U);
    std::string error;
    EXPECT_FALSE(broken.Boot(error));
    return error;
  };
  EXPECT_NE(
      bootAfter(u"SOFTWARE", emulated::regf::kPrimarySequence).find("config\\SOFTWARE on the system volume is dirty"),
      std::string::npos);
  EXPECT_NE(bootAfter(u"SYSTEM", emulated::regf::kBaseBlock + 1).find("config\\SYSTEM on the system volume is damaged"),
            std::string::npos);
}

}  // namespace
