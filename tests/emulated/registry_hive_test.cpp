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
const auto kUpper = std::make_shared<const UpCase>();

Bytes Pattern(std::size_t size) {
  Bytes data(size);
  for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return data;
}

// One of everything that a hive can hold, with so many keys in its list.
std::shared_ptr<Hive> FullHive(int keys) {
  const auto hive = NewHive(u"ROOT", MachineHiveSecurity(), kUpper, kThen);
  const auto add = [&](HiveKey& parent, std::u16string_view name, const char16_t* sddl = nullptr) -> HiveKey& {
    const auto security =
        sddl ? std::make_shared<const Bytes>(DescriptorFromText(sddl).value()) : MachineHiveSecurity();
    return *hive->AddKey(parent, name, security, false, kThen + static_cast<FileTime>(name.size()));
  };
  HiveKey& values = add(*hive->root, u"Values");
  values.values = {
      {u"zuletzt", win32::REG_SZ, RegistryText(u"text")}, {u"", win32::REG_SZ, Bytes{'x', 0}}, {u"名前", 0x12345, {}}};
  for (const std::size_t size : {4U, 5U, 16344U, 16345U, 32689U})
    values.values.push_back({u"size " + Utf16(std::to_string(size)), win32::REG_BINARY, Pattern(size)});
  HiveKey& names = add(*hive->root, u"abcd_äöüß", u"O:BAG:SYD:(A;;KA;;;BA)");
  names.className = u"Klasse";
  names.accessBits = 3;
  add(names, u"weird™").virtualization = 0x28;
  add(*hive->root, u"Link").flags |= kKeySymbolicLink;
  HiveKey& many = add(*hive->root, u"Many");
  for (int i = 0; i < keys; ++i) add(many, u"Key " + Utf16(std::to_string(i * 7919 % keys)));
  HiveKey* deep = hive->root.get();
  for (int i = 0; i < 100; ++i) deep = &add(*deep, u"deep");
  hive->AddKey(*hive->root, u"Volatile", MachineHiveSecurity(), true, kThen);
  return hive;
}

void ExpectSame(const HiveKey& a, const HiveKey& b) {
  const auto described = [](const HiveKey& key) {
    std::vector<std::tuple<std::u16string, DWORD, Bytes>> values;
    for (const RegistryValue& value : key.values) values.emplace_back(value.name, value.type, value.data);
    return std::tuple(key.name, key.flags & ~kKeyCompressedName, key.lastWrite, key.className, key.accessBits,
                      key.virtualization, *key.security, values, key.children.size());
  };
  ASSERT_TRUE(described(a) == described(b)) << Utf8(a.name);
  for (std::size_t i = 0; i < a.children.size(); ++i) ExpectSame(*a.children[i], *b.children[i]);
}

void FixChecksum(Bytes& file) { StoreLittleEndian(std::span(file), regf::kChecksum, regf::Checksum(file.data())); }

TEST(Hive, WhatIsWrittenIsReadBack) {
  const auto expectReadBack = [](Hive& hive) {
    const Bytes file = WriteHive(hive, kThen);
    if (const auto key = hive.root->Child(u"VOLATILE")) hive.RemoveKey(*key, kThen);
    std::string error;
    const auto again = ReadHive(file, kUpper, error);
    ASSERT_TRUE(again) << error;
    hive.root->lastWrite = again->root->lastWrite;
    ExpectSame(*hive.root, *again->root);
  };
  const auto hive = FullHive(1200);
  expectReadBack(*hive);
  // The base block keeps what is not ours; the oldest version has no hashes and no segments.
  Bytes old = BlankHive(u"SYSTEM", kThen);
  old[128] = 0xA5;
  old[regf::kMinor] = 3;
  FixChecksum(old);
  std::string error;
  const auto oldHive = ReadHive(old, kUpper, error);
  ASSERT_TRUE(oldHive) << error;
  oldHive->root->values = hive->root->Child(u"VALUES")->values;
  expectReadBack(*oldHive);
  const Bytes written = WriteHive(*oldHive, kThen);
  EXPECT_TRUE(written[128] == 0xA5 && written[regf::kMinor] == 3);
  EXPECT_EQ(NameHash((*kUpper)(u"abcd_äöüß")), 0xCD87D55EU) << "as Windows does it";
}

TEST(Hive, RefusesWhatIsDirtyDamagedOrUnknown) {
  const Bytes good = WriteHive(*FullHive(1), kThen);
  Bytes summed = good, dirty = good, unknown = good, twice = good;
  summed[regf::kPrimarySequence] ^= 1;
  dirty[regf::kPrimarySequence] ^= 1;
  unknown[regf::kMinor] = 9;
  // A key that lists itself: a record has one owner.
  const auto root = LoadLittleEndian<std::uint32_t>(good, regf::kRootCell);
  const auto list = LoadLittleEndian<std::uint32_t>(good, regf::kBaseBlock + root + 4 + regf::kNodeSubKeyList);
  StoreLittleEndian(std::span(twice), regf::kBaseBlock + list + 4 + 4, root);
  for (Bytes* const file : {&dirty, &unknown}) FixChecksum(*file);
  const std::pair<Bytes, const char*> cases[] = {{Bytes(8192, 'x'), "not a registry hive"},
                                                 {summed, "checksum"},
                                                 {dirty, "dirty"},
                                                 {unknown, "version"},
                                                 {{good.begin(), good.end() - 4096}, "shorter"},
                                                 {twice, "a record of its own"}};
  for (const auto& [file, reason] : cases) {
    std::string error;
    EXPECT_EQ(ReadHive(file, kUpper, error), nullptr);
    EXPECT_NE(error.find(reason), std::string::npos) << error;
  }
}

TEST(Hive, SurvivesAnyDamage) {
  const Bytes good = WriteHive(*FullHive(510), kThen);
  std::mt19937 random(4711);
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
    const auto survivor = ReadHive(bad, kUpper, error);
    ASSERT_TRUE(survivor ? ReadHive(WriteHive(*survivor, kThen), kUpper, error) != nullptr : !error.empty()) << error;
  }
}

}  // namespace
