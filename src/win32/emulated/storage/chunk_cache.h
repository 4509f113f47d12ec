// What lies between an image and its file: a file system reads and writes the same records of it over and over, mostly
// a few hundred bytes at a time, and the host takes longer for a call than for the work.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <span>

#include "win32/emulated/bytes.h"
#include "win32/emulated/storage/file_descriptor.h"
#include "win32/emulated/storage/write_behind.h"

namespace emulated {

// A file of the folder as it reads with what a journal that was left is still to put into it.
struct SourceFile {
  FileDescriptor file;
  std::map<std::uint64_t, Bytes> pending;  // by offset

  bool ReadAt(std::uint64_t offset, std::span<std::uint8_t> to) const;
};

// Short pieces go through here, long ones to the file, the longest behind the caller. What is written is in the file
// after Flush, or earlier. A chunk has one slot where it may be; what else is there then goes, and is written first
// when it has changed.
class ChunkCache {
 public:
  static constexpr std::size_t kChunk = 4096;
  using Chunk = std::array<std::uint8_t, kChunk>;

  // `size`: where the file ends. Both outlive the cache.
  ChunkCache(const SourceFile& file, const std::uint64_t& size) : file_(file), size_(size) {}

  // Within the file. False: `errno` of the file's failure, be it in writing what had to go, or was to be written
  // behind.
  bool Read(std::uint64_t offset, std::span<std::uint8_t> to);
  bool Write(std::uint64_t offset, ByteView from);
  bool Flush();
  // Somebody else is going to change the file, or has: nothing is known of it any more. After a Flush.
  void Forget();

 private:
  static constexpr std::size_t kSlots = 1024;
  static constexpr std::size_t kLong = 4 * kChunk;
  static constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();
  struct Slot {
    std::uint64_t chunk = kNone;
    bool isChanged = false;
    Chunk bytes;  // not touched before there is something to be in it
  };

  std::size_t ChunkLength(std::uint64_t chunk) const;
  Slot& SlotOf(std::uint64_t chunk) { return slots_[chunk % kSlots]; }
  std::span<Slot> Slots() { return {slots_.get(), slots_ ? kSlots : 0}; }
  bool WriteBack(Slot& slot);
  // The slot with the chunk in it, or, when all of it is going to be written, for it; null when that cannot be done.
  Slot* Fetch(std::uint64_t chunk, bool forWhole = false);
  // The file itself, without pieces that are still to be written.
  bool ReadFile(std::uint64_t offset, std::span<std::uint8_t> to);
  bool WriteFile(std::uint64_t offset, ByteView from);
  // A piece that ends with a chunk, and begins with one unless it goes behind.
  bool WriteLong(std::uint64_t offset, ByteView from);

  const SourceFile& file_;
  const std::uint64_t& size_;
  std::unique_ptr<Slot[]> slots_;  // made when the first is needed
  WriteBehind behind_{file_.file};
};

}  // namespace emulated
