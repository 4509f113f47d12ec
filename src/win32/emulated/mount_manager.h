// The mount manager's memory of which volume has which name: the values of SYSTEM\MountedDevices.
#pragma once

#include "win32/emulated/machine.h"

namespace emulated {

// What MountedDevices knows a volume by: disk signature (4 bytes) and partition offset (8 bytes), the form for disks
// with a master boot record. The signature is the volume's serial number, the offset stands for the image's name, so
// copies of one image are told apart.
Bytes DeviceIdentity(const MountedVolume& mounted);

// Names before the registry is read: the letter of "X.ntfs", the GUID of "{...}.ntfs" or one made from the identity.
void NameFromImage(MountedVolume& mounted);

// Drive letters and volume names as SYSTEM\MountedDevices has them; a volume that is new there is written down.
void AssignNames(Machine& machine);

}  // namespace emulated
