// The regf format: what is written is read back, and damage is told from content. What others make of hives, and how
// theirs are read, is looked at from outside.
#include <gtest/gtest.h>

#include <random>

#include "win32/emulated/registry/hive.h"
#include "win32/emulated/registry/hive_format.h"
#include "win32/emulated/registry/hive_log.h"
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
  values.Values() = {
      {u"zuletzt", win32::REG_SZ, RegistryText(u"text")}, {u"", win32::REG_SZ, Bytes{'x', 0}}, {u"名前", 0x12345, {}}};
  for (const std::size_t size : {4U, 5U, 16344U, 16345U, 32689U})
    values.Values().push_back({u"size " + Utf16(std::to_string(size)), win32::REG_BINARY, Pattern(size)});
  HiveKey& names = add(*hive->root, u"abcd_äöüß", u"O:BAG:SYD:(A;;KA;;;BA)");
  names.className = u"Klasse";
  names.accessBits = 3;
  add(names, u"weird™").virtualization = 0x28;
  HiveKey& handle = add(names, u"CurrentLanguage");  // as in every SOFTWARE hive
  handle.flags |= kKeyPredefinedHandle;
  handle.predefinedHandle = 0x80000060;
  values.Values().front().flags = 2;  // a tombstone
  add(*hive->root, u"Link").flags |= kKeySymbolicLink;
  HiveKey& many = add(*hive->root, u"Many");
  for (int i = 0; i < keys; ++i) add(many, u"Key " + Utf16(std::to_string(i * 7919 % keys)));
  HiveKey* deep = hive->root.get();
  for (int i = 0; i < 100; ++i) deep = &add(*deep, u"deep");
  hive->AddKey(*hive->root, u"Volatile", MachineHiveSecurity(), true, kThen);
  return hive;
}

