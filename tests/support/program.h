// The program run as an administrator runs it: a command line in, and what console, log and exit code then say.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "entry/program_module.h"
#include "report/console.h"
#include "support/installed_machine.h"

// The tests name the texts of the string table by their numbers.
inline std::u16string LoadResourceString(unsigned id) { return LoadResourceString(StringId{id}); }

namespace test {

struct RunResult {
  int exitCode = -1;
  std::u16string console;  // all of it, line ends as "\n"
  std::u16string said;     // the same without the banner
  std::u16string log;      // what this run added, line ends as "\n", without the byte-order mark and the second line:
  std::u16string which;    // that tells which run this is

  bool Said(std::u16string_view text) const { return said.find(text) != std::u16string::npos; }
  bool Logged(std::u16string_view text) const { return log.find(text) != std::u16string::npos; }
};

// One run of the program on the machine with these words behind its name. The process's token is as fresh for every
// run.
RunResult RunProgram(emulated::Machine& machine, const std::vector<std::u16string>& words);

// The messages of a log but for the separators of runs: whole, without their times and the line ends behind them.
// Windows' text for an error is the end of its message.
std::vector<std::u16string> Messages(const std::u16string& log);

// Gives the machine the program's own module with its resources; RunProgram does it, too.
using ::UseProgramModule;

// Fails the test for each handle, of those that came while it lived, that is still open at its end, and closes it: the
// program closes its handles, and gives back the contexts of its backups. Those of the console are the process's; a
// refused close leaves its handle open.
class OpenHandles {
 public:
  explicit OpenHandles(emulated::Machine& machine) : machine_(machine), older_(All()) {}
  ~OpenHandles();
  OpenHandles(const OpenHandles&) = delete;
  OpenHandles& operator=(const OpenHandles&) = delete;

 private:
  using Handles = std::set<std::pair<std::uintptr_t, win32::DWORD>>;
  Handles All() const;

  emulated::Machine& machine_;
  const Handles older_;
};

// The bytes of the log file; empty without one.
std::string LogBytes(emulated::Machine& machine);
// The text in it, behind the first bytes; its byte-order mark is no text.
std::u16string LogText(emulated::Machine& machine, std::size_t before = 0);

}  // namespace test
