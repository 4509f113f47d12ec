// The modules of the program's process: its own and those of the system.
#pragma once

#include <string_view>

#include "win32/emulated/machine.h"

namespace emulated {

// The handle of the program's own module.
win32::HMODULE OwnModule();
// Null and the handle of the program's own module mean the same.
bool IsOwnModule(win32::HMODULE module);
// A system library ("netmsg.dll", with or without path and ".dll"); null for one that this system does not have.
win32::HMODULE SystemModule(std::u16string_view name);
// The file name of a system library; empty when the handle is not one's.
std::u16string_view SystemModuleName(win32::HMODULE module);

// A resource by type and name, where a number is written u"#16". Nothing when it is not there.
const ModuleImage::Resource* FindResource(const ModuleImage& module, std::u16string_view type,
                                          std::u16string_view name);

}  // namespace emulated
