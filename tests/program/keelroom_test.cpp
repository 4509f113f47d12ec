// Keelroom: its volumes as the registry tells them, and the version of its driver as the driver's file tells it.
#include "program/everything.h"

namespace {

using emulated::Bytes;
using Drives = std::vector<std::u16string>;

constexpr std::u16string_view kParameters = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Keeldisk\\Parameters";
constexpr std::u16string_view kVolume = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Keeldisk\\Parameters\\Volume1";
constexpr const char16_t* kDriver = u"C:\\Windows\\System32\\drivers\\Keeldisk.sys";

class Keelroom : public test::Engine {
 protected:
  ~Keelroom() override { EXPECT_EQ(machine->objects.all().size(), open); }

  Drives ReadDrives() {
    Drives drives{u"an old answer"};
    const bool any = ReadKeelroomVolumes(drives);
    EXPECT_EQ(any, !drives.empty());
    return drives;
  }
  // The calls that the question makes, and what it answers when each is refused in turn.
  template <typename Question>
  std::vector<std::pair<std::string, int>> AnswersWhenRefused(Question question) {
    std::vector<std::pair<std::string, int>> answers;
    machine->gate.Observe([&](const char* name, std::uint64_t) { answers.emplace_back(name, 1); });
    EXPECT_EQ(question(), 1);
    machine->gate.Observe({});
    for (std::size_t call = 0; call < answers.size(); ++call) {
      if (answers[call].first == "RegCloseKey") continue;
      machine->gate.FailCall(call + 1, win32::ERROR_ACCESS_DENIED);
      answers[call].second = question();
      machine->gate.ClearFailures();
    }
    return answers;
  }

