// What the tests of the program's engines share: a machine, the run's log, and the privileges that a run has enabled.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "probes/privileges.h"
#include "report/log.h"
#include "support/installed_machine.h"
#include "support/tree.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/machine.h"
#include "win32/win32.h"

namespace test {

class Engine : public ::testing::Test {
 protected:
  explicit Engine(const MachineFacts& facts = {}) { Restart(facts); }

  // A new machine with an empty C:\Data and D:\Target.
  void Restart(const MachineFacts& facts = {}) {
    log.reset();
    machine.reset();
    machine = InstalledMachine(facts);
    EnablePrivileges();
    log.emplace();
    MakeFolder(source);
    MakeFolder(target);
  }

  // Everything logged so far. `Logged` asks for one text in it.
  std::u16string LogText() const {
    const std::string bytes = Contents(LogPath());
    std::u16string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
      text +=
          static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    return text;
  }
  bool Logged(std::u16string_view text) const { return LogText().find(text) != std::u16string::npos; }

  // Another process opens the file and keeps it open.
  std::shared_ptr<emulated::FileObject> HoldOpen(const std::u16string& path, win32::DWORD access, win32::DWORD share) {
    auto held = machine->files().OpenForeign(4242, path, access, share);
    EXPECT_TRUE(held);
    return held;
  }

  const std::u16string source = u"C:\\Data";
  const std::u16string target = u"D:\\Target";
  std::unique_ptr<emulated::Machine> machine;
  std::optional<LogFile> log;
};

}  // namespace test
