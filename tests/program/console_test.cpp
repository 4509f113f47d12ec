// Texts of the string table, and their way to the console.
#include "program/everything.h"

namespace {

// What the texts from 101 on say, written down apart from the string table: a sum of each (FNV-1a over its characters).
constexpr std::uint32_t kSums[] = {
    0x3CEB6B62, 0xBD1B3459, 0x47898880, 0x0B2BAAD0, 0x2A663B27, 0xE26E9CB7, 0x0F9647D1, 0xE3AD04D4, 0xED649E29,
    0xF569DA15, 0x15236294, 0xB58AFCB5, 0xC3B76947, 0xC429B945, 0x292D4DAB, 0x5BD6B8D3, 0x6158437F, 0x3B228CBA,
    0x6EBC9A78, 0xA9641C5B, 0xA2CC5D6B, 0x43D5A44E, 0xB58D0575, 0x64AB0A10, 0xDB0EC9AA, 0x11157713, 0x42171016,
    0xEC01B4ED, 0x821F1A9F, 0x2A24506D, 0xEADA0238, 0x2267FC60, 0x91D25923, 0x71B9EE34, 0x5522DB0D, 0x3DDEF7EE,
    0x3422772D, 0xCEB27C80, 0xAE0B3C4F, 0xA937506A, 0x04F14F38, 0xC2D2B120, 0x4B5E75AF, 0x508C9798, 0x8A6AE6C9,
    0x97F89745, 0x8A74A772, 0x42F134D3, 0x853360DA, 0x1FCA5CD9, 0x373A0A4E, 0x76AB6407, 0x9069C8E1, 0x0243D507,
    0x34A03C9D, 0xDF36129F, 0x6B1D4430, 0x4D3A8EE1, 0x4B903CF2, 0x99C4D130, 0x29720B02, 0xA0DD5903, 0x9067A244,
    0xE33EC231, 0x02ACF5EE, 0x39C27A35, 0xBFA99D51, 0xCDCB82A7, 0x501AAC8B, 0x1BAB3BC8, 0xCD841230, 0xB451CF21,
    0x854EDB3C, 0xB742D572, 0xD067D95B, 0x65EE5A39, 0xDC5839C9, 0xCB490769, 0x0B0E15CB, 0xBBF5094A, 0x997D2B16,
    0xA188BDDF, 0x4D6D6B47, 0x3273BD3C, 0x25D4377D, 0x23926D71, 0xF33F9017, 0xA200CF96, 0x8BB8B003, 0xC0D8479C,
    0x96106A37, 0x715B1D20, 0x313A0C88, 0x3EE2D9FD, 0x5C81A794, 0x58785321};

class Console : public ::testing::Test {
 protected:
  Console() { test::UseProgramModule(machine); }
  emulated::Machine machine;
};

// Other tests may name a text by its number.
TEST_F(Console, EveryTextSaysWhatItIsToSay) {
  unsigned id = 101;
  for (const std::uint32_t agreed : kSums) {
    std::uint32_t sum = 2166136261;
    for (const char16_t unit : LoadResourceString(id)) sum = (sum ^ unit) * 16777619;
    EXPECT_EQ(sum, agreed) << id << ": " << emulated::Utf8(LoadResourceString(id));
    ++id;
  }
  EXPECT_EQ(id, 197u);
}

TEST_F(Console, MissingTextsAreEmpty) {
  for (const unsigned id : {0u, 100u, 197u, 5000u, 0xFFFEFu, 0xFFFFFFFFu}) EXPECT_EQ(LoadResourceString(id), u"") << id;
  win32::SetLastError(0);
  EXPECT_EQ(LoadResourceString(0xFFFF0), u"");
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_RESOURCE_NAME_NOT_FOUND);
  for (const char* call : {"LoadResource", "LockResource"}) {
    machine.gate.FailCall(call, 1, win32::ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(LoadResourceString(137), u"");
  }
  EXPECT_TRUE(ConsolePrint(u""));
  EXPECT_EQ(machine.console, "");
}

TEST_F(Console, DoesNotReadBeyondADamagedBlock) {
  // The block of 96 to 111: the entry of 101 claims more characters than there are; the one of 100 is whole.
  static constexpr unsigned char block[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 'x', 0, 200, 0, 'y', 0};
  machine.module.resources = {{u"#6", u"#7", 0, block}};
  EXPECT_EQ(LoadResourceString(100), u"x");
  EXPECT_EQ(LoadResourceString(101), u"");
  EXPECT_EQ(LoadResourceString(110), u"");
}

TEST_F(Console, PrefersTheNeutralLanguageAndTakesAnyOther) {
  static constexpr unsigned char neutral[] = {1, 0, 'n', 0}, other[] = {1, 0, 'o', 0};
  machine.module.resources = {{u"#6", u"#2", 0x409, other}};
  EXPECT_EQ(LoadResourceString(16), u"o");
  machine.module.resources.push_back({u"#6", u"#2", 0, neutral});
  EXPECT_EQ(LoadResourceString(16), u"n");
}

TEST_F(Console, WritesTheOemCodePage) {
  EXPECT_TRUE(ConsolePrint(u"\u00fc\u00e9\n\u4e2d"));
  EXPECT_EQ(machine.console, "\x81\x82\r\n?");
  EXPECT_TRUE(ConsoleFormat(u"%d. %ls", 7, u"\u00fc"));
  EXPECT_EQ(machine.console, "\x81\x82\r\n?7. \x81");
  machine.console.clear();
  EXPECT_TRUE(ConsolePrint(std::u16string(20'000, u'x') + u"end"));
  EXPECT_EQ(machine.console, std::string(20'000, 'x') + "end") << "more than a console takes at once";
  machine.console.clear();
  machine.gate.FailCall("WriteFile", 2, win32::ERROR_BROKEN_PIPE);
  EXPECT_TRUE(ConsolePrint(std::u16string(20'000, u'x')));
  EXPECT_EQ(machine.console, std::string(8192, 'x')) << "who reads has gone";
  for (const std::uint64_t nth : {1u, 2u}) {
    machine.gate.FailCall("WideCharToMultiByte", nth, win32::ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(ConsolePrint(u"text"));
    machine.gate.ClearFailures();
  }
  EXPECT_EQ(machine.console.size(), 8192u);
}

}  // namespace
