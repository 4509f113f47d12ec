// A bare machine for tests: two empty NTFS volumes, an elevated administrator, no Windows on the disks and no hives.
#pragma once

#include <memory>

#include "win32/emulated/machine.h"

namespace test {

// C: and D: of so many megabytes each, in memory. Everybody may do everything below their roots.
std::unique_ptr<emulated::Machine> TestMachine(std::uint64_t megabytesOfC = 16, std::uint64_t megabytesOfD = 16);

// A machine without disks, on which a planned failure of a call that is never made fails the test.
std::unique_ptr<emulated::Machine> EmptyMachine();

}  // namespace test
