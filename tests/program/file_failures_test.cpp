// The redirection of a file and its removal with every call failing once, and with the machine stopped dead at each.
#include <cstdio>
#include <map>
#include <set>

#include "program/file_redirection.h"

namespace {

using test::Contents, test::Exists, test::MakeFile, test::RunProgram;
using test::kSource, test::kTarget, test::kText;

// Whichever call fails and wherever the machine stops dead: the file is complete at one of its two places.
class EveryCallOfAFile : public test::FileRedirection {
 protected:
  using Words = std::initializer_list<std::u16string>;

  static bool IsComplete(const std::u16string& path) {
    return !IsLink(path) && Contents(path) == kText && Contents(path + u":note") == "a named stream";
  }
  // What was at the target before, where it was or kept beside it.
  static bool TheirsIsThere() {
    for (const auto* path : {u"D:\\Target\\file.txt", u"D:\\Target\\file.txt.kept1"})
      if (Contents(path) == "theirs") return true;
    return false;
  }
  void Restart(const test::Disks& disks) {
    test::Disks copies;
    for (const auto& [name, device] : disks) copies[name] = device->Clone();
    machine.reset();
    machine = test::BootFrom(std::move(copies));
  }
  std::vector<std::string> CallsOf(Words words) {
    std::vector<std::string> calls;
    machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
    EXPECT_EQ(RunProgram(*machine, words).exitCode, 0);
    machine->gate.Observe({});
    return calls;
  }
  // Whether the disks agree with what the run said.
  void ExpectTruth(const test::RunResult& run, bool redirected, bool replacing, const std::string& when) {
    const bool atSource = IsComplete(kSource), atTarget = IsComplete(kTarget);
    ASSERT_TRUE(atSource || atTarget) << when;
    ++outcomes[std::string(run.exitCode == 0 ? "success" : "failure") + (IsLink(kSource) ? ", link" : "") +
               (atSource ? ", at its old place" : "") + (atTarget ? ", at its new place" : "")];
    if (run.exitCode != 0) {
      EXPECT_TRUE(!replacing || TheirsIsThere()) << when;
      return;
    }
    EXPECT_EQ(IsLink(kSource), redirected) << when;
    EXPECT_EQ(atTarget, redirected || Exists(kTarget)) << when;
    EXPECT_EQ(RecordCount(), otherRecords + (redirected ? 1 : 0)) << when;
  }
  void FailEach(Words words, bool redirected, bool replacing) {
    const test::Disks disks = machine->Snapshot();
    const std::vector<std::string> calls = CallsOf(words);
    ASSERT_GT(calls.size(), 100u);
    for (std::size_t i = 0; i < calls.size() && !HasFailure(); ++i) {
      static const std::set<std::string> kTexts{"FindResourceExW", "LoadResource", "LockResource", "SizeofResource"};
      if (kTexts.contains(calls[i])) continue;
      Restart(disks);
      machine->gate.FailCall(i + 1, win32::ERROR_ACCESS_DENIED);
      const test::RunResult run = RunProgram(*machine, words);
      machine->gate.ClearFailures();
      ASSERT_TRUE(EnablePrivileges());
      const std::string when = calls[i] + ", call " + std::to_string(i + 1) + ": " + emulated::Utf8(run.log);
      ASSERT_TRUE(run.exitCode == 0 || run.exitCode == 1) << when;
      ExpectTruth(run, redirected, replacing, when);
      // It runs, or has no work left, or the log (where there is one) tells that it could not be started.
      const bool hasWork = redirected || RecordCount() != 0;
      const bool told = run.log.empty() || run.Logged(u"#ERROR: Failed to start Quillbay Service.");
      EXPECT_TRUE(ServiceRuns() || !hasWork || told) << when;
    }
    for (const auto& [outcome, count] : outcomes) std::printf("  %4zu %s\n", count, outcome.c_str());
  }
  void StopAtEach(Words words, bool replacing) {
    std::vector<std::pair<std::string, test::Disks>> moments;
    machine->gate.Observe([&](const char* name, std::uint64_t number) {
      moments.emplace_back(std::to_string(number) + " " + name, machine->Snapshot());
    });
    EXPECT_EQ(RunProgram(*machine, words).exitCode, 0);
    machine->gate.Observe({});
    for (auto& [moment, disks] : moments) {
      const auto after = test::BootFrom(std::move(disks));
      for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
        after->process.token->EnablePrivilege(privilege, true);
      EXPECT_TRUE(IsComplete(kSource) || IsComplete(kTarget)) << moment;
      EXPECT_TRUE(!replacing || TheirsIsThere() || IsComplete(kTarget)) << moment;
    }
  }

  std::size_t otherRecords = 0;
  std::map<std::string, std::size_t> outcomes;
};

TEST_F(EveryCallOfAFile, OfARedirectionMayFail) {
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true, false);
}

TEST_F(EveryCallOfAFile, OfARedirectionThatReplacesMayFail) {
  MakeFile(kTarget, "theirs");
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true, true);
}

// Another file stays redirected, so the service keeps its work.
TEST_F(EveryCallOfAFile, OfARemovalMayFail) {
  MakeFile(u"C:\\Data\\other.txt", "other");
  ASSERT_EQ(Redirect(u"C:\\Data\\other.txt").exitCode, 0);
  otherRecords = 1;
  ASSERT_EQ(Redirect().exitCode, 0);
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"}, false, false);
}

TEST_F(EveryCallOfAFile, MayBeTheLastBeforeThePowerFails) {
  ASSERT_TRUE(win32::SetFileAttributesW(kSource.c_str(), win32::FILE_ATTRIBUTE_READONLY));
  MakeFile(kTarget, "theirs");
  StopAtEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true);
  StopAtEach({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"}, false);
}

}  // namespace
