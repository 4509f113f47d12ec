#include "win32/emulated/text.h"

namespace emulated {

namespace {

void AppendUtf8(std::string& to, char32_t c) {
  if (c < 0x80) {
    to += static_cast<char>(c);
    return;
  }
  const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  const char32_t lead = more == 1 ? 0xC0 : more == 2 ? 0xE0 : 0xF0;
  to += static_cast<char>(lead | (c >> (6 * more)));
  for (int i = more - 1; i >= 0; --i) to += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F));
}

char16_t LowerAscii(char16_t unit) { return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit; }

}  // namespace

std::string Utf8(std::u16string_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    const bool high = c >= 0xD800 && c < 0xDC00, low = c >= 0xDC00 && c < 0xE000;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    } else if (high || low) {
      c = 0xFFFD;
    }
    AppendUtf8(utf8, c);
  }
  return utf8;
}

std::u16string Utf16(std::string_view text) {
  std::u16string utf16;
  utf16.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80         ? 1
                               : (lead >> 5) == 6  ? 2
                               : (lead >> 4) == 14 ? 3
                               : (lead >> 3) == 30 ? 4
                                                   : 0;
    char32_t c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
    bool good = length != 0 && i + length <= text.size();
    for (std::size_t k = 1; good && k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      good = (next >> 6) == 2;
      c = (c << 6) | (next & 0x3F);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (!good || c < kSmallest[length] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
      utf16 += u'\xFFFD';
      ++i;
      continue;
    }
    i += length;
    if (c < 0x10000) {
      utf16 += static_cast<char16_t>(c);
    } else {
      utf16 += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      utf16 += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  return utf16;
}

std::u16string LowerAscii(std::u16string_view text) {
  std::u16string lower(text);
  for (char16_t& unit : lower) unit = LowerAscii(unit);
  return lower;
}

bool EqualAsciiNoCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i] && LowerAscii(a[i]) != LowerAscii(b[i])) return false;
  return true;
}

bool StartsWithAsciiNoCase(std::u16string_view text, std::u16string_view prefix) {
  return text.size() >= prefix.size() && EqualAsciiNoCase(text.substr(0, prefix.size()), prefix);
}

bool IsGuidText(std::u16string_view text) {
  if (text.size() != 38 || text.front() != u'{' || text.back() != u'}') return false;
  for (std::size_t i = 1; i < 37; ++i) {
    const char16_t unit = text[i];
    const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
    const bool hex = (unit >= u'0' && unit <= u'9') || (unit >= u'A' && unit <= u'F') || (unit >= u'a' && unit <= u'f');
    if (dash ? unit != u'-' : !hex) return false;
  }
  return true;
}

}  // namespace emulated
