#include "report/stop_request.h"

#include <atomic>

#include "report/log.h"
#include "win32/console.h"
#include "win32/handle.h"

namespace {

constexpr win32::DWORD kNobody = 0xFFFFFFFF;
std::atomic<win32::DWORD> asked{kNobody};  // the first event that came
bool told = false;

const char16_t* WhoAsked(win32::DWORD event) {
  switch (event) {
    case win32::CTRL_C_EVENT:
      return u"Ctrl+C was pressed.";
    case win32::CTRL_BREAK_EVENT:
      return u"Ctrl+Break was pressed.";
    case win32::CTRL_CLOSE_EVENT:
      return u"The window was closed.";
    case win32::CTRL_LOGOFF_EVENT:
      return u"The user logs off.";
    default:
      return u"The computer is shut down.";
  }
}

// On a thread of its own, at any moment, until the process has ended: it touches nothing but `asked`.
win32::BOOL HandleEvent(win32::DWORD event) {
  win32::DWORD nobody = kNobody;
  asked.compare_exchange_strong(nobody, event);
  if (event == win32::CTRL_C_EVENT || event == win32::CTRL_BREAK_EVENT) return win32::TRUE;
  // Windows ends the process when this returns, and after some seconds in any case. The command is to be quicker.
  for (;;) win32::Sleep(win32::INFINITE);
}

}  // namespace

StopRequests::StopRequests() {
  asked = kNobody;
  told = false;
}

StopRequests::~StopRequests() {
  if (asked != kNobody && !told) Log(u"#INFO: %ls It was too late to stop the command.", WhoAsked(asked));
}

void StopRequests::Listen() { win32::SetConsoleCtrlHandler(HandleEvent, win32::TRUE); }

bool IsStopRequested() {
  const win32::DWORD event = asked;
  if (event == kNobody) return false;
  if (!told) {
    const win32::LastErrorKept error;
    Log(u"#ERROR: %ls What was moved is taken back.", WhoAsked(event));
    told = true;
  }
  return true;
}
