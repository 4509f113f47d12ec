#include "text/ascii_case.h"

#include <algorithm>

namespace {

char16_t Lower(char16_t unit) {
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
}

}  // namespace

std::u16string LowerAscii(std::u16string_view text) {
  std::u16string lowered(text);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(), Lower);
  return lowered;
}

bool EqualIgnoringAsciiCase(std::u16string_view a, std::u16string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char16_t x, char16_t y) { return Lower(x) == Lower(y); });
}

bool ContainsIgnoringAsciiCase(const std::vector<std::u16string>& texts, std::u16string_view text) {
  return std::ranges::any_of(texts, [&](std::u16string_view one) { return EqualIgnoringAsciiCase(one, text); });
}

bool StartsWithIgnoringAsciiCase(std::u16string_view text, std::u16string_view start) {
  return EqualIgnoringAsciiCase(text.substr(0, start.size()), start);
}
