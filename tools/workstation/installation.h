// Windows and the product on the images of a folder.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "win32/emulated/setup/windows_installation.h"

namespace workstation {

// Adds what is missing; of the images that have just been formatted, those of data get their roots. Answers what was
// added to C:, in words; empty when nothing was.
std::string Install(const std::filesystem::path& folder, const emulated::InstallationFacts& facts,
                    const std::set<std::string>& freshImages);

// The name of an image for a new volume without a letter.
std::string NewGuidImage();

}  // namespace workstation
