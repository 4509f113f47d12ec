#include "win32/emulated/storage/ntfs_secure.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <tuple>

#include "win32/emulated/storage/ntfs_library.h"

namespace emulated::ntfs {
namespace {

using Header = SECURITY_DESCRIPTOR_HEADER;  // of a descriptor in $SDS, and what both indexes say of it

constexpr std::u16string_view kStream = u"$SDS";
// The second copy of each block of descriptors lies behind it; no descriptor crosses its end.
constexpr std::uint64_t kBlock = 0x40000, kAlignment = 16;
constexpr std::size_t kLongest = 0x10000;
constexpr std::size_t kReadAtOnce = 0x4000;
constexpr std::uint32_t kGreatestId = 0xFFFFFFFF;

bool IsEnd(const INDEX_ENTRY& entry) { return (entry.ie_flags & INDEX_ENTRY_END) != 0; }

Header HeaderIn(const INDEX_ENTRY& entry) {
  Header header;
  std::memcpy(&header, reinterpret_cast<const std::uint8_t*>(&entry) + le16_to_cpu(entry.data_offset), sizeof header);
  return header;
}

// An entry for one of the two indexes.
class NewEntry {
 public:
  explicit NewEntry(const Header& header, SII_INDEX_KEY key) { Fill(header, key, 40); }
  explicit NewEntry(const Header& header, SDH_INDEX_KEY key) {
    Fill(header, key, 48);
    StoreLittleEndian<std::uint32_t>(bytes_, 44, 0x00490049);  // as Windows pads it
  }
  const INDEX_ENTRY& get() const { return *reinterpret_cast<const INDEX_ENTRY*>(bytes_.data()); }

 private:
  template <typename Key>
  void Fill(const Header& header, const Key& key, std::uint16_t length) {
    constexpr std::size_t kKey = sizeof(INDEX_ENTRY_HEADER);
    StoreLittleEndian<std::uint16_t>(bytes_, offsetof(INDEX_ENTRY, data_offset), kKey + sizeof key);
    StoreLittleEndian<std::uint16_t>(bytes_, offsetof(INDEX_ENTRY, data_length), sizeof header);
    StoreLittleEndian<std::uint16_t>(bytes_, offsetof(INDEX_ENTRY, length), length);
    StoreLittleEndian<std::uint16_t>(bytes_, offsetof(INDEX_ENTRY, key_length), sizeof key);
    StoreLittleEndian(bytes_, kKey, key);
    StoreLittleEndian(bytes_, kKey + sizeof key, header);
  }

  alignas(8) std::array<std::uint8_t, 48> bytes_{};
};

// A place in an index, and the block around it. What is asked for in ascending order is found there, as long as it lies
// before the block's last entry, without another look-up.
class Cursor {
 public:
  explicit Cursor(ntfs_index_context* index) : index_(*index) { ntfs_index_ctx_reinit(index); }
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;
  ~Cursor() { Leave(); }
  // Whether all that was added is written. (The library would not say.)
  bool Finish() {
    Leave();
    return !hasFailed_;
  }

  // Where an entry with that key, which is not there, belongs: before the one that is answered, which may be the end of
  // its block. nullptr when that cannot be told.
  template <typename Key>
  INDEX_ENTRY* LookUp(const Key& key) {
    Leave();
    if (ntfs_index_lookup(&key, sizeof key, &index_) == 0 || errno != ENOENT) return nullptr;
    return Keep(index_.entry);
  }
  INDEX_ENTRY* Seek(const SDH_INDEX_KEY& key) {
    const auto isLess = [&key](const SDH_INDEX_KEY& other) {
      return std::pair(le32_to_cpu(other.hash), le32_to_cpu(other.security_id)) <
             std::pair(le32_to_cpu(key.hash), le32_to_cpu(key.security_id));
    };
    while (place_ && !IsEnd(*place_) && isLess(place_->key.sdh)) place_ = Next(place_);
    return place_ && !IsEnd(*place_) ? place_ : LookUp(key);
  }
  INDEX_ENTRY* SeekEnd() { return place_ && IsEnd(*place_) ? place_ : LookUp(SII_INDEX_KEY{cpu_to_le32(kGreatestId)}); }

