// Keys of the registry.
#include <vector>

#include "contract/fixture.h"

namespace {

using namespace win32;

constexpr DWORD kInvalidParameter = ERROR_INVALID_PARAMETER;
constexpr DWORD kOptionCreateLink = 2;

// Works in a key of its own below HKEY_CURRENT_USER\Software.
class RegistryKeys : public contract::FileTest {
 protected:
  static constexpr const char16_t* kPath = u"Software\\RegistryContract";

  RegistryKeys() {
    DeleteTree(HKEY_CURRENT_USER, kPath);
    EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, base.put(), nullptr),
              0);
  }
  ~RegistryKeys() override {
    base.reset();
    DeleteTree(HKEY_CURRENT_USER, kPath);
  }

  static void DeleteTree(HKEY root, const std::u16string& path) {
    UniqueKey key;
    if (RegOpenKeyExW(root, path.c_str(), REG_OPTION_OPEN_LINK, KEY_READ, key.put()) != 0) return;
    for (const std::u16string& name : Names(key.get())) DeleteTree(root, path + u"\\" + name);
    key.reset();
    RegDeleteKeyW(root, path.c_str());
  }
  static std::vector<std::u16string> Names(HKEY key) {
    std::vector<std::u16string> names;
    char16_t name[256];
    for (DWORD i = 0, size = 256; RegEnumKeyExW(key, i, name, &size, nullptr, nullptr, nullptr, nullptr) == 0;
         ++i, size = 256)
      names.emplace_back(name, size);
    return names;
  }
  UniqueKey Create(const char16_t* name, DWORD options = 0, DWORD access = KEY_ALL_ACCESS) {
    UniqueKey key;
    EXPECT_EQ(RegCreateKeyExW(base.get(), name, 0, nullptr, options, access, nullptr, key.put(), nullptr), 0);
    return key;
  }
  LSTATUS Open(const char16_t* name, UniqueKey& key, DWORD options = 0) {
    return RegOpenKeyExW(base.get(), name, options, KEY_READ, key.put());
  }

  UniqueKey base;
};

TEST_F(RegistryKeys, OpeningTellsWhatIsWrong) {
  HKEY key = reinterpret_cast<HKEY>(std::uintptr_t{0x1234});
  EXPECT_EQ(RegOpenKeyExW(base.get(), u"missing", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(RegOpenKeyExW(base.get(), u"missing", 0, KEY_READ, nullptr), kInvalidParameter);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"\\Software", 0, KEY_READ, &key), ERROR_BAD_PATHNAME);
  EXPECT_EQ(RegOpenKeyExW(nullptr, u"Software", 0, KEY_READ, &key), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegCloseKey(nullptr), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), 0);
}

TEST_F(RegistryKeys, NoNameOpensTheKeyItselfAgain) {
  UniqueKey again, third;
  ASSERT_EQ(Open(nullptr, again), 0);
  EXPECT_NE(again.get(), base.get());
  ASSERT_EQ(Open(u"", third), 0);
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, nullptr, 0, KEY_READ, again.put()), 0);
  EXPECT_EQ(again.release(), HKEY_CURRENT_USER);
}

TEST_F(RegistryKeys, CreatingMakesEveryKeyOfThePathAndTellsWhetherItWasThere) {
  UniqueKey key;
  DWORD disposition = 0;
  ASSERT_EQ(RegCreateKeyExW(base.get(), u"a\\B\\c", 0, nullptr, 0, KEY_READ, nullptr, key.put(), &disposition), 0);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  ASSERT_EQ(RegCreateKeyExW(base.get(), u"A\\b\\C", 0, nullptr, 0, KEY_READ, nullptr, key.put(), &disposition), 0);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  if (!contract::OnWine()) {  // it faults there
    EXPECT_EQ(RegCreateKeyExW(base.get(), u"x", 0, nullptr, 0, KEY_READ, nullptr, nullptr, nullptr), ERROR_BADKEY);
  }
  HKEY none = nullptr;
  EXPECT_EQ(RegCreateKeyExW(base.get(), u"\\x", 0, nullptr, 0, KEY_READ, nullptr, &none, nullptr), ERROR_BAD_PATHNAME);
}

TEST_F(RegistryKeys, AnyCaseFindsAKeyAndNamesKeepTheirs) {
  Create(u"Größe Ärger");
  UniqueKey key;
  EXPECT_EQ(Open(u"GRÖßE äRGER", key), 0);
  EXPECT_EQ(Names(base.get()), (std::vector<std::u16string>{u"Größe Ärger"}));
}

TEST_F(RegistryKeys, SubKeysComeByUpperCasedName) {
  for (const auto* const name : {u"b", u"A", u"a1", u"C", u"B2"}) Create(name);
  std::vector<std::u16string> expected = {u"A", u"a1", u"b", u"B2", u"C"};
  if (!contract::OnWine()) {  // it compares lower case, so that an underscore comes before letters
    Create(u"_x");
    expected.push_back(u"_x");
  }
  EXPECT_EQ(Names(base.get()), expected);
}

