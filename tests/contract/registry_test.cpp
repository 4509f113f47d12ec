// Keys and values of the registry.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

// Works in a key of its own below contract::kKey.
class RegistryKeys : public FileTest {
 protected:
  static constexpr const char16_t* kPath = u"Software\\ContractTests\\Keys";
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
  static LSTATUS Create(HKEY parent, const char16_t* name, UniqueKey& key, DWORD options = 0,
                        DWORD* disposition = nullptr) {
    return RegCreateKeyExW(parent, name, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, key.put(), disposition);
  }
  UniqueKey Create(const char16_t* name, DWORD options = 0) {
    UniqueKey key;
    EXPECT_EQ(Create(base.get(), name, key, options), 0);
    return key;
  }
  LSTATUS Open(const char16_t* name, UniqueKey& key) { return RegOpenKeyExW(base.get(), name, 0, KEY_READ, key.put()); }

  UniqueKey base;
};

TEST_F(RegistryKeys, OpeningAndCreatingTellWhatIsWrong) {
  HKEY none = reinterpret_cast<HKEY>(std::uintptr_t{0x1234});
  EXPECT_EQ(RegOpenKeyExW(base.get(), u"missing", 0, KEY_READ, &none), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"\\Software", 0, KEY_READ, &none), ERROR_BAD_PATHNAME);
  // No name opens the key itself again.
  UniqueKey key;
  for (const char16_t* const name : {static_cast<const char16_t*>(nullptr), u""}) {
    ASSERT_EQ(Open(name, key), 0);
    EXPECT_NE(key.get(), base.get());
  }
  DWORD disposition = 0;
  ASSERT_EQ(Create(base.get(), u"a\\Größe Ärger\\c", key, 0, &disposition), 0);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  ASSERT_EQ(Create(base.get(), u"A\\GRÖßE äRGER\\C", key, 0, &disposition), 0);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  ASSERT_EQ(Open(u"A", key), 0);
  EXPECT_EQ(Names(key.get()), (std::vector<std::u16string>{u"Größe Ärger"}));
}

TEST_F(RegistryKeys, EnumerationCountsWithoutTheTerminator) {
  Create(u"four");
  char16_t name[8] = {};
  for (const auto& [index, room, error] :
       {std::tuple(0u, 4u, ERROR_MORE_DATA), {0u, 5u, 0u}, {1u, 8u, ERROR_NO_MORE_ITEMS}}) {
    DWORD size = room;
    EXPECT_EQ(RegEnumKeyExW(base.get(), index, name, &size, nullptr, nullptr, nullptr, nullptr),
              static_cast<LSTATUS>(error));
    EXPECT_TRUE(error != 0 || (size == 4 && std::u16string(name) == u"four"));
    EXPECT_EQ(RegEnumKeyW(base.get(), index, name, room), static_cast<LSTATUS>(error));
  }
}

TEST_F(RegistryKeys, OnlyKeysWithoutSubKeysAreDeletedAndTheirHandlesAreOfNoUse) {
  Create(u"a\\b");
  const UniqueKey key = Create(u"a");
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a\\b"), 0);
  EXPECT_EQ(RegDeleteKeyW(base.get(), u"a"), 0);
  Create(u"a");  // another one
  const BYTE data = 0;
  EXPECT_EQ(RegSetValueExW(key.get(), u"v", 0, REG_BINARY, &data, 1), ERROR_KEY_DELETED);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"v", nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
  EXPECT_EQ(RegDeleteKeyW(key.get(), u""), ERROR_KEY_DELETED);
  for (const char16_t* const below : {u"", u"b"}) {
    UniqueKey opened;
    EXPECT_EQ(RegOpenKeyExW(key.get(), below, 0, KEY_READ, opened.put()), ERROR_KEY_DELETED);
    EXPECT_EQ(Create(key.get(), below, opened), ERROR_KEY_DELETED);
  }
}

TEST_F(RegistryKeys, ATextTakesTheTerminatorAlongThatStandsRightBehindIt) {
  const char16_t text[] = u"ab\0\0c";
  for (const auto& [type, given, stored] : {std::tuple(REG_SZ, 2u, 3u),
                                            {REG_EXPAND_SZ, 2u, 3u},
                                            {REG_MULTI_SZ, 2u, 3u},
                                            {REG_BINARY, 2u, 2u},
                                            {REG_SZ, 1u, 1u},
                                            {REG_SZ, 3u, 3u},
                                            {REG_SZ, 0u, 0u}}) {
    ASSERT_EQ(RegSetValueExW(base.get(), u"v", 0, type, reinterpret_cast<const BYTE*>(text), given * 2), 0);
    BYTE data[16];
    DWORD size = sizeof data;
    EXPECT_EQ(RegQueryValueExW(base.get(), u"v", nullptr, nullptr, data, &size), 0);
    EXPECT_TRUE(size == stored * 2 && std::memcmp(data, text, size) == 0) << type << " of " << given << ": " << size;
  }
}

TEST_F(RegistryKeys, QueriesTellTheSizeThatIsNeededAndNoNameIsTheDefaultValue) {
  BYTE data[8] = {};
  ASSERT_EQ(RegSetValueExW(base.get(), nullptr, 0, REG_BINARY, data, 5), 0);
  DWORD size = 4, type = 0;
  EXPECT_EQ(RegQueryValueExW(base.get(), u"", nullptr, &type, data, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, 5U);
  ASSERT_EQ(RegSetValueExW(base.get(), u"", 0, REG_SZ, nullptr, 0), 0);
  size = 8;
  EXPECT_EQ(RegQueryValueExW(base.get(), nullptr, nullptr, &type, data, &size), 0);
  EXPECT_TRUE(size == 0 && type == REG_SZ);
  UniqueKey reader;
  ASSERT_EQ(Open(u"", reader), 0);
  EXPECT_EQ(RegSetValueExW(reader.get(), u"v", 0, REG_BINARY, data, 1), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteValueW(reader.get(), nullptr), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteValueW(base.get(), nullptr), 0);
  EXPECT_EQ(RegQueryValueExW(base.get(), u"", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
}

}  // namespace
