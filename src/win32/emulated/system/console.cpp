#include "win32/emulated/system/console.h"

#include <algorithm>

#include "win32/console.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/system/threads.h"

namespace emulated {

namespace {

// One event on its way through the routines, on the thread that Windows makes for it.
struct Arrival {
  ControlEvents& controls;
  win32::DWORD event;
};

win32::DWORD Handle(void* parameter) {
  const Arrival arrival = *static_cast<const Arrival*>(parameter);
  const std::vector<win32::PHANDLER_ROUTINE> handlers = arrival.controls.handlers;
  const bool handled = std::any_of(handlers.rbegin(), handlers.rend(),
                                   [&](win32::PHANDLER_ROUTINE handler) { return handler(arrival.event) != 0; });
  const bool goesOn = arrival.event == win32::CTRL_C_EVENT || arrival.event == win32::CTRL_BREAK_EVENT;
  if (!(handled && goesOn) && arrival.controls.onEnd) arrival.controls.onEnd(arrival.event);
  return 0;
}

}  // namespace

void ConsoleObject::Write(std::string_view bytes) {
  Machine& machine = Machine::Current();
  machine.console += bytes;
  if (machine.consoleSink) machine.consoleSink(bytes);
}

void ControlEvents::Deliver() {
  if (planned_ && --planned_->calls == 0) {
    Raise(planned_->event);
    planned_.reset();
  }
  const std::uint32_t events = raised_.exchange(0);
  for (const win32::DWORD event : {win32::CTRL_C_EVENT, win32::CTRL_BREAK_EVENT, win32::CTRL_CLOSE_EVENT,
                                   win32::CTRL_LOGOFF_EVENT, win32::CTRL_SHUTDOWN_EVENT}) {
    if ((events & 1u << event) == 0) continue;
    ++count_;
    Arrival arrival{*this, event};
    Machine::Current().threads().RunAtOnce(Handle, &arrival);
  }
}

void ControlEvents::Forget() {
  handlers.clear();
  planned_.reset();
  raised_ = 0;
}

}  // namespace emulated

namespace win32 {

using emulated::Machine;

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add) {
  WIN32_CALL(Add);
  if (call.Refused()) return FALSE;
  std::vector<PHANDLER_ROUTINE>& handlers = Machine::Current().controls.handlers;
  if (HandlerRoutine && Add) {
    handlers.push_back(HandlerRoutine);
    return call.Done(ERROR_SUCCESS);
  }
  const auto last = std::find(handlers.rbegin(), handlers.rend(), HandlerRoutine);
  if (!HandlerRoutine || last == handlers.rend()) return call.Done(ERROR_INVALID_PARAMETER);
  handlers.erase(std::next(last).base());
  return call.Done(ERROR_SUCCESS);
}

BOOL GetConsoleMode(HANDLE hConsoleHandle, DWORD* lpMode) {
  WIN32_CALL(hConsoleHandle);
  if (call.Refused()) return FALSE;
  constexpr DWORD kUsual = 3;  // line ends and control characters do what they say, long lines go on in the next one
  if (!Machine::Current().outputIsWindow || !emulated::ObjectOf<emulated::ConsoleObject>(hConsoleHandle))
    return call.Done(ERROR_INVALID_HANDLE);
  *lpMode = kUsual;
  return call.Done(ERROR_SUCCESS);
}

DWORD GetConsoleTitleW(char16_t* lpConsoleTitle, DWORD nSize) {
  WIN32_CALL(nSize);
  if (call.Refused()) return 0;
  const std::u16string& title = Machine::Current().consoleTitle;
  if (nSize == 0) return call.Return(DWORD{0});
  const std::size_t length = std::min<std::size_t>(title.size(), nSize - 1);
  lpConsoleTitle[title.copy(lpConsoleTitle, length)] = u'\0';
  return call.Return(static_cast<DWORD>(title.size()));
}

BOOL SetConsoleTitleW(const char16_t* lpConsoleTitle) {
  WIN32_CALL(lpConsoleTitle);
  if (call.Refused()) return FALSE;
  Machine& machine = Machine::Current();
  machine.consoleTitle = lpConsoleTitle;
  if (machine.titleSink) machine.titleSink(machine.consoleTitle);
  return call.Done(ERROR_SUCCESS);
}

}  // namespace win32
