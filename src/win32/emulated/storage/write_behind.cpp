#include "win32/emulated/storage/write_behind.h"

#include <cstring>
#include <exception>

namespace emulated {

WriteBehind::~WriteBehind() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    ends_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

bool WriteBehind::Start() {
  if (thread_.joinable()) return true;
  try {
    for (Slot& slot : slots_) slot.bytes.resize(kLongest);
    thread_ = std::thread([this] { Run(); });
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

template <typename Condition>
bool WriteBehind::Await(std::unique_lock<std::mutex>& lock, Condition isSo) {
  changed_.wait(lock, [&] { return error_ != 0 || isSo(); });
  if (error_ != 0) errno = error_;
  return error_ == 0;
}

bool WriteBehind::Meets(std::uint64_t offset, std::size_t length) {
  for (std::uint64_t piece = written_; piece < taken_; ++piece)
    if (const Slot& slot = SlotOf(piece); slot.offset < offset + length && offset < slot.offset + slot.length)
      return true;
  return false;
}

bool WriteBehind::Write(std::uint64_t offset, ByteView first, ByteView then) {
  if (!Start()) return file_.WriteAt(offset, first) && file_.WriteAt(offset + first.size(), then);
  std::unique_lock lock(mutex_);
  if (!Await(lock, [&] { return taken_ - written_ < kSlots; })) return false;
  Slot& slot = SlotOf(taken_);
  lock.unlock();
  slot.offset = offset;
  slot.length = first.size() + then.size();
  if (!first.empty()) std::memcpy(slot.bytes.data(), first.data(), first.size());
  std::memcpy(slot.bytes.data() + first.size(), then.data(), then.size());
  lock.lock();
  ++taken_;
  changed_.notify_all();
  return true;
}

// Where the failure is not met, the rest of the file is as good as before.
bool WriteBehind::WaitFor(std::uint64_t offset, std::size_t length) {
  if (!thread_.joinable()) return true;
  std::unique_lock lock(mutex_);
  return Await(lock, [&] { return !Meets(offset, length); }) || !Meets(offset, length);
}

bool WriteBehind::Settle() {
  if (!thread_.joinable()) return true;
  std::unique_lock lock(mutex_);
  return Await(lock, [&] { return written_ == taken_; });
}

void WriteBehind::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return ends_ || (error_ == 0 && written_ < taken_); });
    if (ends_) return;
    const Slot& slot = SlotOf(written_);
    lock.unlock();
    const int error = file_.WriteAt(slot.offset, ByteView(slot.bytes).first(slot.length)) ? 0 : errno;
    lock.lock();
    if (error == 0) ++written_;
    error_ = error;
    changed_.notify_all();
  }
}

}  // namespace emulated
