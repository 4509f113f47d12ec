#include "workstation/product.h"

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/setup/volume_builder.h"

namespace workstation {

namespace {

constexpr std::u16string_view kRimehold = u"HKLM\\SOFTWARE\\Velmora\\Rimehold 6";
constexpr std::u16string_view kServices = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\";

emulated::ByteView Placeholder() {
  static constexpr std::string_view text =
      "A program of this machine. It runs only as a record of the service manager.\r\n";
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

void PutProgram(emulated::Machine& machine, std::u16string_view maker, std::u16string_view folder,
                std::u16string_view program) {
  emulated::VolumeBuilder build(*machine.SystemVolume()->volume, machine.Now());
  build.Directory(maker);
  build.Directory(folder);
  build.File(std::u16string(folder) + u"\\" + std::u16string(program), Placeholder());
}

}  // namespace

void InstallProduct(emulated::Machine& machine) {
  PutProgram(machine, u"\\Program Files\\Velmora", u"\\Program Files\\Velmora\\Quillbay", u"QuillbayService.exe");
  machine.services().Install(u"QuillbayService", u"\"C:\\Program Files\\Velmora\\Quillbay\\QuillbayService.exe\"",
                             win32::SERVICE_AUTO_START);
  machine.registry().SetText(u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay", u"Version", u"2.34.1110.486");
}

void InstallRimehold(emulated::Machine& machine, std::u16string_view status) {
  if (!machine.services().Exists(u"RHServ")) {
    PutProgram(machine, u"\\Program Files (x86)\\Velmora", u"\\Program Files (x86)\\Velmora\\Rimehold", u"RHServ.exe");
    machine.services().Install(u"RHServ", u"\"C:\\Program Files (x86)\\Velmora\\Rimehold\\RHServ.exe\"",
                               win32::SERVICE_AUTO_START);
  }
  machine.registry().SetText(kRimehold, u"RH Status", status);
}

void RemoveRimehold(emulated::Machine& machine) {
  machine.registry().DeleteTree(std::u16string(kServices) + u"RHServ");
  machine.registry().DeleteTree(kRimehold);
}

}  // namespace workstation