void ExpectSame(HiveKey& a, HiveKey& b) {
  const auto described = [](HiveKey& key) {
    std::vector<std::tuple<std::u16string, DWORD, Bytes, unsigned>> values;
    for (const RegistryValue& value : key.Values())
      values.emplace_back(value.name, value.type, value.data, value.flags);
    return std::tuple(key.name, key.flags & ~kKeyCompressedName, key.lastWrite, key.className, key.accessBits,
                      key.virtualization, key.predefinedHandle, *key.security, values, key.Children().size());
  };
  ASSERT_TRUE(described(a) == described(b)) << Utf8(a.name);
  for (std::size_t i = 0; i < a.Children().size(); ++i) ExpectSame(*a.Children()[i], *b.Children()[i]);
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
  oldHive->root->Values() = hive->root->Child(u"VALUES")->Values();
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

using Pages = std::vector<std::pair<std::uint32_t, ByteView>>;

// The parts of a hive's bins that another state of it lacks.
Pages Changes(const Bytes& before, const Bytes& after, std::size_t unit) {
  Pages pages;
  for (std::size_t at = regf::kBaseBlock; at < after.size(); at += unit) {
    const ByteView page(after.data() + at, unit);
    if (at >= before.size() || !std::equal(page.begin(), page.end(), before.data() + at))
      pages.emplace_back(static_cast<std::uint32_t>(at - regf::kBaseBlock), page);
  }
  return pages;
}

Bytes LogHeader(const Bytes& hive, std::uint32_t type, std::uint32_t sequence) {
  Bytes log(hive.begin(), hive.begin() + 512);
  for (const std::size_t field : {regf::kPrimarySequence, regf::kSecondarySequence})
    StoreLittleEndian(std::span(log), field, sequence);
  StoreLittleEndian(std::span(log), regf::kType, type);
  FixChecksum(log);
  return log;
}

void AppendEntry(Bytes& log, std::uint32_t sequence, const Bytes& before, const Bytes& after) {
  const Pages pages = Changes(before, after, 4096);
  Bytes entry{'H', 'v', 'L', 'E'};
  for (const std::size_t field :
       {std::size_t{0}, std::size_t{0}, std::size_t{sequence}, after.size() - 4096, pages.size()})
    AppendLittleEndian(entry, static_cast<std::uint32_t>(field));
  entry.resize(40);
  for (const auto& [offset, page] : pages) {
    AppendLittleEndian(entry, offset);
    AppendLittleEndian(entry, static_cast<std::uint32_t>(page.size()));
  }
  for (const auto& [offset, page] : pages) entry.insert(entry.end(), page.begin(), page.end());
  entry.resize((entry.size() + 511) / 512 * 512);
  StoreLittleEndian(std::span(entry), 4, static_cast<std::uint32_t>(entry.size()));
  constexpr std::uint64_t kSeed = 0xC5554E7A884DEF82;
  StoreLittleEndian(std::span(entry), 24, Marvin32(ByteView(entry).subspan(40), kSeed));
  StoreLittleEndian(std::span(entry), 32, Marvin32(ByteView(entry).first(32), kSeed));
  log.insert(log.end(), entry.begin(), entry.end());
}

Bytes VectorLog(const Bytes& before, const Bytes& after) {
  Bytes log = LogHeader(after, 1, 41);
  std::copy_n(before.begin() + regf::kLastWritten, 8, log.begin() + regf::kLastWritten);
  FixChecksum(log);
  const std::size_t bits = log.size() + 4;
  log.insert(log.end(), {'D', 'I', 'R', 'T'});
  log.resize((bits + (after.size() - 4096) / 4096 + 511) / 512 * 512);
  for (const auto& [offset, page] : Changes(before, after, 512)) {
    log[bits + offset / 4096] |= static_cast<std::uint8_t>(1U << offset / 512 % 8);
    log.insert(log.end(), page.begin(), page.end());
  }
  return log;
}

// Windows stops: the hive is as it was, or half-written, and what it lacks is in its logs.
TEST(Hive, ADirtyOneIsRecoveredFromItsLogs) {
  EXPECT_EQ(Marvin32(Bytes{}, 0x4FB61A001BDBCC), 0x30ED35C100CD3C7D) << "as .NET's own tests have it";
  EXPECT_EQ(Marvin32(Bytes{0xAB, 0x42, 0x7E, 0xA8, 0xD1, 0x0F, 0xC7}, 0x4FB61A001BDBCC), 0xE11847E4F0678C41);
  const auto hive = FullHive(40);
  const Bytes first = WriteHive(*hive, kThen);
  hive->root->Values() = {{u"later", win32::REG_BINARY, Pattern(9000)}};
  const Bytes second = WriteHive(*hive, kThen);
  hive->RemoveKey(*hive->root->Child(u"MANY"), kThen);
  const Bytes third = WriteHive(*hive, kThen);
  constexpr std::uint32_t kSecond = 7, kThird = 8;  // sequence numbers
  Bytes dirty = first, torn = first;
  StoreLittleEndian(std::span(dirty), regf::kPrimarySequence, kSecond + 1);
  StoreLittleEndian(std::span(dirty), regf::kSecondarySequence, kSecond);
  FixChecksum(dirty);
  std::fill_n(torn.begin() + 4, 100, std::uint8_t{0xEE});
  Bytes entries = LogHeader(first, 6, kSecond);
  const Bytes empty, header = entries;
  AppendEntry(entries, kSecond, first, second);
  Bytes one = entries, other = LogHeader(second, 6, kThird);
  AppendEntry(other, kThird, second, third);
  AppendEntry(entries, kThird, second, third);
  Bytes cut = entries, applied = header, stale = entries;
  cut.back() ^= 1;  // the last page of the last entry
  AppendEntry(applied, kSecond - 1, third, first);
  AppendEntry(applied, kSecond, first, second);
  AppendEntry(stale, kSecond - 2, first, second);  // left by an earlier round
  Bytes late = header;
  AppendEntry(late, kThird, second, third);
  const Bytes vectored = VectorLog(dirty, third);
  Bytes elsewhere = vectored;
  elsewhere[regf::kLastWritten] ^= 1;
  FixChecksum(elsewhere);
  const struct {
    const char* what;
    Bytes hive, log1, log2;
    const Bytes* recovered;  // null: refused
  } cases[] = {{"both in one", dirty, entries, empty, &third},
               {"one in each", dirty, one, other, &third},
               {"the other way round", dirty, other, one, &third},
               {"without its header", torn, entries, empty, &third},
               {"without its header, in two", torn, other, one, &third},
               {"the second is damaged", dirty, cut, empty, &second},
               {"some were applied before", dirty, applied, empty, &second},
               {"old ones behind", dirty, stale, empty, &third},
               {"the older format", dirty, empty, vectored, &third},
               {"the older format, without a header", torn, vectored, empty, &third},
               {"the first is missing", dirty, late, empty, nullptr},
               {"no entry", dirty, header, empty, nullptr},
               {"another hive's", dirty, elsewhere, empty, nullptr},
               {"none", dirty, empty, empty, nullptr}};
  for (const auto& row : cases) {
    EXPECT_TRUE(IsDirtyHive(row.hive)) << row.what;
    std::string error;
    const Bytes logs[] = {row.log1, row.log2};
    const auto recovered = RecoverHive(row.hive, logs, error);
    ASSERT_EQ(recovered.has_value(), row.recovered != nullptr) << row.what;
    EXPECT_EQ(error.find("is dirty") == 0, !recovered) << row.what;
    if (!recovered) continue;
    EXPECT_FALSE(IsDirtyHive(*recovered)) << row.what;
    const auto expected = ReadHive(*row.recovered, kUpper, error), read = ReadHive(*recovered, kUpper, error);
    ASSERT_TRUE(expected && read) << row.what << error;
    ExpectSame(*expected->root, *read->root);
  }
  // Whatever is in them.
  std::mt19937 random(4711);
  for (int round = 0; round < 600; ++round) {
    Bytes bad = round % 2 ? vectored : entries;
    for (int changes = 0; changes < 3; ++changes)
      bad[random() % std::min<std::size_t>(bad.size(), 1200)] = static_cast<std::uint8_t>(random());
    if (round % 5 == 0) bad.resize(random() % bad.size());
    if (bad.size() >= 512) FixChecksum(bad);
    std::string error;
    if (const auto recovered = RecoverHive(dirty, std::span(&bad, 1), error)) ReadHive(*recovered, kUpper, error);
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
