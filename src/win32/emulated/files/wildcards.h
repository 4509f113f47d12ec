// File name patterns as FindFirstFileW understands them.
#pragma once

#include <string>
#include <string_view>

#include "win32/emulated/storage/volume.h"

namespace emulated {

class NamePattern {
 public:
  // `pattern` as a program writes it: "*", "?", and the old meanings of "*.*" and of "?" and "." before nothing.
  NamePattern(std::u16string_view pattern, const Volume& volume);
  bool HasWildcards() const { return wild_; }
  bool Matches(std::u16string_view name) const;

 private:
  std::u16string expression_;  // upper case, with the five wildcards of the file system
  const Volume& volume_;
  bool wild_ = false;
};

}  // namespace emulated
