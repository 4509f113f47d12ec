// The registry on a machine: hives and their files, access; delayed renames, which it holds.
#include "emulated/on_machine.h"

namespace {

using namespace win32;

class RegistryMachine : public test::OnMachine {
 protected:
  static LSTATUS Open(HKEY root, const char16_t* path, DWORD access, UniqueKey& key) {
    return RegOpenKeyExW(root, path, 0, access, key.put());
  }
  static LSTATUS Create(HKEY root, const char16_t* path, const SECURITY_ATTRIBUTES* security = nullptr) {
    UniqueKey key;
    const LSTATUS error = RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, security, key.put(), nullptr);
    // The creator's handle has what he asked for.
    return error ? error : RegSetValueExW(key.get(), u"n", 0, REG_BINARY, reinterpret_cast<const BYTE*>("n"), 1);
  }
};

TEST_F(RegistryMachine, AccessFollowsTheKeysDescriptorsAndTheHandlesRights) {
  UniqueKey key;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(Create(key.get(), u"New"), 0) << "creating asks the key, not the handle";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:P(A;;KR;;;WD)", 1, &descriptor, nullptr));
  const UniqueLocalMemory owner(descriptor);
  const SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
  EXPECT_EQ(Create(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", &attributes), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_SET_VALUE, key), ERROR_ACCESS_DENIED);
  Become(emulated::SidToText(machine->process.token->user));
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(Create(key.get(), u"Mine"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(key.get(), u"New"), ERROR_ACCESS_DENIED);
}

TEST_F(RegistryMachine, LoadedHivesKeepTheirFilesToThemselves) {
  constexpr const char16_t* kFile = u"C:\\Users\\anna\\NTUSER.DAT";
  EXPECT_EQ(contract::OpenError(u"C:\\Windows\\System32\\config\\SYSTEM", GENERIC_READ), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", kFile), ERROR_PRIVILEGE_NOT_HELD);
  for (const auto* const name : {u"SeBackupPrivilege", u"SeRestorePrivilege"}) Enable(name);
  ASSERT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", kFile), 0);
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Again", kFile), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(RegLoadKeyW(HKEY_USERS, u"Anna", u"C:\\Users\\jan\\NTUSER.DAT"), ERROR_ACCESS_DENIED);
  UniqueKey desktop;
  ASSERT_EQ(Open(HKEY_USERS, u"Anna\\Control Panel\\Desktop", KEY_ALL_ACCESS, desktop), 0);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), ERROR_ACCESS_DENIED);
  desktop.reset();
  EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, u"Anna"), 0);
  // A damaged one is refused.
  emulated::Bytes content;
  ASSERT_EQ(emulated::ReadWholeFile(volume(), u"\\Users\\anna\\NTUSER.DAT", content), 0u);
  content[4096] = 'x';
  ASSERT_EQ(emulated::WriteWholeFile(volume(), u"\\Users\\anna\\NTUSER.DAT", content), 0u);
  EXPECT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, u"Other", kFile), 1009);
}

