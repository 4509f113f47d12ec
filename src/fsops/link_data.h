// Links byte for byte: junctions and symbolic links with the reparse data that they had.
#pragma once

#include <string>
#include <vector>

#include "win32/types.h"

// A link of a copied tree as it was at the source.
struct SavedLink {
  std::u16string source;
  std::u16string target;  // where the copy is
  bool isDirectory = false;
  std::vector<win32::BYTE> reparseData;
};

// The whole reparse data of the link itself; empty when they cannot be read.
std::vector<win32::BYTE> ReadLinkData(const std::u16string& path);

// Makes the link at its source again, as it was; nothing is done when it is there unchanged. 0 when it cannot be made,
// or something else stands there.
int RestoreLink(const SavedLink& link);
