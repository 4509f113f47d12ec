#include "survey/table.h"

#include <algorithm>

namespace {

std::size_t Width(std::u16string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char16_t unit) { return unit < 0xDC00 || unit > 0xDFFF; }));
}

}  // namespace

std::u16string TextOfTable(const std::vector<std::vector<std::u16string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  }
  std::u16string text;
  for (const auto& row : rows) {
    std::u16string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      for (const char16_t unit : row[i]) line += unit < 0x20 || unit == 0x7F ? u'?' : unit;
      line.append(widths[i] - Width(row[i]) + 2, u' ');
    }
    line.erase(line.find_last_not_of(u' ') + 1);
    text += line + u"\n";
  }
  return text;
}

std::u16string WithThousands(unsigned long long number) {
  std::u16string text;
  int digits = 0;
  do {
    if (digits > 0 && digits % 3 == 0) text.insert(text.begin(), u',');
    text.insert(text.begin(), static_cast<char16_t>(u'0' + number % 10));
    ++digits;
  } while ((number /= 10) != 0);
  return text;
}
