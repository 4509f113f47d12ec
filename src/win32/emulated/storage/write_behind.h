// Long pieces of a file are written by a thread of their own, so that who writes can go on meanwhile: to take over the
// bytes takes far less than the host needs to find room for them.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "win32/emulated/bytes.h"
#include "win32/emulated/storage/file_descriptor.h"

namespace emulated {

// Of one caller. Pieces are written one after the other, in their order. The first failure stays: that piece and those
// behind it are never written, and who meets them, writes more or settles hears of it (`errno`).
class WriteBehind {
 public:
  static constexpr std::size_t kShortest = 256 << 10, kLongest = (1 << 20) + 4096;

  // The file outlives it, and stays the same from the first piece on.
  explicit WriteBehind(const FileDescriptor& file) : file_(file) {}
  WriteBehind(const WriteBehind&) = delete;
  WriteBehind& operator=(const WriteBehind&) = delete;
  // What has not been settled may be lost.
  ~WriteBehind();

  // At `offset` is to stand `first` and, behind it, `then`; together no more than kLongest. At once when the host has
  // no thread for it.
  bool Write(std::uint64_t offset, ByteView first, ByteView then);
  // No piece that is still to be written meets this part of the file, so that the caller may read or write there.
  bool WaitFor(std::uint64_t offset, std::size_t length);
  // All of it is in the file.
  bool Settle();

 private:
  static constexpr std::size_t kSlots = 3;
  struct Slot {
    std::uint64_t offset = 0;
    std::size_t length = 0;
    Bytes bytes;
  };

  bool Start();
  void Run();
  Slot& SlotOf(std::uint64_t piece) { return slots_[piece % kSlots]; }
  bool Meets(std::uint64_t offset, std::size_t length);
  // Waits until `isSo`, or for the first failure; holds the lock then. False: it has failed.
  template <typename Condition>
  bool Await(std::unique_lock<std::mutex>& lock, Condition isSo);

  const FileDescriptor& file_;  // its number alone is used, which does not change
  // The slots of the pieces from written_ on, before taken_, are read only; the first of them the thread reads without
  // the lock. The others are the caller's, who hands one over by counting it.
  std::array<Slot, kSlots> slots_;
  std::thread thread_;  // the caller's

  std::mutex mutex_;  // for all that follows
  std::condition_variable changed_;
  std::uint64_t taken_ = 0, written_ = 0;  // pieces, since the beginning
  int error_ = 0;
  bool ends_ = false;
};

}  // namespace emulated