  const std::size_t open = machine->objects.all().size();
};

TEST_F(Keelroom, KnowsItsDrives) {
  for (char16_t letter = u'A'; letter <= u'Z'; ++letter) EXPECT_FALSE(IsKeelroomDrive(letter));
  machine->registry().CreateKey(kParameters);
  EXPECT_EQ(ReadDrives(), Drives{});
  test::AddKeelroomVolume(*machine, u"Volume2", u"T:");
  std::string hides;
  for (const auto& [call, answer] : AnswersWhenRefused([] { return IsKeelroomDrive(u'T'); }))
    hides += answer ? '.' : 'x';
  EXPECT_EQ(hides, "xxx.xx........") << "the keys, and the two questions for MountAs";
  test::AddKeelroomVolume(*machine, u"Volume10", u"k:");
  machine->registry().SetDword(kVolume, u"Size", 100);  // mounted nowhere
  EXPECT_EQ(ReadDrives(), (Drives{u"", u"k:", u"T:"}));
  for (const char16_t letter : {u'T', u't', u'K', u'k'}) EXPECT_TRUE(IsKeelroomDrive(letter));
  for (const char16_t letter : {u'S', u'\\', u':', u'\0', u'\u212A'}) EXPECT_FALSE(IsKeelroomDrive(letter));
}

TEST_F(Keelroom, TakesTheValueAsItStands) {
  const std::tuple<win32::DWORD, Bytes, const char16_t*> cases[] = {
      {win32::REG_SZ, {'T', 0, ':', 0}, u"T:"},            // no terminator
      {win32::REG_SZ, {'T', 0, ':', 0, 0}, u"T:"},         // half of one
      {win32::REG_SZ, {'T', 0, ':'}, u"T"},                // half of the colon
      {win32::REG_BINARY, {'T', 0, ':', 0, 0, 0}, u"T:"},  // types are nobody's business
      {win32::REG_MULTI_SZ, {'T', 0, ':', 0, 0, 0, 'U', 0, ':', 0, 0, 0, 0, 0}, u"T:"},
      {win32::REG_EXPAND_SZ, {'T', 0, ':', 0, '\\', 0, 0, 0}, u"T:\\"},  // and this is another form
      {win32::REG_SZ, {}, u""}};
  for (const auto& [type, data, drive] : cases) {
    machine->registry().Set(kVolume, u"MountAs", type, data);
    EXPECT_EQ(ReadDrives(), Drives{drive}) << data.size();
  }
  // A number longer than it should be spoils neither the other values nor anything beside it.
  machine->registry().Set(kVolume, u"Extents", win32::REG_BINARY, Bytes(4096, 0xFF));
  machine->registry().Set(kVolume, u"MountAs", win32::REG_SZ, Bytes(65536, 'x'));
  EXPECT_EQ(ReadDrives(), Drives{std::u16string(32768, u'\u7878')});
}

TEST_F(Keelroom, TellsOldDriversFromNewOnes) {
  FileVersionRecord record;
  const std::tuple<const char*, std::u16string, int> cases[] = {{"none", u"", 0},
                                                                {"8.32", u"8.32.9.9", 0},
                                                                {"8.33", u"8.33.0.0", 1},
                                                                {"9.0", u"9.0.0.0", 1},
                                                                {"7.99", u"7.99.1.2", 0}};
  EXPECT_EQ(IsNewKeelroomVersion(), 0);
  EXPECT_EQ(LogText(), u"") << "no driver is an old one";
  for (const auto& [driver, text, isNew] : cases) {
    test::InstallKeeldisk(*machine, driver);
    EXPECT_EQ(IsNewKeelroomVersion(), isNew) << driver;
    EXPECT_TRUE(LogText().ends_with(
        u"] #ERROR: Failed to find the version of Keeldisk driver at C:\\Windows\\system32\\drivers\\Keeldisk.sys"));
    EXPECT_EQ(GetFileVersionRecord(kDriver, record), text.empty() ? 0 : 1);
    EXPECT_EQ(record.text, text);
  }
  EXPECT_EQ(std::ranges::count(LogText(), u'['), 2) << "only the first one has no version";
  EXPECT_EQ((std::array{record.major, record.minor, record.build, record.revision}),
            (std::array<win32::WORD, 4>{7, 99, 1, 2}));
  EXPECT_EQ(record.majorText + record.minorText + record.buildText + record.revisionText, u"79912");
  test::InstallKeeldisk(*machine, "9.0");
  const auto answers = AnswersWhenRefused(IsNewKeelroomVersion);
  EXPECT_EQ(answers.size(), 5u);
  for (const auto& [call, answer] : answers) EXPECT_EQ(answer, 0) << call;
}

TEST_F(Keelroom, TrustsNoDriverFile) {
  const Bytes whole = test::KeeldiskDriver("9.0");
  const Bytes signature{0xBD, 0x04, 0xEF, 0xFE};
  const auto fixed = std::search(whole.begin(), whole.end(), signature.begin(), signature.end());
  ASSERT_NE(fixed, whole.end());
  const auto at = static_cast<std::size_t>(fixed - whole.begin());
  const std::size_t block = at - 40;  // its length, the length of its value, its type and its name are before that
  const auto hasVersion = [&](const Bytes& driver) {
    test::PutKeeldisk(*machine, driver);
    FileVersionRecord record;
    return GetFileVersionRecord(kDriver, record) == 1;
  };
  for (std::size_t size = 0; size < at + 52; size += 61)
    EXPECT_FALSE(hasVersion(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)))) << size;
  for (std::size_t offset = 0; offset + 1 < at; ++offset)
    for (const unsigned value : {0u, 5u, 51u, 53u, 91u, 0xFFFFu}) {
      const bool tellsLength = offset == block || offset == block + 2;  // of the block, and of its value
      if (!tellsLength && (value != 0xFFFF || (offset >= 1024 && offset < block - 256))) continue;
      Bytes driver = whole;
      driver[offset] = static_cast<std::uint8_t>(value & 0xFF);
      driver[offset + 1] = static_cast<std::uint8_t>(value >> 8);
      // Whatever else is wrong in it: some answer, and nothing is read that is not there.
      EXPECT_FALSE(hasVersion(driver) && tellsLength) << offset << ' ' << value;
    }
}

}  // namespace
