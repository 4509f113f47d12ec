// A volume copied into a file of its own, with its holes.
#pragma once

#include <filesystem>

#include "workstation/image_source.h"

namespace workstation {

// `target` is made, locked while it is written, and safe when this returns. Where the host's file system can, the two
// share their blocks; else what holds nothing but zeros is a hole in the copy. Fails with the host's reason; a part of
// the copy may be there then.
void CopyVolume(const ImageSource& source, const std::filesystem::path& target);
// The same into an empty file that is open for writing.
void CopyVolumeInto(const ImageSource& source, const emulated::FileDescriptor& target);

}  // namespace workstation
