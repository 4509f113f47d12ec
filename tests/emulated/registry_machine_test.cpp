// The registry on a machine: hives and their files, views, access; delayed renames, which it holds.
#include "emulated/on_machine.h"

namespace {

using namespace win32;

class RegistryMachine : public test::OnMachine {
 protected:
  static LSTATUS Open(HKEY root, const char16_t* path, DWORD access, UniqueKey& key) {
    return RegOpenKeyExW(root, path, 0, access, key.put());
  }
  static LSTATUS OpenError(HKEY root, const char16_t* path, DWORD access) {
    UniqueKey key;
    return Open(root, path, access, key);
  }
  static LSTATUS SetNumber(HKEY key) {
    return RegSetValueExW(key, u"n", 0, REG_DWORD, reinterpret_cast<const BYTE*>("abc"), 4);
  }
  static LSTATUS Create(HKEY root, const char16_t* path, DWORD access = KEY_ALL_ACCESS,
                        const SECURITY_ATTRIBUTES* security = nullptr) {
    UniqueKey key;
    const LSTATUS error = RegCreateKeyExW(root, path, 0, nullptr, 0, access, security, key.put(), nullptr);
    return error ? error : SetNumber(key.get());  // the creator's handle has what he asked for
  }
};

TEST_F(RegistryMachine, AccessFollowsTheKeysDescriptorsAndTheHandlesRights) {
  UniqueKey key;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(Create(key.get(), u"New"), 0) << "creating asks the key, not the handle";
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_SET_VALUE, key), 0);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"n", nullptr, nullptr, nullptr, nullptr), ERROR_ACCESS_DENIED);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:P(A;;KR;;;WD)", 1, &descriptor, nullptr));
  const UniqueLocalMemory owner(descriptor);
  const SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
  EXPECT_EQ(Create(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_ALL_ACCESS, &attributes), 0);
  EXPECT_EQ(OpenError(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Closed", KEY_SET_VALUE), ERROR_ACCESS_DENIED);
  Become(emulated::SidToText(machine->process.token->user));
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE", KEY_READ, key), 0);
  EXPECT_EQ(OpenError(key.get(), u"New", KEY_READ | KEY_WRITE), ERROR_ACCESS_DENIED);
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
  EXPECT_FALSE(registry().KeyExists(u"HKLM\\Other"));
}

// What MoveFileExW leaves for the next start, and what that start makes of it.
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
  const auto value = registry().Query(kKey, kValue);
  constexpr char16_t expected[] = u"\\??\\C:\\a\0\0\\??\\C:\\b\0!\\??\\C:\\c\0\\??\\C:\\c\0\\??\\C:\\d\0";
  ASSERT_TRUE(value && value->type == REG_MULTI_SZ && value->data.size() == sizeof expected);
  EXPECT_EQ(std::memcmp(value->data.data(), expected, sizeof expected), 0);
  for (const auto* const deleted : {u"C:\\Windows", u"C:\\Documents and Settings"})
    EXPECT_EQ(delay(deleted, nullptr), 0u);
  Restart();
  EXPECT_FALSE(contract::Exists(u"C:\\a") || contract::Exists(u"C:\\b"));
  EXPECT_EQ(contract::Get(u"C:\\c"), "b");
  EXPECT_EQ(contract::Get(u"C:\\d"), "d");
  EXPECT_FALSE(contract::Exists(u"C:\\Documents and Settings"));
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
