// The registry on a machine: hives and their files, views, links, access.
#include "emulated/on_machine.h"

namespace {

using namespace win32;

constexpr DWORD kBadDatabase = 1009;

class RegistryMachine : public test::OnWindows {
 protected:
  void BecomeHimself() { Become(emulated::SidToText(machine->process.token->user)); }
  static LSTATUS Open(HKEY root, const char16_t* path, DWORD access, UniqueKey& key) {
    return RegOpenKeyExW(root, path, 0, access, key.put());
  }
  static LSTATUS OpenError(HKEY root, const char16_t* path, DWORD access) {
    UniqueKey key;
    return Open(root, path, access, key);
  }
  static LSTATUS CreateError(HKEY root, const char16_t* path) {
    UniqueKey key;
    return RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_READ, nullptr, key.put(), nullptr);
  }
  static LSTATUS SetNumber(HKEY key, DWORD number = 1) {
    return RegSetValueExW(key, u"n", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
  }
  static void CreateWithNumber(HKEY root, const char16_t* path, DWORD access = KEY_ALL_ACCESS, DWORD options = 0) {
    UniqueKey key;
    EXPECT_EQ(RegCreateKeyExW(root, path, 0, nullptr, options, access, nullptr, key.put(), nullptr), 0);
    EXPECT_EQ(SetNumber(key.get()), 0);
  }
  static DWORD OpenFileError(const char16_t* path) { return contract::OpenError(path, GENERIC_READ); }
};

TEST_F(RegistryMachine, ChangesOutliveARestartAndVolatileKeysDoNot) {
  CreateWithNumber(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Kept");
  CreateWithNumber(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Lost", KEY_ALL_ACCESS, REG_OPTION_VOLATILE);
  CreateWithNumber(HKEY_CURRENT_USER, u"Software\\Mine");
  Restart();
  EXPECT_TRUE(registry().Query(u"HKLM\\software\\kept", u"N"));
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\SOFTWARE\\Lost"));
  EXPECT_EQ(OpenError(HKEY_CURRENT_USER, u"Software\\Mine", KEY_READ), 0);
}

TEST_F(RegistryMachine, CurrentControlSetIsALinkToTheSelectedSet) {
  CreateWithNumber(HKEY_LOCAL_MACHINE, u"SYSTEM\\CurrentControlSet\\Control\\Test");
  EXPECT_TRUE(registry().KeyExists(u"HKLM\\SYSTEM\\ControlSet001\\Control\\Test"));
  UniqueKey link;
  DWORD type = 0;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"SYSTEM\\CurrentControlSet", REG_OPTION_OPEN_LINK, KEY_READ, link.put()),
            0);
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
  CreateWithNumber(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Maker\\Product", KEY_ALL_ACCESS | KEY_WOW64_32KEY);
  EXPECT_TRUE(registry().KeyExists(u"HKLM\\SOFTWARE\\Wow6432Node\\Maker\\Product"));
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\SOFTWARE\\Maker"));
  UniqueKey software, software32;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, software), 0);
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ | KEY_WOW64_32KEY, software32), 0);
  const struct {
    HKEY root;
    const char16_t* path;
    DWORD view;
    LSTATUS error = 0;
  } cases[] = {// Naming the node itself means the 32-bit view in either.
               {software.get(), u"Wow6432Node\\Maker", KEY_WOW64_64KEY},
               {software.get(), u"Wow6432Node\\Maker", KEY_WOW64_32KEY},
               // A handle keeps its view.
               {software32.get(), u"Maker\\Product", KEY_WOW64_64KEY},
               {software.get(), u"Maker", 0, ERROR_FILE_NOT_FOUND},
               {software.get(), u"Maker", KEY_WOW64_32KEY},
               {software.get(), u"", KEY_WOW64_32KEY | KEY_WOW64_64KEY, ERROR_INVALID_PARAMETER},
               {software.get(), u"Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\S-1-5-18", KEY_WOW64_32KEY},
               {HKEY_LOCAL_MACHINE, u"SYSTEM\\Select", KEY_WOW64_32KEY}};
  for (const auto& one : cases)
    EXPECT_EQ(OpenError(one.root, one.path, KEY_READ | one.view), one.error) << &one - cases;
}

