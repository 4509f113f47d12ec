// Hive files are checked whole when they are opened, record by record, without a tree being built: nearly all of a
// large hive is never asked for. A key is made when its parent is asked for its children, out of what has been checked.
#include <algorithm>
#include <optional>
#include <utility>

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

[[noreturn]] void Fail(const char* what) { throw Damage{what}; }

template <typename T>
T Load(ByteView from, std::size_t offset) {
  if (offset > from.size() || from.size() - offset < sizeof(T)) Fail("a record is cut short");
  return LoadLittleEndian<T>(from, offset);
}

ByteView Slice(ByteView from, std::size_t offset, std::size_t size) {
  if (offset > from.size() || from.size() - offset < size) Fail("a record is cut short");
  return from.subspan(offset, size);
}

// A name as it is stored: bytes of Latin-1, or UTF-16.
class StoredName {
 public:
  StoredName(ByteView bytes, bool isCompressed) : bytes_(bytes), isCompressed_(isCompressed) {
    if (!isCompressed && bytes.size() % 2 != 0) Fail("is damaged: a name has half a character");
  }

  std::size_t size() const { return isCompressed_ ? bytes_.size() : bytes_.size() / 2; }
  char16_t operator[](std::size_t at) const {
    return isCompressed_ ? bytes_[at] : LoadLittleEndian<char16_t>(bytes_, at * 2);
  }
  std::u16string Text() const {
    std::u16string text(size(), u'\0');
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = (*this)[i];
    return text;
  }
  bool Contains(char16_t unit) const {
    if (isCompressed_)
      return unit < 0x100 && bytes_.size() != 0 && std::memchr(bytes_.data(), unit, bytes_.size()) != nullptr;
    for (std::size_t i = 0; i < size(); ++i)
      if ((*this)[i] == unit) return true;
    return false;
  }
  // In upper case, before the other?
  bool IsBefore(const StoredName& other, const UpCase& upCase) const {
    const std::size_t both = std::min(size(), other.size());
    for (std::size_t i = 0; i < both; ++i) {
      const char16_t a = upCase((*this)[i]), b = upCase(other[i]);
      if (a != b) return a < b;
    }
    return size() < other.size();
  }

 private:
  ByteView bytes_;
  bool isCompressed_;
};

struct KeyRecord {
  KeyRecord(ByteView bytes, bool isRoot);

  ByteView cell;
  std::uint16_t flags;
  StoredName name;
  // A key that stands for a handle has that in place of the number of its values.
  std::uint32_t ValueCount() const { return (flags & kKeyPredefinedHandle) != 0 ? 0 : Number(kNodeValues); }
  std::uint32_t Number(std::size_t field) const { return LoadLittleEndian<std::uint32_t>(cell, field); }
};

ByteView KeyCell(ByteView cell) {
  if (cell.size() < kNodeName || std::memcmp(cell.data(), "nk", 2) != 0) Fail("is damaged: a key record is none");
  return cell;
}

KeyRecord::KeyRecord(ByteView bytes, bool isRoot)
    : cell(KeyCell(bytes)),
      flags(LoadLittleEndian<std::uint16_t>(cell, kNodeFlags)),
      name(Slice(cell, kNodeName, LoadLittleEndian<std::uint16_t>(cell, kNodeNameLength)),
           (flags & kKeyCompressedName) != 0) {
  if (name.size() > kLongestKeyName || (!isRoot && (name.size() == 0 || name.Contains(u'\\'))))
    Fail("is damaged: a key's name is impossible");
}

struct ValueRecord {
  explicit ValueRecord(ByteView bytes);

  ByteView cell;
  std::uint16_t flags;
  StoredName name;
  std::uint32_t size;  // of the data; 0 when they are in the record
  ByteView smallData;
};

ByteView ValueCell(ByteView cell) {
  if (cell.size() < kValueName || std::memcmp(cell.data(), "vk", 2) != 0) Fail("is damaged: a value record is none");
  return cell;
}

