// From the last to the first: what lies inside a folder stands behind it in a listing, and goes before it.
#pragma once

#include <iterator>

// for (const T& item : Backwards(items)). The list outlives it. (clang 14, which clang-tidy and clangd read with, does
// not parse libstdc++ 12's std::views::reverse.)
template <typename List>
class Backwards {
 public:
  explicit Backwards(List& list) : list_(list) {}
  auto begin() const { return std::rbegin(list_); }
  auto end() const { return std::rend(list_); }

 private:
  List& list_;
};
