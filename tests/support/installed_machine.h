// A booted workstation in memory, as `workstation create` makes one: Windows, profiles, the product's service. Made
// once in a process; every test gets a copy of the disks.
#pragma once

#include <memory>

#include "support/images.h"
#include "win32/emulated/machine.h"

namespace test {

struct MachineFacts {
  win32::DWORD majorVersion = 10, minorVersion = 0;
  bool product = true;       // the product's service is installed
  unsigned extraDrives = 0;  // E:, F:, ... beside C: and D:, 16 MiB each
  unsigned volumes = 0;      // volumes without a letter, 16 MiB each
};

// A machine with C: (48 MiB) and D: (32 MiB), run by an elevated administrator.
std::unique_ptr<emulated::Machine> InstalledMachine(const MachineFacts& facts = {});
// Boots a machine on these disks (taken over), as after a restart or a power failure.
std::unique_ptr<emulated::Machine> BootFrom(Disks disks);

}  // namespace test