ValueRecord::ValueRecord(ByteView bytes)
    : cell(ValueCell(bytes)),
      flags(LoadLittleEndian<std::uint16_t>(cell, kValueFlags)),
      name(Slice(cell, kValueName, LoadLittleEndian<std::uint16_t>(cell, kValueNameLength)),
           (flags & kValueCompressedName) != 0),
      size(LoadLittleEndian<std::uint32_t>(cell, kValueSize)) {
  if (name.size() > kLongestValueName) Fail("is damaged: a value's name is too long");
  if ((size & kDataInOffset) == 0) return;
  smallData = Slice(cell, kValueData, size & ~kDataInOffset);
  if (smallData.size() > 4) Fail("is damaged: a value's size is impossible");
  size = 0;
}

}  // namespace

// The file of a hive.
class HiveSource {
 public:
  HiveSource(Bytes file, std::shared_ptr<const UpCase> upCase) : file_(std::move(file)), upCase_(std::move(upCase)) {}

  // Throws Damage. What has been checked is read without a failure afterwards.
  void Check();

  ByteView BaseBlock() const { return ByteView(file_).first(kBaseBlock); }
  std::uint32_t RootOffset() const { return Load<std::uint32_t>(file_, kRootCell); }
  // A key without its values and children.
  std::shared_ptr<HiveKey> Key(std::uint32_t offset, HiveKey* parent, Hive* hive);
  std::vector<RegistryValue> Values(std::uint32_t keyOffset);
  std::vector<std::shared_ptr<HiveKey>> Children(std::uint32_t keyOffset, HiveKey& key);

 private:
  void CheckBaseBlock();
  void FindCells();
  StoredName CheckKey(std::uint32_t offset, unsigned depth);
  void CheckChildren(const KeyRecord& key, unsigned depth);
  bool HaveNamesOfTheirOwn(std::span<const std::uint32_t> keys) const;
  ByteView Cell(std::uint32_t offset) const;
  // The content of an allocated cell. While the file is checked: of one that nothing else refers to.
  ByteView Content(std::uint32_t offset);
  ByteView ClassName(const KeyRecord& key);
  // Security records, which keys share, are looked at once.
  std::shared_ptr<const Bytes> Security(std::uint32_t offset);
  template <typename Visit>
  void ForEachValue(const KeyRecord& key, const Visit& visit);
  // A value's data, in one piece or several.
  template <typename Visit>
  void ForEachPiece(const ValueRecord& value, const Visit& visit);
  void AddSubKeys(std::uint32_t listOffset, bool nested, std::vector<std::uint32_t>& offsets);
  void AddSubKeys(const KeyRecord& key, std::vector<std::uint32_t>& offsets);

  Bytes file_;
  ByteView bins_;
  std::uint32_t minor_ = 0;
  std::shared_ptr<const UpCase> upCase_;
  bool isChecked_ = false;
  std::vector<bool> unclaimed_;         // by offset / 8: an allocated cell that nothing has led to yet
  std::vector<std::uint32_t> subKeys_;  // the sub-keys of all keys that are being checked, from the root down
  std::vector<std::pair<std::uint32_t, std::shared_ptr<const Bytes>>> security_;  // by offset
};

void HiveSource::Check() {
  CheckBaseBlock();
  FindCells();
  CheckKey(RootOffset(), 1);
  isChecked_ = true;
  unclaimed_ = {};
  subKeys_ = {};
}

void HiveSource::CheckBaseBlock() {
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
  bins_ = ByteView(file_).subspan(kBaseBlock, size);
}

void HiveSource::FindCells() {
  unclaimed_.assign(bins_.size() / 8, false);
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
      if (length < 0) unclaimed_[cell / 8] = true;
      cell += bytes;
    }
    bin += size;
  }
}

ByteView HiveSource::Content(std::uint32_t offset) {
  if (!isChecked_) {
    if (offset % 8 != 0 || offset / 8 >= unclaimed_.size()) Fail("is damaged: a reference leads nowhere");
    if (!unclaimed_[offset / 8]) Fail("is damaged: a reference does not lead to a record of its own");
    unclaimed_[offset / 8] = false;
  }
  return Cell(offset);
}

