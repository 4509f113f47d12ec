#include "win32/emulated/storage/ntfs_attributes.h"

namespace emulated {
namespace {

// Offsets in attribute records and in $FILE_NAME, as the NTFS documentation of the Linux-NTFS project gives them.
constexpr std::size_t kNonResident = 8, kNameLength = 9, kNameOffset = 10, kFlags = 12;
constexpr std::size_t kValueLength = 16, kValueOffset = 20, kResidentHeader = 24;
constexpr std::size_t kAllocatedSize = 40, kDataSize = 48, kCompressedSize = 64, kNonResidentHeader = 64;
constexpr std::uint16_t kCompressedFlags = 0x00FF, kSparseFlag = 0x8000;
constexpr std::size_t kFileNameLength = 64, kFileNameType = 65, kFileNameUnits = 66;
constexpr std::uint8_t kDosName = 2;

std::u16string UnitsAt(ByteView from, std::size_t offset, std::size_t count) {
  if (offset > from.size() || count * 2 > from.size() - offset) return {};
  std::u16string units(count, u'\0');
  std::memcpy(units.data(), from.data() + offset, count * 2);
  return units;
}

}  // namespace

ByteView ResidentValue(ByteView record) {
  if (record.size() < kResidentHeader || record[kNonResident] != 0) return {};
  const auto length = LoadLittleEndian<std::uint32_t>(record, kValueLength);
  const auto offset = LoadLittleEndian<std::uint16_t>(record, kValueOffset);
  if (offset > record.size() || length > record.size() - offset) return {};
  return record.subspan(offset, length);
}

std::optional<FileName> FileNameFrom(ByteView value) {
  if (value.size() < kFileNameUnits) return std::nullopt;
  const std::size_t length = value[kFileNameLength];
  if (value.size() - kFileNameUnits < length * 2) return std::nullopt;
  return FileName{LoadLittleEndian<std::uint64_t>(value, 0), UnitsAt(value, kFileNameUnits, length),
                  value[kFileNameType] == kDosName};
}

StreamInfo StreamFrom(ByteView record) {
  StreamInfo stream;
  if (record.size() < kResidentHeader) return stream;
  stream.name = UnitsAt(record, LoadLittleEndian<std::uint16_t>(record, kNameOffset), record[kNameLength]);
  const auto flags = LoadLittleEndian<std::uint16_t>(record, kFlags);
  stream.sparse = (flags & kSparseFlag) != 0;
  if (record[kNonResident] == 0) {
    stream.size = ResidentValue(record).size();
    stream.allocated = ResidentAllocation(stream.size);
  } else if (record.size() >= kNonResidentHeader) {
    stream.size = LoadLittleEndian<std::uint64_t>(record, kDataSize);
    const bool hasCompressedSize =
        (flags & (kSparseFlag | kCompressedFlags)) != 0 && record.size() >= kCompressedSize + 8;
    stream.allocated = LoadLittleEndian<std::uint64_t>(record, hasCompressedSize ? kCompressedSize : kAllocatedSize);
  }
  return stream;
}

}  // namespace emulated
