// The console that the program's standard output goes to.
#pragma once

#include <string_view>

#include "win32/emulated/object.h"

namespace emulated {

class ConsoleObject : public Object {
 public:
  const char16_t* TypeName() const override { return u"File"; }  // as on Windows: the console device is a file
  // Bytes of the OEM code page: kept in Machine::console and shown to its sink.
  void Write(std::string_view bytes);
};

}  // namespace emulated
