#include "workstation/image_origin.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <system_error>

#include "workstation/command.h"
#include "workstation/new_file.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::Bytes;
using emulated::ByteView;

namespace {

std::string HexOf(ByteView bytes) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) text.append({kDigits[byte >> 4], kDigits[byte & 15]});
  return text;
}

Bytes BytesOf(const std::string& hex) {
  Bytes bytes;
  for (std::size_t at = 0; at + 2 <= hex.size(); at += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
  return bytes;
}

bool IsZero(ByteView block) {
  return block.empty() || (block[0] == 0 && std::memcmp(block.data(), block.data() + 1, block.size() - 1) == 0);
}

std::size_t BlocksIn(std::uint64_t size) { return static_cast<std::size_t>((size + kOriginBlock - 1) / kOriginBlock); }

std::string TextOf(const Digest& digest) { return digest == Digest{} ? "-" : HexOf(digest); }

Digest ParseDigest(const std::string& text) {
  Digest digest{};
  const Bytes bytes = BytesOf(text == "-" ? std::string(2 * digest.size(), '0') : text);
  if (bytes.size() != digest.size()) throw std::invalid_argument(text);
  std::ranges::copy(bytes, digest.begin());
  return digest;
}

Origin::Block ParseBlock(const std::string& text) {
  const std::size_t space = text.find(' ');
  Origin::Block block{ParseDigest(text.substr(0, space)), std::nullopt};
  if (space != text.npos) block.next = ParseDigest(text.substr(space + 1));
  return block;
}

void ParseHead(Origin& origin, const std::string& key, const std::string& value) {
  if (key == "disk") origin.disk = value;
  if (key == "partition") origin.partition = static_cast<unsigned>(std::stoul(value));
  if (key == "offset") origin.offset = std::stoull(value);
  if (key == "size") origin.size = std::stoull(value);
  if (key == "container") origin.container = value;
  if (key == "identity") origin.identity = BytesOf(value);
}

}  // namespace

Digest DigestOf(ByteView block) {
  Digest digest{};
  if (!IsZero(block) && EVP_Digest(block.data(), block.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
    throw Failure("SHA-256 is not available");
  return digest;
}

fs::path OriginOf(const fs::path& image) { return fs::path(image).replace_extension(".origin"); }

void ReadBlock(const emulated::FileDescriptor& file, std::uint64_t offset, std::uint64_t size, std::size_t number,
               Bytes& to, const fs::path& shown) {
  const std::uint64_t at = std::uint64_t{number} * kOriginBlock;
  to.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kOriginBlock, size - at)));
  // A hole is not read: most of a disk may be one.
  const off_t data = lseek(file.get(), static_cast<off_t>(offset + at), SEEK_DATA);
  const bool isHole = data < 0 ? errno == ENXIO : static_cast<std::uint64_t>(data) >= offset + at + to.size();
  if (isHole) {
    std::ranges::fill(to, std::uint8_t{0});
  } else if (!file.ReadAt(offset + at, to)) {
    throw Failure(shown.string() + ": " + strerror(errno));
  }
}

void RecordOrigin(const ImageSource& source, const fs::path& image) {
  std::error_code failed;
  fs::remove(OriginOf(image), failed);
  if (!source.partition) return;
  Origin origin{fs::absolute(source.shown),
                *source.partition,
                source.start,
                source.size,
                source.container,
                source.identity,
                std::vector<Origin::Block>(BlocksIn(source.size))};
  Bytes block;
  for (std::size_t i = 0; i < origin.blocks.size(); ++i) {
    ReadBlock(source.file, source.offset, source.size, i, block, source.shown);
    origin.blocks[i].digest = DigestOf(block);
  }
  WriteOrigin(origin, image);
}

Origin ReadOrigin(const fs::path& image) {
  Origin origin;
  std::ifstream file(OriginOf(image));
  if (!file) throw Failure(image.string() + ": it has not come from a partition of a disk");
  try {
    for (std::string line; std::getline(file, line);) {
      const std::size_t space = line.find(' ');
      if (line.empty()) continue;
      if (line.starts_with("block ")) {
        origin.blocks.push_back(ParseBlock(line.substr(space + 1)));
      } else if (space != line.npos) {
        ParseHead(origin, line.substr(0, space), line.substr(space + 1));
      }
    }
  } catch (const std::logic_error&) {  // no number
    origin.size = 0;
  }
  if (origin.size == 0 || origin.blocks.size() != BlocksIn(origin.size))
    throw Failure(OriginOf(image).string() + ": damaged");
  return origin;
}

void WriteOrigin(const Origin& origin, const fs::path& image) {
  std::string text = "disk " + origin.disk.string() + "\npartition " + std::to_string(origin.partition) + "\noffset " +
                     std::to_string(origin.offset) + "\nsize " + std::to_string(origin.size) + '\n';
  if (!origin.container.empty()) text += "container " + origin.container + '\n';
  if (!origin.identity.empty()) text += "identity " + HexOf(origin.identity) + '\n';
  for (const Origin::Block& block : origin.blocks) {
    text += "block " + TextOf(block.digest) + (block.next ? ' ' + TextOf(*block.next) : "") + '\n';
  }
  ReplaceFile(OriginOf(image), text);
}

}  // namespace workstation