TEST_F(RegistryKeys, EnumerationCountsWithoutTheTerminator) {
  Create(u"four");
  char16_t name[8] = {};
  DWORD size = 4;
  EXPECT_EQ(RegEnumKeyExW(base.get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
  size = 5;
  EXPECT_EQ(RegEnumKeyExW(base.get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(size, 4U);
  size = 8;
  EXPECT_EQ(RegEnumKeyExW(base.get(), 1, name, &size, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);

  EXPECT_EQ(RegEnumKeyW(base.get(), 0, name, 4), ERROR_MORE_DATA);
  name[0] = u'#';
  EXPECT_EQ(RegEnumKeyW(base.get(), 0, name, 5), 0);
  EXPECT_EQ(std::u16string(name), u"four");
  EXPECT_EQ(RegEnumKeyW(base.get(), 1, name, 8), ERROR_NO_MORE_ITEMS);
}

TEST_F(RegistryKeys, InformationHasCountsAndLongestNames) {
  Create(u"abcde");
  Create(u"ab");
  const BYTE data[7] = {};
  EXPECT_EQ(RegSetValueExW(base.get(), u"name", 0, REG_BINARY, data, sizeof data), 0);
  EXPECT_EQ(RegSetValueExW(base.get(), u"longer", 0, REG_BINARY, data, 2), 0);
  DWORD keys = 0, longestKey = 0, values = 0, longestName = 0, longestData = 0, security = 0;
  FILETIME time{};
  ASSERT_EQ(RegQueryInfoKeyW(base.get(), nullptr, nullptr, nullptr, &keys, &longestKey, nullptr, &values, &longestName,
                             &longestData, &security, &time),
            0);
  EXPECT_EQ(keys, 2U);
  EXPECT_EQ(longestKey, 5U);
  EXPECT_EQ(values, 2U);
  EXPECT_EQ(longestName, 6U);
  EXPECT_EQ(longestData, 7U);
  EXPECT_NE(time.dwHighDateTime, 0U);
}

TEST_F(RegistryKeys, AClassIsKept) {
  UniqueKey key;
  char16_t className[] = u"Class";
  ASSERT_EQ(RegCreateKeyExW(base.get(), u"k", 0, className, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr), 0);
  char16_t buffer[8] = {};
  DWORD size = 8;
  ASSERT_EQ(RegQueryInfoKeyW(key.get(), buffer, &size, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            0);
  EXPECT_EQ(std::u16string(buffer), u"Class");
  EXPECT_EQ(size, 5U);
  size = 5;
  EXPECT_EQ(RegQueryInfoKeyW(key.get(), buffer, &size, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(size, 5U);
}

TEST_F(RegistryKeys, OnlyKeysWithoutSubKeysAreDeleted) {
  Create(u"a\\b");
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a\\b"), 0);
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a"), 0);
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(base.get(), nullptr), kInvalidParameter);
}

TEST_F(RegistryKeys, AHandleToADeletedKeyIsOfNoUse) {
  const UniqueKey key = Create(u"a");
  ASSERT_EQ(RegDeleteKeyW(base.get(), u"a"), 0);
  const BYTE data = 0;
  UniqueKey other;
  EXPECT_EQ(RegSetValueExW(key.get(), u"v", 0, REG_BINARY, &data, 1), ERROR_KEY_DELETED);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"v", nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
  EXPECT_EQ(RegOpenKeyExW(key.get(), u"b", 0, KEY_READ, other.put()), ERROR_KEY_DELETED);
  EXPECT_EQ(RegDeleteKeyW(key.get(), u""), ERROR_KEY_DELETED);
  Create(u"a");
  EXPECT_EQ(RegSetValueExW(key.get(), u"v", 0, REG_BINARY, &data, 1), ERROR_KEY_DELETED);  // the new one is another
}

TEST_F(RegistryKeys, BelowAVolatileKeyAllAreVolatile) {
  const UniqueKey parent = Create(u"v", REG_OPTION_VOLATILE);
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(parent.get(), u"c", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_CHILD_MUST_BE_VOLATILE);
  UniqueKey child;
  EXPECT_EQ(RegCreateKeyExW(parent.get(), u"c", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, child.put(),
                            nullptr),
            0);
}

TEST_F(RegistryKeys, LinksLeadElsewhere) {
  SKIP_ON_WINE("the kernel path of HKEY_CURRENT_USER is not known here");
  UniqueKey software;
  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"SOFTWARE\\RegistryContract\\Target\\Child", 0, nullptr, 0,
                            KEY_ALL_ACCESS, nullptr, software.put(), nullptr),
            0);
  const UniqueKey link = Create(u"link", kOptionCreateLink);
  UniqueKey key;
  EXPECT_EQ(Open(u"link", key), ERROR_FILE_NOT_FOUND);
  const std::u16string target = u"\\REGISTRY\\Machine\\Software\\RegistryContract\\Target",
                       nowhere = target + u" missing";
  const auto setTarget = [&](const std::u16string& to, DWORD type) {
    return RegSetValueExW(link.get(), u"SymbolicLinkValue", 0, type, reinterpret_cast<const BYTE*>(to.data()),
                          static_cast<DWORD>(to.size() * 2));
  };
  EXPECT_EQ(setTarget(target, REG_SZ), ERROR_ACCESS_DENIED);
  ASSERT_EQ(setTarget(nowhere, REG_LINK), 0);
  EXPECT_EQ(Open(u"link", key), ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(setTarget(target, REG_LINK), 0);
  ASSERT_EQ(Open(u"link", key), 0);
  EXPECT_EQ(Names(key.get()), (std::vector<std::u16string>{u"Child"}));
  EXPECT_EQ(Open(u"link\\Child", key), 0);
  HKEY none = nullptr;
  EXPECT_EQ(
      RegCreateKeyExW(base.get(), u"link", 0, nullptr, kOptionCreateLink, KEY_ALL_ACCESS, nullptr, &none, nullptr),
      ERROR_ALREADY_EXISTS);
  // Deleting takes the link, not what it leads to.
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"link"), 0);
  EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"SOFTWARE\\RegistryContract\\Target\\Child", 0, KEY_READ, key.put()), 0);
  DeleteTree(HKEY_LOCAL_MACHINE, u"SOFTWARE\\RegistryContract");
}

}  // namespace
