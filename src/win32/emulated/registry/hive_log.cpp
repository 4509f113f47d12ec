#include "win32/emulated/registry/hive_log.h"

#include <algorithm>
#include <bit>
#include <map>
#include <utility>

#include "win32/emulated/registry/hive_format.h"

namespace emulated {

using namespace regf;

namespace {

constexpr std::size_t kSector = 512;  // of a header and of a dirty page, whatever the disk's own sectors are
constexpr std::size_t kFlags = 144, kFirstBinTime = kBaseBlock + 20;
// Types of files in the header: a hive, and logs of either format.
constexpr std::uint32_t kHiveType = 0, kOldLogType = 1, kOldLogTypeToo = 2, kNewLogType = 6;
// A log entry
constexpr std::size_t kEntrySize = 4, kEntryFlags = 8, kEntrySequence = 12, kEntryBinsSize = 16, kEntryPages = 20,
                      kEntryDataHash = 24, kEntryHeaderHash = 32, kEntryReferences = 40;
constexpr std::uint64_t kHashSeed = 0xC5554E7A884DEF82;

std::uint32_t Number(ByteView from, std::size_t offset) { return LoadLittleEndian<std::uint32_t>(from, offset); }

bool HasSignature(ByteView from, std::size_t offset, const char* signature) {
  return offset <= from.size() && from.size() - offset >= 4 && std::memcmp(from.data() + offset, signature, 4) == 0;
}

bool HasSoundHeader(ByteView file) {
  return file.size() >= kSector && HasSignature(file, 0, "regf") && Number(file, kChecksum) == Checksum(file.data());
}

std::size_t SectorOf(ByteView log) {
  const std::uint32_t factor = Number(log, kClustering);
  return kSector * (factor >= 1 && factor <= 8 ? factor : 1);
}

bool IsPossibleSize(std::uint32_t bins) { return bins != 0 && bins % kBinUnit == 0 && bins <= 0x7FFFF000; }

// One transaction of the newer format.
struct Entry {
  ByteView bytes;
  std::uint32_t flags = 0, binsSize = 0;
};

// The entry at the offset, by its hashes and by what it says of its pages.
std::optional<Entry> EntryAt(ByteView log, std::size_t offset) {
  if (!HasSignature(log, offset, "HvLE") || log.size() - offset < kEntryReferences) return std::nullopt;
  const std::uint32_t size = Number(log, offset + kEntrySize);
  if (size < kEntryReferences || size % kSector != 0 || size > log.size() - offset) return std::nullopt;
  const Entry entry{log.subspan(offset, size), Number(log, offset + kEntryFlags), Number(log, offset + kEntryBinsSize)};
  if (LoadLittleEndian<std::uint64_t>(entry.bytes, kEntryDataHash) !=
          Marvin32(entry.bytes.subspan(kEntryReferences), kHashSeed) ||
      LoadLittleEndian<std::uint64_t>(entry.bytes, kEntryHeaderHash) !=
          Marvin32(entry.bytes.first(kEntryHeaderHash), kHashSeed) ||
      !IsPossibleSize(entry.binsSize))
    return std::nullopt;
  const std::uint64_t pages = Number(entry.bytes, kEntryPages);
  std::uint64_t end = kEntryReferences + 8 * pages;
  if (end > size) return std::nullopt;
  for (std::size_t page = 0; page < pages; ++page) {
    const std::uint64_t at = Number(entry.bytes, kEntryReferences + 8 * page),
                        length = Number(entry.bytes, kEntryReferences + 8 * page + 4);
    end += length;
    if (end > size || at + length > entry.binsSize) return std::nullopt;
  }
  return entry;
}

// The hive while changes are put into it: a header and bins.
class Recovered {
 public:
  Recovered(ByteView hive, ByteView header) : file_(hive.begin(), hive.end()) {
    file_.resize(std::max(file_.size(), kBaseBlock));
    std::ranges::copy(header.first(kSector), file_.begin());
  }

  void SetBinsSize(std::uint32_t size) {
    Store(kBinsSize, size);
    file_.resize(kBaseBlock + size);
  }
  void PutPage(std::size_t offset, ByteView page) {
    std::ranges::copy(page, file_.begin() + static_cast<std::ptrdiff_t>(kBaseBlock + offset));
  }
  void Apply(const Entry& entry) {
    SetBinsSize(entry.binsSize);
    Store(kFlags, entry.flags);
    const std::size_t pages = Number(entry.bytes, kEntryPages);
    std::size_t from = kEntryReferences + 8 * pages;
    for (std::size_t page = 0; page < pages; ++page) {
      const std::size_t length = Number(entry.bytes, kEntryReferences + 8 * page + 4);
      PutPage(Number(entry.bytes, kEntryReferences + 8 * page), entry.bytes.subspan(from, length));
      from += length;
    }
  }
  // The clean file.
  Bytes Take(std::uint32_t sequence) {
    Store(kType, kHiveType);
    Store(kPrimarySequence, sequence);
    Store(kSecondarySequence, sequence);
    Store(kChecksum, Checksum(file_.data()));
    return std::move(file_);
  }

