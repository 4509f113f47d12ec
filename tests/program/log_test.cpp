// The log file.
#include <gtest/gtest.h>

#include <algorithm>

#include "report/log.h"
#include "support/program.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/services.h"

namespace {

constexpr emulated::FileTime kNineOClock = 132223104000000000 + 9LL * 3600 * 10000000;  // on 1 January 2020

class LogFileTest : public ::testing::Test {
 protected:
  // What a log now holds, from the byte-order mark on.
  std::u16string Text() {
    std::u16string text;
    const std::string bytes = test::LogBytes(*machine);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
      text +=
          static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    return text;
  }
  std::u16string Prefix() {
    return FormatText(u"\r\n[ 9: 5: 3:  7][P%4d,T%4d] ", win32::GetCurrentProcessId(), win32::GetCurrentThreadId());
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
  EXPECT_EQ(Text(), u"\uFEFF" + Prefix() + u"first 1");
  {
    LogFile log;
    Log(u"second");
  }
  const std::u16string both = u"\uFEFF" + Prefix() + u"first 1" + Prefix() + u"second";
  EXPECT_EQ(Text(), both);
  // A run that does not get to the end of the file writes nothing, least of all at its beginning.
  machine->gate.FailCall("SetFilePointer", 1, win32::ERROR_ACCESS_DENIED);
  LogFile log;
  Log(u"third");
  EXPECT_EQ(Text(), both);
}

TEST_F(LogFileTest, OthersMayHaveItOpen) {
  LogFile log;
  const auto reader = machine->files().OpenForeign(77, LogPath(), win32::GENERIC_READ | win32::GENERIC_WRITE,
                                                   win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE);
  ASSERT_TRUE(reader);
  const LogFile second;
  Log(u"both");
  EXPECT_TRUE(Text().ends_with(u"both"));
}

TEST_F(LogFileTest, CutsWhatDoesNotFit) {
  LogFile log;
  Log(u"%ls", std::u16string(5000, u'~'));
  Log(u"next");
  const std::u16string text = Text();
  EXPECT_EQ(std::count(text.begin(), text.end(), u'~'), 1023);
  EXPECT_TRUE(text.ends_with(u"next"));
}

TEST_F(LogFileTest, TellsTheErrorOfTheCallThatFailed) {
  LogFile log;
  machine->gate.FailCall("GetLocalTime", 1, win32::ERROR_DISK_FULL);  // the log's own calls leave other errors
  win32::SetLastError(win32::ERROR_ACCESS_DENIED);
  LogWithSystemError(u"#ERROR: Failed. ");
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_ACCESS_DENIED);
  EXPECT_TRUE(Text().ends_with(u"#ERROR: Failed. Access is denied.\r\n"));
  win32::SetLastError(win32::ERROR_FILE_NOT_FOUND);
  Log(u"plain");
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_FILE_NOT_FOUND);
  win32::SetLastError(0x2FFFFFFF);
  LogWithSystemError(u"no words");
  EXPECT_TRUE(Text().ends_with(u"no words"));
}

TEST_F(LogFileTest, IsOffWithoutTheService) {
  machine.reset();
  machine = test::InstalledMachine({.product = false});
  const auto run = test::RunProgram(*machine, {u"/GetRHStatus"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(test::LogBytes(*machine), "");
  EXPECT_EQ(run.log, u"");
}

TEST_F(LogFileTest, FindsItsFolderInAnyFormOfTheServicesPath) {
  const auto pathWith = [&](std::u16string_view imagePath) {
    machine->services().Install(u"QuillbayService", imagePath, win32::SERVICE_DEMAND_START);
    LogFile log;
    return std::u16string(LogPath());
  };
  EXPECT_EQ(pathWith(u"\"C:\\Windows\\Product x\\svc.exe\" -k all"), u"C:\\Windows\\Product x\\QBC.log");
  EXPECT_EQ(pathWith(u"C:\\Windows\\svc.exe"), u"C:\\Windows\\QBC.log");
  EXPECT_EQ(pathWith(u"svc.exe"), u"");  // not a file in whatever folder is the current one
  EXPECT_EQ(pathWith(u"\""), u"");
  EXPECT_EQ(pathWith(u"C:\\" + std::u16string(300, u'x') + u"\\svc.exe"), u"");
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
}

TEST_F(LogFileTest, LoadsNetworkMessagesFromTheSystemFolderOnly) {
  LogFile log;
  std::string loaded;
  machine->gate.Trace([&](const std::string& line) {
    if (line.find("LoadLibraryExW") != std::string::npos) loaded += line;
  });
  win32::SetLastError(win32::NERR_NetNameNotFound);
  LogWithSystemError(u"share ");
  machine->gate.Trace({});
  EXPECT_NE(loaded.find("\"C:\\Windows\\system32\\netmsg.dll\""), std::string::npos) << loaded;
}

}  // namespace
