// Gives a workstation folder hives of the size that they have on a machine in use: SYSTEM of 16 MiB, SOFTWARE of 64.

#include <cstdio>
#include <string>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"
#include "win32/emulated/workstation.h"

namespace {

using emulated::Utf16;

int Fail(const std::string& error) {
  std::fprintf(stderr, "make_hives: %s\n", error.c_str());
  return 1;
}

// Keys as those of components: one with a text, and one below it with two. A good 500 bytes of a hive each.
void AddComponents(emulated::Registry& registry, const std::u16string& parent, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    char id[40];
    std::snprintf(id, sizeof id, "{%08X-4A6B-11D2-9C83-00C04F%06X}", i * 2654435761U, i);
    const std::u16string key = parent + u"\\" + Utf16(id), server = key + u"\\InprocServer32";
    registry.SetText(key, u"", u"Component number " + Utf16(std::to_string(i)));
    registry.SetText(server, u"", u"%SystemRoot%\\System32\\component" + Utf16(std::to_string(i % 3000)) + u".dll",
                     win32::REG_EXPAND_SZ);
    registry.SetText(server, u"ThreadingModel", u"Both");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return Fail("usage: make_hives WORKSTATION");
  std::string error;
  const auto station = emulated::Workstation::Open(argv[1], error);
  if (!station) return Fail(error);
  emulated::Registry& registry = station->machine().registry();
  AddComponents(registry, u"HKLM\\SYSTEM\\ControlSet001\\Enum\\Components", 32'200);
  AddComponents(registry, u"HKLM\\SOFTWARE\\Classes\\CLSID", 129'000);
  return station->Save(error) ? 0 : Fail(error);
}
