// What the tests of the program's engines share: a machine, the run's log, and the privileges that a run has enabled.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

#include "probes/privileges.h"
#include "report/log.h"
#include "support/installed_machine.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace test {

class Engine : public ::testing::Test {
 protected:
  explicit Engine(const MachineFacts& facts = {}) { Restart(facts); }

  // A new machine with an empty C:\Data and D:\Target.
  void Restart(const MachineFacts& facts = {}) {
    Use([&] { return InstalledMachine(facts); });
    MakeFolder(source);
    MakeFolder(target);
  }
  // Goes on with what is on the disks.
  void Reboot() {
    Use([disks = machine->Snapshot()]() mutable { return BootFrom(std::move(disks)); });
  }
  template <typename Make>
  void Use(Make make) {
    log.reset();
    leftOpen.reset();
    machine.reset();
    machine = make();
    leftOpen.emplace(*machine);
    EnablePrivileges();
    log.emplace();
  }

  // Everything logged so far.
  std::u16string LogText() const { return test::LogText(*machine); }
  // What the action logs: "|" stands before each message.
  std::string Told(const std::function<void()>& action) const {
    const std::size_t before = LogText().size();
    action();
    std::string text;
    for (const std::u16string& message : Messages(LogText().substr(before))) text += "|" + emulated::Utf8(message);
    std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
    return text;
  }
  // The calls of these functions that the action makes, with their arguments, as they stand in a trace; their results
  // and the handles are left out.
  std::string Calls(std::string_view names, const std::function<void()>& action) const {
    std::string calls;
    machine->gate.Trace([&](const std::string& line) {
      const std::size_t open = line.find('(');
      if (names.find(line.substr(0, open)) == names.npos) return;
      std::string call = line.substr(0, line.rfind(')') + 1);
      if (call.substr(open + 1, 2) == "0x") call.erase(open + 1, call.find(", ") + 1 - open);
      calls += call + "\n";
    });
    action();
    machine->gate.Trace({});
    return calls;
  }

  // Another process opens the file and keeps it open.
  std::shared_ptr<emulated::FileObject> HoldOpen(const std::u16string& path, win32::DWORD access, win32::DWORD share) {
    auto held = machine->files().OpenForeign(4242, path, access, share);
    EXPECT_TRUE(held);
    return held;
  }

  const std::u16string source = u"C:\\Data";
  const std::u16string target = u"D:\\Target";
  std::unique_ptr<emulated::Machine> machine;
  std::optional<OpenHandles> leftOpen;  // when the test ends
  std::optional<LogFile> log;
};

}  // namespace test
