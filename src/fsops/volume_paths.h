// Paths by volume GUID ("\\?\Volume{...}\x") to ordinary ones and back. Both answer 1 or 0, and empty their input.
#pragma once

#include <string>

int VolumePathToNormalPath(std::u16string& path, std::u16string& out);
int NormalPathToVolumePath(std::u16string& path, std::u16string& out);
