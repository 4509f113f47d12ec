// Security identifiers and their text (MS-DTYP 2.4.2.1).
#include <cstdint>
#include <cstdio>
#include <optional>

#include "win32/emulated/security/token.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

constexpr unsigned kMostSubAuthorities = 15;
constexpr std::size_t kFixedPart = 8;  // revision, count and authority

// A decimal or 0x number of at most `most`; takes it off `text`.
std::optional<std::uint64_t> TakeNumber(std::u16string_view& text, std::uint64_t most) {
  const bool hexadecimal = StartsWithAsciiNoCase(text, u"0x");
  if (hexadecimal) text.remove_prefix(2);
  const unsigned base = hexadecimal ? 16 : 10;
  std::uint64_t number = 0;
  std::size_t digits = 0;
  for (; digits < text.size(); ++digits) {
    const char16_t unit = text[digits];
    unsigned digit = 16;
    if (unit >= u'0' && unit <= u'9') digit = static_cast<unsigned>(unit - u'0');
    if (hexadecimal && unit >= u'a' && unit <= u'f') digit = static_cast<unsigned>(unit - u'a') + 10;
    if (hexadecimal && unit >= u'A' && unit <= u'F') digit = static_cast<unsigned>(unit - u'A') + 10;
    if (digit >= base) break;
    number = number * base + digit;
    if (number > most) return std::nullopt;
  }
  if (digits == 0) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

}  // namespace

std::size_t SidLength(ByteView bytes) {
  if (bytes.size() < kFixedPart || bytes[0] != 1 || bytes[1] > kMostSubAuthorities) return 0;
  const std::size_t length = kFixedPart + 4u * bytes[1];
  return length <= bytes.size() ? length : 0;
}

ByteView SidOf(const void* sid) {
  if (!sid) return {};
  const auto* const bytes = static_cast<const std::uint8_t*>(sid);
  if (bytes[0] != 1 || bytes[1] > kMostSubAuthorities) return {};
  return {bytes, kFixedPart + 4u * bytes[1]};
}

Sid SidFromText(std::u16string_view text) {
  if (!StartsWithAsciiNoCase(text, u"S-1-")) return {};
  text.remove_prefix(4);
  const auto authority = TakeNumber(text, 0xFFFF'FFFF'FFFF);
  if (!authority) return {};
  Sid sid{1, 0};
  for (int shift = 40; shift >= 0; shift -= 8) sid.push_back(static_cast<std::uint8_t>(*authority >> shift));
  while (!text.empty()) {
    if (text.front() != u'-' || sid[1] == kMostSubAuthorities) return {};
    text.remove_prefix(1);
    const auto subAuthority = TakeNumber(text, 0xFFFF'FFFF);
    if (!subAuthority) return {};
    AppendLittleEndian(sid, static_cast<std::uint32_t>(*subAuthority));
    ++sid[1];
  }
  if (sid[1] == 0) return {};
  return sid;
}

std::u16string SidToText(ByteView sid) {
  const std::size_t length = SidLength(sid);
  if (length == 0) return {};
  std::uint64_t authority = 0;
  for (std::size_t i = 2; i < kFixedPart; ++i) authority = authority << 8 | sid[i];
  char number[24];
  std::snprintf(number, sizeof number, authority > 0xFFFF'FFFF ? "0x%llx" : "%llu",
                static_cast<unsigned long long>(authority));
  std::u16string text = u"S-1-" + Utf16(number);
  for (std::size_t offset = kFixedPart; offset < length; offset += 4)
    text += u'-' + Utf16(std::to_string(LoadLittleEndian<std::uint32_t>(sid, offset)));
  return text;
}

}  // namespace emulated
