// From which partition of which disk an image came, and what that held then: what must be so still when the volume is
// written back.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "workstation/image_source.h"

namespace workstation {

// The partition is looked at in blocks: of each there is a digest, so that a block which an interrupted writing back
// has changed can be told from one that somebody else has.
inline constexpr std::size_t kOriginBlock = std::size_t{1} << 20;

using Digest = std::array<std::uint8_t, 32>;  // SHA-256; all zeros for a block that is
Digest DigestOf(emulated::ByteView block);

// Beside X.ntfs as X.origin: lines "disk PATH", "partition N", "offset N", "size N", "container FORMAT",
// "identity HEX", then "block DIGEST" each, "-" for zeros; with a second digest while the block is being written.
struct Origin {
  std::filesystem::path disk;
  unsigned partition = 0;
  std::uint64_t offset = 0, size = 0;
  std::string container;
  emulated::Bytes identity;
  struct Block {
    Digest digest{};
    std::optional<Digest> next;  // what is being written there
  };
  std::vector<Block> blocks;
};

std::filesystem::path OriginOf(const std::filesystem::path& image);

// For importers: beside `image`, which has come from there, where it came from. Nothing when that is no partition. An
// image that is there without it cannot be written back, so it is written before the image has its name.
void RecordOrigin(const ImageSource& source, const std::filesystem::path& image);

Origin ReadOrigin(const std::filesystem::path& image);
void WriteOrigin(const Origin& origin, const std::filesystem::path& image);

// Reads a block; the last one may be shorter. Fails with the file's name.
void ReadBlock(const emulated::FileDescriptor& file, std::uint64_t offset, std::uint64_t size, std::size_t number,
               emulated::Bytes& to, const std::filesystem::path& shown);

}  // namespace workstation
