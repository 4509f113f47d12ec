#include <algorithm>

#include "win32/emulated/registry/hive.h"
#include "win32/emulated/registry/hive_format.h"
#include "win32/emulated/security/access.h"

namespace emulated {

using namespace regf;

namespace {

// What is wrong with the file, in one line; thrown and caught inside this file only.
struct Damage {
  std::string what;
};

class HiveReader {
 public:
  HiveReader(ByteView file, std::shared_ptr<const UpCase> upCase) : file_(file), upCase_(std::move(upCase)) {}

  std::shared_ptr<Hive> Read() {
    CheckBaseBlock();
    FindCells();
    hive_ = std::make_shared<Hive>();
    hive_->baseBlock.assign(file_.begin(), file_.begin() + kBaseBlock);
    hive_->upCase = upCase_;
    hive_->root = ReadKey(Load<std::uint32_t>(file_, kRootCell), nullptr, 1);
    return hive_;
  }

 private:
  enum class Cell : std::uint8_t { None, Free, Used, Read };

  template <typename T>
  static T Load(ByteView from, std::size_t offset) {
    if (offset > from.size() || from.size() - offset < sizeof(T)) throw Damage{"a record is cut short"};
    return LoadLittleEndian<T>(from, offset);
  }
  static ByteView Slice(ByteView from, std::size_t offset, std::size_t size) {
    if (offset > from.size() || from.size() - offset < size) throw Damage{"a record is cut short"};
    return from.subspan(offset, size);
  }
  [[noreturn]] static void Fail(const char* what) { throw Damage{what}; }

  void CheckBaseBlock();
  void FindCells();
  // The content of an allocated cell. A cell belongs to one record only; security records, which keys
  // share, are read once.
  ByteView Content(std::uint32_t offset);
  static std::u16string Name(ByteView bytes, bool compressed);
  std::shared_ptr<const Bytes> Security(std::uint32_t offset);
  std::shared_ptr<HiveKey> ReadKey(std::uint32_t offset, HiveKey* parent, unsigned depth);
  void ReadValues(HiveKey& key, std::uint32_t count, std::uint32_t listOffset);
  Bytes Data(std::uint32_t sizeField, std::uint32_t offset);
  Bytes BigData(ByteView record, std::uint32_t size);
  void SubKeyOffsets(std::uint32_t listOffset, bool nested, std::vector<std::uint32_t>& offsets);
  void ReadChildren(HiveKey& key, std::uint32_t count, std::uint32_t listOffset, unsigned depth);