// A disk of a real machine: its Windows has named the partitions, and finds them by these names again.
TEST_F(RegistryMachine, VolumesHaveTheNamesThatTheirOwnWindowsGaveThem) {
  constexpr std::u16string_view kDevices = u"HKLM\\SYSTEM\\MountedDevices",
                                kName = u"\\??\\Volume{9e0ab3c8-0f4b-11e9-9c2d-806e6f6e6963}";
  const auto devices = [&] {
    std::map<std::u16string, emulated::Bytes> values;
    for (const auto& value : registry().Values(kDevices)) values[value.name] = value.data;
    return values;
  };
  const auto own = devices();
  emulated::Bytes partition{'D', 'M', 'I', 'O', ':', 'I', 'D', ':'}, cdrom{'d', 0, 'v', 0, 'd', 0};
  partition.resize(24, 0x5A);
  registry().DeleteValue(kDevices, kName);
  for (const auto& [name, data] : own) registry().DeleteValue(kDevices, name);
  registry().Set(kDevices, u"\\DosDevices\\C:", REG_BINARY, partition);
  registry().Set(kDevices, u"\\DosDevices\\E:", REG_BINARY, cdrom);
  registry().Set(kDevices, kName, REG_BINARY, partition);
  Restart();
  EXPECT_EQ(machine->FindByLetter(u'C')->guidName, u"\\\\?\\" + std::u16string(kName.substr(4)) + u"\\");
  auto named = devices();
  EXPECT_TRUE(named.at(u"\\DosDevices\\C:") == partition && named.at(std::u16string(kName)) == partition);
  EXPECT_EQ(named.at(u"\\DosDevices\\E:"), cdrom);
  EXPECT_EQ(named.at(u"\\DosDevices\\D:"), own.at(u"\\DosDevices\\D:")) << "new there";
  EXPECT_FALSE(registry().IsDirty(kDevices)) << "a look writes nothing";
  // What names a volume on the disk is written with it.
  contract::MakeDirectory(u"C:\\mount");
  ASSERT_TRUE(SetVolumeMountPointW(u"C:\\mount\\", machine->FindByLetter(u'D')->guidName.c_str()));
  EXPECT_TRUE(registry().IsDirty(kDevices));
}

TEST_F(RegistryMachine, DelayedRenamesAreCarriedOutInOrderAtTheStart) {
  constexpr std::u16string_view kKey = u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                                kValue = u"PendingFileRenameOperations";
  const auto delay = [](const char16_t* from, const char16_t* to, DWORD flags = 0) {
    return contract::ErrorOf(MoveFileExW(from, to, flags | MOVEFILE_DELAY_UNTIL_REBOOT));
  };
  for (const auto& [path, content] : {std::pair{u"C:\\a", "a"}, {u"C:\\b", "b"}, {u"C:\\c", "c"}, {u"C:\\d", "d"}})
    contract::Put(path, content);
  EXPECT_EQ(delay(u"C:\\a", nullptr), 0u);
  EXPECT_EQ(delay(u"\\\\?\\C:\\b", u"C:\\c", MOVEFILE_REPLACE_EXISTING), 0u);
  EXPECT_EQ(delay(u"C:\\Windows\\..\\c", u"C:/d"), 0u) << "which stands in the way then";
  for (const auto* const deleted : {u"C:\\Windows", u"C:\\Documents and Settings"})
    EXPECT_EQ(delay(deleted, nullptr), 0u);
  Restart();
  for (const auto* const gone : {u"C:\\a", u"C:\\b", u"C:\\Documents and Settings"})
    EXPECT_FALSE(contract::Exists(gone));
  EXPECT_TRUE(contract::Get(u"C:\\c") == "b" && contract::Get(u"C:\\d") == "d");
  EXPECT_TRUE(contract::Exists(u"C:\\Users\\Public")) << "the link goes, not what it leads to";
  EXPECT_TRUE(contract::Exists(u"C:\\Windows\\System32")) << "a full folder stays";
  EXPECT_FALSE(registry().Query(kKey, kValue)) << "done once";
  // A malformed list does no harm.
  constexpr char16_t odd[] = u"C:\\d\0\0\\??\\Q:\\missing\0\0\\??\\C:\\\0\0\\??\\C:\\d\0C:\\x\0\\??\\C:\\d";
  emulated::Bytes data{7};
  for (const char16_t unit : std::u16string_view(odd, std::size(odd) - 1)) emulated::AppendLittleEndian(data, unit);
  registry().Set(kKey, kValue, REG_MULTI_SZ, {data.begin() + 1, data.end()});
  Restart();
  EXPECT_TRUE(contract::Exists(u"C:\\d"));
  EXPECT_FALSE(registry().Query(kKey, kValue));
}

}  // namespace
