// The request that has account pictures follow the Public profile, to a service that the test plays.
#include "profiles/account_pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "configuration/service_config.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/system/pipes.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace {

using Lines = std::vector<std::string>;

constexpr const char16_t* kService = u"QuillbayService";
constexpr const char16_t* kPipe = u"QBDataPipe";
constexpr const char16_t* kFrom = u"C:\\Shared\\Public";
constexpr const char16_t* kTo = u"D:\\Profiles\\Public";

std::string Record(std::string_view text) {
  std::string record(text);
  record.resize(2048, '\0');
  return record;
}

class AccountPictures : public ::testing::Test {
 protected:
  AccountPictures() {
    test::UseProgramModule(*machine);
    win32::GetStdHandle(win32::STD_OUTPUT_HANDLE);  // the process's own, from now on
    for (const auto* folder : {u"C:\\Shared", kFrom, u"C:\\Shared\\Public\\AccountPictures"}) test::MakeFolder(folder);
    emulated::ServiceBehaviour& behaviour = machine->services().Behaviour(kService);
    behaviour.onStart = [this] {
      happened.emplace_back("[started]");
      if (serves) Serve();
    };
    behaviour.onStop = [this] {
      happened.emplace_back("[stopped]");
      machine->pipes().Close(kPipe);
    };
    machine->debugSink = [this](std::u16string_view text) {
      happened.push_back(emulated::Utf8(text));
      if (onLine) onLine(happened.back());
    };
    machine->onSleep = [this](std::uint64_t milliseconds) { happened.push_back(std::to_string(milliseconds)); };
    machine->services().SetState(kService, win32::SERVICE_RUNNING);
  }

  // One instance, as the service has it.
  void Serve() {
    server = machine->pipes().Serve(kPipe);
    server->onOpen = [this]() -> win32::DWORD {
      ++opens;
      return answerToOpen ? answerToOpen() : win32::ERROR_SUCCESS;
    };
    server->onWrite = [this](emulated::ByteView bytes) {
      records.emplace_back(bytes.begin(), bytes.end());
      return win32::ERROR_SUCCESS;
    };
  }

