// What has been written to an image and waits for its commit: chunks of 4 KiB. The first are held in memory; those of a
// large change in a file without a name, which is gone when the process is.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "win32/emulated/storage/chunk_cache.h"

namespace emulated {

class HeldChunks {
 public:
  using Chunk = ChunkCache::Chunk;
  using Place = std::uint32_t;

  // Where the file may be made. Without it, and where the host's file system makes none, all are held in memory.
  void MayUse(std::filesystem::path folder) { folder_ = std::move(folder); }

  bool IsEmpty() const { return places_.empty(); }
  // Nothing when the chunk is not held. A place stays as it is until Clear.
  std::optional<Place> Find(std::uint64_t chunk) const;
  // A chunk that is not held yet. These three: false when the file fails.
  bool Add(std::uint64_t chunk, const Chunk& bytes);
  bool Read(Place place, std::size_t inside, std::span<std::uint8_t> to);
  bool Write(Place place, std::size_t inside, ByteView from);
  std::vector<std::uint64_t> InOrder() const;
  void Clear();

 private:
  static constexpr std::size_t kInMemory = 4096;  // 16 MiB
  static std::uint64_t OffsetOf(Place place) { return (place - kInMemory) * std::uint64_t{ChunkCache::kChunk}; }
  bool IsInFile(Place place) const { return place >= kInMemory && file_.file; }

  std::filesystem::path folder_;
  std::unordered_map<std::uint64_t, Place> places_;
  std::vector<std::unique_ptr<Chunk>> inMemory_;  // by place; all of them while there is no file
  SourceFile file_;                               // from the first place that is not in memory on
  std::uint64_t fileSize_ = 0;
  ChunkCache cache_{file_, fileSize_};
};

}  // namespace emulated
