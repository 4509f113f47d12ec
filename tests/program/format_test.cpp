// The formatter of the log's and the console's texts.
#include "program/everything.h"

namespace {

constexpr ArgumentKind kText = ArgumentKind::Text, kInteger = ArgumentKind::Integer;

TEST(Format, ConvertsAsCDoes) {
  EXPECT_EQ(FormatText(u"no conversion"), u"no conversion");
  EXPECT_EQ(FormatText(u"%d %d %d", 0, -7, std::int32_t{-2147483647 - 1}), u"0 -7 -2147483648");
  EXPECT_EQ(FormatText(u"%u %x %X", -1, 255, 0xBEEFu), u"4294967295 ff BEEF");
  EXPECT_EQ(FormatText(u"%d", std::uint32_t{0x80070005}), u"-2147024891");  // an HRESULT as C shows it
  EXPECT_EQ(FormatText(u"%d %u", std::int64_t{-5000000000}, std::uint64_t{18446744073709551615u}),
            u"-5000000000 18446744073709551615");
  EXPECT_EQ(FormatText(u"[%2d:%3d:%4d]", 9, 7, 12345), u"[ 9:  7:12345]");
  EXPECT_EQ(FormatText(u"[%02x:%04d:%5s]", 10, -7, u"ab"), u"[0a:-007:   ab]");
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
}

TEST(Format, ChecksLiteralsWhenTheyAreCompiled) {
  static_assert(FormatMatches(u"%d%% %ls %c", std::array{kInteger, kText, ArgumentKind::Character}));
  static_assert(!FormatMatches(u"%d", std::array{kText}));
  static_assert(!FormatMatches(u"%d", std::array<ArgumentKind, 0>{}));
  static_assert(!FormatMatches(u"", std::array{kText}));
  static_assert(!FormatMatches(u"%n", std::array{kInteger}));
  static_assert(!FormatMatches(u"100 %", std::array<ArgumentKind, 0>{}));
}

TEST(Format, CutsToABufferButNoCharacterInHalves) {
  EXPECT_EQ(CutToBuffer(u"abc", 4), u"abc");
  EXPECT_EQ(CutToBuffer(u"abcd", 4), u"abc");
  EXPECT_EQ(CutToBuffer(u"ab\U0001F600", 4), u"ab");
}

}  // namespace
