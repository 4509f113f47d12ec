// The request that has account pictures follow the Public profile, to a service that the test plays.
#include "program/everything.h"

namespace {

using namespace test;
using Records = std::vector<std::string>;

constexpr const char16_t* kService = u"QuillbayService";
constexpr const char16_t* kPipe = u"QBDataPipe";
constexpr const char16_t* kFrom = u"C:\\Shared\\Public";
const std::string kStart = "UpdateImgPath|C:\\Shared\\Public|";

Records Record(std::string text) {
  text.resize(2048, '\0');
  return {text};
}

class AccountPictures : public ::testing::Test {
 protected:
  AccountPictures() {
    UseProgramModule(*machine);
    for (const auto* folder : {u"C:\\Shared", kFrom, u"C:\\Shared\\Public\\AccountPictures"}) MakeFolder(folder);
    emulated::ServiceBehaviour& behaviour = machine->services().Behaviour(kService);
    behaviour.onStart = [this] {
      Happens("[started]");
      Serve();
    };
    behaviour.onStop = [this] {
      Happens("[stopped]");
      machine->pipes().Close(kPipe);
    };
    machine->debugSink = [this](std::u16string_view text) { Happens(emulated::Utf8(text)); };
    machine->onSleep = [this](std::uint64_t milliseconds) { Happens(std::to_string(milliseconds)); };
    Begin(false, true);
  }
  void Happens(const std::string& line) {
    happened += line + "|";
    if (onLine) onLine(line);
  }
  // One instance, as the service has it.
  void Serve() {
    server = machine->pipes().Serve(kPipe);
    server->onOpen = [this] {
      ++opens;
      return answerToOpen ? answerToOpen() : win32::ERROR_SUCCESS;
    };
    server->onWait = onWait;
    server->onWrite = [this](emulated::ByteView bytes) {
      records.emplace_back(bytes.begin(), bytes.end());
      return win32::ERROR_SUCCESS;
    };
  }
  // A service that serves, and has work where there is a location for registry data.
  void Begin(bool hasLocation, bool runs) {
    win32::GetStdHandle(win32::STD_OUTPUT_HANDLE);  // the process's own, from now on
    CQBConfig config;
    ASSERT_TRUE(config.Init() && config.SetOutDir(hasLocation, u"D:\\Registry") && config.Save());
    machine->services().SetState(kService, runs ? win32::SERVICE_RUNNING : win32::SERVICE_STOPPED);
    Serve();
  }
  // The operation itself; it always takes its arguments.
  bool Update(std::u16string from = kFrom, std::u16string to = u"D:\\Profiles\\Public") {
    happened.clear();
    records.clear();
    machine->console.clear();
    opens = 0;
    const bool result = UpdateUserAccountImagesIfRequiredSvc(from, to);
    EXPECT_EQ(from + to, u"");
    return result;
  }

