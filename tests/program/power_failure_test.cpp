// The machine stops dead between any two calls of a redirection or its removal; what the disks then hold is booted
// again.

#include <map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace {

using test::Contents, test::RunProgram;

const std::map<std::u16string, std::string>& Files() {
  static const std::map<std::u16string, std::string> files = {
      {u"\\one.txt", "first"}, {u"\\one.txt:note", "a named stream"}, {u"\\inner\\two.bin", std::string(70'000, 'x')}};
  return files;
}

class PowerFailure : public testing::Test {
 protected:
  PowerFailure() {
    test::MakeFolder(u"C:\\Data");
    test::MakeFolder(u"C:\\Data\\inner");
    for (const auto& [name, contents] : Files()) test::MakeFile(u"C:\\Data" + name, contents);
    EXPECT_TRUE(win32::SetFileAttributesW(u"C:\\Data\\inner\\two.bin", win32::FILE_ATTRIBUTE_READONLY));
  }

  // Runs the program and boots the disks of every moment.
  void StopEverywhere(std::initializer_list<std::u16string> words) {
    std::vector<std::pair<std::string, test::Disks>> moments;
    machine->gate.ResetCounts();
    machine->gate.Observe([&](const char* name, std::uint64_t number) {
      moments.emplace_back(std::to_string(number) + " " + name, machine->Snapshot());
    });
    EXPECT_EQ(RunProgram(*machine, words).exitCode, 0);
    machine->gate.Observe({});
    EXPECT_GT(moments.size(), 100u);
    for (auto& [moment, disks] : moments) {
      const auto after = test::BootFrom(std::move(disks));
      for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
        after->process.token->EnablePrivilege(privilege, true);
      for (const auto& [name, contents] : Files()) {
        const bool atSource = Contents(u"C:\\Data" + name) == contents;
        const bool atTarget = Contents(u"D:\\Kept\\Data" + name) == contents;
        EXPECT_TRUE(atSource || atTarget) << moment << ": " << emulated::Utf8(name);
      }
    }
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

TEST_F(PowerFailure, AtAnyCallLosesNoFile) {
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept"});
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept", u"/d"});
}

}  // namespace
