#include <algorithm>
#include <map>

#include "win32/emulated/registry/hive.h"
#include "win32/emulated/registry/hive_format.h"

namespace emulated {

using namespace regf;

namespace {

bool Compressible(std::u16string_view name) {
  return std::all_of(name.begin(), name.end(), [](char16_t unit) { return unit < 0x100; });
}

Bytes NameBytes(std::u16string_view name) {
  if (Compressible(name)) return {name.begin(), name.end()};
  Bytes bytes = RegistryText(name);
  bytes.resize(bytes.size() - 2);
  return bytes;
}

std::vector<HiveKey*> StableChildren(HiveKey& key) {
  std::vector<HiveKey*> children;
  for (const auto& child : key.Children())
    if (!child->IsVolatile()) children.push_back(child.get());
  return children;
}

class HiveWriter {
 public:
  explicit HiveWriter(std::uint32_t minor) : minor_(minor) {}

  Bytes Write(const Hive& hive, FileTime now) {
    CountDescriptors(*hive.root);
    // The root comes first, as Windows has it.
    const std::uint32_t root = Reserve(kNodeName + NameBytes(hive.root->name).size());
    WriteDescriptors();
    WriteKey(*hive.root, root, kNone);
    CloseBin();
    return Assemble(hive, root, now);
  }

 private:
  using Offset = std::uint32_t;

  struct SharedDescriptor {
    Offset offset = 0;
    std::uint32_t references = 0;
  };

  // A cell of so many bytes of content, zeroed.
  Offset Reserve(std::size_t content);
  void CloseBin();
  // The content of a cell; not to be held over a Reserve.
  std::span<std::uint8_t> At(Offset offset) { return std::span(bins_).subspan(offset + 4); }
  template <typename T>
  void Put(Offset offset, std::size_t field, T value) {
    StoreLittleEndian(At(offset), field, value);
  }
  void PutBytes(Offset offset, std::size_t field, ByteView bytes) {
    if (!bytes.empty()) std::memcpy(At(offset).data() + field, bytes.data(), bytes.size());
  }
  Offset Record(ByteView content) {
    const Offset offset = Reserve(content.size());
    PutBytes(offset, 0, content);
    return offset;
  }

  void CountDescriptors(HiveKey& key);
  void WriteDescriptors();
  void WriteKey(HiveKey& key, Offset offset, Offset parent);
  Offset WriteValues(HiveKey& key);
  Offset WriteData(ByteView data);
  Offset WriteList(const std::vector<HiveKey*>& keys, const std::vector<Offset>& offsets);
  Offset WriteLeaf(const std::vector<HiveKey*>& keys, const std::vector<Offset>& offsets, std::size_t first,
                   std::size_t count);
  Bytes Assemble(const Hive& hive, Offset root, FileTime now) const;

