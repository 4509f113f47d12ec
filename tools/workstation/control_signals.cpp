#include "workstation/control_signals.h"

#include <array>
#include <charconv>
#include <csignal>
#include <utility>

#include "win32/constants.h"

namespace workstation {

namespace {

emulated::Machine* running = nullptr;
constexpr std::array<std::pair<int, win32::DWORD>, 3> kSignals{
    {{SIGINT, win32::CTRL_C_EVENT}, {SIGHUP, win32::CTRL_CLOSE_EVENT}, {SIGTERM, win32::CTRL_SHUTDOWN_EVENT}}};

extern "C" void RaiseEvent(int number) {
  for (const auto& [signal, event] : kSignals)
    if (signal == number) running->controls.Raise(event);
}

// As the signal would have ended it; SIGTERM where there is none for the event.
void EndBySignal(win32::DWORD event) {
  int its = SIGTERM;
  for (const auto& [signal, itsEvent] : kSignals)
    if (itsEvent == event) its = signal;
  std::signal(its, SIG_DFL);
  std::raise(its);
}

}  // namespace

SignalsAsEvents::SignalsAsEvents(emulated::Machine& machine) {
  running = &machine;
  machine.controls.onEnd = EndBySignal;
  for (const auto& [signal, event] : kSignals) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = RaiseEvent;
    action.sa_flags = SA_RESTART;
    if (sigaction(signal, &action, nullptr) == 0) taken_.push_back(signal);
  }
}

SignalsAsEvents::~SignalsAsEvents() {
  for (const int signal : taken_) std::signal(signal, SIG_IGN);
}

bool PlanControlEvent(emulated::Machine& machine, const std::string& text) {
  constexpr std::array<std::pair<const char*, win32::DWORD>, 5> kEvents{{{"ctrl-c", win32::CTRL_C_EVENT},
                                                                         {"ctrl-break", win32::CTRL_BREAK_EVENT},
                                                                         {"close", win32::CTRL_CLOSE_EVENT},
                                                                         {"log-off", win32::CTRL_LOGOFF_EVENT},
                                                                         {"shutdown", win32::CTRL_SHUTDOWN_EVENT}}};
  const std::size_t bar = text.find('|');
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  if (bar == text.npos || std::from_chars(text.data() + bar + 1, end, number).ptr != end || number == 0) return false;
  for (const auto& [name, event] : kEvents) {
    if (text.substr(0, bar) != name) continue;
    machine.controls.Plan(number, event);
    return true;
  }
  return false;
}

}  // namespace workstation
