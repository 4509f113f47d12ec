// The machine stops dead between any two calls of a redirection or its removal; what the disks then hold is booted
// again.

#include <algorithm>
#include <functional>
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

  // Each file is whole in one of the places.
  static void ExpectFiles(const std::vector<std::u16string>& places, const std::string& when) {
    for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
      emulated::Machine::Current().process.token->EnablePrivilege(privilege, true);
    for (const auto& [name, contents] : Files()) {
      const bool found =
          std::ranges::any_of(places, [&](const std::u16string& place) { return Contents(place + name) == contents; });
      EXPECT_TRUE(found) << when << ": " << emulated::Utf8(name);
    }
  }

  // Runs the program and boots the disks of every moment. `places`: where the contents may be.
  void StopEverywhere(std::initializer_list<std::u16string> words, const std::vector<std::u16string>& places,
                      const std::function<void(emulated::Machine&, const std::string&)>& afterwards = {}) {
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
      ExpectFiles(places, moment);
      if (afterwards) afterwards(*after, moment);
    }
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine({.volumes = 1});
};

TEST_F(PowerFailure, AtAnyCallLosesNoFile) {
  const std::vector<std::u16string> places{u"C:\\Data", u"D:\\Kept\\Data"};
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept"}, places);
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept", u"/d"}, places);
}

TEST_F(PowerFailure, WhileAVolumeTakesTheFoldersPlaceLosesNoFile) {
  int finished = 0;
  const std::u16string volume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}";
  const std::vector<std::u16string> places{u"C:\\Data", u"C:\\Data.mount", volume};
  StopEverywhere({u"/RedirectFolder", u"C:\\Data", u"/vol:" + volume + u"\\"}, places);
  // A removal that was cut off is finished by the same command, as long as there is a mount to be removed.
  StopEverywhere(
      {u"/RedirectFolder", u"C:\\Data", u"/vol:" + volume + u"\\", u"/d"}, places,
      [&](emulated::Machine& after, const std::string& moment) {
        const auto run = RunProgram(after, {u"/RedirectFolder", u"C:\\Data", u"/vol:" + volume + u"\\", u"/d"});
        if (run.exitCode == 0)
          ExpectFiles({u"C:\\Data"}, moment + ", once more");
        else
          ExpectFiles(places, moment + ", once more");
        finished += run.exitCode == 0;
      });
  EXPECT_GT(finished, 100);
}

}  // namespace
