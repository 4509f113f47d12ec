// Short names (8.3) as Windows makes them beside long ones.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace emulated {

// Is the name one of DOS in itself, letter case aside, so that it needs none beside it?
bool IsShortName(std::u16string_view name);

// What stands for a long name, one after the other until one is free in the folder: six characters with ~1 to ~4, then
// two characters with a checksum of the long name.
class ShortNames {
 public:
  explicit ShortNames(std::u16string_view longName);
  std::u16string Next();

 private:
  void InsertChecksum(std::size_t keep);

  std::u16string longName_;
  std::u16string base_, extension_;  // the latter with its dot, or empty
  unsigned number_ = 0;
  bool hasChecksum_ = false;
};

}  // namespace emulated
