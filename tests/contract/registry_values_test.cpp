// Values of the registry.
#include <vector>

#include "contract/fixture.h"

namespace {

using namespace win32;

class RegistryValues : public contract::FileTest {
 protected:
  static constexpr const char16_t* kPath = u"Software\\RegistryContract values";

  RegistryValues() {
    RegDeleteKeyW(HKEY_CURRENT_USER, kPath);
    EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr), 0);
  }
  ~RegistryValues() override { RegDeleteKeyW(HKEY_CURRENT_USER, kPath); }

  LSTATUS Set(const char16_t* name, DWORD type, const std::vector<BYTE>& data) {
    return RegSetValueExW(key.get(), name, 0, type, data.data(), static_cast<DWORD>(data.size()));
  }
  std::vector<BYTE> Get(const char16_t* name, DWORD* type = nullptr) {
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key.get(), name, nullptr, type, nullptr, &size), 0);
    std::vector<BYTE> data(size + 1);  // never an empty buffer
    EXPECT_EQ(RegQueryValueExW(key.get(), name, nullptr, type, data.data(), &size), 0);
    data.resize(size);
    return data;
  }
  std::vector<std::u16string> Names() {
    std::vector<std::u16string> names;
    char16_t name[64];
    for (DWORD i = 0, size = 64; RegEnumValueW(key.get(), i, name, &size, nullptr, nullptr, nullptr, nullptr) == 0;
         ++i, size = 64)
      names.emplace_back(name, size);
    return names;
  }

  UniqueKey key;
};

TEST_F(RegistryValues, AreTheBytesThatWereSet) {
  const std::vector<BYTE> longer = {'a', 0, 'b', 0, 'c', 0}, text(longer.begin(), longer.begin() + 4);  // no terminator
  ASSERT_EQ(RegSetValueExW(key.get(), u"text", 0, REG_SZ, longer.data(), 4), 0);
  DWORD type = 0;
  EXPECT_EQ(Get(u"TEXT", &type), text);
  EXPECT_EQ(type, REG_SZ);
  ASSERT_EQ(Set(u"odd", REG_EXPAND_SZ, {'a', 0, 'b'}), 0);
  EXPECT_EQ(Get(u"odd").size(), 3U);
  ASSERT_EQ(Set(u"type", 0x77777, {1}), 0);
  Get(u"type", &type);
  EXPECT_EQ(type, 0x77777U);
  ASSERT_EQ(Set(u"big", REG_BINARY, std::vector<BYTE>(100'000, 7)), 0);
  EXPECT_EQ(Get(u"big"), std::vector<BYTE>(100'000, 7));
  // Setting again replaces type and data.
  ASSERT_EQ(Set(u"text", REG_DWORD, {1, 2, 3, 4}), 0);
  EXPECT_EQ(Get(u"text", &type), (std::vector<BYTE>{1, 2, 3, 4}));
  EXPECT_EQ(type, REG_DWORD);
}

TEST_F(RegistryValues, NoNameIsTheDefaultValue) {
  ASSERT_EQ(Set(nullptr, REG_BINARY, {1}), 0);
  EXPECT_EQ(Get(u""), std::vector<BYTE>{1});
  ASSERT_EQ(RegSetValueExW(key.get(), u"", 0, REG_SZ, nullptr, 0), 0);
  EXPECT_EQ(Get(nullptr), std::vector<BYTE>{});
  EXPECT_EQ(RegDeleteValueW(key.get(), nullptr), 0);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryValues, QueriesTellTheSizeThatIsNeeded) {
  ASSERT_EQ(Set(u"v", REG_BINARY, {1, 2, 3, 4, 5}), 0);
  BYTE data[8] = {};
  DWORD size = 4, type = 0;
  EXPECT_EQ(RegQueryValueExW(key.get(), u"v", nullptr, &type, data, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(type, REG_BINARY);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"v", nullptr, nullptr, nullptr, &size), 0);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"v", nullptr, nullptr, data, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"missing", nullptr, nullptr, data, &size), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryValues, EnumerationIsInTheOrderTheyWereSet) {
  SKIP_ON_WINE("Wine sorts values by name");
  for (const auto* const name : {u"A", u"C", u"D", u"B"}) ASSERT_EQ(Set(name, REG_BINARY, {1}), 0);
  ASSERT_EQ(Set(u"C", REG_BINARY, {2}), 0);
  EXPECT_EQ(Names(), (std::vector<std::u16string>{u"A", u"C", u"D", u"B"}));
  EXPECT_EQ(RegDeleteValueW(key.get(), u"c"), 0);
  EXPECT_EQ(RegDeleteValueW(key.get(), u"c"), ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(Set(u"C", REG_BINARY, {3}), 0);
  EXPECT_EQ(Names(), (std::vector<std::u16string>{u"A", u"D", u"B", u"C"}));
}

TEST_F(RegistryValues, EnumerationNeedsRoomForNameAndData) {
  ASSERT_EQ(Set(u"Test", REG_BINARY, {1, 2, 3}), 0);
  char16_t name[8] = {};
  BYTE data[4] = {};
  DWORD nameSize = 4, dataSize = 4, type = 0;
  EXPECT_EQ(RegEnumValueW(key.get(), 0, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_MORE_DATA);
  nameSize = 8;
  dataSize = 2;
  EXPECT_EQ(RegEnumValueW(key.get(), 0, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_MORE_DATA);
  EXPECT_EQ(dataSize, 3U);
  nameSize = 5;
  dataSize = 3;
  EXPECT_EQ(RegEnumValueW(key.get(), 0, name, &nameSize, nullptr, &type, data, &dataSize), 0);
  EXPECT_EQ(std::u16string(name), u"Test");
  EXPECT_EQ(nameSize, 4U);
  EXPECT_EQ(type, REG_BINARY);
  EXPECT_EQ(RegEnumValueW(key.get(), 1, name, &nameSize, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
}

TEST_F(RegistryValues, NeedTheHandlesRights) {
  UniqueKey reader;
  ASSERT_EQ(RegOpenKeyExW(key.get(), nullptr, 0, KEY_READ, reader.put()), 0);
  const BYTE data = 1;
  EXPECT_EQ(RegSetValueExW(reader.get(), u"v", 0, REG_BINARY, &data, 1), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteValueW(reader.get(), u"v"), ERROR_ACCESS_DENIED);
}

}  // namespace
