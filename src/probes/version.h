// The program's own version.
#pragma once

#include <string>

struct ProductVersion {
  std::u16string major, minor, hotfix, build;
  std::u16string dotted;  // "2.34.1110.486"
};

// From the product version (not the file version) in the program's version resource. False when it cannot be read.
bool GetProductVersion(ProductVersion& version);