  std::uint32_t minor_;
  Bytes bins_;
  std::size_t binStart_ = 0, binEnd_ = 0, next_ = 0;
  std::map<Bytes, SharedDescriptor> descriptors_;
};

HiveWriter::Offset HiveWriter::Reserve(std::size_t content) {
  const std::size_t size = (content + 4 + 7) / 8 * 8;
  if (next_ + size > binEnd_) {
    CloseBin();
    const std::size_t binSize = (size + kBinHeader + kBinUnit - 1) / kBinUnit * kBinUnit;
    binStart_ = bins_.size();
    binEnd_ = binStart_ + binSize;
    bins_.resize(binEnd_);
    std::memcpy(bins_.data() + binStart_, "hbin", 4);
    StoreLittleEndian<std::uint32_t>(bins_, binStart_ + 4, static_cast<std::uint32_t>(binStart_));
    StoreLittleEndian<std::uint32_t>(bins_, binStart_ + 8, static_cast<std::uint32_t>(binSize));
    next_ = binStart_ + kBinHeader;
  }
  const auto offset = static_cast<Offset>(next_);
  StoreLittleEndian<std::int32_t>(bins_, offset, -static_cast<std::int32_t>(size));
  next_ += size;
  return offset;
}

void HiveWriter::CloseBin() {
  if (next_ < binEnd_)
    StoreLittleEndian<std::int32_t>(bins_, next_, static_cast<std::int32_t>(binEnd_ - next_));  // a free cell
  next_ = binEnd_;
}

void HiveWriter::CountDescriptors(HiveKey& key) {
  ++descriptors_[*key.security].references;
  for (HiveKey* const child : StableChildren(key)) CountDescriptors(*child);
}

void HiveWriter::WriteDescriptors() {
  for (auto& [descriptor, shared] : descriptors_) {
    const Offset offset = shared.offset = Reserve(kSecurityDescriptor + descriptor.size());
    PutBytes(offset, 0, Bytes{'s', 'k'});
    Put<std::uint32_t>(offset, kSecurityReferences, shared.references);
    Put<std::uint32_t>(offset, kSecuritySize, static_cast<std::uint32_t>(descriptor.size()));
    PutBytes(offset, kSecurityDescriptor, descriptor);
  }
  Offset previous = descriptors_.rbegin()->second.offset;  // the list is a ring
  for (auto& [descriptor, shared] : descriptors_) {
    Put(previous, kSecurityNext, shared.offset);
    Put(shared.offset, kSecurityPrevious, previous);
    previous = shared.offset;
  }
}

void HiveWriter::WriteKey(HiveKey& key, Offset offset, Offset parent) {
  const Bytes name = NameBytes(key.name);
  PutBytes(offset, 0, Bytes{'n', 'k'});
  Put<std::uint16_t>(offset, kNodeFlags,
                     static_cast<std::uint16_t>(key.flags | (Compressible(key.name) ? kKeyCompressedName : 0)));
  Put(offset, kNodeTime, key.lastWrite);
  Put(offset, kNodeAccess, key.accessBits);
  Put(offset, kNodeParent, parent);
  Put(offset, kNodeVolatileList, kNone);
  Put(offset, kNodeSecurity, descriptors_.at(*key.security).offset);
  Put(offset, kNodeVirtualization, key.virtualization);
  Put<std::uint16_t>(offset, kNodeNameLength, static_cast<std::uint16_t>(name.size()));
  PutBytes(offset, kNodeName, name);

  Put<Offset>(offset, kNodeClass, kNone);
  if (!key.className.empty()) {
    Bytes text = RegistryText(key.className);
    text.resize(text.size() - 2);
    const Offset at = Record(text);
    Put(offset, kNodeClass, at);
    Put<std::uint16_t>(offset, kNodeClassLength, static_cast<std::uint16_t>(text.size()));
  }

  std::size_t longestName = 0, longestData = 0, longestSubKey = 0, longestClass = 0;
  for (const RegistryValue& value : key.Values()) {
    longestName = std::max(longestName, value.name.size() * 2);
    longestData = std::max(longestData, value.data.size());
  }
  const Offset values = key.Values().empty() ? kNone : WriteValues(key);
  Put<std::uint32_t>(
      offset, kNodeValues,
      key.flags & kKeyPredefinedHandle ? key.predefinedHandle : static_cast<std::uint32_t>(key.Values().size()));
  Put(offset, kNodeValueList, values);
  Put<std::uint32_t>(offset, kNodeLongestValueName, static_cast<std::uint32_t>(longestName));
  Put<std::uint32_t>(offset, kNodeLongestValue, static_cast<std::uint32_t>(longestData));

  const std::vector<HiveKey*> children = StableChildren(key);
  std::vector<Offset> offsets;
  for (HiveKey* const child : children) {
    longestSubKey = std::max(longestSubKey, child->name.size() * 2);
    longestClass = std::max(longestClass, child->className.size() * 2);
    offsets.push_back(Reserve(kNodeName + NameBytes(child->name).size()));
    WriteKey(*child, offsets.back(), offset);
  }
  const Offset list = children.empty() ? kNone : WriteList(children, offsets);
  Put<std::uint32_t>(offset, kNodeSubKeys, static_cast<std::uint32_t>(children.size()));
  Put(offset, kNodeSubKeyList, list);
  Put<std::uint16_t>(offset, kNodeLongestSubKey, static_cast<std::uint16_t>(longestSubKey));
  Put<std::uint32_t>(offset, kNodeLongestClass, static_cast<std::uint32_t>(longestClass));
}

HiveWriter::Offset HiveWriter::WriteValues(HiveKey& key) {
  const Offset list = Reserve(key.Values().size() * 4);
  for (std::size_t i = 0; i < key.Values().size(); ++i) {
    const RegistryValue& value = key.Values()[i];
    const Bytes name = NameBytes(value.name);
    const Offset offset = Reserve(kValueName + name.size());
    PutBytes(offset, 0, Bytes{'v', 'k'});
    Put<std::uint16_t>(offset, kValueNameLength, static_cast<std::uint16_t>(name.size()));
    Put<std::uint32_t>(offset, kValueType, value.type);
    // The default value has no name to compress.
    const bool isCompressed = !name.empty() && Compressible(value.name);
    Put<std::uint16_t>(offset, kValueFlags,
                       static_cast<std::uint16_t>(value.flags | (isCompressed ? kValueCompressedName : 0)));
    PutBytes(offset, kValueName, name);
    const auto size = static_cast<std::uint32_t>(value.data.size());
    if (size <= 4) {
      Put<std::uint32_t>(offset, kValueSize, size | kDataInOffset);
      PutBytes(offset, kValueData, value.data);
    } else {
      const Offset data = WriteData(value.data);
      Put<std::uint32_t>(offset, kValueSize, size);
      Put(offset, kValueData, data);
    }
    Put(list, i * 4, offset);
  }
  return list;
}

HiveWriter::Offset HiveWriter::WriteData(ByteView data) {
  if (data.size() <= kSegmentData || minor_ < kMinorWithBigData) return Record(data);
  const std::size_t count = (data.size() + kSegmentData - 1) / kSegmentData;
  const Offset record = Reserve(8), list = Reserve(count * 4);
  PutBytes(record, 0, Bytes{'d', 'b'});
  Put<std::uint16_t>(record, 2, static_cast<std::uint16_t>(count));
  Put(record, 4, list);
  for (std::size_t i = 0; i < count; ++i) {
    const ByteView segment = data.subspan(i * kSegmentData, std::min(kSegmentData, data.size() - i * kSegmentData));
    const Offset offset = Reserve(segment.size() + kSegmentSpare);
    PutBytes(offset, 0, segment);
    Put(list, i * 4, offset);
  }
  return record;
}

HiveWriter::Offset HiveWriter::WriteList(const std::vector<HiveKey*>& keys, const std::vector<Offset>& offsets) {
  if (keys.size() <= kLongestList) return WriteLeaf(keys, offsets, 0, keys.size());
  const std::size_t count = (keys.size() + kLongestList - 1) / kLongestList;
  const Offset root = Reserve(4 + count * 4);
  PutBytes(root, 0, Bytes{'r', 'i'});
  Put<std::uint16_t>(root, 2, static_cast<std::uint16_t>(count));
  for (std::size_t i = 0; i < count; ++i) {
    const Offset leaf =
        WriteLeaf(keys, offsets, i * kLongestList, std::min(kLongestList, keys.size() - i * kLongestList));
    Put(root, 4 + i * 4, leaf);
  }
  return root;
}

HiveWriter::Offset HiveWriter::WriteLeaf(const std::vector<HiveKey*>& keys, const std::vector<Offset>& offsets,
                                         std::size_t first, std::size_t count) {
  const bool hashes = minor_ >= kMinorWithHashes;
  const Offset leaf = Reserve(4 + count * 8);
  PutBytes(leaf, 0, hashes ? Bytes{'l', 'h'} : Bytes{'l', 'f'});
  Put<std::uint16_t>(leaf, 2, static_cast<std::uint16_t>(count));
  for (std::size_t i = 0; i < count; ++i) {
    const HiveKey& key = *keys[first + i];
    Put(leaf, 4 + i * 8, offsets[first + i]);
    if (hashes) {
      Put(leaf, 8 + i * 8, NameHash(key.upperName));
    } else if (Compressible(key.name)) {  // the first four characters
      Bytes hint = NameBytes(key.name);
      hint.resize(4);
      PutBytes(leaf, 8 + i * 8, hint);
    }
  }
  return leaf;
}

Bytes HiveWriter::Assemble(const Hive& hive, Offset root, FileTime now) const {
  Bytes file = hive.baseBlock;
  const auto sequence = LoadLittleEndian<std::uint32_t>(file, kPrimarySequence) + 1;
  StoreLittleEndian(std::span(file), kPrimarySequence, sequence);
  StoreLittleEndian(std::span(file), kSecondarySequence, sequence);
  StoreLittleEndian(std::span(file), kLastWritten, now);
  StoreLittleEndian(std::span(file), kRootCell, root);
  StoreLittleEndian(std::span(file), kBinsSize, static_cast<std::uint32_t>(bins_.size()));
  StoreLittleEndian(std::span(file), kChecksum, Checksum(file.data()));
  file.insert(file.end(), bins_.begin(), bins_.end());
  StoreLittleEndian(std::span(file), kBaseBlock + 20, now);  // the first bin has the time too
  return file;
}

}  // namespace

Bytes WriteHive(const Hive& hive, FileTime now) {
  return HiveWriter(LoadLittleEndian<std::uint32_t>(hive.baseBlock, kMinor)).Write(hive, now);
}

std::shared_ptr<Hive> NewHive(std::u16string_view rootName, std::shared_ptr<const Bytes> security,
                              std::shared_ptr<const UpCase> upCase, FileTime now) {
  auto hive = std::make_shared<Hive>();
  hive->baseBlock.assign(kBaseBlock, 0);
  const std::span block(hive->baseBlock);
  std::memcpy(block.data(), "regf", 4);
  StoreLittleEndian<std::uint32_t>(block, kMajor, 1);
  StoreLittleEndian<std::uint32_t>(block, kMinor, 5);
  StoreLittleEndian<std::uint32_t>(block, kFormat, 1);
  StoreLittleEndian<std::uint32_t>(block, kClustering, 1);
  const std::u16string_view fileName = rootName.substr(0, kFileNameBytes / 2 - 1);
  if (!fileName.empty()) std::memcpy(block.data() + kFileName, fileName.data(), fileName.size() * 2);
  hive->upCase = std::move(upCase);
  hive->root = std::make_shared<HiveKey>();
  hive->root->name = rootName;
  hive->root->upperName = (*hive->upCase)(rootName);
  hive->root->flags = kKeyHiveEntry | kKeyNoDelete;
  hive->root->lastWrite = now;
  hive->root->security = std::move(security);
  hive->root->hive = hive.get();
  hive->dirty = true;
  return hive;
}

}  // namespace emulated
