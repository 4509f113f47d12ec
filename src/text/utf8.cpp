#include "text/utf8.h"

namespace {

bool IsHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void Append(std::string& bytes, char32_t point) {
  const auto continuation = [&](int shift) { bytes += static_cast<char>(0x80 | (point >> shift & 0x3F)); };
  if (point < 0x80) {
    bytes += static_cast<char>(point);
  } else if (point < 0x800) {
    bytes += static_cast<char>(0xC0 | point >> 6);
    continuation(0);
  } else if (point < 0x10000) {
    bytes += static_cast<char>(0xE0 | point >> 12);
    continuation(6);
    continuation(0);
  } else {
    bytes += static_cast<char>(0xF0 | point >> 18);
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

}  // namespace

std::string ToUtf8(std::u16string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t point = text[i];
    const char32_t next = i + 1 < text.size() ? text[i + 1] : u'\0';
    if (IsHighSurrogate(point) && IsLowSurrogate(next)) {
      point = 0x10000 + ((point - 0xD800) << 10) + (next - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(point) || IsLowSurrogate(point)) {
      point = 0xFFFD;
    }
    Append(bytes, point);
  }
  return bytes;
}
