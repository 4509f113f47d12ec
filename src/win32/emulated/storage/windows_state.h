// How Windows left a volume, and whether others may write to it.
#pragma once

#include <string>

#include "win32/emulated/storage/volume.h"

namespace emulated {

// Why nobody but its own Windows may write to the volume now, and what to do there about it, in one line: Windows is
// hibernated on it (fast startup is), its journal holds changes that are not on it yet, or it is marked for a check.
// Empty when it was put away properly.
std::string WhyNotToWrite(Volume& volume);

// What a first sector begins that is not NTFS's: "a BitLocker volume", "a FAT volume", ... Empty when it is not known.
std::string OtherVolumeKind(ByteView firstSector);

// Why a device with which Volume::Mount failed so holds no volume for us: what it is instead, or that it is damaged.
std::string WhyNotMounted(BlockDevice& device, win32::DWORD error);

}  // namespace emulated
