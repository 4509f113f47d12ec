// How far long work is, in the title of the console's window: "37 % of 12,480 items, 2.1 GB left".
#pragma once

#include <cstdint>
#include <string>

enum class ProgressOf { Copying, Deleting, TakingBack };

struct ProgressCounts {
  std::uint64_t items = 0, bytes = 0;
};

// The title. An item counts beside its bytes, as what its making costs.
std::u16string ProgressTitle(ProgressOf work, const ProgressCounts& done, const ProgressCounts& all);

// One piece of work, known in its size. While the output goes to a console, its window shows the title, first after
// half a second and then no more often than every half second; the old one is back at the end. Nothing here fails or
// throws.
class Progress {
 public:
  Progress(ProgressOf work, const ProgressCounts& all) noexcept;
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Of the item under way, so many bytes more are done.
  void BytesDone(std::uint64_t bytes) noexcept;
  // The next item, of so many bytes in all, is done.
  void ItemDone(std::uint64_t bytes) noexcept;

 private:
  void Show() noexcept;
  void ShowNow();

  const ProgressOf work_;
  const ProgressCounts all_;
  ProgressCounts done_;
  std::uint64_t ofItem_ = 0;  // bytes
  bool hasWindow_ = false, changed_ = false;
  std::uint32_t last_ = 0;  // by the tick count
  std::u16string before_;   // the title
};