  // Whether $SDH has that hash, or may have.
  bool MayHave(le32 hash) {
    INDEX_ENTRY* entry = Seek({hash, 0});
    if (!entry) return true;
    if (IsEnd(*entry)) {
      place_ = nullptr;
      entry = ntfs_index_next(entry, &index_);
    }
    return entry && entry->key.sdh.hash == hash;
  }

  // Adds an entry at its place, which has just been sought. The library does it where that is in the record, or where a
  // block must be split.
  bool Add(INDEX_ENTRY* place, const INDEX_ENTRY& entry) {
    if (!place) return false;
    if (InsertBefore(place, entry)) return Keep(Next(place)), true;
    Leave();
    if (ntfs_ie_add(&index_, const_cast<INDEX_ENTRY*>(&entry)) != 0) return false;
    Keep(Next(index_.entry));
    return true;
  }

  // The entries of the block up to the one that ends it; nullptr where they are damaged.
  INDEX_ENTRY* First() const {
    return At(reinterpret_cast<std::uint8_t*>(&Block()) + le32_to_cpu(Block().entries_offset));
  }
  INDEX_ENTRY* Next(INDEX_ENTRY* entry) const {
    return At(reinterpret_cast<std::uint8_t*>(entry) + le16_to_cpu(entry->length));
  }

 private:
  INDEX_HEADER& Block() const { return index_.is_in_root ? index_.ir->index : index_.ib->index; }
  void Leave() {
    place_ = nullptr;
    if (index_.ib_dirty) {
      const s64 at = sle64_to_cpu(index_.ib->index_block_vcn) << index_.vcn_size_bits;
      if (ntfs_attr_mst_pwrite(index_.ia_na, at, 1, index_.block_size, index_.ib) != 1) hasFailed_ = true;
      index_.ib_dirty = FALSE;
    }
    ntfs_index_ctx_reinit(&index_);
  }
  // A place in the record is not kept: attributes move there.
  INDEX_ENTRY* Keep(INDEX_ENTRY* place) {
    place_ = index_.is_in_root ? nullptr : place;
    return place;
  }
  INDEX_ENTRY* At(std::uint8_t* at) const {
    const auto left = reinterpret_cast<std::uint8_t*>(&Block()) + le32_to_cpu(Block().index_length) - at;
    auto* const entry = reinterpret_cast<INDEX_ENTRY*>(at);
    if (left < static_cast<std::ptrdiff_t>(sizeof(INDEX_ENTRY_HEADER)) || left < le16_to_cpu(entry->length))
      return nullptr;
    constexpr std::size_t kShortestKey = sizeof(SII_INDEX_KEY);
    std::size_t needed = sizeof(INDEX_ENTRY_HEADER);
    if (!IsEnd(*entry))
      needed = std::max<std::size_t>(needed + kShortestKey, le16_to_cpu(entry->data_offset)) + sizeof(Header);
    return le16_to_cpu(entry->length) < needed ? nullptr : entry;
  }
  bool InsertBefore(INDEX_ENTRY* place, const INDEX_ENTRY& entry) {
    if (index_.is_in_root) return false;
    INDEX_HEADER& block = Block();
    const std::uint32_t used = le32_to_cpu(block.index_length), length = le16_to_cpu(entry.length);
    if (used + length > le32_to_cpu(block.allocated_size)) return false;
    auto* const to = reinterpret_cast<std::uint8_t*>(place);
    std::memmove(to + length, to, static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(&block) + used - to));
    std::memcpy(to, &entry, length);
    block.index_length = cpu_to_le32(used + length);
    ntfs_index_entry_mark_dirty(&index_);
    return true;
  }

  ntfs_index_context& index_;
  INDEX_ENTRY* place_ = nullptr;  // in a block that `index_` holds
  bool hasFailed_ = false;
};

// What $SII says of the descriptor with the greatest number.
std::optional<Header> LastOf(ntfs_index_context* index) {
  Cursor byNumber(index);
  INDEX_ENTRY* const end = byNumber.SeekEnd();
  if (!end || !IsEnd(*end)) return std::nullopt;
  std::optional<Header> last;
  for (INDEX_ENTRY* entry = byNumber.First(); entry && entry != end; entry = byNumber.Next(entry))
    last = HeaderIn(*entry);
  return last;
}

}  // namespace

