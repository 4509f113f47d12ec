#include "report/log.h"

#include <algorithm>
#include <exception>

#include "report/service_path.h"
#include "win32/handle.h"

namespace {

constexpr std::size_t kMessageBuffer = 1024;  // characters of a message, terminator included
LogSink* current = nullptr;

void CopyTo(std::span<char16_t> buffer, std::u16string_view text) {
  const std::size_t length = std::min(text.size(), buffer.size() - 1);
  std::copy_n(text.begin(), length, buffer.begin());
  buffer[length] = u'\0';
}

// Windows' words for an error, from a message table; they end in a line break. Empty when the table has none.
std::u16string MessageText(win32::DWORD source, win32::HMODULE module, win32::DWORD error) {
  win32::UniqueLocalMemory memory;
  const win32::DWORD flags = win32::FORMAT_MESSAGE_ALLOCATE_BUFFER | win32::FORMAT_MESSAGE_IGNORE_INSERTS | source;
  if (!win32::FormatMessageW(flags, module, error, 0, reinterpret_cast<char16_t*>(memory.put()), 0)) return {};
  const void* const text = win32::LocalLock(memory.get());
  return text ? static_cast<const char16_t*>(text) : std::u16string();
}

// The texts of the network errors, which the system's own table lacks. By its full path: a file of that name in the
// current folder is nobody's message table.
win32::UniqueLibrary LoadNetworkMessages() {
  char16_t folder[win32::MAX_PATH] = {};
  const win32::UINT length = win32::GetSystemDirectoryW(folder, win32::MAX_PATH);
  if (length == 0 || length >= win32::MAX_PATH) return {};
  const std::u16string path = std::u16string(folder) + u"\\netmsg.dll";
  return win32::UniqueLibrary{win32::LoadLibraryExW(path.c_str(), nullptr, win32::DONT_RESOLVE_DLL_REFERENCES)};
}

std::u16string SystemErrorText(win32::DWORD error) {
  std::u16string text = MessageText(win32::FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error);
  if (!text.empty()) return text;
  const win32::UniqueLibrary messages = LoadNetworkMessages();
  return messages ? MessageText(win32::FORMAT_MESSAGE_FROM_HMODULE, messages.get(), error) : std::u16string();
}

class CriticalSectionLock {
 public:
  explicit CriticalSectionLock(win32::CRITICAL_SECTION& section) : section_(section) {
    win32::EnterCriticalSection(&section_);
  }
  ~CriticalSectionLock() { win32::LeaveCriticalSection(&section_); }
  CriticalSectionLock(const CriticalSectionLock&) = delete;
  CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

 private:
  win32::CRITICAL_SECTION& section_;
};

// A path that does not fit the buffer would be cut to some other file's.
// Empty where there is none to be had: then the whole run goes without a log.
std::u16string FindLogPath() try {
  const std::u16string folder = ServiceFolder(kQuillbayService);
  const std::u16string path = folder + u"QBC.log";
  return folder.empty() || path.size() >= win32::MAX_PATH ? std::u16string() : path;
} catch (const std::exception&) {
  return {};
}

}  // namespace

LogSink::LogSink() : before_(current) { current = this; }
LogSink::~LogSink() { current = before_; }
LogSink* LogSink::Current() { return current; }

LogFile::LogFile() {
  CopyTo(path_, FindLogPath());
  if (path_[0] != u'\0')
    handle_ = win32::CreateFileW(path_, win32::GENERIC_WRITE, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE, nullptr,
                                 win32::OPEN_ALWAYS, 0, nullptr);
  if (handle_ != win32::INVALID_HANDLE_VALUE) {
    win32::DWORD sizeHigh = 0;
    const win32::DWORD sizeLow = win32::GetFileSize(handle_, &sizeHigh);
    if (sizeLow == 0 && sizeHigh == 0) WriteText(u"\uFEFF");
    win32::LONG high = 0;
    win32::SetLastError(win32::ERROR_SUCCESS);
    const win32::DWORD low = win32::SetFilePointer(handle_, 0, &high, win32::FILE_END);
    // From where else, lines would overwrite those of earlier runs.
    if (low == win32::INVALID_SET_FILE_POINTER && win32::GetLastError() != win32::ERROR_SUCCESS) Close();
  }
  win32::InitializeCriticalSection(&lock_);
}

LogFile::~LogFile() {
  Close();
  win32::DeleteCriticalSection(&lock_);
}

void LogFile::Close() {
  if (handle_ != win32::INVALID_HANDLE_VALUE) win32::CloseHandle(handle_);
  handle_ = win32::INVALID_HANDLE_VALUE;
}

void LogFile::WriteText(std::u16string_view text) {
  win32::DWORD written = 0;
  win32::WriteFile(handle_, text.data(), static_cast<win32::DWORD>(text.size() * sizeof(char16_t)), &written, nullptr);
}

void LogFile::WritePrefix() {
  if (!timestamps_) return WriteText(u"\r\n");
  win32::GetLocalTime(&time_);
  CopyTo(prefix_, FormatText(u"\r\n[%2d:%2d:%2d:%3d][P%4d,T%4d] ", time_.wHour, time_.wMinute, time_.wSecond,
                             time_.wMilliseconds, win32::GetCurrentProcessId(), win32::GetCurrentThreadId()));
  WriteText(prefix_);
}

void LogFile::Write(std::u16string_view format, std::span<const FormatArgument> arguments,
                    bool withSystemError) noexcept {
  if (!format.data() || handle_ == win32::INVALID_HANDLE_VALUE) return;
  // The two writes below may set the last error; the line is about the call that failed before it, and what the caller
  // does next may be, too.
  const win32::DWORD error = win32::GetLastError();
  try {
    const CriticalSectionLock locked(lock_);
    const std::u16string message = CutToBuffer(FormatArguments(format, arguments), kMessageBuffer);
    WritePrefix();
    WriteText(message);
    if (withSystemError) WriteText(SystemErrorText(error));
  } catch (const std::exception&) {
    // Only the log loses.
  }
  win32::SetLastError(error);
}

void LogLines::Write(std::u16string_view format, std::span<const FormatArgument> arguments,
                     bool withSystemError) noexcept {
  if (!format.data()) return;
  const win32::DWORD error = win32::GetLastError();
  try {
    std::u16string text = CutToBuffer(FormatArguments(format, arguments), kMessageBuffer);
    if (withSystemError) text += SystemErrorText(error);
    text.erase(text.find_last_not_of(u"\r\n ") + 1);
    const auto item = std::ranges::find(arguments, ArgumentKind::Text, &FormatArgument::kind);
    lines_.push_back(
        {.text = std::move(text), .item = item == arguments.end() ? std::u16string() : std::u16string(item->text())});
  } catch (const std::exception&) {
    complete_ = false;
  }
  win32::SetLastError(error);
}

const char16_t* LogPath() { return current ? current->path() : u""; }
