// One command after another with another of its calls refused, each time on the same disks.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/program.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace test {

// Loading texts; what cannot fail, or only gives back what nobody else would free.
inline bool IsBesideThePoint(const std::string& call) {
  static const std::set<std::string> names{
      "FindResourceExW",   "LoadResource",     "LockResource",       "SizeofResource",      "GetModuleHandleW",
      "GetCurrentProcess", "GetCurrentThread", "GetCurrentThreadId", "GetCurrentProcessId", "GetLocalTime",
      "GetProcessHeap",    "MapGenericMask",   "OutputDebugStringW", "FreeLibrary",         "FreeSid",
      "NetApiBufferFree",  "HeapFree",         "LocalFree",          "VirtualFree",         "WTSFreeMemory"};
  return names.contains(call);
}

// Where a run costs several times as much - under the sanitizers, which look at memory and not at outcomes - the
// environment variable QBC_EVERY_CALL=N has only every N-th call refused, or be the last before the power fails.
inline std::size_t CallsInOneStep() {
  const char* const step = std::getenv("QBC_EVERY_CALL");
  return step ? std::max<std::size_t>(std::strtoul(step, nullptr, 10), 1) : 1;
}

// Boots a machine on copies of these disks.
inline void StartAgain(std::unique_ptr<emulated::Machine>& machine, const Disks& disks) {
  Disks copies;
  for (const auto& [name, device] : disks) copies[name] = device->Clone();
  machine.reset();
  machine = BootFrom(std::move(copies));
}

// The names of the calls that the command makes, in their order. The machine is on the same disks afterwards.
template <typename Command>
std::vector<std::string> CallsOf(std::unique_ptr<emulated::Machine>& machine, const Disks& disks, Command command,
                                 int exitCode = 0) {
  // The first run in a process looks up entry points that the others know: their calls are counted in the second.
  EXPECT_EQ(command().exitCode, exitCode);
  StartAgain(machine, disks);
  std::vector<std::string> calls;
  machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
  EXPECT_EQ(command().exitCode, exitCode);
  machine->gate.Observe({});
  StartAgain(machine, disks);
  return calls;
}

// Asked to end at fifty moments, in each way in which a user can: the command takes back what it did or is done, and
// the log says so. Where it does not listen yet Windows would end it; what it does from there on is not looked at.
template <typename Command, typename Examine>
void WithStopsAtMoments(std::unique_ptr<emulated::Machine>& machine, const Disks& disks, std::size_t calls,
                        Command command, Examine examine, int exitCode) {
  const std::pair<win32::DWORD, std::u16string> kinds[] = {{win32::CTRL_C_EVENT, u"Ctrl+C was pressed."},
                                                           {win32::CTRL_BREAK_EVENT, u"Ctrl+Break was pressed."},
                                                           {win32::CTRL_CLOSE_EVENT, u"The window was closed."},
                                                           {win32::CTRL_LOGOFF_EVENT, u"The user logs off."},
                                                           {win32::CTRL_SHUTDOWN_EVENT, u"The computer is shut down."}};
  std::minstd_rand random(static_cast<unsigned>(calls));
  for (std::size_t i = 0; i < 50 / CallsInOneStep() + 5 && !::testing::Test::HasFailure(); ++i) {
    const auto& [event, who] = kinds[i % 5];
    StartAgain(machine, disks);
    bool ended = false;
    machine->controls.onEnd = [&](win32::DWORD) { ended = true; };
    // The last of them close the log. An event counts the calls of the first thread alone, `calls` those of all.
    const std::size_t number = random() % (calls - 20) + 1;
    machine->controls.Plan(number, event);
    const RunResult run = command();
    const std::string when = "Stop, call " + std::to_string(number) + ": " + emulated::Utf8(run.log);
    const bool takenBack = run.Logged(u"#ERROR: " + who + u" What was moved is taken back.");
    const bool tooEarly = ended || machine->controls.count() == 0;  // or never: some runs make a call less
    EXPECT_TRUE(tooEarly || takenBack || run.Logged(who + u" It was too late to stop the command.")) << when;
    EXPECT_EQ(run.exitCode, takenBack ? 1 : exitCode) << when;
    examine(run, when);
  }
}

