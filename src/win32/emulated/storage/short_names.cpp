#include "win32/emulated/storage/short_names.h"

#include <algorithm>
#include <cstdint>

namespace emulated {
namespace {

constexpr std::size_t kBase = 8, kExtension = 3;
constexpr std::size_t kStem = 6;       // what is kept of a name before "~1"
constexpr std::size_t kShortStem = 2;  // with the checksum behind it
constexpr unsigned kMostPlainNames = 4;

bool IsPrintableAscii(char16_t unit) { return unit > u' ' && unit < 0x7F; }

// Characters of long names that DOS does not take.
bool IsForbidden(char16_t unit) {
  return std::u16string_view(u"\"*+,/:;<=>?[\\]|").find(unit) != std::u16string_view::npos;
}

// Blanks, dots and what is not ASCII are left out; what DOS does not take becomes an underscore.
std::u16string Reduced(std::u16string_view part, std::size_t most) {
  std::u16string reduced;
  for (const char16_t unit : part) {
    if (reduced.size() == most) break;
    if (!IsPrintableAscii(unit) || unit == u'.') continue;
    const bool isLower = unit >= u'a' && unit <= u'z';
    reduced += IsForbidden(unit) ? u'_' : isLower ? static_cast<char16_t>(unit - (u'a' - u'A')) : unit;
  }
  return reduced;
}

// Windows' own since version 7. Its digits come lowest first.
std::u16string Checksum(std::u16string_view name) {
  constexpr std::uint32_t kFactor = 0x25, kSpread = 314'159'269;
  constexpr std::uint64_t kReciprocal = 1'152'921'497, kModulus = 1'000'000'007;  // 2^60 / kModulus
  std::uint16_t sum = 0;
  for (const char16_t unit : name) sum = static_cast<std::uint16_t>(sum * kFactor + unit);
  std::uint32_t spread = sum * kSpread;
  if (spread > 0x7FFF'FFFF) spread = 0 - spread;
  auto rest = static_cast<std::uint16_t>(spread - (spread * kReciprocal >> 60) * kModulus);
  std::u16string digits;
  for (; digits.size() < 4; rest = static_cast<std::uint16_t>(rest >> 4)) digits += u"0123456789ABCDEF"[rest & 0xF];
  return digits;
}

}  // namespace

bool IsShortName(std::u16string_view name) {
  const std::size_t dot = std::min(name.find(u'.'), name.size());
  const std::u16string_view extension = name.substr(std::min(dot + 1, name.size()));
  if (dot == 0 || dot > kBase || extension.size() > kExtension || (dot < name.size() && extension.empty()))
    return false;
  return std::ranges::all_of(name, [](char16_t unit) { return IsPrintableAscii(unit) && !IsForbidden(unit); }) &&
         extension.find(u'.') == std::u16string_view::npos;
}

ShortNames::ShortNames(std::u16string_view longName) : longName_(longName) {
  std::u16string_view name = longName;
  name.remove_prefix(std::min(name.find_first_not_of(u". "), name.size()));
  while (!name.empty() && (name.back() == u'.' || name.back() == u' ')) name.remove_suffix(1);
  const std::size_t dot = name.rfind(u'.');
  base_ = Reduced(name.substr(0, dot), kStem);
  if (dot != std::u16string_view::npos) extension_ = Reduced(name.substr(dot + 1), kExtension);
  if (!extension_.empty()) extension_.insert(0, 1, u'.');
  if (base_.size() <= kShortStem) InsertChecksum(base_.size());
}

void ShortNames::InsertChecksum(std::size_t keep) {
  base_ = base_.substr(0, keep) + Checksum(longName_);
  hasChecksum_ = true;
  number_ = 0;
}

std::u16string ShortNames::Next() {
  if (number_ == kMostPlainNames && !hasChecksum_) InsertChecksum(kShortStem);
  std::u16string tail;
  for (unsigned number = ++number_; number != 0; number /= 10)
    tail.insert(0, 1, static_cast<char16_t>(u'0' + number % 10));
  tail.insert(0, 1, u'~');
  return base_.substr(0, kBase - tail.size()) + tail + extension_;
}

}  // namespace emulated
