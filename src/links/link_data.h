// Links byte for byte: junctions and symbolic links with the reparse data that they had.
#pragma once

#include <string>

#include "links/reparse_data.h"

// A link as it was. (Of a copied tree: at the source.)
struct SavedLink {
  std::u16string source;
  std::u16string target;  // where the copy is
  bool isDirectory = false;
  ReparseData reparseData = {};  // empty when they could not be read
  bool timesKnown = false;
  win32::FILETIME creation{}, lastAccess{}, lastWrite{};
};
// Reads the link at `source`.
SavedLink SaveLink(const std::u16string& source, const std::u16string& target, bool isDirectory);

// The whole reparse data of the link itself; empty when they cannot be read.
ReparseData ReadLinkData(const std::u16string& path);

// The full path that a symbolic link holds, be there something or not; empty when it is relative, cannot be read, or is
// that of another kind of item.
std::u16string SymbolicLinkText(const std::u16string& link);

// A tree with the root `root` moves: would `link` in it, byte for byte the same, lead to where nothing is any more? By
// its data it leads into the tree with a full path, or out of it with a relative one, and to something that exists.
// Nobody can tell of data that could not be read (empty): true.
bool MustChangeWithTree(const std::u16string& link, const ReparseData& reparseData, const std::u16string& root);

// Makes the link at its source again, as it was, its times included; nothing is done when it is there unchanged. 0 when
// it cannot be made, or something else stands there.
int RestoreLink(const SavedLink& link);
