// What was imported is given back.
#pragma once

#include <filesystem>

#include "win32/emulated/storage/block_device.h"
#include "workstation/image_source.h"

namespace workstation {

// A volume of a workstation that nobody works on meanwhile.
struct LockedImage {
  std::unique_ptr<emulated::ImageSet> folder;  // its lock
  ImageSource volume;                          // the image, for reading
};

// Writes the volume into the partition that it came from, when that is as it was then, or as an earlier call that was
// interrupted has left it.
void WriteBack(const LockedImage& image, const std::filesystem::path& disk, unsigned partition);

}  // namespace workstation
