// Texts of the string table, their format, and their ways to the console and into the log.
#include "program/everything.h"

namespace {

class Report : public ::testing::Test {
 protected:
  Report() { test::UseProgramModule(*machine); }
  // What the log now holds, from the byte-order mark on.
  std::u16string Text() {
    const std::string bytes = test::LogBytes(*machine);
    std::u16string text(bytes.size() / 2, u'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * 2);
    return text;
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

// A sum of each eight texts from 101 on, written down apart from the string table (FNV-1a over their characters and a
// zero behind each): other tests may name a text by its number.
TEST_F(Report, EveryTextSaysWhatItIsToSay) {
  unsigned id = 101;
  for (const std::uint32_t agreed : {0xA7035649U, 0x7FF3004EU, 0xE63EF54FU, 0x0EDED663U, 0xBCF375E7U, 0xD437D1E9U,
                                     0x44933D6DU, 0xFDFAFDA2U, 0x85EE7B96U, 0xFE3726A4U, 0x8BBBEBA0U, 0xD968F11DU}) {
    std::uint32_t sum = 2166136261;
    std::u16string texts;
    for (const unsigned end = id + 8; id < end; ++id) texts += LoadResourceString(id) + u'\0';
    for (const char16_t unit : texts) sum = (sum ^ unit) * 16777619;
    EXPECT_EQ(sum, agreed) << emulated::Utf8(texts);
  }
}

TEST_F(Report, MissingTextsAreEmpty) {
  for (const unsigned id : {0u, 100u, 197u, 5000u, 0xFFFEFu, 0xFFFFFFFFu}) EXPECT_EQ(LoadResourceString(id), u"") << id;
  win32::SetLastError(0);
  EXPECT_EQ(LoadResourceString(0xFFFF0), u"");
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_RESOURCE_NAME_NOT_FOUND);
  for (const char* call : {"LoadResource", "LockResource"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(LoadResourceString(137), u"");
  }
}

TEST_F(Report, DoesNotReadBeyondADamagedBlock) {
  // The block of 96 to 111: the entry of 101 claims more characters than there are; the one of 100 is whole.
  static constexpr unsigned char block[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 'x', 0, 200, 0, 'y', 0};
  machine->module.resources = {{u"#6", u"#7", 0, block}};
  EXPECT_EQ(LoadResourceString(100), u"x");
  EXPECT_EQ(LoadResourceString(101), u"");
  EXPECT_EQ(LoadResourceString(110), u"");
}

TEST_F(Report, WritesTheOemCodePage) {
  EXPECT_TRUE(ConsolePrint(u"\u00fc\u00e9\n\u4e2d"));
  EXPECT_EQ(machine->console, "\x81\x82\r\n?");
  EXPECT_TRUE(ConsoleFormat(u"%d. %ls", 7, u"\u00fc"));
  EXPECT_EQ(machine->console, "\x81\x82\r\n?7. \x81");
  machine->console.clear();
  const ConsoleLines lines;
  EXPECT_TRUE(lines.Print(u"1\n", 1) && lines.Print(u"\u00fc\n", 1));
  EXPECT_EQ(machine->console, "");
  EXPECT_TRUE(ConsolePrint(u"between\n") && lines.Print(u"2\n", 1 << 20));
  EXPECT_EQ(machine->console, "1\r\n\x81\r\nbetween\r\n2\r\n");
  machine->console.clear();
  EXPECT_TRUE(ConsolePrint(std::u16string(20'000, u'x') + u"end"));
  EXPECT_EQ(machine->console, std::string(20'000, 'x') + "end") << "more than a console takes at once";
  machine->console.clear();
  machine->gate.FailCall("WriteFile", 2, win32::ERROR_BROKEN_PIPE);
  EXPECT_TRUE(ConsolePrint(std::u16string(20'000, u'x')));
  EXPECT_EQ(machine->console, std::string(8192, 'x')) << "who reads has gone";
  for (const std::uint64_t nth : {1u, 2u}) {
    machine->gate.FailCall("WideCharToMultiByte", nth, win32::ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(ConsolePrint(u"text"));
    machine->gate.ClearFailures();
  }
}

TEST_F(Report, BeginsWithAByteOrderMarkAndIsAppendedTo) {
  machine->SetNow(132223104000000000 + (9 * 3600 + 5 * 60 + 3) * 10000000LL + 70000);  // on 1 January 2020
  const auto line = [](std::u16string_view text) {
    return FormatText(u"\r\n[ 9: 5: 3:  7][P%4d,T%4d] %ls", win32::GetCurrentProcessId(), win32::GetCurrentThreadId(),
                      text);
  };
  {
    LogFile log;
    EXPECT_EQ(std::u16string(LogPath()), u"C:\\Program Files\\Velmora\\Quillbay\\QBC.log");
    Log(u"first %d", 1);
  }
  EXPECT_EQ(Text(), u"\uFEFF" + line(u"first 1"));
  const auto logged = [&](std::u16string_view before) {
    const emulated::ByteView bytes{reinterpret_cast<const std::uint8_t*>(before.data()), before.size() * 2};
    emulated::WriteWholeFile(*machine->SystemVolume()->volume, u"\\Program Files\\Velmora\\Quillbay\\QBC.log", bytes);
    LogFile log;
    Log(u"next");
    return Text();
  };
  EXPECT_EQ(logged(u""), u"\uFEFF" + line(u"next"));
  EXPECT_EQ(logged(u"another's"), u"another's" + line(u"next"));
  // A run that does not get to the end of the file writes nothing, least of all at its beginning.
  machine->gate.FailCall("SetFilePointer", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(logged(u"before"), u"before");
}

// Whichever thread it comes from, a line is one piece, with the text of its error.
TEST_F(Report, LinesAreNotMixed) {
  const LogFile log;
  const auto write = [] {
    for (int i = 0; i < 1000; ++i) {
      win32::SetLastError(win32::ERROR_ACCESS_DENIED);
      LogWithSystemError(u"#");
    }
  };
  machine->gate.Observe([](const char*, std::uint64_t) { std::this_thread::yield(); });
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
  const LogFile second;  // which another program may open at the same time
  Log(u"%ls", std::u16string(5000, u'~'));
  EXPECT_TRUE(Text().ends_with(u"] " + std::u16string(1023, u'~')));
}

TEST_F(Report, TellsTheErrorOfTheCallThatFailed) {
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
TEST_F(Report, FailuresAreSilent) {
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

TEST_F(Report, FindsItsFolderInAnyFormOfTheServicesPath) {
  for (const auto& [path, folder] :
       {std::pair(u"\"C:\\Windows\\Product x\\svc.exe\" -k all", u"C:\\Windows\\Product x\\"),
        {u"C:\\Windows\\svc.exe", u"C:\\Windows\\"},
        {u"\"C:\\a\\svc.exe\" \"C:\\b\\c\"", u"C:\\a\\svc.exe\" \"C:\\b\\"},  // up to the last quotation mark
        {u"svc.exe", u""},  // not a file in whatever folder is the current one
        {u"\"", u""}}) {
    machine->services().Install(u"QuillbayService", path, win32::SERVICE_DEMAND_START);
    EXPECT_EQ(ServiceFolder(kQuillbayService), folder) << emulated::Utf8(path);
  }
  for (const std::size_t length : {259u, 260u}) {
    machine->services().Install(u"QuillbayService", u"C:\\" + std::u16string(length - 11, u'x') + u"\\svc.exe",
                                win32::SERVICE_DEMAND_START);
    const LogFile log;
    EXPECT_EQ(std::u16string(LogPath()).size(), length == 259 ? 259u : 0u) << "a path that does not fit is no path";
  }
}

TEST(Format, ConvertsAsCDoes) {
  EXPECT_EQ(FormatText(u"%d %d %d", 0, -7, std::int32_t{-2147483647 - 1}), u"0 -7 -2147483648");
  EXPECT_EQ(FormatText(u"%u %x %X", -1, 255, 0xBEEFu), u"4294967295 ff BEEF");
  EXPECT_EQ(FormatText(u"%d", std::uint32_t{0x80070005}), u"-2147024891");  // an HRESULT as C shows it
  EXPECT_EQ(FormatText(u"%d %u", std::int64_t{-5000000000}, std::uint64_t{18446744073709551615u}),
            u"-5000000000 18446744073709551615");
  EXPECT_EQ(FormatText(u"[%3d:%4d:%02x:%04d:%5s]", 7, 12345, 10, -7, u"ab"), u"[  7:12345:0a:-007:   ab]");
  EXPECT_EQ(FormatText(u"%s%ls%c%%", u"a", std::u16string(u"b"), u'c'), u"abc%");
  EXPECT_EQ(FormatText(u"%ls", static_cast<const char16_t*>(nullptr)), u"(null)");
  EXPECT_EQ(FormatText(u"<%ls>", u"C:\\100%d\\%s%s%n"), u"<C:\\100%d\\%s%s%n>") << "an argument is no format";
}

TEST(Format, HandlesATextThatDoesNotFitItsArguments) {
  const auto format = [](std::u16string_view text, std::vector<FormatArgument> arguments) {
    return FormatArguments(text, arguments);
  };
  EXPECT_EQ(format(u"a %s b %d c", {u"x"}), u"a x b  c");  // one is missing
  EXPECT_EQ(format(u"a %s", {u"x", u"y"}), u"a x");        // one too many
  EXPECT_EQ(format(u"%s %d", {5, u"x"}), u" ");            // the wrong kinds
  EXPECT_EQ(format(u"%q %f %", {u"x"}), u"%q %f %");       // conversions that it does not know
  EXPECT_EQ(format(u"%99999999999d|%l", {1}), u"%99999999999d|%l");
  EXPECT_EQ(CutToBuffer(u"ab\U0001F600", 4), u"ab") << "no character is cut in halves";
  // Literals are checked when they are compiled.
  constexpr ArgumentKind text = ArgumentKind::Text, integer = ArgumentKind::Integer;
  static_assert(FormatMatches(u"%d%% %ls %c", std::array{integer, text, ArgumentKind::Character}));
  static_assert(!FormatMatches(u"%d", std::array{text}));
  static_assert(!FormatMatches(u"%d", std::array<ArgumentKind, 0>{}));
  static_assert(!FormatMatches(u"", std::array{text}));
  static_assert(!FormatMatches(u"%n", std::array{integer}));
  static_assert(!FormatMatches(u"100 %", std::array<ArgumentKind, 0>{}));
}

}  // namespace
