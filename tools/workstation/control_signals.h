// Signals of the host as what they are on a workstation: Ctrl+C, the window closed, the computer shut down.
#pragma once

#include <string>
#include <vector>

#include "win32/emulated/machine.h"

namespace workstation {

// While it lives SIGINT is Ctrl+C, SIGHUP closes the window and SIGTERM shuts the computer down - those that the host
// does not ignore. Where the program on the machine does not handle it, the signal ends this process. Afterwards they
// do nothing. The machine outlives it.
class SignalsAsEvents {
 public:
  explicit SignalsAsEvents(emulated::Machine& machine);
  ~SignalsAsEvents();
  SignalsAsEvents(const SignalsAsEvents&) = delete;
  SignalsAsEvents& operator=(const SignalsAsEvents&) = delete;

 private:
  std::vector<int> taken_;
};

// "EVENT|NUMBER": the event (ctrl-c, ctrl-break, close, log-off, shutdown) comes before that call of the program. False
// for another text.
bool PlanControlEvent(emulated::Machine& machine, const std::string& text);

}  // namespace workstation
