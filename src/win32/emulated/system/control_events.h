// What the user asks of the program by keys, by closing its window or by logging off: scripted, or raised from outside.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "win32/console.h"

namespace emulated {

class ControlEvents {
 public:
  // The event comes just before the nth call (from 1) of all that the program's first thread makes from now on.
  void Plan(std::uint64_t nth, win32::DWORD event) { planned_ = {nth, event}; }
  // It comes before the next one. May be called in a signal handler, and on any thread.
  void Raise(win32::DWORD event) noexcept { raised_.fetch_or(1u << event); }

  // The end of the process: nobody listens any more, and what has not come does not.
  void Forget();
  // How many have come.
  std::uint64_t count() const { return count_; }

  // Told when an event ends the process: no handler routine was for it, or one that cannot be declined was handled.
  std::function<void(win32::DWORD event)> onEnd;

  std::vector<win32::PHANDLER_ROUTINE> handlers;  // in the order in which they were added

  // Has those that are due handled, each on a thread of its own. Before a call of the first thread.
  void BeforeCall() {
    if (planned_ || raised_.load(std::memory_order_relaxed) != 0) Deliver();
  }

 private:
  struct Planned {
    std::uint64_t calls;  // until then
    win32::DWORD event;
  };
  void Deliver();

  std::optional<Planned> planned_;
  std::atomic<std::uint32_t> raised_{0};  // a bit each
  std::uint64_t count_ = 0;
};

}  // namespace emulated
