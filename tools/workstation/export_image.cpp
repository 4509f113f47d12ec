#include "workstation/export_image.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cstdio>
#include <cstring>
#include <system_error>

#include "win32/emulated/storage/image_set.h"
#include "workstation/command.h"
#include "workstation/container.h"
#include "workstation/copy_volume.h"
#include "workstation/host_tool.h"
#include "workstation/new_file.h"

namespace workstation {

namespace fs = std::filesystem;

namespace {

LockedImage OpenLocked(const fs::path& folder, const std::string& volume) {
  const std::string stem = volume.starts_with('{') ? volume : std::string(1, ParseLetter(volume));
  LockedImage image;
  image.volume.shown = folder / (stem + ".ntfs");
  std::error_code failed;
  if (stem.find('/') != stem.npos || !fs::exists(image.volume.shown, failed))
    throw Failure(image.volume.shown.string() + ": no such drive");
  std::string error;
  emulated::WorkstationState state;
  image.folder = emulated::ImageSet::Open(folder, error);
  if (!image.folder || !emulated::Workstation::ReadState(folder, state, error)) throw Failure(error);
  image.volume.file = emulated::FileDescriptor(open(image.volume.shown.c_str(), O_RDONLY | O_CLOEXEC));
  if (!image.volume.file) throw Failure(image.volume.shown.string() + ": " + strerror(errno));
  if (flock(image.volume.file.get(), LOCK_SH | LOCK_NB) != 0)
    throw Failure(image.volume.shown.string() + ": in use by another process");
  image.volume.size = static_cast<std::uint64_t>(lseek(image.volume.file.get(), 0, SEEK_END));
  if (state.frozen.contains(image.volume.shown.filename().string()))
    std::fprintf(stderr, "workstation: %s: frozen; what was written to it since is not exported\n",
                 image.volume.shown.c_str());
  return image;
}

void ExportTo(const LockedImage& image, const fs::path& target, const std::string& format) {
  if (format != "raw" && format != "qcow2" && format != "vhdx")
    throw Failure("\"" + format + "\" is not a format of export: raw, qcow2 or vhdx");
  NewFile file(target);
  try {
    if (format == "raw") {
      CopyVolumeInto(image.volume, file.file());
    } else {
      RunHostTool({"qemu-img", "convert", "--image-opts", ImageOptions("raw", image.volume.shown), "-O", format,
                   kInheritedFile},
                  kQemuPackage, file.file().get());
    }
  } catch (const Failure& failure) {
    throw Failure(target.string() + ": " + failure.what());
  }
  file.Publish();
}

unsigned ParsePartition(const std::string& text) {
  if (text.empty() || text.size() > 4 || text.find_first_not_of("0123456789") != text.npos)
    throw Failure("\"" + text + "\" is not a partition's number");
  return static_cast<unsigned>(std::stoul(text));
}

}  // namespace

void Export(const fs::path& folder, const Arguments& arguments) {
  if (arguments[1] == "--into") {
    if (arguments.size() != 5 || arguments[3] != "--partition") throw Failure("--into DISK needs --partition N");
    WriteBack(OpenLocked(folder, arguments[0]), arguments[2], ParsePartition(arguments[4]));
    return;
  }
  if (arguments.size() != 2 && (arguments.size() != 4 || arguments[2] != "--format"))
    throw Failure("export FILE takes --format raw|qcow2|vhdx and nothing else");
  ExportTo(OpenLocked(folder, arguments[0]), arguments[1], arguments.size() == 4 ? arguments[3] : "raw");
}

}  // namespace workstation
