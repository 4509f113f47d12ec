// The log: a UTF-16 text file, "QBC.log", beside the executable of the product's service, to which every run appends;
// or lines in memory, for a program that leaves no trace.
//
// All failures are silent: without the service, or when the file cannot be opened, nothing is logged and nothing is
// said.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "text/format.h"
#include "win32/file.h"
#include "win32/system.h"

// Where the lines go. The newest one made is the process-wide log that Log and LogWithSystemError write to; when it
// goes, there is none.
class LogSink {
 public:
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;

  // Null when no run is under way.
  static LogSink* Current();

  // Takes one line: the message (cut at 1,023 characters) and, when asked for, Windows' text for the thread's last
  // error as it is on entry. The last error is left as it was.
  virtual void Write(std::u16string_view format, std::span<const FormatArgument> arguments,
                     bool withSystemError) noexcept = 0;
  // Of the file; empty when there is none.
  virtual const char16_t* path() const { return u""; }
  // For lines that are kept: how many there are, and that those behind so many are no refusals, whatever they say.
  virtual std::size_t Count() const { return 0; }
  virtual void MarkAside(std::size_t /*count*/) {}

 protected:
  LogSink();
  virtual ~LogSink();

 private:
  LogSink* const before_;
};

// The log of one run in the file. Each line begins with a line break, the time and the ids of process and thread.
class LogFile : public LogSink {
 public:
  LogFile();
  ~LogFile() override;

  const char16_t* path() const override { return path_; }
  void Write(std::u16string_view format, std::span<const FormatArgument> arguments,
             bool withSystemError) noexcept override;

 private:
  void WriteText(std::u16string_view text);
  void WritePrefix();
  void Close();

  char16_t path_[win32::MAX_PATH] = {};
  win32::HANDLE handle_ = win32::INVALID_HANDLE_VALUE;
  char16_t prefix_[64] = {};
  win32::SYSTEMTIME time_ = {};
  int timestamps_ = 1;
  win32::CRITICAL_SECTION lock_ = {};
};

// The same lines in memory, as they come; for a program that logs from one thread.
class LogLines : public LogSink {
 public:
  void Write(std::u16string_view format, std::span<const FormatArgument> arguments,
             bool withSystemError) noexcept override;
  struct Line {
    std::u16string text;  // without the line break that Windows' texts end in
    std::u16string item;  // the first text that was put in: the path that the line is about, most often; may be empty
    bool aside = false;   // see LinesAside
  };
  std::size_t Count() const override { return lines_.size(); }
  void MarkAside(std::size_t count) override {
    for (std::size_t i = count; i < lines_.size(); ++i) lines_[i].aside = true;
  }
  // Those that came since this was asked last.
  std::vector<Line> Take() { return std::exchange(lines_, {}); }
  // No line was lost for want of memory.
  bool complete() const { return complete_; }

 private:
  std::vector<Line> lines_;
  bool complete_ = true;
};

// What is logged while one lives is no reason for a refusal.
class LinesAside {
 public:
  LinesAside() : log_(LogSink::Current()), count_(log_ ? log_->Count() : 0) {}
  ~LinesAside() {
    if (log_) log_->MarkAside(count_);
  }
  LinesAside(const LinesAside&) = delete;
  LinesAside& operator=(const LinesAside&) = delete;

 private:
  LogSink* const log_;
  const std::size_t count_;
};

// The path of the log file; empty when there is none.
const char16_t* LogPath();

template <typename... Arguments>
void Log(FormatFor<Arguments...> format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
  if (LogSink* const log = LogSink::Current()) log->Write(format.text(), list, false);
}

// The same, followed by the text of the thread's last system error.
template <typename... Arguments>
void LogWithSystemError(FormatFor<Arguments...> format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
  if (LogSink* const log = LogSink::Current()) log->Write(format.text(), list, true);
}

// Log and LogWithSystemError for an operation that fails with this line: false.
template <typename... Arguments>
bool LogFailure(FormatFor<Arguments...> format, const Arguments&... arguments) {
  Log<Arguments...>(format, arguments...);
  return false;
}
template <typename... Arguments>
bool LogSystemFailure(FormatFor<Arguments...> format, const Arguments&... arguments) {
  LogWithSystemError<Arguments...>(format, arguments...);
  return false;
}