// Runs the command with each of these calls refused in turn; `examine` gets the run and a text that tells which.
template <typename Command, typename Examine>
void ForEachCallRefused(std::unique_ptr<emulated::Machine>& machine, const Disks& disks,
                        const std::vector<std::string>& calls, Command command, Examine examine,
                        std::size_t step = CallsInOneStep()) {
  for (std::size_t i = 0; i < calls.size() && !::testing::Test::HasFailure(); i += step) {
    if (IsBesideThePoint(calls[i])) continue;
    StartAgain(machine, disks);
    machine->gate.FailCall(i + 1, win32::ERROR_ACCESS_DENIED);
    const RunResult run = command();
    machine->gate.ClearFailures();
    examine(run, calls[i] + ", call " + std::to_string(i + 1) + ": " + emulated::Utf8(run.log));
  }
}

// Runs the command as it is, which ends with `exitCode`, then with each of its calls refused in turn, then asked to end
// (WithStopsAtMoments); `examine` looks at the machine after each run and gets the run and a text that tells which.
// Ends at the first failure of the test.
template <typename Command, typename Examine>
void WithEachCallRefused(std::unique_ptr<emulated::Machine>& machine, Command command, Examine examine,
                         int exitCode = 0, std::size_t step = CallsInOneStep()) {
  const Disks disks = machine->Snapshot();
  const std::vector<std::string> calls = CallsOf(machine, disks, command, exitCode);
  ASSERT_GT(calls.size(), 100u);
  ForEachCallRefused(machine, disks, calls, command, examine, step);
  WithStopsAtMoments(machine, disks, calls.size(), command, examine, exitCode);
}

// The same with every call of a function refused, from its first one on, then from its last one on: taking back fails,
// too.
template <typename Command, typename Examine>
void WithEachFunctionRefused(std::unique_ptr<emulated::Machine>& machine, Command command, Examine examine) {
  const Disks disks = machine->Snapshot();
  std::map<std::string, std::uint64_t> counts;
  for (const std::string& call : CallsOf(machine, disks, command)) ++counts[call];
  for (const auto& [call, count] : counts)
    for (const std::uint64_t first : std::set{std::uint64_t{1}, count}) {
      if (IsBesideThePoint(call) || ::testing::Test::HasFailure()) continue;
      StartAgain(machine, disks);
      machine->gate.FailCallsFrom(call, first, win32::ERROR_ACCESS_DENIED);
      const RunResult run = command();
      machine->gate.ClearFailures();
      examine(run, call + ", from call " + std::to_string(first) + " on: " + emulated::Utf8(run.log));
    }
}

// Runs the command and boots the disks of every moment, each just before one of its calls; `examine` looks at the
// machine then and gets a text that tells which. Ends at the first failure of the test.
template <typename Command, typename Examine>
void AtEveryMoment(emulated::Machine& machine, Command command, Examine examine, std::size_t step = CallsInOneStep()) {
  std::vector<std::pair<std::string, Disks>> moments;
  machine.gate.ResetCounts();
  machine.gate.Observe([&](const char* name, std::uint64_t number) {
    if (number % step != 0) return;
    moments.emplace_back(std::to_string(number) + " " + name, machine.Snapshot());
  });
  EXPECT_EQ(command(machine).exitCode, 0);
  machine.gate.Observe({});
  EXPECT_GE(moments.size(), 100 / step);
  for (auto& [moment, disks] : moments) {
    const auto after = BootFrom(std::move(disks));
    examine(*after, moment);
    if (::testing::Test::HasFailure()) return;
  }
}

}  // namespace test