  std::unique_ptr<emulated::Machine> machine = InstalledMachine();
  std::shared_ptr<emulated::PipeServer> server;
  std::function<win32::DWORD()> answerToOpen;
  std::function<std::optional<win32::DWORD>(win32::DWORD)> onWait;
  std::function<void(const std::string&)> onLine;
  std::string happened;  // lines for the debugger, milliseconds of waiting, and [what the service did]
  Records records;
  int opens = 0;
};

TEST_F(AccountPictures, ServiceIsRestartedToldAndRunsAfterwardsWhereItRanAndHasWork) {
  for (const auto& [hasLocation, runs] : {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
    Begin(hasLocation, runs);
    const std::size_t open = machine->objects.all().size();
    EXPECT_TRUE(Update());
    EXPECT_EQ(machine->objects.all().size(), open);
    EXPECT_EQ(
        happened,
        std::string("Start UpdateUserAccountImagesIfRequiredSvc(). Pic folder: C:\\Shared\\Public\\AccountPictures|") +
            (runs ? "Going to stop QBService as it's already running.|[stopped]|1000|5000|" : "") +
            "Going to start QBService...|[started]|10000|Restarted QBService successfully.|"
            "(hPipe != INVALID_HANDLE_VALUE)|1000|2-(hPipe != INVALID_HANDLE_VALUE)|"
            "Send command successfully to service|"
            "In UpdateUserAccountImagesIfRequiredSvc(). Going to wait for 5 seconds.|5000|"
            "Going to stop QBService|[stopped]|1000|" +
            (runs && hasLocation ? "5000|Going to start QBService again|[started]|After starting QBService|" : "") +
            "\nExit UpdateUserAccountImagesIfRequiredSvc()\n|");
    EXPECT_EQ(records, Record(kStart + "D:\\Profiles\\Public"));
    EXPECT_EQ(opens, 2);
    EXPECT_FALSE(server->mayImpersonate) << "whoever has made a pipe of that name";
    EXPECT_EQ(machine->console,
              "\r\nGoing to update all user's profile image settings"
              "\r\nDone with updating all user's profile image settings\r\n");
  }
  EXPECT_TRUE(Update(u"C:\\Shared\\None"));
  EXPECT_EQ(happened,
            "Start UpdateUserAccountImagesIfRequiredSvc(). Cannot find AccountPictures folder at: "
            "C:\\Shared\\None\\AccountPictures|30000|");
  EXPECT_EQ(machine->console, "");
}

TEST_F(AccountPictures, BusyPipeIsWaitedForAsOftenAsItTakes) {
  // Busy at the first and second open, and again at the second connection: both connections are made anew.
  answerToOpen = [this] { return opens <= 2 || opens == 4 ? win32::ERROR_PIPE_BUSY : win32::ERROR_SUCCESS; };
  EXPECT_TRUE(Update());
  EXPECT_EQ(opens, 6);
  EXPECT_EQ(records.size(), 1u);

  // Another client is faster in every pass; each pass is of 20 seconds at most, and there is no last one.
  int passes = 0;
  answerToOpen = [] { return win32::ERROR_PIPE_BUSY; };
  onWait = [&](win32::DWORD milliseconds) {
    EXPECT_EQ(milliseconds, 20000u);
    return ++passes < 100 ? win32::ERROR_SUCCESS : win32::ERROR_SEM_TIMEOUT;
  };
  EXPECT_FALSE(Update());
  EXPECT_EQ(opens, 100);
  EXPECT_TRUE(happened.ends_with("|!WaitNamedPipe(PIPE_NAME, 20000)|")) << happened;
}

TEST_F(AccountPictures, EndsWhereNobodyListens) {
  // The line after which the server vanishes, the last line, and how often the pipe was opened.
  const std::tuple<std::string, std::string, int> cases[] = {
      {"Restarted QBService successfully.", "(dwError != ERROR_PIPE_BUSY)", 0},
      {"(hPipe != INVALID_HANDLE_VALUE)", "(dwError != ERROR_PIPE_BUSY)", 1},
      {"2-(hPipe != INVALID_HANDLE_VALUE)", "Failed to write on pipe", 2}};
  for (const auto& [at, last, expectedOpens] : cases) {
    onLine = [this, moment = at](const std::string& line) {
      if (line == moment) machine->pipes().Close(kPipe);
    };
    EXPECT_FALSE(Update()) << at;
    EXPECT_TRUE(happened.ends_with("|" + last + "|")) << happened;
    EXPECT_EQ(opens, expectedOpens) << at;
    EXPECT_EQ(records, Records{});
    EXPECT_EQ(machine->services().State(kService), win32::SERVICE_RUNNING) << "as it was started";
    EXPECT_EQ(machine->console, "\r\nGoing to update all user's profile image settings");
  }
}

TEST_F(AccountPictures, RecordIsInTheAnsiCodePageAndOfOneLength) {
  const std::size_t room = 2048 - kStart.size();
  const std::tuple<win32::UINT, std::u16string, std::string> cases[] = {
      // What is sent behind the start; nothing where the code page cannot say the path.
      {1252, u"D:\\Pro|fils d'Andr\u00E9, \u20AC", "D:\\Pro|fils d'Andr\xE9, \x80"},
      {65001, u"D:\\\u00E9\u4E00\U0001F600", "D:\\\u00E9\u4E00\U0001F600"},
      {1252, std::u16string(room + 1, u'x'), std::string(room, 'x')},                 // no zero is left
      {932, std::u16string(room - 1, u'x') + u"\u4E00", std::string(room - 1, 'x')},  // not half of a character
      {65001, std::u16string(room - 3, u'x') + u"\U0001F600", std::string(room - 3, 'x')},
      {1252, u"D:\\\u0100", ""},                           // an "A" on top of which something is
      {1252, std::u16string(3000, u'x') + u"\u4E00", ""},  // where it would have been cut off
      {1252, u"D:\\\xD800", ""},
      {65001, u"D:\\\xD800", ""}};
  for (const auto& [codePage, to, sent] : cases) {
    machine->ansiCodePage = codePage;
    EXPECT_EQ(Update(kFrom, to), !sent.empty()) << codePage;
    EXPECT_EQ(records, sent.empty() ? Records{} : Record(kStart + sent)) << codePage << ' ' << to.size();
    if (!sent.empty()) continue;
    EXPECT_TRUE(
        happened.starts_with("#ERROR: UpdateUserAccountImagesIfRequiredSvc: the ANSI code page lacks a character"));
    EXPECT_EQ(happened.find('|'), happened.size() - 1) << "the service is left alone";
    EXPECT_EQ(machine->console, "");
  }
}

}  // namespace
