// The redirection of a file and its removal with every call failing once, and with the machine stopped dead at each.
#include <cstdio>
#include <map>
#include <set>

#include "program/file_redirection.h"
#include "support/every_call.h"

namespace {

using test::Contents, test::Exists, test::MakeFile, test::RunProgram;
using test::kSource, test::kTarget, test::kText;

// Whichever call fails and wherever the machine stops dead: the file is complete at one of its two places.
class EveryCallOfAFile : public test::FileRedirection {
 protected:
  static constexpr win32::DWORD kAttributes = win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM;
  EveryCallOfAFile() { EXPECT_TRUE(win32::SetFileAttributesW(kSource.c_str(), kAttributes)); }

  using Words = std::initializer_list<std::u16string>;

  static bool IsComplete(const std::u16string& path) {
    return !IsLink(path) && Contents(path) == kText && Contents(path + u":note") == "a named stream";
  }
  // Some file in one of the two folders, whatever its name.
  static bool IsCompleteSomewhere() {
    for (const std::u16string folder : {u"C:\\Data", u"D:\\Target"})
      for (const std::u16string& name : test::Names(folder))
        if (IsComplete(folder + name)) return true;
    return false;
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
  static std::set<std::u16string> Files() {
    std::set<std::u16string> files;
    for (const std::u16string folder : {u"C:\\Data", u"D:\\Target"})
      for (const std::u16string& name : test::Names(folder)) files.insert(folder + name);
    return files;
  }
  // The moments in which a copy has just begun: the files that it made hold nothing of what they are to hold.
  void CutEachCopy(Words words, Words next, Words last) {
    std::vector<test::Disks> before, behind;
    machine->gate.Observe([&](const char* name, std::uint64_t) {
      if (behind.size() < before.size()) behind.push_back(machine->Snapshot());
      if (std::string_view(name) == "CopyFileW") before.push_back(machine->Snapshot());
    });
    EXPECT_EQ(RunProgram(*machine, words).exitCode, 0);
    machine->gate.Observe({});
    const test::Disks done = machine->Snapshot();
    ASSERT_FALSE(before.empty());
    for (std::size_t i = 0; i < before.size(); ++i) {
      Restart(before[i]);
      const std::set<std::u16string> known = Files();
      Restart(behind[i]);
      for (const std::u16string& file : Files())
        if (!known.contains(file)) MakeFile(file, std::string(kText.size(), '\0'));
      ASSERT_TRUE(EnablePrivileges());
      RunProgram(*machine, next);
      RunProgram(*machine, last);
      EXPECT_TRUE(IsCompleteSomewhere()) << i;
      EXPECT_TRUE(Contents(kSource) == kText) << i;
    }
    Restart(done);
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
      const bool undone = !run.Logged(u" is now in ") || atTarget || run.Logged(u" is back in its place.");
      EXPECT_TRUE(undone) << "the log's last word is that it went: " << when;
      EXPECT_TRUE(!replacing || TheirsIsThere()) << when;
      const bool asBefore = !redirected && IsLink(kSource);
      EXPECT_TRUE(atSource || asBefore || run.log.empty() || TellsWhere(run)) << when;
      return;
    }
    EXPECT_EQ(IsLink(kSource), redirected) << when;
    EXPECT_EQ(atTarget, redirected || Exists(kTarget)) << when;
    EXPECT_EQ(test::Attributes(redirected ? kTarget : kSource), kAttributes) << when;
    auto expected = otherRecords;
    if (redirected) expected.emplace(kSource, kTarget);
    EXPECT_EQ(Records(), expected) << when;
  }
  static bool TellsWhere(const test::RunResult& run) {
    for (const auto* words : {u" is now in ", u"The file stays in ", u"The file is complete in "})
      if (run.Logged(words + kTarget + u".")) return true;
    return run.Logged(u" is in " + kTarget + u" until it is back in its place.");
  }
  void FailEach(Words words, bool redirected, bool replacing) {
    const test::Disks disks = machine->Snapshot();
    CallsOf(words);  // the first run in a process looks up entry points that the others know
    Restart(disks);
    const std::vector<std::string> calls = CallsOf(words);
    ASSERT_GT(calls.size(), 100u);
    for (std::size_t i = 0; i < calls.size() && !HasFailure(); i += test::CallsInOneStep()) {
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
    test::AtEveryMoment(
        *machine, [&](auto& on) { return RunProgram(on, words); },
        [&](emulated::Machine& after, const std::string& moment) {
          for (const auto* const privilege : {u"SeBackupPrivilege", u"SeRestorePrivilege"})
            after.process.token->EnablePrivilege(privilege, true);
          EXPECT_TRUE(IsComplete(kSource) || IsComplete(kTarget)) << moment;
          EXPECT_TRUE(!replacing || TheirsIsThere() || IsComplete(kTarget)) << moment;
        });
  }

  std::multimap<std::u16string, std::u16string> otherRecords;
  std::map<std::string, std::size_t> outcomes;
};

TEST_F(EveryCallOfAFile, OfARedirectionMayFail) {
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true, false);
}

TEST_F(EveryCallOfAFile, OfARedirectionThatReplacesMayFail) {
  MakeFile(kTarget, "theirs");
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true, true);
}

