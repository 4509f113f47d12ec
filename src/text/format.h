// printf-style texts in UTF-16, checked: a literal text whose conversions do not match its arguments does not compile.
//
// The conversions are %d %u %x %X (integers), %s %ls (texts), %c (a character) and %%, each with an optional width that
// pads with blanks on the left ("%4d"), or with zeros ("%02x"). A null text prints "(null)".
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

enum class ArgumentKind { Integer, Character, Text };

template <typename T>
concept TextArgument = std::convertible_to<const T&, std::u16string_view>;
template <typename T>
concept IntegerArgument =
    std::integral<T> && !std::same_as<T, char16_t> && !std::same_as<T, char> && !std::same_as<T, wchar_t>;

// One argument of a text. Refers to the text it is made from.
class FormatArgument {
 public:
  template <IntegerArgument T>
  FormatArgument(T value)
      : kind_(ArgumentKind::Integer),
        // %d shows 32-bit values with a sign and %u and %x show them without, as C does, whatever the argument's type.
        signed_(sizeof(T) > 4 ? static_cast<std::int64_t>(value) : static_cast<std::int32_t>(value)),
        unsigned_(sizeof(T) > 4 ? static_cast<std::uint64_t>(value) : static_cast<std::uint32_t>(value)) {}
  FormatArgument(char16_t character) : kind_(ArgumentKind::Character), unsigned_(character) {}
  FormatArgument(const char16_t* text) : kind_(ArgumentKind::Text), text_(text ? text : u"(null)") {}
  FormatArgument(std::u16string_view text) : kind_(ArgumentKind::Text), text_(text) {}
  FormatArgument(const std::u16string& text) : kind_(ArgumentKind::Text), text_(text) {}

  ArgumentKind kind() const { return kind_; }
  std::int64_t AsSigned() const { return signed_; }
  std::uint64_t AsUnsigned() const { return unsigned_; }
  std::u16string_view text() const { return text_; }

 private:
  ArgumentKind kind_;
  std::int64_t signed_ = 0;
  std::uint64_t unsigned_ = 0;
  std::u16string_view text_;
};

template <typename T>
constexpr ArgumentKind KindOf() {
  using Bare = std::decay_t<T>;
  if constexpr (std::same_as<Bare, char16_t>) {
    return ArgumentKind::Character;
  } else if constexpr (IntegerArgument<Bare>) {
    return ArgumentKind::Integer;
  } else {
    static_assert(TextArgument<T>, "not an argument for a text");
    return ArgumentKind::Text;
  }
}

// A conversion found in a text.
struct Conversion {
  std::size_t begin = std::u16string_view::npos;  // of the percent sign; npos: there is none
  std::size_t end = 0;                            // behind the conversion
  char16_t letter = 0;                            // d u x X s c %; 0 for one that is not known
  std::size_t width = 0;
  bool zeros = false;

  constexpr ArgumentKind Kind() const {
    return letter == u's' ? ArgumentKind::Text : letter == u'c' ? ArgumentKind::Character : ArgumentKind::Integer;
  }
};

// The next conversion at or behind `from`.
constexpr Conversion FindConversion(std::u16string_view text, std::size_t from) {
  Conversion found;
  // Not by find(): under the sanitizers GCC takes that for no constant expression when the text is a named constant.
  std::size_t at = from;
  while (at < text.size() && text[at] != u'%') ++at;
  if (at == text.size()) return found;
  found.begin = at++;
  found.zeros = at < text.size() && text[at] == u'0';
  // Three digits are the widest; more are no conversion of ours.
  for (int digits = 0; digits < 3 && at < text.size() && text[at] >= u'0' && text[at] <= u'9'; ++at, ++digits)
    found.width = found.width * 10 + static_cast<std::size_t>(text[at] - u'0');
  const bool longText = at + 1 < text.size() && text[at] == u'l' && text[at + 1] == u's';
  if (longText) ++at;
  if (at < text.size() && std::u16string_view(u"duxXsc%").find(text[at]) != std::u16string_view::npos)
    found.letter = text[at++];
  found.end = at;
  return found;
}

// Whether the conversions of a text are exactly these, in this order.
constexpr bool FormatMatches(std::u16string_view text, std::span<const ArgumentKind> kinds) {
  std::size_t used = 0;
  for (Conversion next = FindConversion(text, 0); next.begin != std::u16string_view::npos;
       next = FindConversion(text, next.end)) {
    if (next.letter == 0) return false;
    if (next.letter == u'%') continue;
    if (used == kinds.size() || kinds[used] != next.Kind()) return false;
    ++used;
  }
  return used == kinds.size();
}

// A text of the string table, or another that is known only when the program runs. Should it not match its arguments, a
// conversion without its argument prints nothing and an argument without a conversion is ignored.
struct TableText {
  explicit TableText(std::u16string_view value) : text(value) {}
  std::u16string_view text;
};

// The text for arguments of these types.
template <typename... Arguments>
class CheckedFormat {
 public:
  template <std::size_t size>
  consteval CheckedFormat(const char16_t (&literal)[size]) : text_(literal, size - 1) {
    constexpr std::array<ArgumentKind, sizeof...(Arguments)> kinds{KindOf<Arguments>()...};
    if (!FormatMatches(text_, kinds)) throw "the conversions of the text do not match its arguments";
  }
  CheckedFormat(TableText text) : text_(text.text) {}
  std::u16string_view text() const { return text_; }

 private:
  std::u16string_view text_;
};
template <typename... Arguments>
using FormatFor = CheckedFormat<std::type_identity_t<Arguments>...>;

// The text with its arguments put in.
std::u16string FormatArguments(std::u16string_view format, std::span<const FormatArgument> arguments);

template <typename... Arguments>
std::u16string FormatText(FormatFor<Arguments...> format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
  return FormatArguments(format.text(), list);
}

// The text as it fits a buffer of so many characters, terminator included: cut, never inside a surrogate pair.
std::u16string CutToBuffer(std::u16string text, std::size_t bufferCharacters);
