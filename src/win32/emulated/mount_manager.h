// The mount manager's memory of which volume has which name: the values of SYSTEM\MountedDevices.
#pragma once

#include "win32/emulated/machine.h"

namespace emulated {

// Names before the registry is read: the letter of "X.ntfs", the GUID of "{...}.ntfs" or one made from the identity
// that a volume gets here.
void NameFromImage(MountedVolume& mounted);

// Identities, drive letters and volume names as SYSTEM\MountedDevices has them. An image that comes as a letter which
// another machine's Windows has given to a disk or a partition is that partition: it has its identity, and the volume
// name of that, so that a mount made here holds there. A volume that is new gets names, which are written as soon as
// something else is, or RecordNames is called.
void AssignNames(Machine& machine);

// The volume's names are in MountedDevices from now on, and will be written.
void RecordNames(Machine& machine, const MountedVolume& mounted);

}  // namespace emulated
