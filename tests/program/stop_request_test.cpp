// The title that shows how far a command is, and a request that comes in the middle of a file. What a command leaves
// that is asked to end is looked at by every suite with refused calls (support/every_call.h).
#include "program/redirections.h"
#include "report/progress.h"

namespace {

using namespace test;
using Titles = std::vector<std::u16string>;

class StopRequest : public OneFolder {
 protected:
  StopRequest() {
    MakeFile(u"C:\\Data\\large.bin", std::string(5'000'000, 'l'));
    disks_ = machine->Snapshot();
  }
  // On the first disks, in a window; so many milliseconds pass between two looks at the clock.
  void Begin(win32::DWORD milliseconds) {
    Restart(disks_);
    titles.clear();
    machine->outputIsWindow = true;
    machine->titleSink = [this](std::u16string_view title) { titles.emplace_back(title); };
    machine->tickCount = [milliseconds, at = win32::DWORD{0}]() mutable { return at += milliseconds; };
  }
  int Move(const std::u16string& way = u"/-NTFS") { return Run({u"/RedirectFolder", u"C:\\Data", to, way}).exitCode; }
  // The title came, and the old one again.
  bool CameAndWent(std::u16string_view text) const {
    return !titles.empty() && titles.back() == u"Administrator: Command Prompt" &&
           std::ranges::any_of(titles, [&](const auto& title) { return title.find(text) != title.npos; });
  }

  Titles titles;

 private:
  Disks disks_;
};

TEST_F(StopRequest, TheTitleTellsHowFarACommandIs) {
  using enum ProgressOf;
  constexpr std::uint64_t kGiB = 1 << 30;
  EXPECT_EQ(ProgressTitle(Copying, {0, 0}, {0, 0}), u"100 % of 0 items");
  EXPECT_EQ(ProgressTitle(Copying, {0, 3 * kGiB}, {1, 4 * kGiB}), u"74 % of 1 item, 1.0 GB left");
  EXPECT_EQ(ProgressTitle(Copying, {999, 0}, {1'012'480, 1}), u"0 % of 1,012,480 items, 0.1 KB left");
  EXPECT_EQ(ProgressTitle(TakingBack, {1, 1000}, {2, 5'000'000}), u"0 % of 2 items taken back, 4.7 MB left");
  EXPECT_EQ(ProgressTitle(Deleting, {6, 0}, {12, 0}), u"50 % of 12 items deleted at the old place");

  Begin(500);
  EXPECT_TRUE(Move(u"/c") == 0 && CameAndWent(u" of 4 items, 0.") && CameAndWent(u" of 4 items, 3.")) << "of one file";
  EXPECT_TRUE(Move(u"/d") == 0 && CameAndWent(u" of 4 items deleted"));
  Begin(1);
  EXPECT_TRUE(Move() == 0 && titles.empty()) << "what is done at once shows none";
  Begin(500);
  machine->outputIsWindow = false;
  EXPECT_TRUE(Move() == 0 && titles.empty());
  // After a failure, and an exception.
  Begin(500);
  machine->gate.FailCall("DeviceIoControl", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_TRUE(Move() == 1 && CameAndWent(u" taken back"));
  Begin(500);
  std::size_t thrown = 0;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (titles.size() > 2 && std::string_view(name) == "GetFileAttributesW" && thrown++ == 0) throw std::bad_alloc();
  });
  EXPECT_TRUE(Move() == 1 && thrown > 0 && CameAndWent(u" of 4 items, "));
}

// What was begun of it goes.
TEST_F(StopRequest, StopsBetweenThePiecesOfAFile) {
  for (const auto& [command, item, way] : {std::tuple(u"/RedirectFolder", u"C:\\Data", u"/-NTFS"),
                                           {u"/RedirectFolder", u"C:\\Data", u"/-Share"},
                                           {u"/RedirectFile", u"C:\\Data\\large.bin", u"/-NTFS"}}) {
    Begin(500);
    const State before = Now();
    machine->gate.Observe([&](const char* name, std::uint64_t) {
      if (titles.size() > 2 && std::string_view(name) == "SetConsoleTitleW")
        machine->controls.Raise(win32::CTRL_C_EVENT);
    });
    const RunResult run = Run({command, item, to, way});
    EXPECT_TRUE(run.exitCode == 1 && CameAndWent(u" left") &&
                run.Logged(u"#ERROR: Ctrl+C was pressed. What was moved is taken back.") &&
                (run.Logged(u"The request was aborted.") || run.Logged(u" Error: 1235")))
        << emulated::Utf8(run.log);
    EXPECT_EQ(ChangesSince(before), "changed: D:\\Target\n") << "which something came to and went from";
  }
}

TEST_F(StopRequest, EndsACommandThatOnlyAsksAsEver) {
  std::size_t ended = 0;
  machine->controls.onEnd = [&](win32::DWORD) { ++ended; };
  machine->controls.Raise(win32::CTRL_C_EVENT);
  EXPECT_TRUE(Run({u"/RedirectFolder"}).exitCode == 0 && ended == 1);
}

}  // namespace