ByteView HiveSource::Cell(std::uint32_t offset) const {
  const auto bytes = 0U - static_cast<std::uint32_t>(LoadLittleEndian<std::int32_t>(bins_, offset));
  return bins_.subspan(offset + 4, bytes - 4);
}

ByteView HiveSource::ClassName(const KeyRecord& key) {
  const auto length = Load<std::uint16_t>(key.cell, kNodeClassLength);
  return length == 0 ? ByteView() : Slice(Content(key.Number(kNodeClass)), 0, length);
}

std::shared_ptr<const Bytes> HiveSource::Security(std::uint32_t offset) {
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

template <typename Visit>
void HiveSource::ForEachValue(const KeyRecord& key, const Visit& visit) {
  const std::uint32_t count = key.ValueCount();
  if (count == 0) return;
  const ByteView list = Content(key.Number(kNodeValueList));
  if (count > list.size() / 4) Fail("is damaged: a list of values is cut short");
  for (std::size_t i = 0; i < count; ++i) visit(ValueRecord(Content(LoadLittleEndian<std::uint32_t>(list, i * 4))));
}

template <typename Visit>
void HiveSource::ForEachPiece(const ValueRecord& value, const Visit& visit) {
  if (value.size == 0) return visit(value.smallData);
  const ByteView cell = Content(Load<std::uint32_t>(value.cell, kValueData));
  const bool isBig = value.size > kSegmentData && minor_ >= kMinorWithBigData && cell.size() >= 8 &&
                     std::memcmp(cell.data(), "db", 2) == 0;
  if (!isBig) return visit(Slice(cell, 0, value.size));
  const std::size_t count = Load<std::uint16_t>(cell, 2);
  const ByteView list = Content(Load<std::uint32_t>(cell, 4));
  if (count != (value.size + kSegmentData - 1) / kSegmentData || count > list.size() / 4)
    Fail("is damaged: a big value's segments do not add up");
  for (std::size_t i = 0; i < count; ++i)
    visit(Slice(Content(LoadLittleEndian<std::uint32_t>(list, i * 4)), 0,
                std::min<std::size_t>(kSegmentData, value.size - i * kSegmentData)));
}

void HiveSource::AddSubKeys(std::uint32_t listOffset, bool nested, std::vector<std::uint32_t>& offsets) {
  const ByteView list = Content(listOffset);
  const std::string_view kind(reinterpret_cast<const char*>(list.data()), 2);
  const std::size_t count = Load<std::uint16_t>(list, 2);
  const std::size_t step = kind == "lf" || kind == "lh" ? 8 : 4;
  if (kind != "lf" && kind != "lh" && kind != "li" && (kind != "ri" || nested))
    Fail("is damaged: a list of keys is none");
  for (std::size_t i = 0; i < count; ++i) {
    const auto element = Load<std::uint32_t>(list, 4 + i * step);
    if (kind == "ri") {
      AddSubKeys(element, true, offsets);
    } else {
      offsets.push_back(element);
    }
  }
}

void HiveSource::AddSubKeys(const KeyRecord& key, std::vector<std::uint32_t>& offsets) {
  const std::size_t before = offsets.size();
  const std::uint32_t count = key.Number(kNodeSubKeys);
  if (count != 0) AddSubKeys(key.Number(kNodeSubKeyList), false, offsets);
  if (offsets.size() - before != count) Fail("is damaged: a key's count of sub-keys is wrong");
}

StoredName HiveSource::CheckKey(std::uint32_t offset, unsigned depth) {
  if (depth > kDeepestKey) Fail("is damaged: its keys are nested too deeply");
  const KeyRecord key(Content(offset), depth == 1);
  StoredName(ClassName(key), false);
  Security(key.Number(kNodeSecurity));
  ForEachValue(key, [this](const ValueRecord& value) { ForEachPiece(value, [](ByteView) {}); });
  CheckChildren(key, depth);
  return key.name;
}

// The names of most writers are in order, and then none of them is there twice.
void HiveSource::CheckChildren(const KeyRecord& key, unsigned depth) {
  const std::size_t first = subKeys_.size();
  AddSubKeys(key, subKeys_);
  bool isInOrder = true;
  std::optional<StoredName> previous;
  for (std::size_t i = first, end = subKeys_.size(); i < end; ++i) {
    const StoredName name = CheckKey(subKeys_[i], depth + 1);
    isInOrder = isInOrder && (!previous || previous->IsBefore(name, *upCase_));
    previous = name;
  }
  if (!isInOrder && !HaveNamesOfTheirOwn(std::span(subKeys_).subspan(first)))
    Fail("is damaged: two keys have one name");
  subKeys_.resize(first);
}

bool HiveSource::HaveNamesOfTheirOwn(std::span<const std::uint32_t> keys) const {
  std::vector<std::u16string> names;
  for (const std::uint32_t offset : keys) names.push_back((*upCase_)(KeyRecord(Cell(offset), false).name.Text()));
  std::ranges::sort(names);
  return std::ranges::adjacent_find(names) == names.end();
}

std::shared_ptr<HiveKey> HiveSource::Key(std::uint32_t offset, HiveKey* parent, Hive* hive) {
  const KeyRecord record(Content(offset), parent == nullptr);
  auto key = std::make_shared<HiveKey>();
  key->flags = record.flags & static_cast<std::uint16_t>(~(kKeyCompressedName | kKeyVolatile));
  key->lastWrite = Load<FileTime>(record.cell, kNodeTime);
  key->accessBits = record.Number(kNodeAccess);
  key->virtualization = Load<std::uint8_t>(record.cell, kNodeVirtualization);
  key->name = record.name.Text();
  key->upperName = (*upCase_)(key->name);
  key->className = StoredName(ClassName(record), false).Text();
  key->security = Security(record.Number(kNodeSecurity));
  key->parent = parent;
  key->hive = hive;
  if ((record.flags & kKeyPredefinedHandle) != 0) key->predefinedHandle = record.Number(kNodeValues);
  key->unread_ = offset;
  return key;
}

std::vector<RegistryValue> HiveSource::Values(std::uint32_t keyOffset) {
  const KeyRecord key(Content(keyOffset), true);
  std::vector<RegistryValue> values;
  values.reserve(key.ValueCount());
  ForEachValue(key, [&](const ValueRecord& record) {
    RegistryValue& value = values.emplace_back();
    value.flags = record.flags & static_cast<std::uint16_t>(~kValueCompressedName);
    value.name = record.name.Text();
    value.type = Load<std::uint32_t>(record.cell, kValueType);
    ForEachPiece(record, [&value](ByteView piece) { value.data.insert(value.data.end(), piece.begin(), piece.end()); });
  });
  return values;
}

std::vector<std::shared_ptr<HiveKey>> HiveSource::Children(std::uint32_t keyOffset, HiveKey& key) {
  std::vector<std::uint32_t> offsets;
  AddSubKeys(KeyRecord(Content(keyOffset), true), offsets);
  std::vector<std::shared_ptr<HiveKey>> children;
  children.reserve(offsets.size());
  for (const std::uint32_t offset : offsets) children.push_back(Key(offset, &key, key.hive));
  // Writers with another up-case table leave another order.
  std::ranges::sort(children, {}, [](const auto& child) -> const std::u16string& { return child->upperName; });
  return children;
}

void HiveKey::ReadContents() {
  const std::uint32_t offset = std::exchange(unread_, 0);
  if (offset == 0 || !hive) return;
  values_ = hive->source->Values(offset);
  children_ = hive->source->Children(offset, *this);
}

std::shared_ptr<Hive> ReadHive(Bytes file, std::shared_ptr<const UpCase> upCase, std::string& error) {
  auto hive = std::make_shared<Hive>();
  hive->upCase = upCase;
  hive->source = std::make_shared<HiveSource>(std::move(file), std::move(upCase));
  try {
    hive->source->Check();
  } catch (const Damage& damage) {
    error = damage.what;
    return nullptr;
  }
  const ByteView baseBlock = hive->source->BaseBlock();
  hive->baseBlock.assign(baseBlock.begin(), baseBlock.end());
  hive->root = hive->source->Key(hive->source->RootOffset(), nullptr, hive.get());
  return hive;
}

}  // namespace emulated
