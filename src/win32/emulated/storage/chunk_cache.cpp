#include "win32/emulated/storage/chunk_cache.h"

#include <algorithm>

namespace emulated {

bool SourceFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> to) const {
  if (!file.ReadAt(offset, to)) return false;
  auto change = pending.upper_bound(offset);
  if (change != pending.begin()) --change;
  for (; change != pending.end() && change->first < offset + to.size(); ++change) {
    const std::uint64_t first = std::max(offset, change->first);
    const std::uint64_t end = std::min(offset + to.size(), change->first + change->second.size());
    if (first < end)
      std::memcpy(to.data() + (first - offset), change->second.data() + (first - change->first), end - first);
  }
  return true;
}

std::size_t ChunkCache::ChunkLength(std::uint64_t chunk) const {
  return static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, size_ - chunk * kChunk));
}

bool ChunkCache::ReadFile(std::uint64_t offset, std::span<std::uint8_t> to) {
  return behind_.WaitFor(offset, to.size()) && file_.ReadAt(offset, to);
}

bool ChunkCache::WriteFile(std::uint64_t offset, ByteView from) {
  return behind_.WaitFor(offset, from.size()) && file_.file.WriteAt(offset, from);
}

bool ChunkCache::WriteBack(Slot& slot) {
  if (!slot.isChanged) return true;
  if (!WriteFile(slot.chunk * kChunk, ByteView(slot.bytes).first(ChunkLength(slot.chunk)))) return false;
  slot.isChanged = false;
  return true;
}

ChunkCache::Slot* ChunkCache::Fetch(std::uint64_t chunk, bool forWhole) {
  if (!slots_) slots_ = std::make_unique_for_overwrite<Slot[]>(kSlots);
  Slot& slot = SlotOf(chunk);
  if (slot.chunk == chunk) return &slot;
  if (!WriteBack(slot)) return nullptr;
  slot.chunk = kNone;
  if (!forWhole && !ReadFile(chunk * kChunk, std::span(slot.bytes).first(ChunkLength(chunk)))) return nullptr;
  slot.chunk = chunk;
  return &slot;
}

bool ChunkCache::Read(std::uint64_t offset, std::span<std::uint8_t> to) {
  while (!to.empty()) {
    std::size_t length = to.size();
    if (length >= kLong) {
      for (std::uint64_t chunk = offset / kChunk; slots_ && chunk * kChunk < offset + length; ++chunk)
        if (Slot& slot = SlotOf(chunk); slot.chunk == chunk && !WriteBack(slot)) return false;
      if (!ReadFile(offset, to.first(length))) return false;
    } else {
      const std::size_t inside = offset % kChunk;
      length = std::min(to.size(), kChunk - inside);
      const Slot* const slot = Fetch(offset / kChunk);
      if (!slot) return false;
      // Not memcpy, in whose place the compiler puts a loop by eight bytes where it sees that they are few.
      std::memmove(to.data(), slot->bytes.data() + inside, length);
    }
    to = to.subspan(length);
    offset += length;
  }
  return true;
}

// What goes behind takes along what stands before it in its first chunk: that has most likely just been written, and
// would have to wait for its neighbour to be written by itself.
bool ChunkCache::WriteLong(std::uint64_t offset, ByteView from) {
  const std::size_t inside = offset % kChunk;
  if (from.size() < WriteBehind::kShortest) {
    if (!WriteFile(offset, from)) return false;
  } else {
    const Slot* const begun = inside != 0 ? Fetch(offset / kChunk) : nullptr;
    if (inside != 0 && !begun) return false;
    const ByteView before = begun ? ByteView(begun->bytes).first(inside) : ByteView();
    if (!behind_.Write(offset - inside, before, from)) return false;
  }
  for (std::uint64_t chunk = offset / kChunk; slots_ && chunk * kChunk < offset + from.size(); ++chunk)
    if (Slot& slot = SlotOf(chunk); slot.chunk == chunk) slot.chunk = kNone, slot.isChanged = false;
  return true;
}

bool ChunkCache::Write(std::uint64_t offset, ByteView from) {
  while (!from.empty()) {
    const std::size_t inside = offset % kChunk;
    const std::size_t whole = (inside + std::min(from.size(), WriteBehind::kLongest - inside)) / kChunk * kChunk;
    std::size_t length = whole > inside ? whole - inside : 0;
    if (length >= (inside == 0 ? kLong : WriteBehind::kShortest)) {
      if (!WriteLong(offset, from.first(length))) return false;
    } else {
      length = std::min(from.size(), kChunk - inside);
      Slot* const slot = Fetch(offset / kChunk, length == ChunkLength(offset / kChunk));
      if (!slot) return false;
      std::memmove(slot->bytes.data() + inside, from.data(), length);
      slot->isChanged = true;
    }
    from = from.subspan(length);
    offset += length;
  }
  return true;
}

bool ChunkCache::Flush() {
  return behind_.Settle() && std::ranges::all_of(Slots(), [this](Slot& slot) { return WriteBack(slot); });
}

void ChunkCache::Forget() { slots_.reset(); }

}  // namespace emulated
