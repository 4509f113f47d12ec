// The regf format: what is written is read back, and damage is told from content. What others make of hives, and how
// theirs are read, is looked at from outside.
#include <gtest/gtest.h>

#include <random>

#include "win32/emulated/registry/hive.h"
#include "win32/emulated/registry/hive_format.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace {

using namespace emulated;
using win32::DWORD;

constexpr FileTime kThen = 133'000'000'000'000'000;

std::shared_ptr<const UpCase> Upper() {
  static const auto upCase = std::make_shared<const UpCase>();
  return upCase;
}

std::shared_ptr<const Bytes> OtherSecurity() {
  static const auto security = std::make_shared<const Bytes>(DescriptorFromText(u"O:BAG:SYD:(A;;KA;;;BA)").value());
  return security;
}

Bytes Pattern(std::size_t size) {
  Bytes data(size);
  for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return data;
}

HiveKey& Add(Hive& hive, HiveKey& parent, std::u16string_view name,
             std::shared_ptr<const Bytes> security = MachineHiveSecurity()) {
  return *hive.AddKey(parent, name, std::move(security), false, kThen + static_cast<FileTime>(name.size()));
}

// One of everything that a hive can hold.
std::shared_ptr<Hive> FullHive() {
  const auto hive = NewHive(u"ROOT", MachineHiveSecurity(), Upper(), kThen);
  HiveKey& values = Add(*hive, *hive->root, u"Values");
  values.values = {{u"zuletzt", win32::REG_SZ, RegistryText(u"text")},
                   {u"", win32::REG_SZ, Bytes{'x', 0}},
                   {u"Größe", 0x12345, {}},
                   {u"名前", win32::REG_DWORD, {1, 2, 3, 4}}};
  for (const std::size_t size : {1U, 4U, 5U, 16343U, 16344U, 16345U, 32688U, 32689U, 200'000U})
    values.values.push_back({u"size " + Utf16(std::to_string(size)), win32::REG_BINARY, Pattern(size)});
  HiveKey& names = Add(*hive, *hive->root, u"abcd_äöüß", OtherSecurity());
  names.className = u"Klasse";
  names.accessBits = 3;
  Add(*hive, names, u"weird™").virtualization = 0x28;
  HiveKey& link = Add(*hive, *hive->root, u"Link");
  link.flags |= kKeySymbolicLink;
  link.values = {{u"SymbolicLinkValue", win32::REG_LINK, Pattern(20)}};
  HiveKey& many = Add(*hive, *hive->root, u"Many");
  for (int i = 0; i < 1200; ++i) Add(*hive, many, u"Key " + Utf16(std::to_string(i * 7919 % 1200)));
  HiveKey* deep = hive->root.get();
  for (int i = 0; i < 100; ++i) deep = &Add(*hive, *deep, u"deep");
  hive->AddKey(*hive->root, u"Volatile", MachineHiveSecurity(), true, kThen);
  return hive;
}

// All that a key is, but for its children.
auto Described(const HiveKey& key) {
  std::vector<std::tuple<std::u16string, DWORD, Bytes>> values;
  for (const RegistryValue& value : key.values) values.emplace_back(value.name, value.type, value.data);
  return std::tuple(key.name, key.flags & ~kKeyCompressedName, key.lastWrite, key.className, key.accessBits,
                    key.virtualization, *key.security, values, key.children.size());
}

void ExpectSame(const HiveKey& a, const HiveKey& b) {
  ASSERT_TRUE(Described(a) == Described(b)) << Utf8(a.name);
  for (std::size_t i = 0; i < a.children.size(); ++i) ExpectSame(*a.children[i], *b.children[i]);
}

void FixChecksum(Bytes& file) { StoreLittleEndian(std::span(file), regf::kChecksum, regf::Checksum(file.data())); }

TEST(Hive, WhatIsWrittenIsReadBack) {
  const auto hive = FullHive();
  const Bytes file = WriteHive(*hive, kThen);
  hive->RemoveKey(*hive->root->Child(u"VOLATILE"), kThen);
  hive->root->lastWrite = kThen;
  std::string error;
  const auto again = ReadHive(file, Upper(), error);
  ASSERT_TRUE(again) << error;
  hive->root->lastWrite = again->root->lastWrite;
  ExpectSame(*hive->root, *again->root);
  EXPECT_EQ(again->root->Child(u"VOLATILE"), nullptr);

  // A second writing is the same but for the sequence numbers and what they are summed into.
  Bytes second = WriteHive(*again, kThen);
  std::memcpy(second.data() + regf::kPrimarySequence, file.data() + regf::kPrimarySequence, 8);
  FixChecksum(second);
  EXPECT_TRUE(second == file);
}

TEST(Hive, KeepsTheBaseBlocksOwnFields) {
  Bytes file = BlankHive(u"SYSTEM", kThen);
  EXPECT_EQ(file.size(), 8192U);
  for (std::size_t at : {112U, 128U, 148U, 4040U}) file[at] = 0xA5;
  file[regf::kMinor] = 3;  // the oldest version: no hashes, no segments
  FixChecksum(file);
  std::string error;
  const auto hive = ReadHive(file, Upper(), error);
  ASSERT_TRUE(hive) << error;
  hive->root->values.push_back({u"big", win32::REG_BINARY, Pattern(40'000)});
  const Bytes written = WriteHive(*hive, kThen + 5);
  for (std::size_t at : {112U, 128U, 148U, 4040U}) EXPECT_EQ(written[at], 0xA5);
  EXPECT_EQ(written[regf::kMinor], 3);
  const auto again = ReadHive(written, Upper(), error);
  ASSERT_TRUE(again) << error;
  EXPECT_TRUE(again->root->values[0].data == Pattern(40'000));
}

TEST(Hive, HashesNamesAsWindowsDoes) {
  EXPECT_EQ(NameHash((*Upper())(u"abcd_äöüß")), 0xCD87D55EU);
  EXPECT_EQ(NameHash((*Upper())(u"weird™")), 0x6F86A4D5U);
}

TEST(Hive, RefusesWhatIsDirtyDamagedOrUnknown) {
  const auto hive = NewHive(u"ROOT", MachineHiveSecurity(), Upper(), kThen);
  Add(*hive, *hive->root, u"One");
  const Bytes good = WriteHive(*hive, kThen);
  Bytes summed = good, dirty = good, unknown = good, twice = good;
  summed[regf::kPrimarySequence] ^= 1;
  dirty[regf::kPrimarySequence] ^= 1;
  unknown[regf::kMinor] = 9;
  // A key that lists itself: a record has one owner.
  const auto root = LoadLittleEndian<std::uint32_t>(good, regf::kRootCell);
  const auto list = LoadLittleEndian<std::uint32_t>(good, regf::kBaseBlock + root + 4 + regf::kNodeSubKeyList);
  StoreLittleEndian(std::span(twice), regf::kBaseBlock + list + 4 + 4, root);
  for (Bytes* const file : {&dirty, &unknown}) FixChecksum(*file);
  const std::pair<Bytes, const char*> cases[] = {
      {{}, "not a registry hive"},   {Bytes(8192, 'x'), "not a registry hive"},
      {summed, "checksum"},          {dirty, "dirty"},
      {unknown, "version"},          {{good.begin(), good.end() - 4096}, "shorter"},
      {twice, "a record of its own"}};
  for (const auto& [file, reason] : cases) {
    std::string error;
    EXPECT_EQ(ReadHive(file, Upper(), error), nullptr);
    EXPECT_NE(error.find(reason), std::string::npos) << error;
  }
}

TEST(Hive, SurvivesAnyDamage) {
  const auto hive = NewHive(u"ROOT", MachineHiveSecurity(), Upper(), kThen);
  HiveKey& one = Add(*hive, *hive->root, u"One", OtherSecurity());
  one.className = u"Class";
  one.values = {{u"big", win32::REG_BINARY, Pattern(17'000)},
                {u"small", win32::REG_SZ, RegistryText(u"text")},
                {u"n", win32::REG_DWORD, {1, 0, 0, 0}}};
  for (int i = 0; i < 510; ++i) Add(*hive, i % 100 == 0 ? one : *hive->root, u"k" + Utf16(std::to_string(i)));
  const Bytes good = WriteHive(*hive, kThen);
  std::mt19937 random(4711);
  int read = 0, refused = 0;
  for (int round = 0; round < 1500; ++round) {
    Bytes bad = good;
    for (unsigned changes = 1 + random() % 4; changes != 0; --changes) {
      const std::size_t at =
          random() % 8 == 0 ? random() % 512 : regf::kBaseBlock + random() % (bad.size() - regf::kBaseBlock);
      static constexpr std::uint8_t kNasty[] = {0, 1, 0x7F, 0x80, 0xFF};
      bad[at] = random() % 2 ? static_cast<std::uint8_t>(random()) : kNasty[random() % 5];
    }
    if (random() % 10 == 0) bad.resize(random() % bad.size());
    if (bad.size() >= regf::kBaseBlock) FixChecksum(bad);
    std::string error;
    if (const auto survivor = ReadHive(bad, Upper(), error)) {
      ++read;
      ASSERT_TRUE(ReadHive(WriteHive(*survivor, kThen), Upper(), error)) << error;
    } else {
      ++refused;
      ASSERT_FALSE(error.empty());
      ASSERT_EQ(error.find('\n'), std::string::npos);
    }
  }
  EXPECT_GT(read, 50);
  EXPECT_GT(refused, 50);
}

}  // namespace
