#include "workstation/installation.h"

#include <cstdio>
#include <random>

#include "win32/emulated/registry/services.h"
#include "win32/emulated/text.h"
#include "workstation/command.h"
#include "workstation/product.h"

namespace workstation {

namespace {

std::string Told(const emulated::InstallationReport& report, const emulated::InstallationFacts& facts, bool product) {
  std::string text, names;
  const auto add = [&text](const std::string& what) { text += (text.empty() ? "" : ", ") + what; };
  if (report.items != 0) add(std::to_string(report.items) + " folders, files and links of Windows and of profiles");
  for (const std::u16string& hive : report.hives) names += ' ' + emulated::Utf8(hive);
  if (!names.empty()) add("the hives" + names);
  if (report.registry) {
    names = ", Guest)";
    for (auto profile = facts.profiles.rbegin(); profile != facts.profiles.rend(); ++profile)
      names = ", " + emulated::Utf8(profile->name) + names;
    add("services and accounts (" + names.substr(2));
  }
  if (product) add("the product and its service");
  return text;
}

}  // namespace

std::string Install(const std::filesystem::path& folder, const emulated::InstallationFacts& facts,
                    const std::set<std::string>& freshImages) {
  std::string error;
  emulated::InstallationReport report;
  {
    const auto station = emulated::Workstation::OpenUnbooted(folder, error);
    if (!station) throw Failure(error);
    emulated::Machine& machine = station->machine();
    if (const win32::DWORD code = emulated::InstallWindows(machine, facts, error, &report)) {
      if (!error.empty()) throw Failure(error);
      FailWith("C.ntfs", code);
    }
    for (const auto& mounted : machine.volumes)
      if (freshImages.contains(mounted->image) && mounted->image != "C.ntfs")
        if (const win32::DWORD code = emulated::PrepareDataVolume(*mounted->volume, machine.Now()))
          FailWith(mounted->image, code);
    if (!station->Save(error)) throw Failure(error);
  }
  bool product = false;
  OnMachine(folder, true, [&](emulated::Machine& machine) {
    product = !machine.services().Exists(u"QuillbayService");
    if (product) InstallProduct(machine);
  });
  return Told(report, facts, product);
}

std::string NewGuidImage() {
  std::random_device random;
  char name[48];
  std::snprintf(name, sizeof name, "{%08x-%04x-4%03x-8%03x-%04x%08x}.ntfs", random(), random() & 0xFFFF,
                random() & 0xFFF, random() & 0xFFF, random() & 0xFFFF, random());
  return name;
}

}  // namespace workstation
