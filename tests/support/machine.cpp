#include "support/machine.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/images.h"
#include "win32/emulated/security/access.h"

namespace test {

namespace {

constexpr std::u16string_view kRootDescriptor = u"O:BAG:BAD:(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;WD)";

void Attach(emulated::Machine& machine, const std::string& image, std::uint64_t megabytes, const std::string& label) {
  emulated::MountedVolume* mounted = nullptr;
  if (machine.Attach(FreshNtfs(megabytes, label), image, &mounted) != 0)
    throw std::runtime_error(image + " does not mount");
  const auto descriptor = emulated::DescriptorFromText(kRootDescriptor);
  if (!descriptor || mounted->volume->SetSecurity(mounted->volume->Root(), *descriptor) != 0)
    throw std::runtime_error("the root of " + image + " cannot be prepared");
}

}  // namespace

std::unique_ptr<emulated::Machine> EmptyMachine() {
  auto machine = std::make_unique<emulated::Machine>();
  machine->gate.onUnreached = [](const std::string& call) {
    ADD_FAILURE() << call << " was to fail and is never made";
  };
  return machine;
}

std::unique_ptr<emulated::Machine> TestMachine(std::uint64_t megabytesOfC, std::uint64_t megabytesOfD) {
  auto machine = EmptyMachine();
  Attach(*machine, "C.ntfs", megabytesOfC, "System");
  Attach(*machine, "D.ntfs", megabytesOfD, "Data");
  return machine;
}

}  // namespace test
