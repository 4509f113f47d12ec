// The log file.
#include "program/everything.h"

namespace {

constexpr emulated::FileTime kNineOClock = 132223104000000000 + 9LL * 3600 * 10000000;  // on 1 January 2020

class LogFileTest : public ::testing::Test {
 protected:
  // What the log now holds, from the byte-order mark on.
  std::u16string Text() {
    const std::string bytes = test::LogBytes(*machine);
    std::u16string text(bytes.size() / 2, u'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * 2);
    return text;
  }
  std::u16string Line(std::u16string_view text) {
    return FormatText(u"\r\n[ 9: 5: 3:  7][P%4d,T%4d] %ls", win32::GetCurrentProcessId(), win32::GetCurrentThreadId(),
                      text);
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

TEST_F(LogFileTest, BeginsWithAByteOrderMarkAndIsAppendedTo) {
  machine->SetNow(kNineOClock + (5 * 60 + 3) * 10000000LL + 70000);
  {
    LogFile log;
    EXPECT_EQ(std::u16string(LogPath()), u"C:\\Program Files\\Velmora\\Quillbay\\QBC.log");
    Log(u"first %d", 1);
  }
  EXPECT_EQ(Text(), u"\uFEFF" + Line(u"first 1"));
  const auto logged = [&](std::u16string_view before) {
    const emulated::ByteView bytes{reinterpret_cast<const std::uint8_t*>(before.data()), before.size() * 2};
    emulated::WriteWholeFile(*machine->SystemVolume()->volume, u"\\Program Files\\Velmora\\Quillbay\\QBC.log", bytes);
    LogFile log;
    Log(u"next");
    return Text();
  };
  EXPECT_EQ(logged(u""), u"\uFEFF" + Line(u"next"));
  EXPECT_EQ(logged(u"another's"), u"another's" + Line(u"next"));
  // A run that does not get to the end of the file writes nothing, least of all at its beginning.
  machine->gate.FailCall("SetFilePointer", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(logged(u"before"), u"before");
}

// Whichever thread it comes from, a line is one piece, with the text of its error.
TEST_F(LogFileTest, LinesAreNotMixed) {
  const LogFile log;
  const auto write = [] {
    for (int i = 0; i < 1000; ++i) {
      win32::SetLastError(win32::ERROR_ACCESS_DENIED);
      LogWithSystemError(u"#");
    }
  };
  std::thread other(write);
  write();
  other.join();
  std::u16string text = Text();
  constexpr std::u16string_view kEnd = u"] #Access is denied.\r\n";
  for (int line = 0; line < 2000; ++line) {
    const std::size_t end = text.find(kEnd);
    ASSERT_EQ(std::ranges::count(text.substr(0, end), u'['), 2);  // of the time, and of the ids
    text.erase(1, end + kEnd.size() - 1);
  }
  EXPECT_EQ(text, u"\uFEFF");
}

TEST_F(LogFileTest, CutsWhatDoesNotFitAndLetsOthersIn) {
  LogFile log;
  EXPECT_TRUE(machine->files().OpenForeign(77, LogPath(), win32::GENERIC_READ | win32::GENERIC_WRITE,
                                           win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE));
  const LogFile second;
  Log(u"%ls", std::u16string(5000, u'~'));
  Log(u"next");
  const std::u16string text = Text();
  EXPECT_EQ(std::ranges::count(text, u'~'), 1023);
  EXPECT_TRUE(text.ends_with(u"next"));
}

TEST_F(LogFileTest, TellsTheErrorOfTheCallThatFailed) {
  LogFile log;
  const auto logged = [&](win32::DWORD error) {
    machine->gate.FailCall("GetLocalTime", 1, win32::ERROR_DISK_FULL);  // the log's own calls leave other errors
    win32::SetLastError(error);
    LogWithSystemError(u"Failed. ");
    EXPECT_EQ(win32::GetLastError(), error);
    machine->gate.ClearFailures();
    const std::u16string text = Text();
    return text.substr(text.rfind(u"] ") + 2);
  };
  EXPECT_EQ(logged(win32::ERROR_ACCESS_DENIED), u"Failed. Access is denied.\r\n");
  EXPECT_EQ(logged(0x2FFFFFFF), u"Failed. ");
  // Network errors have a table of their own, which is taken from the system's folder only.
  std::string loaded;
  machine->gate.Trace([&](const std::string& line) {
    if (line.starts_with("LoadLibraryExW")) loaded += line.substr(0, line.find(" ="));
  });
  EXPECT_EQ(logged(win32::NERR_NetNameNotFound), u"Failed. This shared resource does not exist.\r\n");
  machine->gate.Trace({});
  EXPECT_EQ(loaded, "LoadLibraryExW(\"C:\\Windows\\system32\\netmsg.dll\", null, 1)");
  machine->gate.FailCall("GetSystemDirectoryW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(logged(win32::NERR_NetNameNotFound), u"Failed. ");
}

// Whatever fails of it, the log never stops a run.
TEST_F(LogFileTest, FailuresAreSilent) {
  for (const auto* call : {"OpenSCManagerW", "OpenServiceW", "QueryServiceConfigW", "CreateFileW", "GetFileSize",
                           "SetFilePointer", "WriteFile"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    LogFile log;
    Log(u"line");
    machine->gate.ClearFailures();
  }
  EXPECT_EQ(LogFile::Current(), nullptr);
  Log(u"no run, no log");
  machine.reset();
  machine = test::InstalledMachine({.product = false});
  EXPECT_EQ(test::RunProgram(*machine, {u"/GetRHStatus"}).exitCode, 1);
  EXPECT_EQ(test::LogBytes(*machine), "");
}

TEST_F(LogFileTest, FindsItsFolderInAnyFormOfTheServicesPath) {
  const std::pair<std::u16string, std::u16string> paths[] = {
      {u"\"C:\\Windows\\Product x\\svc.exe\" -k all", u"C:\\Windows\\Product x\\"},
      {u"\"C:\\Windows\\svc.exe\"", u"C:\\Windows\\"},
      {u"C:\\Windows\\svc.exe", u"C:\\Windows\\"},
      {u"\"C:\\a\\svc.exe\" \"C:\\b\\c\"", u"C:\\a\\svc.exe\" \"C:\\b\\"},  // up to the last quotation mark
      {u"svc.exe", u""},  // not a file in whatever folder is the current one
      {u"\"", u""}};
  for (const auto& [path, folder] : paths) {
    machine->services().Install(u"QuillbayService", path, win32::SERVICE_DEMAND_START);
    EXPECT_EQ(ServiceFolder(kQuillbayService), folder) << emulated::Utf8(path);
  }
  // A path that does not fit is no path.
  const auto pathOfLog = [&](std::size_t length) {
    machine->services().Install(u"QuillbayService", u"C:\\" + std::u16string(length - 11, u'x') + u"\\svc.exe",
                                win32::SERVICE_DEMAND_START);
    const LogFile log;
    return std::u16string(LogPath()).size();
  };
  EXPECT_EQ(pathOfLog(259), 259u);
  EXPECT_EQ(pathOfLog(260), 0u);
}

}  // namespace
