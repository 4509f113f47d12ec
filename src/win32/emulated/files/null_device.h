// What CreateFileW opens for a path that ends in "nul".
#pragma once

#include "win32/emulated/object.h"

namespace emulated {

// It takes all that is written and keeps nothing; whoever reads finds the end. Its size is 0.
class NullDevice : public OpenedFile {
 public:
  std::u16string Device() const override { return u"\\Device\\Null"; }
  std::u16string NameOnDevice() const override { return {}; }
};

}  // namespace emulated
