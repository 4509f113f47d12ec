// The verb "plan" where Windows refuses to answer: no verdict is better than it should be.
#include "program/redirections.h"

namespace test {
namespace {

class PlanCalls : public Redirections {
 protected:
  PlanCalls() {
    EXPECT_TRUE(EnablePrivileges());
    MakeFolder(u"C:\\Data");
    MakeFile(u"C:\\Data\\file.txt", "a text");
    MakeFolder(u"D:\\Target");
    SetSecurity(u"D:\\Target", u"O:BAD:P(A;OICI;0x1701ff;;;BA)");  // all but to take it: the commands may that anyway
  }
  // With each call refused in turn: what may is told with the same facts, or some of them not; or it is refused, or not
  // told. What may not never may.
  void RefuseEachCallOf(std::vector<std::u16string> words, int exitCode) {
    words.insert(words.begin(), u"plan");
    const Disks disks = machine->Snapshot();
    const auto ask = [&] {
      if (prepare) prepare();
      const ReportRun run = RunReport(*machine, words);
      return RunResult{
          .exitCode = run.exitCode, .console = {}, .said = emulated::Utf16(run.output), .log = {}, .which = {}};
    };
    const std::u16string told = ask().said;
    const std::vector<std::string> calls = CallsOf(machine, disks, ask, exitCode);
    for (std::size_t i = 0; i < calls.size() && !HasFailure(); i += CallsInOneStep()) {
      if (IsBesideThePoint(calls[i])) continue;
      StartAgain(machine, disks);
      machine->gate.FailCall(i + 1, win32::ERROR_ACCESS_DENIED);
      const RunResult run = ask();
      machine->gate.ClearFailures();
      EXPECT_TRUE(run.exitCode == 0 ? exitCode == 0 : run.exitCode == 1 || run.exitCode == 3)
          << calls[i] << ", call " << i + 1 << "\n"
          << emulated::Utf8(run.said);
      if (run.exitCode == 0) ExpectFactsOf(told, emulated::Utf8(run.said.substr(0, run.said.find(u"Told besides"))));
    }
    StartAgain(machine, disks);
  }
  static void ExpectFactsOf(const std::u16string& told, const std::string& facts) {
    std::istringstream lines(facts);
    for (std::string line; std::getline(lines, line);)
      EXPECT_TRUE(told.find(emulated::Utf16(line)) != told.npos || line.find("cannot be told") != line.npos) << facts;
  }

  std::function<void()> prepare;
};

TEST_F(PlanCalls, OfWhatMay) {
  RefuseEachCallOf({u"folder", u"C:\\Data", u"--to", u"D:\\Target"}, 0);
  RefuseEachCallOf({u"file", u"C:\\Data\\file.txt", u"--to", u"D:\\Target"}, 0);
  EXPECT_EQ(Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}).exitCode, 0);
}

TEST_F(PlanCalls, OfWhatMayNot) {
  std::shared_ptr<emulated::FileObject> held;
  RefuseEachCallOf({u"folder", u"C:\\Data", u"--to", u"C:\\Data\\in"}, 1);
  RefuseEachCallOf({u"folder", u"C:\\Data", u"--to", u"C:\\"}, 1);
  prepare = [&] { held = machine->files().OpenForeign(4242, u"C:\\Data\\file.txt", win32::GENERIC_READ, 0); };
  RefuseEachCallOf({u"folder", u"C:\\Data", u"--to", u"D:\\Target"}, 1);
  prepare = {};
  workstation::InstallRimehold(*machine, u"Frozen");
  RefuseEachCallOf({u"file", u"C:\\Data\\file.txt", u"--to", u"D:\\Target"}, 1);
}

}  // namespace
}  // namespace test
