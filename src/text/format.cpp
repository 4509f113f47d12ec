#include "text/format.h"

namespace {

std::u16string Digits(std::uint64_t value, unsigned base, bool upperCase) {
  const char16_t* const digits = upperCase ? u"0123456789ABCDEF" : u"0123456789abcdef";
  std::u16string text;
  do {
    text.insert(text.begin(), digits[value % base]);
    value /= base;
  } while (value != 0);
  return text;
}

std::u16string SignedDigits(std::int64_t value) {
  if (value >= 0) return Digits(static_cast<std::uint64_t>(value), 10, false);
  return u"-" + Digits(std::uint64_t{0} - static_cast<std::uint64_t>(value), 10, false);
}

std::u16string Convert(const Conversion& conversion, const FormatArgument& argument) {
  switch (conversion.letter) {
    case u'd':
      return SignedDigits(argument.AsSigned());
    case u'u':
      return Digits(argument.AsUnsigned(), 10, false);
    case u'x':
      return Digits(argument.AsUnsigned(), 16, false);
    case u'X':
      return Digits(argument.AsUnsigned(), 16, true);
    case u'c':
      return {static_cast<char16_t>(argument.AsUnsigned())};
    default:
      return std::u16string(argument.text());
  }
}

void Pad(const Conversion& conversion, std::u16string& text) {
  if (text.size() >= conversion.width) return;
  const bool zeros = conversion.zeros && conversion.Kind() == ArgumentKind::Integer;
  const bool negative = zeros && !text.empty() && text.front() == u'-';
  text.insert(negative ? 1 : 0, conversion.width - text.size(), zeros ? u'0' : u' ');
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }

}  // namespace

std::u16string FormatArguments(std::u16string_view format, std::span<const FormatArgument> arguments) {
  std::u16string out;
  std::size_t copied = 0;
  std::size_t used = 0;
  for (Conversion next = FindConversion(format, 0); next.begin != std::u16string_view::npos;
       next = FindConversion(format, next.end)) {
    out += format.substr(copied, next.begin - copied);
    copied = next.end;
    if (next.letter == 0) {
      out += format.substr(next.begin, next.end - next.begin);
    } else if (next.letter == u'%') {
      out += u'%';
    } else if (used < arguments.size()) {
      const FormatArgument& argument = arguments[used++];
      if (argument.kind() != next.Kind()) continue;
      if (next.Kind() == ArgumentKind::Text && next.width == 0) {
        out += argument.text();
        continue;
      }
      std::u16string text = Convert(next, argument);
      Pad(next, text);
      out += text;
    }
  }
  return out += format.substr(copied);
}

std::u16string CutToBuffer(std::u16string text, std::size_t bufferCharacters) {
  if (text.size() < bufferCharacters) return text;
  text.resize(bufferCharacters - 1);
  if (!text.empty() && IsHighSurrogate(text.back())) text.pop_back();
  return text;
}