struct SecureFile::Entry {
  Header header;
  NewDescriptor* descriptor;
};

bool SecureFile::CanBeUsed() const {
  return volume_->major_ver >= 3 && volume_->secure_ni && volume_->secure_xsii && volume_->secure_xsdh;
}

// Where the descriptor lies, and all others in its block of the index.
void SecureFile::NotePlaces(std::uint32_t id) {
  const SII_INDEX_KEY key{cpu_to_le32(id)};
  ntfs_index_context* const index = volume_->secure_xsii;
  Cursor byNumber(index);
  if (ntfs_index_lookup(&key, sizeof key, index) != 0) return;
  for (INDEX_ENTRY* entry = byNumber.First(); entry && !IsEnd(*entry); entry = byNumber.Next(entry)) {
    const Header header = HeaderIn(*entry);
    places_.try_emplace(le32_to_cpu(entry->key.sii.security_id),
                        Place{le64_to_cpu(header.offset), le32_to_cpu(header.length)});
  }
}

std::optional<Bytes> SecureFile::Read(std::uint32_t id) {
  if (id == 0 || !CanBeUsed()) return std::nullopt;
  if (!places_.contains(id)) NotePlaces(id);
  const auto place = places_.find(id);
  if (place == places_.end()) return std::nullopt;
  const auto [offset, length] = place->second;
  if (length <= sizeof(Header) || length > sizeof(Header) + kLongest) return std::nullopt;
  if (offset < pieceOffset_ || offset - pieceOffset_ > piece_.size() ||
      piece_.size() - (offset - pieceOffset_) < length) {
    piece_.resize(std::max<std::size_t>(length, kReadAtOnce));
    pieceOffset_ = offset;
    const int read =
        ntfs_attr_data_read(volume_->secure_ni, Units(kStream), static_cast<int>(kStream.size()),
                            reinterpret_cast<char*>(piece_.data()), piece_.size(), static_cast<off_t>(offset));
    piece_.resize(static_cast<std::size_t>(std::max(read, 0)));
    if (piece_.size() < length) return std::nullopt;
  }
  const ByteView entry = ByteView(piece_).subspan(static_cast<std::size_t>(offset - pieceOffset_), length);
  Header header;
  std::memcpy(&header, entry.data(), sizeof header);
  if (le32_to_cpu(header.security_id) != id || le32_to_cpu(header.length) != length) return std::nullopt;
  return Bytes(entry.begin() + sizeof header, entry.end());
}

std::uint32_t SecureFile::AnyId() {
  if (anyId_ == 0 && CanBeUsed()) {
    if (const auto last = LastOf(volume_->secure_xsii)) anyId_ = le32_to_cpu(last->security_id);
  }
  return anyId_;
}

// The numbers and the places behind the last descriptor, and where that one ends.
bool SecureFile::GivePlaces(std::vector<Entry>& entries, std::uint64_t& end) const {
  const auto last = LastOf(volume_->secure_xsii);
  if (!last) return false;
  end = le64_to_cpu(last->offset) + le32_to_cpu(last->length);
  std::uint64_t offset = end;
  std::uint32_t id = le32_to_cpu(last->security_id);
  for (auto& [header, descriptor] : entries) {
    const std::uint64_t length = sizeof header + descriptor->descriptor->size();
    offset = (offset + kAlignment - 1) & ~(kAlignment - 1);
    if (const std::uint64_t lastByte = offset + length - 1; lastByte & kBlock) offset = (lastByte | (kBlock - 1)) + 1;
    header.security_id = cpu_to_le32(++id);
    header.offset = cpu_to_le64(offset);
    header.length = cpu_to_le32(static_cast<std::uint32_t>(length));
    offset += length;
  }
  return true;
}

