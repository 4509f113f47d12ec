#include "win32/emulated/storage/held_chunks.h"

#include <algorithm>

namespace emulated {

std::optional<HeldChunks::Place> HeldChunks::Find(std::uint64_t chunk) const {
  const auto found = places_.find(chunk);
  return found == places_.end() ? std::nullopt : std::optional(found->second);
}

bool HeldChunks::Add(std::uint64_t chunk, const Chunk& bytes) {
  const auto place = static_cast<Place>(places_.size());
  if (place == kInMemory && !folder_.empty())
    file_.file = FileDescriptor(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (IsInFile(place)) {
    fileSize_ = OffsetOf(place) + bytes.size();
    if (!cache_.Write(OffsetOf(place), bytes)) return false;
  } else {
    inMemory_.push_back(std::make_unique<Chunk>(bytes));
  }
  places_.emplace(chunk, place);
  return true;
}

bool HeldChunks::Read(Place place, std::size_t inside, std::span<std::uint8_t> to) {
  if (IsInFile(place)) return cache_.Read(OffsetOf(place) + inside, to);
  std::memcpy(to.data(), inMemory_[place]->data() + inside, to.size());
  return true;
}

bool HeldChunks::Write(Place place, std::size_t inside, ByteView from) {
  if (IsInFile(place)) return cache_.Write(OffsetOf(place) + inside, from);
  std::memcpy(inMemory_[place]->data() + inside, from.data(), from.size());
  return true;
}

std::vector<std::uint64_t> HeldChunks::InOrder() const {
  std::vector<std::uint64_t> chunks;
  chunks.reserve(places_.size());
  for (const auto& [chunk, place] : places_) chunks.push_back(chunk);
  std::ranges::sort(chunks);
  return chunks;
}

void HeldChunks::Clear() {
  places_.clear();
  inMemory_.clear();
  cache_.Forget();
  file_ = {};
  fileSize_ = 0;
}

}  // namespace emulated
