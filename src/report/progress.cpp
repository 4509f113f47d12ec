#include "report/progress.h"

#include <algorithm>
#include <exception>

#include "text/format.h"
#include "win32/console.h"
#include "win32/handle.h"
#include "win32/system.h"

namespace {

constexpr std::uint32_t kBetween = 500;         // milliseconds
constexpr std::uint64_t kBytesOfItem = 0x8000;  // as many cost as much as an item costs beside its bytes
constexpr win32::DWORD kLongestTitle = 0x8000;  // 64 KiB, as Windows has it

bool OutputIsWindow() {
  win32::DWORD mode = 0;
  return win32::GetConsoleMode(win32::GetStdHandle(win32::STD_OUTPUT_HANDLE), &mode) != win32::FALSE;
}

std::u16string Grouped(std::uint64_t number) {
  std::u16string text = FormatText(u"%u", number);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, u",");
  return text;
}

// "2.1 GB", as Windows counts them.
std::u16string Size(std::uint64_t bytes) {
  constexpr const char16_t* kUnits[] = {u"KB", u"MB", u"GB", u"TB"};
  std::uint64_t tenths = (bytes * 10 + 1023) / 1024;
  std::size_t unit = 0;
  for (; tenths >= 10240 && unit + 1 < std::size(kUnits); ++unit) tenths /= 1024;
  return FormatText(u"%u.%u %ls", tenths / 10, tenths % 10, kUnits[unit]);
}

}  // namespace

std::u16string ProgressTitle(ProgressOf work, const ProgressCounts& done, const ProgressCounts& all) {
  const auto weight = [](const ProgressCounts& counts) {
    return static_cast<double>(counts.bytes) + static_cast<double>(counts.items) * kBytesOfItem;
  };
  const double share = all.items == 0 ? 1 : std::min(weight(done) / weight(all), 1.0);
  std::u16string title = FormatText(u"%u %% of %ls %ls", static_cast<unsigned>(share * 100), Grouped(all.items),
                                    all.items == 1 ? u"item" : u"items");
  if (work == ProgressOf::Deleting) return title + u" deleted at the old place";
  if (work == ProgressOf::TakingBack) title += u" taken back";
  if (done.bytes < all.bytes) title += u", " + Size(all.bytes - done.bytes) + u" left";
  return title;
}

Progress::Progress(ProgressOf work, const ProgressCounts& all) noexcept : work_(work), all_(all) {
  const win32::LastErrorKept error;
  hasWindow_ = OutputIsWindow();
  if (hasWindow_) last_ = win32::GetTickCount();
}

Progress::~Progress() {
  const win32::LastErrorKept error;
  if (changed_) win32::SetConsoleTitleW(before_.c_str());
}

void Progress::BytesDone(std::uint64_t bytes) noexcept {
  ofItem_ += bytes;
  Show();
}

void Progress::ItemDone(std::uint64_t bytes) noexcept {
  ++done_.items;
  done_.bytes += bytes;
  ofItem_ = 0;
  Show();
}

void Progress::Show() noexcept {
  if (!hasWindow_) return;
  const win32::LastErrorKept error;
  const std::uint32_t now = win32::GetTickCount();
  if (now - last_ < kBetween) return;
  last_ = now;
  try {
    ShowNow();
  } catch (const std::exception&) {
    hasWindow_ = false;
  }
}

// A title that is not known could not be put back.
void Progress::ShowNow() {
  if (!changed_) {
    before_.resize(kLongestTitle);
    win32::SetLastError(win32::ERROR_SUCCESS);
    const win32::DWORD length = win32::GetConsoleTitleW(before_.data(), kLongestTitle);
    hasWindow_ = length < kLongestTitle && (length > 0 || win32::GetLastError() == win32::ERROR_SUCCESS);
    if (!hasWindow_) return;
    before_.resize(length);
  }
  const ProgressCounts done{done_.items, std::min(done_.bytes + ofItem_, all_.bytes)};
  if (win32::SetConsoleTitleW(ProgressTitle(work_, done, all_).c_str())) changed_ = true;
}