  ByteView file_;
  ByteView bins_;
  std::uint32_t minor_ = 0;
  std::shared_ptr<const UpCase> upCase_;
  std::shared_ptr<Hive> hive_;
  std::vector<Cell> cells_;                                                       // by offset / 8
  std::vector<std::pair<std::uint32_t, std::shared_ptr<const Bytes>>> security_;  // by offset
};

void HiveReader::CheckBaseBlock() {
  if (file_.size() < kBaseBlock || std::memcmp(file_.data(), "regf", 4) != 0) Fail("is not a registry hive");
  if (Load<std::uint32_t>(file_, kChecksum) != Checksum(file_.data()))
    Fail("is damaged: the checksum of its header is wrong");
  minor_ = Load<std::uint32_t>(file_, kMinor);
  if (Load<std::uint32_t>(file_, kMajor) != 1 || minor_ < 3 || minor_ > 6) Fail("has a version that is not known");
  if (Load<std::uint32_t>(file_, kType) != 0 || Load<std::uint32_t>(file_, kFormat) != 1)
    Fail("is not a primary hive file");
  if (Load<std::uint32_t>(file_, kPrimarySequence) != Load<std::uint32_t>(file_, kSecondarySequence))
    Fail("is dirty: changes in its log files have not been put into it");
  const auto size = Load<std::uint32_t>(file_, kBinsSize);
  if (size == 0 || size % kBinUnit != 0 || size > 0x7FFFF000 || size > file_.size() - kBaseBlock)
    Fail("is damaged: it is shorter than its header says");
  bins_ = file_.subspan(kBaseBlock, size);
}

void HiveReader::FindCells() {
  cells_.assign(bins_.size() / 8, Cell::None);
  for (std::size_t bin = 0; bin < bins_.size();) {
    const auto size = Load<std::uint32_t>(bins_, bin + 8);
    if (std::memcmp(bins_.data() + bin, "hbin", 4) != 0 || Load<std::uint32_t>(bins_, bin + 4) != bin || size == 0 ||
        size % kBinUnit != 0 || size > bins_.size() - bin)
      Fail("is damaged: a bin's header is wrong");
    for (std::size_t cell = bin + kBinHeader; cell < bin + size;) {
      const auto length = Load<std::int32_t>(bins_, cell);
      const std::size_t bytes =
          length < 0 ? 0U - static_cast<std::uint32_t>(length) : static_cast<std::uint32_t>(length);
      if (bytes < 8 || bytes % 8 != 0 || bytes > bin + size - cell) Fail("is damaged: a cell's length is wrong");
      cells_[cell / 8] = length < 0 ? Cell::Used : Cell::Free;
      cell += bytes;
    }
    bin += size;
  }
}

ByteView HiveReader::Content(std::uint32_t offset) {
  if (offset % 8 != 0 || offset / 8 >= cells_.size()) Fail("is damaged: a reference leads nowhere");
  Cell& cell = cells_[offset / 8];
  if (cell != Cell::Used) Fail("is damaged: a reference does not lead to a record of its own");
  cell = Cell::Read;
  const auto bytes = 0U - static_cast<std::uint32_t>(Load<std::int32_t>(bins_, offset));
  return bins_.subspan(offset + 4, bytes - 4);
}

std::u16string HiveReader::Name(ByteView bytes, bool compressed) {
  if (compressed) return {bytes.begin(), bytes.end()};
  if (bytes.size() % 2 != 0) Fail("is damaged: a name has half a character");
  std::u16string name(bytes.size() / 2, u'\0');
  if (!name.empty()) std::memcpy(name.data(), bytes.data(), bytes.size());
  return name;
}

std::shared_ptr<const Bytes> HiveReader::Security(std::uint32_t offset) {
  const auto known = std::lower_bound(security_.begin(), security_.end(), offset,
                                      [](const auto& entry, std::uint32_t at) { return entry.first < at; });
  if (known != security_.end() && known->first == offset) return known->second;
  const ByteView cell = Content(offset);
  if (cell.size() < kSecurityDescriptor || std::memcmp(cell.data(), "sk", 2) != 0)
    Fail("is damaged: a key has no security record");
  const ByteView descriptor = Slice(cell, kSecurityDescriptor, Load<std::uint32_t>(cell, kSecuritySize));
  if (!IsSoundDescriptor(descriptor)) Fail("is damaged: a security descriptor is not sound");
  auto bytes = std::make_shared<const Bytes>(descriptor.begin(), descriptor.end());
  security_.insert(known, {offset, bytes});
  return bytes;
}

std::shared_ptr<HiveKey> HiveReader::ReadKey(std::uint32_t offset, HiveKey* parent, unsigned depth) {
  if (depth > kDeepestKey) Fail("is damaged: its keys are nested too deeply");
  const ByteView cell = Content(offset);
  if (cell.size() < kNodeName || std::memcmp(cell.data(), "nk", 2) != 0) Fail("is damaged: a key record is none");
  auto key = std::make_shared<HiveKey>();
  const auto flags = Load<std::uint16_t>(cell, kNodeFlags);
  key->flags = flags & static_cast<std::uint16_t>(~(kKeyCompressedName | kKeyVolatile));
  key->lastWrite = Load<FileTime>(cell, kNodeTime);
  key->accessBits = Load<std::uint32_t>(cell, kNodeAccess);
  key->virtualization = Load<std::uint8_t>(cell, kNodeVirtualization);
  key->name =
      Name(Slice(cell, kNodeName, Load<std::uint16_t>(cell, kNodeNameLength)), (flags & kKeyCompressedName) != 0);
  if (key->name.size() > kLongestKeyName || (parent && (key->name.empty() || key->name.find(u'\\') != key->name.npos)))
    Fail("is damaged: a key's name is impossible");
  key->upperName = (*upCase_)(key->name);
  if (const auto length = Load<std::uint16_t>(cell, kNodeClassLength); length != 0)
    key->className = Name(Slice(Content(Load<std::uint32_t>(cell, kNodeClass)), 0, length), false);
  key->security = Security(Load<std::uint32_t>(cell, kNodeSecurity));
  key->parent = parent;
  key->hive = hive_.get();
  if ((flags & kKeyPredefinedHandle) != 0)  // in place of the number of values
    key->predefinedHandle = Load<std::uint32_t>(cell, kNodeValues);
  else
    ReadValues(*key, Load<std::uint32_t>(cell, kNodeValues), Load<std::uint32_t>(cell, kNodeValueList));
  ReadChildren(*key, Load<std::uint32_t>(cell, kNodeSubKeys), Load<std::uint32_t>(cell, kNodeSubKeyList), depth);
  return key;
}

void HiveReader::ReadValues(HiveKey& key, std::uint32_t count, std::uint32_t listOffset) {
  if (count == 0) return;
  const ByteView list = Content(listOffset);
  if (count > list.size() / 4) Fail("is damaged: a list of values is cut short");
  key.values.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const ByteView cell = Content(LoadLittleEndian<std::uint32_t>(list, i * 4));
    if (cell.size() < kValueName || std::memcmp(cell.data(), "vk", 2) != 0) Fail("is damaged: a value record is none");
    RegistryValue value;
    const auto flags = Load<std::uint16_t>(cell, kValueFlags);
    value.flags = flags & static_cast<std::uint16_t>(~kValueCompressedName);
    value.name =
        Name(Slice(cell, kValueName, Load<std::uint16_t>(cell, kValueNameLength)), (flags & kValueCompressedName) != 0);
    if (value.name.size() > kLongestValueName) Fail("is damaged: a value's name is too long");
    value.type = Load<std::uint32_t>(cell, kValueType);
    const auto size = Load<std::uint32_t>(cell, kValueSize);
    if ((size & kDataInOffset) != 0) {
      const ByteView inside = Slice(cell, kValueData, size & ~kDataInOffset);
      if (inside.size() > 4) Fail("is damaged: a value's size is impossible");
      value.data.assign(inside.begin(), inside.end());
    } else if (size != 0) {
      value.data = Data(size, Load<std::uint32_t>(cell, kValueData));
    }
    key.values.push_back(std::move(value));
  }
}

Bytes HiveReader::Data(std::uint32_t size, std::uint32_t offset) {
  const ByteView cell = Content(offset);
  if (size > kSegmentData && minor_ >= kMinorWithBigData && cell.size() >= 8 && std::memcmp(cell.data(), "db", 2) == 0)
    return BigData(cell, size);
  const ByteView data = Slice(cell, 0, size);
  return {data.begin(), data.end()};
}

Bytes HiveReader::BigData(ByteView record, std::uint32_t size) {
  const std::size_t count = Load<std::uint16_t>(record, 2);
  const ByteView list = Content(Load<std::uint32_t>(record, 4));
  if (count != (size + kSegmentData - 1) / kSegmentData || count > list.size() / 4)
    Fail("is damaged: a big value's segments do not add up");
  Bytes data;
  for (std::size_t i = 0; i < count; ++i) {
    const ByteView segment = Slice(Content(LoadLittleEndian<std::uint32_t>(list, i * 4)), 0,
                                   std::min<std::size_t>(kSegmentData, size - data.size()));
    data.insert(data.end(), segment.begin(), segment.end());
  }
  return data;
}

void HiveReader::SubKeyOffsets(std::uint32_t listOffset, bool nested, std::vector<std::uint32_t>& offsets) {
  const ByteView list = Content(listOffset);
  const std::string_view kind(reinterpret_cast<const char*>(list.data()), 2);
  const std::size_t count = Load<std::uint16_t>(list, 2);
  const std::size_t step = kind == "lf" || kind == "lh" ? 8 : 4;
  if (kind != "lf" && kind != "lh" && kind != "li" && (kind != "ri" || nested))
    Fail("is damaged: a list of keys is none");
  for (std::size_t i = 0; i < count; ++i) {
    const auto element = Load<std::uint32_t>(list, 4 + i * step);
    if (kind == "ri") {
      SubKeyOffsets(element, true, offsets);
    } else {
      offsets.push_back(element);
    }
  }
}

void HiveReader::ReadChildren(HiveKey& key, std::uint32_t count, std::uint32_t listOffset, unsigned depth) {
  if (count == 0) return;
  std::vector<std::uint32_t> offsets;
  SubKeyOffsets(listOffset, false, offsets);
  if (offsets.size() != count) Fail("is damaged: a key's count of sub-keys is wrong");
  key.children.reserve(offsets.size());
  for (const std::uint32_t offset : offsets) key.children.push_back(ReadKey(offset, &key, depth + 1));
  // Writers with another up-case table leave another order.
  std::sort(key.children.begin(), key.children.end(),
            [](const auto& a, const auto& b) { return a->upperName < b->upperName; });
  const auto twice = std::adjacent_find(key.children.begin(), key.children.end(),
                                        [](const auto& a, const auto& b) { return a->upperName == b->upperName; });
  if (twice != key.children.end()) Fail("is damaged: two keys have one name");
}

}  // namespace

std::shared_ptr<Hive> ReadHive(ByteView file, std::shared_ptr<const UpCase> upCase, std::string& error) {
  try {
    return HiveReader(file, std::move(upCase)).Read();
  } catch (const Damage& damage) {
    error = damage.what;
    return nullptr;
  }
}

}  // namespace emulated
