// The log: a UTF-16 text file, "QBC.log", beside the executable of the product's service. Every run appends to it.
//
// All failures are silent: without the service, or when the file cannot be opened, nothing is logged and nothing is
// said.
#pragma once

#include "text/format.h"
#include "win32/file.h"
#include "win32/system.h"

// The log of one run. The newest one made is the process-wide log that Log and LogWithSystemError write to.
class LogFile {
 public:
  LogFile();
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Null when no run is under way.
  static LogFile* Current();
  const char16_t* path() const { return path_; }

  // Writes one line: a line break, the time and the ids of process and thread, the message (cut at 1,023 characters)
  // and, when asked for, Windows' text for the thread's last error as it is on entry. The last error is left as it was.
  void Write(std::u16string_view format, std::span<const FormatArgument> arguments, bool withSystemError) noexcept;

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

// The path of the log file; empty when there is none.
const char16_t* LogPath();

template <typename... Arguments>
void Log(FormatFor<Arguments...> format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
  if (LogFile* const log = LogFile::Current()) log->Write(format.text(), list, false);
}

// The same, followed by the text of the thread's last system error.
template <typename... Arguments>
void LogWithSystemError(FormatFor<Arguments...> format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
  if (LogFile* const log = LogFile::Current()) log->Write(format.text(), list, true);
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
