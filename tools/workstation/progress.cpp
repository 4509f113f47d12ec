#include "workstation/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace workstation {

namespace {

constexpr std::chrono::milliseconds kFirst{500}, kBetween{100};

struct Unit {
  const char* name;
  double bytes;
};

Unit UnitFor(double bytes) {
  constexpr Unit units[] = {{"TiB", 1.0995116e12}, {"GiB", 1073741824.0}, {"MiB", 1048576.0}};
  for (const Unit& unit : units)
    if (bytes >= unit.bytes) return unit;
  return {"KiB", 1024.0};
}

std::string Tenths(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", number);
  return text;
}

std::string Duration(double seconds) {
  const auto whole = static_cast<unsigned long>(std::lround(seconds));
  char text[48];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%lu:%02lu", whole / 60, whole % 60);
  }
  return text;
}

std::size_t TerminalWidth() {
  winsize size{};
  constexpr std::size_t kUsual = 80;
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

std::string WithBar(double share, const std::string& text, std::size_t width) {
  constexpr std::size_t kAround = 4, kLeast = 4;  // "[", "]" and two blanks
  if (width < text.size() + kAround + kLeast) return text.substr(0, width);
  const std::size_t bar = std::min<std::size_t>(width - text.size() - kAround, 40);
  const auto filled = static_cast<std::size_t>(share * static_cast<double>(bar));
  std::string drawn = std::string(filled, '=') + std::string(bar - filled, ' ');
  if (filled < bar) drawn[filled] = '>';
  return '[' + drawn + "]  " + text;
}

}  // namespace

std::string ProgressLine(std::uint64_t done, std::uint64_t total, double seconds, std::size_t width) {
  constexpr double kTooFarOff = 360'000;  // a hundred hours: nobody knows
  done = std::min(done, total);
  const auto bytes = static_cast<double>(done), all = static_cast<double>(total);
  const double share = total == 0 ? 1 : bytes / all;
  const Unit size = UnitFor(all);
  std::string text = std::to_string(static_cast<int>(share * 100)) + " %  " + Tenths(bytes / size.bytes) + " of " +
                     Tenths(all / size.bytes) + ' ' + size.name;
  if (done > 0 && seconds > 0) {
    const double rate = bytes / seconds, left = (all - bytes) / rate;
    const Unit speed = UnitFor(rate);
    text += "  " + Tenths(rate / speed.bytes) + ' ' + speed.name + "/s";
    if (left < kTooFarOff) text += "  " + Duration(left) + " left";
  }
  return WithBar(share, text, width);
}

std::string TitleLine(const std::string& text, std::size_t width) {
  unsigned percent = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), percent);
  if (error != std::errc() || percent > 100 || !std::string_view(end, text.data() + text.size()).starts_with(" % "))
    return {};
  return WithBar(percent / 100.0, text, width);
}

void TitleBar::Show(const std::string& text) {
  line_ = isatty(STDERR_FILENO) != 0 ? TitleLine(text, TerminalWidth() - 1) : std::string();
  ShowAgain();
}

void TitleBar::Hide() {
  if (shown_ != 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
  shown_ = 0;
}

void TitleBar::ShowAgain() {
  Hide();
  shown_ = line_.size();
  if (shown_ != 0) std::fprintf(stderr, "%s", line_.c_str());
}

Progress::Progress(std::uint64_t total)
    : total_(total), isTerminal_(isatty(STDERR_FILENO) != 0), next_(start_ + kFirst) {}

Progress::~Progress() {
  if (shown_ != 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
}

void Progress::Show(std::uint64_t done) {
  const Clock::time_point now = Clock::now();
  if (!isTerminal_ || now < next_) return;
  next_ = now + kBetween;
  const std::string line =
      ProgressLine(done, total_, std::chrono::duration<double>(now - start_).count(), TerminalWidth() - 1);
  const std::size_t before = std::exchange(shown_, std::max(shown_, line.size()));
  std::fprintf(stderr, "\r%-*s", static_cast<int>(before), line.c_str());
}

std::function<void(std::uint64_t, std::uint64_t)> DrawProgress() {
  const auto shown = std::make_shared<std::optional<Progress>>();
  return [shown](std::uint64_t done, std::uint64_t total) {
    if (!*shown) shown->emplace(total);
    (*shown)->Show(done);
  };
}

}  // namespace workstation