// A run before recorded the pair, and the file has come home by another way since.
TEST_F(EveryCallOfAFile, OfARedirectionThatIsRecordedAlreadyMayFail) {
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  ASSERT_TRUE(win32::MoveFileExW(kTarget.c_str(), kSource.c_str(), win32::MOVEFILE_COPY_ALLOWED));
  ASSERT_TRUE(win32::SetFileAttributesW(kSource.c_str(), kAttributes));
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true, false);
}

// Another file stays redirected, so the service keeps its work.
TEST_F(EveryCallOfAFile, OfARemovalMayFail) {
  MakeFile(u"C:\\Data\\other.txt", "other");
  ASSERT_EQ(Redirect(u"C:\\Data\\other.txt").exitCode, 0);
  otherRecords = Records();
  ASSERT_EQ(Redirect().exitCode, 0);
  FailEach({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"}, false, false);
}

TEST_F(EveryCallOfAFile, MayBeTheLastBeforeThePowerFails) {
  ASSERT_TRUE(win32::SetFileAttributesW(kSource.c_str(), win32::FILE_ATTRIBUTE_READONLY));
  MakeFile(kTarget, "theirs");
  StopAtEach({u"/RedirectFile", kSource, u"/loc:D:\\Target"}, true);
  StopAtEach({u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"}, false);
}

TEST_F(EveryCallOfAFile, MayBeCutOffInTheMiddleOfACopy) {
  const Words redirect{u"/RedirectFile", kSource, u"/loc:D:\\Target"};
  const Words remove{u"/RedirectFile", kSource, u"/loc:D:\\Target", u"/d"};
  ASSERT_TRUE(win32::SetFileAttributesW(kSource.c_str(), win32::FILE_ATTRIBUTE_NORMAL));
  const test::Disks disks = machine->Snapshot();
  for (const bool removeFirst : {false, true}) {
    const Words& next = removeFirst ? remove : redirect;
    const Words& last = removeFirst ? redirect : remove;
    Restart(disks);
    CutEachCopy(redirect, next, last);
    CutEachCopy(remove, next, last);
  }
}

// Somebody may have put a file in the place of the link, an unfinished copy from a backup, say.
TEST_F(EveryCallOfAFile, LosesNoWholeCopyToAnUnfinishedFileInThePlaceOfTheLink) {
  ASSERT_TRUE(win32::SetFileAttributesW(kSource.c_str(), win32::FILE_ATTRIBUTE_NORMAL));
  ASSERT_EQ(Redirect().exitCode, 0);
  ASSERT_TRUE(win32::DeleteFileW(kSource.c_str()));
  const std::string unfinished(kText.size(), '\0');
  MakeFile(kSource, unfinished);
  ExpectRemovalFailure(Remove(), u"#ERROR: Symbolic Link doesn't exists for Source = " + kSource + u".");
  EXPECT_TRUE(IsComplete(kTarget));
  const auto run = Redirect();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.Logged(u"#INFO: The file that was " + kTarget + u" before stays in " + kTarget + u".kept1."));
  EXPECT_TRUE(IsComplete(kTarget + u".kept1"));
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(Contents(kSource), unfinished);
  EXPECT_TRUE(IsComplete(kTarget + u".kept1"));
}

}  // namespace
