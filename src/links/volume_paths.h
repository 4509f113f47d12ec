// Volumes by their names ("\\?\Volume{...}\"), and the paths to them.
#pragma once

#include <string>

// Paths by volume GUID ("\\?\Volume{...}\x") to ordinary ones and back. Both answer 1 or 0, and empty their input.

int VolumePathToNormalPath(std::u16string& path, std::u16string& out);
int NormalPathToVolumePath(std::u16string& path, std::u16string& out);

// The name of the volume that the path, which need not exist, lies on; empty when Windows does not tell.
std::u16string VolumeThatHolds(const std::u16string& path);