TEST_F(RegistryMachine, AccessFollowsTheKeysDescriptorsAndTheHandlesRights) {
  UniqueKey key;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(CreateError(key.get(), u"New"), 0) << "creating asks the key, not the handle";
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_SET_VALUE, key), 0);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"n", nullptr, nullptr, nullptr, nullptr), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            ERROR_ACCESS_DENIED);
  const SECURITY_ATTRIBUTES* none = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:P(A;;KR;;;WD)", 1, &descriptor, nullptr));
  const UniqueLocalMemory owner(descriptor);
  const SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
  for (const auto& [path, security] : {std::pair{u"SOFTWARE\\Closed", &attributes}, {u"SOFTWARE\\Plain", none}}) {
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, security, key.put(), nullptr),
              0);
    EXPECT_EQ(SetNumber(key.get()), 0) << "the creator's handle has what he asked for";
  }
  EXPECT_EQ(OpenError(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_SET_VALUE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_READ), 0);

  BecomeHimself();
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  for (const auto* const path : {u"SOFTWARE", u"SOFTWARE\\Plain"}) {
    EXPECT_EQ(OpenError(HKEY_LOCAL_MACHINE, path, KEY_READ), 0);
    EXPECT_EQ(OpenError(HKEY_LOCAL_MACHINE, path, KEY_READ | KEY_WRITE), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(CreateError(key.get(), u"Mine"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(key.get(), u"New"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(SetNumber(HKEY_LOCAL_MACHINE), ERROR_ACCESS_DENIED);
  CreateWithNumber(HKEY_CURRENT_USER, u"Software\\Mine");  // his own hive is his
}

TEST_F(RegistryMachine, LoadedHivesKeepTheirFilesToThemselves) {
  constexpr const char16_t* kFile = u"C:\\Users\\anna\\NTUSER.DAT";
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", kFile), ERROR_PRIVILEGE_NOT_HELD);
  for (const auto* const name : {u"SeBackupPrivilege", u"SeRestorePrivilege"}) Enable(name);
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
  EXPECT_EQ(SetNumber(desktop.get(), 77), 0);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), ERROR_ACCESS_DENIED);
  desktop.reset();
  EXPECT_EQ(RegDeleteKeyW(HKEY_USERS, u"Anna"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), 0);
  EXPECT_EQ(OpenFileError(kFile), ERROR_SUCCESS);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u".DEFAULT"), ERROR_ACCESS_DENIED);
  // What was changed is in the file, under whatever name it is loaded next.
  ASSERT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Other", kFile), 0);
  EXPECT_TRUE(registry().Query(u"HKLM\\Other\\Control Panel\\Desktop", u"n"));
  EXPECT_EQ(RegUnLoadKeyW(HKEY_LOCAL_MACHINE, u"Other"), 0);

  // A missing hive is made, a damaged one refused.
  constexpr const char16_t* kFresh = u"D:\\fresh.dat";
  ASSERT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Fresh", kFresh), 0);
  CreateWithNumber(HKEY_LOCAL_MACHINE, u"Fresh\\Key");
  EXPECT_EQ(RegUnLoadKeyW(HKEY_LOCAL_MACHINE, u"Fresh"), 0);
  std::string content = contract::Get(kFresh);
  ASSERT_GT(content.size(), 4100U);
  content[4096] = 'x';
  contract::Put(kFresh, content);
  EXPECT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Fresh", kFresh), kBadDatabase);
  EXPECT_EQ(OpenFileError(kFresh), ERROR_SUCCESS);
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\Fresh"));
}

TEST_F(RegistryMachine, TheLoggedOnUsersHiveIsLoadedAndOthersAreNot) {
  EXPECT_EQ(OpenFileError(u"C:\\Users\\Administrator\\NTUSER.DAT"), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(OpenFileError(u"C:\\Users\\anna\\NTUSER.DAT"), ERROR_SUCCESS);
  EXPECT_EQ(OpenFileError(u"C:\\Windows\\System32\\config\\SYSTEM"), ERROR_SHARING_VIOLATION);
  machine->process.token = emulated::MakeAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-4000"));
  EXPECT_EQ(OpenError(HKEY_CURRENT_USER, u"Environment", KEY_READ), 0);  // with no hive of his own: the default one
  EXPECT_EQ(OpenError(HKEY_CURRENT_USER, u"Control Panel", KEY_READ), ERROR_FILE_NOT_FOUND);
}

}  // namespace
