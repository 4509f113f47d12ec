// The console that the program's standard output goes to.
#pragma once

#include <string_view>

#include "win32/emulated/object.h"

namespace emulated {

class ConsoleObject : public OpenedFile {
 public:
  std::u16string Device() const override { return u"\\Device\\ConDrv"; }
  std::u16string NameOnDevice() const override { return u"\\Output"; }
  // Bytes of the OEM code page: kept in Machine::console and shown to its sink.
  void Write(std::string_view bytes);
};

}  // namespace emulated
