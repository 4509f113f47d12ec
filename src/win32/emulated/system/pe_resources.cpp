#include "win32/emulated/system/pe_resources.h"

namespace emulated {

namespace {

// A number at an offset, or 0 and a mark that the file is too short for it.
class Reader {
 public:
  explicit Reader(ByteView bytes) : bytes_(bytes) {}
  template <typename T>
  T At(std::uint64_t offset) {
    if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T)) {
      failed_ = true;
      return 0;
    }
    return LoadLittleEndian<T>(bytes_, static_cast<std::size_t>(offset));
  }
  bool failed() const { return failed_; }
  std::optional<ByteView> Part(std::uint64_t offset, std::uint64_t size) const {
    if (failed_ || offset > bytes_.size() || bytes_.size() - offset < size) return std::nullopt;
    return bytes_.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
  }

 private:
  ByteView bytes_;
  bool failed_ = false;
};

struct Headers {
  std::uint64_t sections = 0;
  unsigned sectionCount = 0;
  std::uint32_t resources = 0;  // virtual address of the resource directory
};

std::optional<Headers> ReadHeaders(Reader& file) {
  constexpr std::uint16_t kPe32 = 0x10B, kPe32Plus = 0x20B;
  constexpr unsigned kResourceDirectory = 2;
  if (file.At<std::uint16_t>(0) != 0x5A4D) return std::nullopt;  // "MZ"
  const std::uint64_t pe = file.At<std::uint32_t>(0x3C);
  if (file.At<std::uint32_t>(pe) != 0x4550) return std::nullopt;  // "PE"
  const std::uint64_t optional = pe + 24;
  const auto magic = file.At<std::uint16_t>(optional);
  if (magic != kPe32 && magic != kPe32Plus) return std::nullopt;
  const std::uint64_t directories = optional + (magic == kPe32 ? 96u : 112u);
  if (file.At<std::uint32_t>(directories - 4) <= kResourceDirectory) return std::nullopt;
  Headers headers;
  headers.resources = file.At<std::uint32_t>(directories + kResourceDirectory * 8);
  headers.sectionCount = file.At<std::uint16_t>(pe + 6);
  headers.sections = optional + file.At<std::uint16_t>(pe + 20);
  if (file.failed() || headers.resources == 0) return std::nullopt;
  return headers;
}

// Where a virtual address lies in the file.
std::optional<std::uint64_t> FileOffset(Reader& file, const Headers& headers, std::uint64_t address) {
  for (unsigned i = 0; i < headers.sectionCount && !file.failed(); ++i) {
    const std::uint64_t section = headers.sections + std::uint64_t{i} * 40;
    const std::uint64_t start = file.At<std::uint32_t>(section + 12), size = file.At<std::uint32_t>(section + 16);
    if (address >= start && address - start < size) return file.At<std::uint32_t>(section + 20) + (address - start);
  }
  return std::nullopt;
}

}  // namespace

std::optional<ByteView> FindPeResource(ByteView image, std::uint16_t type) {
  Reader file(image);
  const auto headers = ReadHeaders(file);
  if (!headers) return std::nullopt;
  const auto root = FileOffset(file, *headers, headers->resources);
  if (!root) return std::nullopt;
  // Three levels: type, name, language. An entry's high bit says that it leads to a further level.
  constexpr std::uint32_t kSubdirectory = 0x80000000;
  std::uint64_t directory = *root;
  for (int level = 0; level < 3; ++level) {
    const unsigned named = file.At<std::uint16_t>(directory + 12), numbered = file.At<std::uint16_t>(directory + 14);
    std::optional<std::uint32_t> next;
    for (unsigned i = 0; i < named + numbered && !next && !file.failed(); ++i) {
      const std::uint64_t entry = directory + 16 + std::uint64_t{i} * 8;
      if (level > 0 || file.At<std::uint32_t>(entry) == type) next = file.At<std::uint32_t>(entry + 4);
    }
    const bool wantsDirectory = level < 2;
    if (!next || ((*next & kSubdirectory) != 0) != wantsDirectory) return std::nullopt;
    directory = *root + (*next & ~kSubdirectory);
  }
  const std::uint64_t address = file.At<std::uint32_t>(directory), size = file.At<std::uint32_t>(directory + 4);
  const auto offset = FileOffset(file, *headers, address);
  return offset ? file.Part(*offset, size) : std::nullopt;
}

}  // namespace emulated
