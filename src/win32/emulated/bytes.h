// Small helpers for the buffers that disks, hives and descriptors are made of.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace emulated {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Little-endian integers at an offset; the caller has checked the bounds.
template <typename T>
T LoadLittleEndian(ByteView from, std::size_t offset) {
  T value;
  std::memcpy(&value, from.data() + offset, sizeof value);
  return value;
}

template <typename T>
void StoreLittleEndian(std::span<std::uint8_t> to, std::size_t offset, T value) {
  std::memcpy(to.data() + offset, &value, sizeof value);
}

template <typename T>
void AppendLittleEndian(Bytes& to, T value) {
  const auto* const from = reinterpret_cast<const std::uint8_t*>(&value);
  to.insert(to.end(), from, from + sizeof value);
}

}  // namespace emulated
