// UTF-8, for what other programs read.
#pragma once

#include <string>
#include <string_view>

// The text in UTF-8. Half a surrogate pair, which a file's name may have, becomes U+FFFD.
std::string ToUtf8(std::u16string_view text);
