// Fills C:\Tree of a workstation folder for the benchmark: FILES files of SIZE bytes in FOLDERS folders, each file with
// a security descriptor of its own.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"
#include "win32/emulated/workstation.h"

namespace {

using emulated::Utf16;

int Fail(const std::string& error) {
  std::fprintf(stderr, "make_tree: %s\n", error.c_str());
  return 1;
}

emulated::Bytes OwnDescriptor(std::uint64_t number) {
  const std::string sddl = "O:BAG:SYD:AI(A;;FA;;;BA)(A;;0x1200a9;;;S-1-5-21-1-2-3-" + std::to_string(10'000 + number) +
                           ")(A;ID;FA;;;SY)(A;ID;0x1200a9;;;BU)";
  return *emulated::DescriptorFromText(Utf16(sddl));
}

win32::DWORD Fill(emulated::Volume& volume, std::uint64_t files, std::uint64_t folders, std::uint64_t size,
                  emulated::FileTime now) {
  emulated::FileId tree = 0, folder = 0, file = 0;
  const emulated::Bytes folderDescriptor =
      *emulated::DescriptorFromText(u"O:BAG:SYD:AI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)");
  if (const auto error = volume.Create(volume.Root(), u"Tree", true, 0, folderDescriptor, now, tree)) return error;
  emulated::Bytes content(static_cast<std::size_t>(std::min<std::uint64_t>(size, 1 << 20)));
  for (std::uint64_t i = 0; i < files; ++i) {
    if (i % (files / folders) == 0)
      if (const auto error = volume.Create(tree, Utf16("folder" + std::to_string(i / (files / folders))), true, 0,
                                           folderDescriptor, now, folder))
        return error;
    if (const auto error =
            volume.Create(folder, Utf16("file" + std::to_string(i) + ".dat"), false, 0x20, OwnDescriptor(i), now, file))
      return error;
    for (std::size_t k = 0; k < content.size(); ++k)
      content[k] = static_cast<std::uint8_t>((i * 31 + k * 7) ^ (k >> 8));
    for (std::uint64_t done = 0; done < size; done += content.size())
      if (const auto error = volume.Write(file, {}, done,
                                          emulated::ByteView(content).first(static_cast<std::size_t>(
                                              std::min<std::uint64_t>(content.size(), size - done)))))
        return error;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return Fail("usage: make_tree WORKSTATION FILES FOLDERS SIZE");
  std::string error;
  const auto station = emulated::Workstation::Open(argv[1], error);
  if (!station) return Fail(error);
  emulated::Machine& machine = station->machine();
  const auto code = Fill(*machine.SystemVolume()->volume, std::strtoull(argv[2], nullptr, 10),
                         std::strtoull(argv[3], nullptr, 10), std::strtoull(argv[4], nullptr, 10), machine.Now());
  if (code != 0) return Fail("error " + std::to_string(code));
  return station->Save(error) ? 0 : Fail(error);
}
