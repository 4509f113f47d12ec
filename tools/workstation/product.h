// What the product's own set-up leaves on a workstation, and Rimehold's.
#pragma once

#include <string_view>

#include "win32/emulated/machine.h"

namespace workstation {

// Program files with QBC.exe's folder, the service registered and running, the registry keys. On a booted machine.
void InstallProduct(emulated::Machine& machine);

// Rimehold's service and its status text ("Frozen", "Thawed", ...). On a booted machine.
void InstallRimehold(emulated::Machine& machine, std::u16string_view status);
void RemoveRimehold(emulated::Machine& machine);

}  // namespace workstation
