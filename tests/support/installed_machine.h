// NTFS images and workstations in memory, the latter run by an elevated administrator. Each kind is made once; every
// test gets a copy of the disks.
#pragma once

#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "win32/emulated/bytes.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/storage/block_device.h"

namespace test {

// Images in memory by the names of their files.
using Disks = std::map<std::string, std::unique_ptr<emulated::MemoryDevice>>;

// Copies of the disks of that name. They are made once in a process; and once in a run of ctest, where each test is a
// process: the environment variable QBC_TEST_DISKS names the folder in which they are kept for the others.
Disks KeptDisks(const std::string& name, const std::function<Disks()>& make);

// A freshly formatted volume of so many megabytes (4 KiB clusters) in memory. mkntfs runs once per size and label.
std::unique_ptr<emulated::MemoryDevice> FreshNtfs(std::uint64_t megabytes, const std::string& label);

// A folder that is gone, with all that is in it, when the test ends.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : path_(parent / "storage-XXXXXX") {
    std::string name = path_;
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// Runs a shell command; what it prints (both streams), and its exit code.
struct CommandResult {
  int exitCode = -1;
  std::string output;
};
CommandResult RunCommand(const std::string& command);

// A valid self-relative descriptor (owner and group SYSTEM, one entry in the DACL) that differs for each number.
emulated::Bytes NumberedDescriptor(std::uint32_t number);

struct MachineFacts {
  win32::DWORD majorVersion = 10, minorVersion = 0;
  bool product = true;       // the product's service is installed
  unsigned extraDrives = 0;  // E:, F:, ... beside C: and D:, 16 MiB each
  unsigned volumes = 0;      // volumes without a letter, 16 MiB each
  bool shortNames = false;   // each volume makes short names
};

// A booted machine as `workstation create` makes one: Windows, profiles, the product's service; C: (48 MiB), D: (32
// MiB).
std::unique_ptr<emulated::Machine> InstalledMachine(const MachineFacts& facts = {});
// Boots a machine on these disks (taken over), as after a restart or a power failure.
std::unique_ptr<emulated::Machine> BootFrom(Disks disks);
// Neither Windows nor hives: C: and D: are empty (16 MiB each), and everybody may do everything there.
std::unique_ptr<emulated::Machine> BareMachine();

}  // namespace test