  // The operation itself; it always takes its arguments and never leaves a handle open.
  bool Update(std::u16string from = kFrom, std::u16string to = kTo) {
    happened.clear();
    records.clear();
    machine->console.clear();
    opens = 0;
    const std::size_t open = machine->objects.all().size();
    const bool result = UpdateUserAccountImagesIfRequiredSvc(from, to);
    EXPECT_EQ(from, u"");
    EXPECT_EQ(to, u"");
    if (!closingRefused) {
      EXPECT_EQ(machine->objects.all().size(), open);
    }
    return result;
  }
  void SetRegistryLocation(bool enable) {
    CQBConfig config;
    ASSERT_TRUE(config.Init());
    ASSERT_TRUE(config.SetOutDir(enable, u"D:\\Registry"));
    ASSERT_TRUE(config.Save());
  }
  // As it was before: a service with work that runs and serves, should its restart be refused.
  void Begin() {
    machine->objects.CloseAll(machine->process.id);  // what a refused close has left
    win32::GetStdHandle(win32::STD_OUTPUT_HANDLE);
    SetRegistryLocation(true);
    machine->services().SetState(kService, win32::SERVICE_RUNNING);
    Serve();
  }
  win32::DWORD State() { return machine->services().State(kService); }
  bool Happened(std::string_view line) const {
    return std::find(happened.begin(), happened.end(), line) != happened.end();
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
  std::shared_ptr<emulated::PipeServer> server;
  bool serves = true;
  bool closingRefused = false;
  std::function<win32::DWORD()> answerToOpen;
  std::function<void(const std::string&)> onLine;
  Lines happened;  // lines for the debugger, milliseconds of waiting, and [what the service did]
  std::vector<std::string> records;
  int opens = 0;
};

TEST_F(AccountPictures, ServiceIsRestartedToldAndRestartedAgain) {
  SetRegistryLocation(true);
  EXPECT_TRUE(Update());
  std::string all;
  for (const std::string& line : happened) all += line + "|";
  EXPECT_EQ(all,
            "Start UpdateUserAccountImagesIfRequiredSvc(). Pic folder: C:\\Shared\\Public\\AccountPictures|"
            "Going to stop QBService as it's already running.|[stopped]|1000|5000|"
            "Going to start QBService...|[started]|10000|Restarted QBService successfully.|"
            "(hPipe != INVALID_HANDLE_VALUE)|1000|2-(hPipe != INVALID_HANDLE_VALUE)|"
            "Send command successfully to service|"
            "In UpdateUserAccountImagesIfRequiredSvc(). Going to wait for 5 seconds.|5000|"
            "Going to stop QBService|[stopped]|1000|5000|Going to start QBService again|[started]|"
            "After starting QBService|\nExit UpdateUserAccountImagesIfRequiredSvc()\n|");
  EXPECT_EQ(records, Lines{Record("UpdateImgPath|C:\\Shared\\Public|D:\\Profiles\\Public")});
  EXPECT_EQ(opens, 2);
  EXPECT_FALSE(server->mayImpersonate) << "whoever has made a pipe of that name";
  EXPECT_EQ(machine->console,
            "\r\nGoing to update all user's profile image settings"
            "\r\nDone with updating all user's profile image settings\r\n");
}

TEST_F(AccountPictures, ServiceRunsAfterwardsOnlyWhereItRanAndHasWork) {
  for (const auto& [location, runs] : {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
    SetRegistryLocation(location);
    machine->services().SetState(kService, runs ? win32::SERVICE_RUNNING : win32::SERVICE_STOPPED);
    EXPECT_TRUE(Update());
    EXPECT_EQ(records.size(), 1u);
    const bool again = location && runs;
    EXPECT_EQ(State(), again ? win32::SERVICE_RUNNING : win32::SERVICE_STOPPED) << location << runs;
    EXPECT_EQ(Happened("Going to stop QBService as it's already running."), runs);
    EXPECT_EQ(Happened("Going to start QBService again"), again);
  }
}

TEST_F(AccountPictures, WithoutPicturesThereIsNothingToSend) {
  test::MakeFolder(u"C:\\Shared\\Other");
  test::MakeFile(u"C:\\Shared\\Other\\AccountPictures", "no folder");
  for (const auto* folder : {u"C:\\Shared\\Other", u"C:\\Shared\\None", u""}) {
    EXPECT_TRUE(Update(folder));
    EXPECT_EQ(happened, (Lines{"Start UpdateUserAccountImagesIfRequiredSvc(). Cannot find AccountPictures folder at: " +
                                   emulated::Utf8(folder) + "\\AccountPictures",
                               "30000"}));
    EXPECT_EQ(machine->console, "");
    EXPECT_EQ(State(), win32::SERVICE_RUNNING);
  }
}

TEST_F(AccountPictures, BusyPipeIsWaitedForAsOftenAsItTakes) {
  // Busy at the first and second open, and again at the second connection: both connections are made anew.
  answerToOpen = [this] { return opens <= 2 || opens == 4 ? win32::ERROR_PIPE_BUSY : win32::ERROR_SUCCESS; };
  EXPECT_TRUE(Update());
  EXPECT_EQ(opens, 6);
  EXPECT_EQ(std::count(happened.begin(), happened.end(), "(hPipe != INVALID_HANDLE_VALUE)"), 2);
  EXPECT_EQ(records.size(), 1u);

  // Another client is faster in every pass; each pass is of 20 seconds at most, and there is no last one.
  constexpr int kPasses = 100;
  int passes = 0;
  answerToOpen = [] { return win32::ERROR_PIPE_BUSY; };
  onLine = [&](const std::string& line) {
    if (line != "Restarted QBService successfully.") return;
    server->onWait = [&](win32::DWORD milliseconds) -> std::optional<win32::DWORD> {
      EXPECT_EQ(milliseconds, 20000u);
      if (++passes == kPasses) server->busyUntil = std::numeric_limits<emulated::FileTime>::max();
      return passes < kPasses ? std::optional<win32::DWORD>(win32::ERROR_SUCCESS) : std::nullopt;
    };
  };
  const std::uint64_t before = machine->sleptMilliseconds;
  EXPECT_FALSE(Update());
  EXPECT_EQ(passes, kPasses);
  EXPECT_EQ(opens, kPasses);
  EXPECT_EQ(happened.back(), "!WaitNamedPipe(PIPE_NAME, 20000)");
  EXPECT_EQ(State(), win32::SERVICE_RUNNING);  // as it was started
  EXPECT_LE(machine->sleptMilliseconds - before, 60000u);
}

TEST_F(AccountPictures, EndsWhereNobodyListens) {
  // The line after which the server vanishes, the last line, and how often the pipe was opened.
  const std::tuple<std::string_view, const char*, int> cases[] = {
      {"Going to start QBService...", "(dwError != ERROR_PIPE_BUSY)", 0},  // it never opens its pipe
      {"Restarted QBService successfully.", "(dwError != ERROR_PIPE_BUSY)", 0},
      {"(hPipe != INVALID_HANDLE_VALUE)", "(dwError != ERROR_PIPE_BUSY)", 1},
      {"2-(hPipe != INVALID_HANDLE_VALUE)", "Failed to write on pipe", 2}};
  for (const auto& [at, last, expectedOpens] : cases) {
    onLine = [this, moment = at](const std::string& line) {
      serves = moment != "Going to start QBService...";
      if (line == moment) machine->pipes().Close(kPipe);
    };
    EXPECT_FALSE(Update()) << at;
    EXPECT_EQ(happened.back(), last) << at;
    EXPECT_EQ(opens, expectedOpens) << at;
    EXPECT_EQ(records, Lines{});
    EXPECT_EQ(State(), win32::SERVICE_RUNNING);
    EXPECT_EQ(machine->console, "\r\nGoing to update all user's profile image settings");
  }
}

TEST_F(AccountPictures, RecordIsInTheAnsiCodePageAndOfOneLength) {
  const std::string start = "UpdateImgPath|C:\\Shared\\Public|";
  const std::size_t room = 2048 - start.size();
  const auto repeated = [](const auto& text, std::size_t times) {
    auto result = text;
    while (--times > 0) result += text;
    return result;
  };
  const std::u16string face = u"\U0001F600", one = u"\u4E00";
  const std::tuple<win32::UINT, std::u16string, std::string> cases[] = {
      // What is sent behind the start; nothing where the code page cannot say the path.
      {1252, u"D:\\Pro|fils d'Andr\u00E9, \u20AC", "D:\\Pro|fils d'Andr\xE9, \x80"},
      {1250, u"D:\\\u017Bona", "D:\\\xAFona"},
      {932, u"D:\\\u4E00", "D:\\\x88\xEA"},
      {65001, u"D:\\\u00E9\u4E00\U0001F600", "D:\\\u00E9\u4E00\U0001F600"},
      {1252, std::u16string(room - 1, u'x'), std::string(room - 1, 'x')},
      {1252, std::u16string(room, u'x'), std::string(room, 'x')},  // no zero is left
      {1252, std::u16string(room + 1, u'x'), std::string(room, 'x')},
      {1252, std::u16string(30000, u'x'), std::string(room, 'x')},
      {932, repeated(one, 1500), repeated(std::string("\x88\xEA"), room / 2)},
      {65001, repeated(face, 900), repeated(std::string("\U0001F600"), room / 4)},
      {1252, u"D:\\\u4E00", ""},
      {1252, u"D:\\\u0100", ""},                     // an "A" on top of which something is
      {1252, std::u16string(3000, u'x') + one, ""},  // where it would have been cut off
      {1252, u"D:\\\xD800", ""},
      {65001, u"D:\\\xD800", ""}};
  for (const auto& [codePage, to, sent] : cases) {
    machine->ansiCodePage = codePage;
    machine->gate.ResetCounts();
    EXPECT_EQ(Update(kFrom, to), !sent.empty()) << codePage;
    EXPECT_EQ(records, sent.empty() ? Lines{} : Lines{Record(start + sent)}) << codePage << ' ' << to.size();
    if (!sent.empty()) continue;
    ASSERT_EQ(happened.size(), 1u);
    EXPECT_TRUE(happened[0].starts_with("#ERROR: UpdateUserAccountImagesIfRequiredSvc: the ANSI code page lacks"));
    EXPECT_EQ(machine->gate.Count("OpenSCManagerW"), 0u);
    EXPECT_EQ(machine->console, "");
  }
}

TEST_F(AccountPictures, EveryRefusedCallIsStood) {
  Lines calls;
  for (int run = 0; run < 2; ++run) {  // the first in a process looks up entry points that the others know
    Begin();
    calls.clear();
    machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
    EXPECT_TRUE(Update());
  }
  machine->gate.Observe({});
  ASSERT_GT(calls.size(), 60u);
  for (std::size_t call = 1; call <= calls.size(); ++call) {
    Begin();
    const std::string& name = calls[call - 1];
    closingRefused = name.starts_with("Close") || name.ends_with("CloseKey") || name == "FreeLibrary";
    machine->gate.FailCall(call, win32::ERROR_ACCESS_DENIED);
    const bool result = Update();
    machine->gate.ClearFailures();
    const bool nothingToSend = Happened("30000");
    EXPECT_EQ(records.size(), result && !nothingToSend ? 1u : 0u) << name << ", call " << call;
    if (!records.empty()) {
      EXPECT_EQ(records[0], Record("UpdateImgPath|C:\\Shared\\Public|D:\\Profiles\\Public"));
    }
  }
}

}  // namespace