 private:
  void Store(std::size_t offset, std::uint32_t value) { StoreLittleEndian(std::span(file_), offset, value); }
  Bytes file_;
};

using Entries = std::map<std::uint32_t, Entry>;  // by their sequence numbers

Entries EntriesOf(std::span<const Bytes> logs) {
  Entries entries;
  for (const Bytes& log : logs) {
    if (!HasSoundHeader(log) || Number(log, kType) != kNewLogType) continue;
    std::size_t offset = SectorOf(log);
    std::optional<std::uint32_t> last;
    while (const auto entry = EntryAt(log, offset)) {
      const std::uint32_t sequence = Number(entry->bytes, kEntrySequence);
      if (last && sequence != *last + 1) break;  // what stands behind was left by earlier rounds
      entries.emplace(sequence, *entry);
      last = sequence;
      offset += entry->bytes.size();
    }
  }
  return entries;
}

// The first number from `sequence` on without an entry.
std::uint32_t EndOfChain(const Entries& entries, std::uint32_t sequence) {
  while (entries.contains(sequence)) ++sequence;
  return sequence;
}

// The header to begin with: the hive's own; where that is damaged, the log's from which the changes lead furthest, and
// of two the one with more of them: what the hive has already is only written once more.
std::optional<ByteView> FirstHeader(ByteView hive, std::span<const Bytes> logs, const Entries& entries) {
  if (HasSoundHeader(hive)) return hive;
  std::optional<ByteView> best;
  std::pair<std::uint32_t, std::uint32_t> most;  // the end, and how many lead there
  for (const Bytes& log : logs) {
    if (!HasSoundHeader(log) || Number(log, kType) != kNewLogType) continue;
    const std::uint32_t first = Number(log, kSecondarySequence), end = EndOfChain(entries, first);
    if (end == first || (best && std::pair(end, end - first) <= most)) continue;
    best = log;
    most = {end, end - first};
  }
  return best;
}

std::optional<Bytes> RecoverByEntries(ByteView hive, std::span<const Bytes> logs) {
  const Entries entries = EntriesOf(logs);
  const auto header = FirstHeader(hive, logs, entries);
  if (!header) return std::nullopt;
  const std::uint32_t first = Number(*header, kSecondarySequence), end = EndOfChain(entries, first);
  if (end == first) return std::nullopt;
  Recovered recovered(hive, *header);
  for (std::uint32_t sequence = first; sequence != end; ++sequence) recovered.Apply(entries.at(sequence));
  return recovered.Take(end - 1);
}

// When the hive was last written: a log of the older format goes with the hive that has its time.
std::optional<std::uint64_t> LastWritten(ByteView hive) {
  const bool sound = HasSoundHeader(hive);
  if (!sound && (!HasSignature(hive, kBaseBlock, "hbin") || hive.size() < kFirstBinTime + 8)) return std::nullopt;
  return LoadLittleEndian<std::uint64_t>(hive, sound ? kLastWritten : kFirstBinTime);
}

std::optional<Bytes> RecoverByVector(ByteView hive, ByteView log) {
  const std::uint32_t type = HasSoundHeader(log) ? Number(log, kType) : kHiveType;
  if ((type != kOldLogType && type != kOldLogTypeToo) ||
      Number(log, kPrimarySequence) != Number(log, kSecondarySequence) ||
      LastWritten(hive) != LoadLittleEndian<std::uint64_t>(log, kLastWritten))
    return std::nullopt;
  const std::uint32_t bins = Number(log, kBinsSize);
  const std::size_t sector = SectorOf(log), bitmap = sector + 4, bitmapSize = bins / kBinUnit;
  if (!IsPossibleSize(bins) || !HasSignature(log, sector, "DIRT") || log.size() < bitmap + bitmapSize)
    return std::nullopt;
  Recovered recovered(hive, log);
  recovered.SetBinsSize(bins);
  std::size_t from = (bitmap + bitmapSize + sector - 1) / sector * sector;
  for (std::size_t page = 0; page < bins / kSector; ++page) {
    if ((log[bitmap + page / 8] >> (page % 8) & 1) == 0) continue;
    if (log.size() < from + kSector) return std::nullopt;
    recovered.PutPage(page * kSector, log.subspan(from, kSector));
    from += kSector;
  }
  return recovered.Take(Number(log, kPrimarySequence));
}

}  // namespace

bool IsDirtyHive(ByteView hive) {
  if (hive.size() < kBaseBlock || !HasSignature(hive, 0, "regf")) return false;
  return !HasSoundHeader(hive) || Number(hive, kPrimarySequence) != Number(hive, kSecondarySequence);
}

std::optional<Bytes> RecoverHive(ByteView hive, std::span<const Bytes> logs, std::string& error) {
  if (auto recovered = RecoverByEntries(hive, logs)) return recovered;
  for (const Bytes& log : logs)
    if (auto recovered = RecoverByVector(hive, log)) return recovered;
  const bool any = std::ranges::any_of(logs, [](const Bytes& log) { return !log.empty(); });
  error = any ? "is dirty, and its log files do not go with it or are damaged"
              : "is dirty: changes are in log files that are missing";
  return std::nullopt;
}

std::uint64_t Marvin32(ByteView data, std::uint64_t seed) {
  auto low = static_cast<std::uint32_t>(seed), high = static_cast<std::uint32_t>(seed >> 32);
  const auto mix = [&](std::uint32_t word) {
    low += word;
    high ^= low;
    low = std::rotl(low, 20) + high;
    high = std::rotl(high, 9) ^ low;
    low = std::rotl(low, 27) + high;
    high = std::rotl(high, 19);
  };
  for (; data.size() >= 4; data = data.subspan(4)) mix(Number(data, 0));
  std::uint32_t last = 0x80;
  for (std::size_t i = data.size(); i-- > 0;) last = last << 8 | data[i];
  mix(last);
  mix(0);
  return std::uint64_t{high} << 32 | low;
}

}  // namespace emulated
