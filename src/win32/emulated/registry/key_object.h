// An open key, and how the registry calls get at it.
#pragma once

#include <memory>
#include <string>

#include "win32/emulated/registry/registry.h"
#include "win32/registry.h"

namespace emulated {

class KeyObject : public Object {
 public:
  const char16_t* TypeName() const override { return u"Key"; }
  std::u16string NativeName() const override { return path.empty() ? u"\\REGISTRY" : u"\\REGISTRY\\" + path; }

  std::shared_ptr<HiveKey> key;
  std::u16string path;  // below \REGISTRY
  bool view32 = false;  // opened for the 32-bit view, which what is opened through it keeps
};

// What a call was given by its HKEY.
struct KeyArgument {
  std::shared_ptr<HiveKey> key;
  std::u16string path;
  bool view32 = false;
  bool predefined = false;
  win32::ACCESS_MASK granted = 0;

  bool May(win32::ACCESS_MASK rights) const { return (granted & rights) == rights; }
};

// 0; 6 for no key handle, 2 for a predefined key without a hive, 1018 for a deleted key.
win32::DWORD FindKey(win32::HKEY handle, KeyArgument& argument);
// The same and `rights` on the handle: 5 without them.
win32::DWORD FindKey(win32::HKEY handle, win32::ACCESS_MASK rights, KeyArgument& argument);

}  // namespace emulated
