#include "support/keelroom.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/setup/volume_builder.h"

namespace test {

emulated::Bytes KeeldiskDriver(std::string_view version) {
  std::ifstream file(std::string(TEST_DRIVERS "/keeldisk-") + std::string(version) + ".sys", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  if (bytes.empty()) throw std::runtime_error("no driver of version " + std::string(version));
  return {bytes.begin(), bytes.end()};
}

void PutKeeldisk(emulated::Machine& machine, emulated::ByteView driver) {
  constexpr std::u16string_view kPath = u"\\Windows\\System32\\drivers\\Keeldisk.sys";
  emulated::Volume& volume = *machine.SystemVolume()->volume;
  emulated::VolumeBuilder build(volume, machine.Now());
  build.File(kPath, {});
  if (build.error() != 0 || emulated::WriteWholeFile(volume, kPath, driver) != 0)
    throw std::runtime_error("the driver cannot be put down");
}

void AddKeelroomVolume(emulated::Machine& machine, std::u16string_view key, std::u16string_view drive) {
  const std::u16string parameters = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Keeldisk\\Parameters\\";
  machine.registry().SetText(parameters + std::u16string(key), u"MountAs", drive);
}

}  // namespace test
