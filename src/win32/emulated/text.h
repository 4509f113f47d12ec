// Text between the host (UTF-8) and the machine (UTF-16), and comparison as the object manager does it.
#pragma once

#include <string>
#include <string_view>

namespace emulated {

// Lone surrogates and malformed bytes become U+FFFD.
std::string Utf8(std::u16string_view text);
std::u16string Utf16(std::string_view text);

// Letters A to Z only.
std::u16string LowerAscii(std::u16string_view text);
bool EqualAsciiNoCase(std::u16string_view a, std::u16string_view b);
bool StartsWithAsciiNoCase(std::u16string_view text, std::u16string_view prefix);

// u"{01234567-89AB-CDEF-0123-456789ABCDEF}", in letters of either case.
bool IsGuidText(std::u16string_view text);

}  // namespace emulated