// Both copies, block by block. Of a block that begins here the first copy is written to its end, lest the stream become
// a sparse one when the second is.
bool SecureFile::WriteData(const std::vector<Entry>& entries, std::uint64_t end) const {
  const auto blockOf = [](std::uint64_t offset) { return offset / kBlock; };
  const UniqueAttribute stream = OpenData(volume_->secure_ni, kStream);
  if (!stream) return false;
  const auto write = [&stream](std::uint64_t offset, const Bytes& bytes) {
    const auto size = static_cast<s64>(bytes.size());
    return ntfs_attr_pwrite(stream.get(), static_cast<s64>(offset), size, bytes.data()) == size;
  };
  for (auto entry = entries.begin(); entry != entries.end();) {
    const std::uint64_t first = le64_to_cpu(entry->header.offset);
    const std::uint64_t start = blockOf(end) == blockOf(first) ? end : first;
    Bytes block;
    for (; entry != entries.end() && blockOf(le64_to_cpu(entry->header.offset)) == blockOf(first); ++entry) {
      block.resize(static_cast<std::size_t>(le64_to_cpu(entry->header.offset) - start));
      const auto* const header = reinterpret_cast<const std::uint8_t*>(&entry->header);
      block.insert(block.end(), header, header + sizeof entry->header);
      block.insert(block.end(), entry->descriptor->descriptor->begin(), entry->descriptor->descriptor->end());
    }
    end = start + block.size();
    if (start % kBlock == 0) {
      Bytes whole = block;
      whole.resize(kBlock);
      if (!write(start, whole)) return false;
    } else if (!write(start, block)) {
      return false;
    }
    if (!write(start + kBlock, block)) return false;
  }
  // Windows goes on where the stream ends.
  return ntfs_attr_shrink_size(volume_->secure_ni, Units(kStream), static_cast<int>(kStream.size()),
                               static_cast<off_t>(end + kBlock)) == 0;
}

void SecureFile::Enter(std::vector<NewDescriptor>& descriptors) {
  std::vector<Entry> entries;
  const auto byKey = [](const Entry& entry) {
    return std::tuple(le32_to_cpu(entry.header.hash), le32_to_cpu(entry.header.security_id), entry.descriptor);
  };
  for (NewDescriptor& added : descriptors) {
    const auto size = static_cast<u32>(added.descriptor->size());
    const auto* const bytes = reinterpret_cast<const char*>(added.descriptor->data());
    if (!ntfs_valid_descr(bytes, size) || ntfs_attr_size(bytes) != size) continue;
    const le32 hash = ntfs_security_hash(reinterpret_cast<const SECURITY_DESCRIPTOR_RELATIVE*>(bytes), size);
    entries.push_back({{hash, 0, 0, 0}, &added});
  }
  if (entries.empty() || !CanBeUsed()) return;
  std::ranges::sort(entries, {}, byKey);
  {
    Cursor byHash(volume_->secure_xsdh);
    std::erase_if(entries, [&byHash](const Entry& entry) { return byHash.MayHave(entry.header.hash); });
  }
  if (entries.empty()) return;
  ForgetWhatWasRead();
  std::ranges::sort(entries, {}, &Entry::descriptor);
  std::uint64_t end = 0;
  if (!GivePlaces(entries, end) || !WriteData(entries, end)) return;
  bool isEntered = false;
  {
    Cursor byNumber(volume_->secure_xsii);
    isEntered = std::ranges::all_of(entries, [&byNumber](const Entry& entry) {
      return byNumber.Add(byNumber.SeekEnd(), NewEntry(entry.header, SII_INDEX_KEY{entry.header.security_id}).get());
    });
    isEntered = byNumber.Finish() && isEntered;
  }
  if (isEntered) {
    std::ranges::sort(entries, {}, byKey);
    Cursor byHash(volume_->secure_xsdh);
    isEntered = std::ranges::all_of(entries, [&byHash](const Entry& entry) {
      const SDH_INDEX_KEY key{entry.header.hash, entry.header.security_id};
      return byHash.Add(byHash.Seek(key), NewEntry(entry.header, key).get());
    });
    isEntered = byHash.Finish() && isEntered;
  }
  NInoSetDirty(volume_->secure_ni);
  if (ntfs_inode_sync(volume_->secure_ni) != 0 || !isEntered) return;
  for (const Entry& entry : entries) entry.descriptor->id = le32_to_cpu(entry.header.security_id);
}

}  // namespace emulated::ntfs
