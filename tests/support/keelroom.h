// Keelroom on test machines: its driver and the records of its volumes.
#pragma once

#include <string_view>

#include "win32/emulated/machine.h"

namespace test {

// A stand-in for the driver, as the Windows tools linked it.
emulated::Bytes KeeldiskDriver(std::string_view version);  // "7.99", "8.32", "8.33", "9.0", or "none" without a version

// Puts these bytes where the driver lies; the driver of that version.
void PutKeeldisk(emulated::Machine& machine, emulated::ByteView driver);
inline void InstallKeeldisk(emulated::Machine& machine, std::string_view version) {
  PutKeeldisk(machine, KeeldiskDriver(version));
}
// The record of a volume, by the name of its key, that is mounted as `drive` ("T:").
void AddKeelroomVolume(emulated::Machine& machine, std::u16string_view key, std::u16string_view drive);

}  // namespace test
