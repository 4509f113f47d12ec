#include "support/installed_machine.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/setup/windows_installation.h"
#include "win32/emulated/text.h"
#include "workstation/product.h"

namespace test {

Disks KeptDisks(const std::string& name, const std::function<Disks()>& make) {
  static std::map<std::string, Disks> known;
  Disks& disks = known[name];
  const char* const folders = std::getenv("QBC_TEST_DISKS");
  const std::filesystem::path kept = folders ? std::filesystem::path(folders) / name : std::filesystem::path();
  std::error_code missing;
  if (disks.empty() && folders)
    for (const auto& file : std::filesystem::directory_iterator(kept, missing))
      disks[file.path().filename()] = emulated::MemoryDevice::FromFile(file.path());
  if (disks.empty()) {
    disks = make();
    if (folders) {  // whole or not at all, whoever else does the same meanwhile
      std::filesystem::create_directories(kept.parent_path());
      const TemporaryFolder ours(kept.parent_path());
      for (const auto& [image, device] : disks)
        if (!device->SaveTo(ours / image)) throw std::runtime_error((ours / image).string() + " cannot be written");
      std::filesystem::rename(ours.path(), kept, missing);
    }
  }
  Disks copies;
  for (const auto& [image, device] : disks) {
    if (!device) throw std::runtime_error(image + " of " + name + " cannot be read");
    copies[image] = device->Clone();
  }
  return copies;
}

namespace {

// A planned failure of a call that is never made fails the test.
std::unique_ptr<emulated::Machine> Attached(Disks&& disks) {
  auto machine = std::make_unique<emulated::Machine>();
  machine->gate.onUnreached = [](const std::string& call) {
    ADD_FAILURE() << call << " was to fail and is never made";
  };
  for (auto& [name, device] : disks)
    if (machine->Attach(std::move(device), name) != 0) throw std::runtime_error(name + " does not mount");
  return machine;
}

Disks InstalledDisks(const MachineFacts& facts) {
  Disks disks;
  disks["C.ntfs"] = FreshNtfs(48, "System");
  disks["D.ntfs"] = FreshNtfs(32, "Data");
  for (unsigned i = 0; i < facts.extraDrives; ++i)
    disks[std::string(1, static_cast<char>('E' + i)) + ".ntfs"] = FreshNtfs(16, "Extra");
  for (unsigned i = 0; i < facts.volumes; ++i)
    disks["{12345678-0000-4000-8000-00000000000" + std::to_string(i) + "}.ntfs"] = FreshNtfs(16, "Volume");
  const auto machine = Attached(std::move(disks));
  emulated::InstallationFacts installation;
  installation.majorVersion = facts.majorVersion;
  installation.minorVersion = facts.minorVersion;
  installation.profiles = emulated::DefaultProfiles();
  if (facts.shortNames || std::getenv("QBC_SHORT_NAMES")) installation.disable8dot3NameCreation = 0;
  std::string error;
  if (const auto code = emulated::InstallWindows(*machine, installation, error))
    throw std::runtime_error("Windows cannot be installed: " + std::to_string(code));
  for (const auto& mounted : machine->volumes)
    if (mounted->image != "C.ntfs" && emulated::PrepareDataVolume(*mounted->volume, machine->Now()) != 0)
      throw std::runtime_error(mounted->image + " cannot be prepared");
  if (!machine->Boot(error)) throw std::runtime_error(error);
  if (facts.product) workstation::InstallProduct(*machine);
  return machine->Snapshot();
}

}  // namespace

std::unique_ptr<emulated::MemoryDevice> FreshNtfs(std::uint64_t megabytes, const std::string& label) {
  Disks disks = KeptDisks("fresh-" + std::to_string(megabytes) + "-" + label, [&] {
    const TemporaryFolder folder;
    const std::string file = "'" + (folder / "fresh.ntfs").string() + "'";
    const CommandResult result =
        RunCommand("truncate -s " + std::to_string(megabytes) + "M " + file + " && mkntfs -F -Q -q -T -L '" + label +
                   "' -p 0 -H 0 -S 0 -s 512 -c 4096 " + file);
    if (result.exitCode != 0) throw std::runtime_error("mkntfs failed: " + result.output);
    Disks made;
    made["fresh.ntfs"] = emulated::MemoryDevice::FromFile(folder / "fresh.ntfs");
    return made;
  });
  return std::move(disks.at("fresh.ntfs"));
}

CommandResult RunCommand(const std::string& command) {
  CommandResult result;
  // NOLINTNEXTLINE(cert-env33-c): the tests' own commands
  FILE* const pipe = popen(("( export PATH=$PATH:/usr/sbin:/sbin; " + command + " ) 2>&1").c_str(), "r");
  if (!pipe) return result;
  char buffer[4096];
  while (const std::size_t length = fread(buffer, 1, sizeof buffer, pipe)) result.output.append(buffer, length);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

// Of 2n and 2n + 1 the hash is the same by which NTFS finds them.
emulated::Bytes NumberedDescriptor(std::uint32_t number) {
  const std::string user = (number % 2 ? "3-4294967291-" : "2-3-") + std::to_string(1000 + number / 2);
  return emulated::DescriptorFromText(emulated::Utf16("O:SYG:SYD:(A;OICI;FA;;;S-1-5-21-1-" + user + ")")).value();
}

std::unique_ptr<emulated::Machine> BootFrom(Disks disks) {
  auto machine = Attached(std::move(disks));
  std::string error;
  if (!machine->Boot(error)) throw std::runtime_error(error);
  return machine;
}

std::unique_ptr<emulated::Machine> InstalledMachine(const MachineFacts& facts) {
  std::string name = "installed";
  for (const unsigned fact : {unsigned{facts.majorVersion}, unsigned{facts.minorVersion}, unsigned{facts.product},
                              facts.extraDrives, facts.volumes, unsigned{facts.shortNames}})
    name += "-" + std::to_string(fact);
  return BootFrom(KeptDisks(name, [&] { return InstalledDisks(facts); }));
}

std::unique_ptr<emulated::Machine> BareMachine() {
  Disks disks;
  for (const auto* const name : {"C.ntfs", "D.ntfs"}) disks[name] = FreshNtfs(16, "Bare");
  auto machine = Attached(std::move(disks));
  for (const auto& mounted : machine->volumes)
    if (mounted->volume->SetSecurity(mounted->volume->Root(),
                                     *emulated::DescriptorFromText(u"O:BAG:BAD:(A;OICI;FA;;;SY)(A;OICI;FA;;;WD)")) != 0)
      throw std::runtime_error(mounted->image + " cannot be prepared");
  return machine;
}

}  // namespace test
