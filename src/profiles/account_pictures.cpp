#include "profiles/account_pictures.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "configuration/service_config.h"
#include "links/presence.h"
#include "probes/services.h"
#include "report/console.h"
#include "report/debugger.h"
#include "text/format.h"
#include "win32/handle.h"

namespace {

constexpr const char16_t* kPipe = u"\\\\.\\pipe\\QBDataPipe";
constexpr win32::DWORD kWaitForInstance = 20000;
constexpr int kRecordSize = 2048;
using Record = std::array<char, kRecordSize>;

void Trace(const std::u16string& text) { TellDebugger(text.c_str()); }

// The length in the ANSI code page, and the bytes where they are asked for (not null). 0 when the page lacks one of the
// characters: whatever Windows put in its place would make the path that of something else.
int ToAnsi(const std::u16string& text, char* bytes, int size) {
  const auto units = static_cast<int>(text.size());
  win32::BOOL replaced = win32::FALSE;
  const int length = win32::WideCharToMultiByte(win32::CP_ACP, win32::WC_NO_BEST_FIT_CHARS, text.data(), units, bytes,
                                                size, nullptr, &replaced);
  if (length > 0) return replaced ? 0 : length;
  // Where the ANSI code page is UTF-8, Windows refuses that flag and that question, but tells by failing.
  const win32::DWORD error = win32::GetLastError();
  if (error != win32::ERROR_INVALID_FLAGS && error != win32::ERROR_INVALID_PARAMETER) return 0;
  return win32::WideCharToMultiByte(win32::CP_ACP, win32::WC_ERR_INVALID_CHARS, text.data(), units, bytes, size,
                                    nullptr, nullptr);
}

// The request as the service reads it: the text, and zeros behind it. A longer text fills the record and has no end.
// Nothing when it cannot be said in the ANSI code page.
std::optional<Record> MakeRecord(const std::u16string& from, const std::u16string& to) {
  std::u16string text = u"UpdateImgPath|" + from + u"|" + to;
  int length = ToAnsi(text, nullptr, 0);
  while (length > kRecordSize) {  // a character may have several bytes, and is not cut itself
    const std::size_t room = std::min<std::size_t>(text.size(), kRecordSize + 1);
    text = CutToBuffer(std::move(text), room);
    length = ToAnsi(text, nullptr, 0);
  }
  Record record{};
  if (length <= 0 || ToAnsi(text, record.data(), kRecordSize) != length) return std::nullopt;
  return record;
}

// The service comes up fresh, and listens, whether it ran before or not. Answers whether it did.
bool RestartService() {
  const bool wasRunning = IsServiceRunning(kQuillbayService);
  if (wasRunning) {
    Trace(u"Going to stop QBService as it's already running.");
    ControlServiceAndWait(kQuillbayService, win32::SERVICE_CONTROL_STOP);
    win32::Sleep(5000);
  }
  Trace(u"Going to start QBService...");
  StartQuillbayService();
  win32::Sleep(10000);
  Trace(u"Restarted QBService successfully.");
  return wasRunning;
}

// Any process may have made a pipe of that name. It may learn who asks, but not act in his name.
win32::UniqueFile OpenPipe() {
  return win32::UniqueFile{win32::CreateFileW(kPipe, win32::GENERIC_WRITE, 0, nullptr, win32::OPEN_EXISTING,
                                              win32::SECURITY_SQOS_PRESENT | win32::SECURITY_IDENTIFICATION, nullptr)};
}

// The second connection that comes about; the first is thrown away. A pipe that stays busy is waited for in passes,
// as many as it takes. Invalid when there is no pipe, or when a pass finds no free instance.
win32::UniqueFile ConnectToService() {
  for (;;) {
    win32::UniqueFile pipe = OpenPipe();
    if (pipe) {
      pipe.reset();
      Trace(u"(hPipe != INVALID_HANDLE_VALUE)");
      win32::Sleep(1000);
      pipe = OpenPipe();
      if (pipe) return pipe;
    }
    if (win32::GetLastError() != win32::ERROR_PIPE_BUSY) {
      Trace(u"(dwError != ERROR_PIPE_BUSY)");
      return {};
    }
    if (!win32::WaitNamedPipeW(kPipe, kWaitForInstance)) {
      Trace(u"!WaitNamedPipe(PIPE_NAME, 20000)");
      return {};
    }
  }
}

// There is no answer: what the service makes of the record is its own affair.
bool SendRecord(const Record& record) {
  win32::UniqueFile pipe = ConnectToService();
  if (!pipe) return false;
  Trace(u"2-(hPipe != INVALID_HANDLE_VALUE)");
  win32::DWORD written = 0;
  const bool sent =
      win32::WriteFile(pipe.get(), record.data(), kRecordSize, &written, nullptr) && written == kRecordSize;
  pipe.reset();
  Trace(sent ? u"Send command successfully to service" : u"Failed to write on pipe");
  return sent;
}

bool IsRegistryLocationSet() {
  CQBConfig config;
  return config.Init() && config.IsOutDirSet();
}

// It is started again only where it has work to do: registry data are redirected.
void StopService(bool startAgain) {
  Trace(u"Going to stop QBService");
  ControlServiceAndWait(kQuillbayService, win32::SERVICE_CONTROL_STOP);
  if (!startAgain || !IsRegistryLocationSet()) return;
  win32::Sleep(5000);
  Trace(u"Going to start QBService again");
  StartQuillbayService();
  Trace(u"After starting QBService");
}

}  // namespace

bool UpdateUserAccountImagesIfRequiredSvc(std::u16string& from, std::u16string& to) {
  const std::u16string oldProfile = std::exchange(from, {});
  const std::u16string newProfile = std::exchange(to, {});
  const std::u16string pictures = oldProfile + u"\\AccountPictures";
  if (!DirectoryExists(pictures)) {
    Trace(u"Start UpdateUserAccountImagesIfRequiredSvc(). Cannot find AccountPictures folder at: " + pictures);
    win32::Sleep(30000);
    return true;
  }
  const std::optional<Record> record = MakeRecord(oldProfile, newProfile);
  if (!record) {
    Trace(u"#ERROR: UpdateUserAccountImagesIfRequiredSvc: the ANSI code page lacks a character of " + oldProfile +
          u" or " + newProfile);
    return false;
  }
  ConsolePrint(u"\nGoing to update all user's profile image settings");
  Trace(u"Start UpdateUserAccountImagesIfRequiredSvc(). Pic folder: " + pictures);

  const bool wasRunning = RestartService();
  if (!SendRecord(*record)) return false;
  Trace(u"In UpdateUserAccountImagesIfRequiredSvc(). Going to wait for 5 seconds.");
  win32::Sleep(5000);
  StopService(/*startAgain=*/wasRunning);

  ConsolePrint(u"\nDone with updating all user's profile image settings\n");
  Trace(u"\nExit UpdateUserAccountImagesIfRequiredSvc()\n");
  return true;
}
