#include "support/installed_machine.h"

#include <stdexcept>
#include <string>

#include "support/machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/setup/windows_installation.h"
#include "workstation/product.h"

namespace test {

namespace {

Disks FreshDisks(const MachineFacts& facts) {
  Disks disks;
  disks["C.ntfs"] = FreshNtfs(48, "System");
  disks["D.ntfs"] = FreshNtfs(32, "Data");
  for (unsigned i = 0; i < facts.extraDrives; ++i)
    disks[std::string(1, static_cast<char>('E' + i)) + ".ntfs"] = FreshNtfs(16, "Extra");
  for (unsigned i = 0; i < facts.volumes; ++i)
    disks["{12345678-0000-4000-8000-00000000000" + std::to_string(i) + "}.ntfs"] = FreshNtfs(16, "Volume");
  return disks;
}

std::unique_ptr<emulated::Machine> Attached(Disks&& disks) {
  auto machine = EmptyMachine();
  for (auto& [name, device] : disks)
    if (machine->Attach(std::move(device), name) != 0) throw std::runtime_error(name + " does not mount");
  return machine;
}

Disks InstalledDisks(const MachineFacts& facts) {
  const auto machine = Attached(FreshDisks(facts));
  for (const auto& mounted : machine->volumes)
    if (mounted->image != "C.ntfs" && emulated::PrepareDataVolume(*mounted->volume, machine->Now()) != 0)
      throw std::runtime_error(mounted->image + " cannot be prepared");
  emulated::InstallationFacts installation;
  installation.majorVersion = facts.majorVersion;
  installation.minorVersion = facts.minorVersion;
  installation.profiles = emulated::DefaultProfiles();
  std::string error;
  if (const auto code = emulated::InstallWindows(*machine, installation))
    throw std::runtime_error("Windows cannot be installed: " + std::to_string(code));
  if (!machine->Boot(error)) throw std::runtime_error(error);
  if (facts.product) workstation::InstallProduct(*machine);
  return machine->Snapshot();
}

}  // namespace

std::unique_ptr<emulated::Machine> BootFrom(Disks disks) {
  auto machine = Attached(std::move(disks));
  std::string error;
  if (!machine->Boot(error)) throw std::runtime_error(error);
  return machine;
}

std::unique_ptr<emulated::Machine> InstalledMachine(const MachineFacts& facts) {
  std::string name = "installed";
  for (const unsigned fact : {unsigned{facts.majorVersion}, unsigned{facts.minorVersion}, unsigned{facts.product},
                              facts.extraDrives, facts.volumes})
    name += "-" + std::to_string(fact);
  return BootFrom(KeptDisks(name, [&] { return InstalledDisks(facts); }));
}

}  // namespace test
