// How far long work is, in one line on a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace workstation {

// "[=====>      ]  42 %  1.2 of 2.9 GiB  310.0 MiB/s  0:07 left", in `width` columns at most; the bar takes what is
// left of them.
std::string ProgressLine(std::uint64_t done, std::uint64_t total, double seconds, std::size_t width);

// A text that begins with its percentage ("37 % of 12 items, 3.0 MB left") behind such a bar; empty for another text.
std::string TitleLine(const std::string& text, std::size_t width);

// Draws that line on stderr when it is a terminal; a text that is none takes it away.
class TitleBar {
 public:
  TitleBar() = default;
  ~TitleBar() { Hide(); }
  TitleBar(const TitleBar&) = delete;
  TitleBar& operator=(const TitleBar&) = delete;

  void Show(const std::string& text);
  // What is printed on the same terminal has the place of the line in between.
  void Hide();
  void ShowAgain();

 private:
  std::string line_;
  std::size_t shown_ = 0;  // columns
};

// Draws the line of a work's bytes on stderr when it is a terminal, and takes it away at the end. Work that is done at
// once shows none.
class Progress {
 public:
  explicit Progress(std::uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;
  std::uint64_t total_;
  bool isTerminal_;
  std::size_t shown_ = 0;  // columns
  Clock::time_point start_ = Clock::now(), next_;
};

// For who is told how far something is: the line is drawn from the first call on, and taken away with the last copy.
std::function<void(std::uint64_t done, std::uint64_t total)> DrawProgress();

}  // namespace workstation
