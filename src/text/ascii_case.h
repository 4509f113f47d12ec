// Texts compared without the case of the letters A to Z: words of the command line, names in the registry, paths. Other
// letters have no case here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

std::u16string LowerAscii(std::u16string_view text);
bool EqualIgnoringAsciiCase(std::u16string_view a, std::u16string_view b);
// Is one of these the text?
bool ContainsIgnoringAsciiCase(const std::vector<std::u16string>& texts, std::u16string_view text);
bool StartsWithIgnoringAsciiCase(std::u16string_view text, std::u16string_view start);
