// A table for people.
#pragma once

#include <string>
#include <vector>

// One line a row, columns aligned and two blanks apart; nothing is cut. Controls in a cell become "?": a row stays a
// row. Widths are counted in code points.
std::u16string TextOfTable(const std::vector<std::vector<std::u16string>>& rows);

// A number with commas between its thousands.
std::u16string WithThousands(unsigned long long number);
