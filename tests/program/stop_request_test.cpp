// The title that shows how far a command is, and who may end it when. That nothing is lost or left half-way is what
// every suite with refused calls looks at (support/every_call.h).
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
    Begin(500);
  }
  // So many milliseconds pass between two looks at the clock.
  void Begin(win32::DWORD milliseconds) {
    titles.clear();
    machine->outputIsWindow = true;
    machine->titleSink = [this](std::u16string_view title) { titles.emplace_back(title); };
    machine->tickCount = [milliseconds, at = win32::DWORD{0}]() mutable { return at += milliseconds; };
  }
  void BeginAgain() {
    Restart(disks_);
    Begin(500);
  }
  // In the middle of the first call of that name to which `when` applies.
  void StopIn(std::string_view call, std::function<bool()> when) {
    machine->gate.Observe([this, call, when](const char* name, std::uint64_t) {
      if (name == call && when()) machine->controls.Raise(win32::CTRL_C_EVENT);
    });
  }
  bool PutBack() const { return !titles.empty() && titles.back() == machine->consoleTitle && titles.back() == kOwn; }

  Titles titles;
  const std::u16string kOwn = machine->consoleTitle;

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

  for (const auto* way : {u"/c", u"/d"}) {
    Begin(500);
    ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Data", to, way}).exitCode, 0);
    EXPECT_TRUE(PutBack());
    EXPECT_GT(
        std::ranges::count_if(titles, [](const auto& title) { return title.find(u" of 4 items, ") != title.npos; }), 4)
        << "of one large file, too";
  }
  Begin(1);
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Data", to}).exitCode, 0);
  EXPECT_EQ(titles, Titles()) << "what is done at once shows none";
  Begin(500);
  machine->outputIsWindow = false;
  ASSERT_EQ(Run({u"/RedirectFolder", u"C:\\Data", to, u"/d"}).exitCode, 0);
  EXPECT_EQ(titles, Titles());
}

TEST_F(StopRequest, TheOldTitleIsBackAfterEveryEnd) {
  const auto move = [this] { return Run({u"/RedirectFolder", u"C:\\Data", to, u"/-NTFS"}).exitCode; };
  machine->gate.FailCall("DeviceIoControl", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_TRUE(move() == 1 && PutBack());
  EXPECT_TRUE(std::ranges::any_of(titles, [](const auto& title) { return title.find(u" taken back") != title.npos; }));
  BeginAgain();
  std::size_t thrown = 0;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (titles.size() > 2 && std::string_view(name) == "GetFileAttributesW" && thrown++ == 0) throw std::bad_alloc();
  });
  EXPECT_TRUE(move() == 1 && thrown > 0 && PutBack());
}

// In the middle of a large file, too; what was begun of it goes. One that is overwritten is copied to its end.
TEST_F(StopRequest, StopsBetweenThePiecesOfAFile) {
  for (const auto& [way, file] : {std::pair(u"/-NTFS", false), {u"/-Share", false}, {u"/-NTFS", true}}) {
    BeginAgain();
    const State before = Now();
    StopIn("SetConsoleTitleW", [this] { return titles.size() > 2; });
    const auto words = {std::u16string(file ? u"/RedirectFile" : u"/RedirectFolder"),
                        std::u16string(file ? u"C:\\Data\\large.bin" : u"C:\\Data"), to, std::u16string(way)};
    const RunResult run = Run(words);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.Logged(u"#ERROR: Ctrl+C was pressed. What was moved is taken back.")) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.Logged(u"The request was aborted.") || run.Logged(u" Error: 1235")) << emulated::Utf8(run.log);
    EXPECT_EQ(ChangesSince(before), "changed: D:\\Target\n") << "which something came to and went from";
    EXPECT_TRUE(PutBack());
  }
}

// Who only asks is ended by Windows; a command that refuses, too, as long as nothing has changed.
TEST_F(StopRequest, AQuestionIsEndedAsEver) {
  std::size_t ended = 0;
  machine->controls.onEnd = [&](win32::DWORD) { ++ended; };
  for (const auto* word : {u"/RedirectFolder", u"/ver", u"/GetRHStatus"}) {
    machine->controls.Raise(win32::CTRL_C_EVENT);
    Run({word});
  }
  EXPECT_EQ(ended, 3u);
}

}  // namespace
