#include "support/images.h"

#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace test {

namespace {

// Empty when the folder does not hold them.
Disks DisksIn(const std::filesystem::path& folder) {
  Disks disks;
  std::error_code missing;
  for (const auto& file : std::filesystem::directory_iterator(folder, missing)) {
    auto device = emulated::MemoryDevice::FromFile(file.path());
    if (!device) throw std::runtime_error(file.path().string() + " cannot be read");
    disks[file.path().filename()] = std::move(device);
  }
  return disks;
}

// Whole or not at all, whoever else does the same meanwhile.
void Keep(const Disks& disks, const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder.parent_path());
  const TemporaryFolder ours(folder.parent_path());
  for (const auto& [name, device] : disks)
    if (!device->SaveTo(ours / name)) throw std::runtime_error((ours / name).string() + " cannot be written");
  std::error_code keptByAnother;
  std::filesystem::rename(ours.path(), folder, keptByAnother);
}

}  // namespace

Disks KeptDisks(const std::string& name, const std::function<Disks()>& make) {
  static std::map<std::string, Disks> known;
  Disks& disks = known[name];
  const char* const kept = std::getenv("QBC_TEST_DISKS");
  if (disks.empty() && kept) disks = DisksIn(std::filesystem::path(kept) / name);
  if (disks.empty()) {
    disks = make();
    if (kept) Keep(disks, std::filesystem::path(kept) / name);
  }
  Disks copies;
  for (const auto& [image, device] : disks) copies[image] = device->Clone();
  return copies;
}

std::unique_ptr<emulated::MemoryDevice> FreshNtfs(std::uint64_t megabytes, const std::string& label) {
  Disks disks = KeptDisks("fresh-" + std::to_string(megabytes) + "-" + label, [&] {
    const TemporaryFolder folder;
    FreshNtfsFile(folder / "fresh.ntfs", megabytes, label);
    Disks made;
    made["fresh.ntfs"] = emulated::MemoryDevice::FromFile(folder / "fresh.ntfs");
    if (!made["fresh.ntfs"]) throw std::runtime_error("the formatted image cannot be read");
    return made;
  });
  return std::move(disks.at("fresh.ntfs"));
}

void FreshNtfsFile(const std::filesystem::path& image, std::uint64_t megabytes, const std::string& label) {
  const std::string file = "'" + image.string() + "'";
  const CommandResult result = RunCommand("truncate -s " + std::to_string(megabytes) + "M " + file +
                                          " && PATH=$PATH:/usr/sbin:/sbin mkntfs -F -Q -q -T -L '" + label +
                                          "' -p 0 -H 0 -S 0 -s 512 -c 4096 " + file);
  if (result.exitCode != 0) throw std::runtime_error("mkntfs failed: " + result.output);
}

TemporaryFolder::TemporaryFolder(const std::filesystem::path& parent) {
  std::string name = (parent / "storage-XXXXXX").string();
  if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

CommandResult RunCommand(const std::string& command) {
  CommandResult result;
  // NOLINTNEXTLINE(cert-env33-c): the tests' own commands
  FILE* const pipe = popen(("( export PATH=$PATH:/usr/sbin:/sbin; " + command + " ) 2>&1").c_str(), "r");
  if (!pipe) return result;
  std::array<char, 4096> buffer{};
  while (const std::size_t length = fread(buffer.data(), 1, buffer.size(), pipe))
    result.output.append(buffer.data(), length);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

emulated::Bytes NumberedDescriptor(std::uint32_t number) {
  const std::u16string user = u"S-1-5-21-1-2-3-" + emulated::Utf16(std::to_string(1000 + number));
  return emulated::DescriptorFromText(u"O:SYG:SYD:(A;OICI;FA;;;" + user + u")").value();
}

}  // namespace test
