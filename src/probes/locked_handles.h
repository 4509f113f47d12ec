// Which files and folders do processes hold open? The system's handle table tells; everything that it cannot tell (a
// handle that does not answer, more than the table or the list of processes has room for) is left out, so the answer is
// help for the user and not what decides: that is the exclusive open of the pre-scan.
#pragma once

#include <cstddef>
#include <memory>

// Room for the answer, made once for a scan: 1,000 paths of 2,048 characters each, terminator included.
struct LockedPaths {
  static constexpr int kCapacity = 1000;
  static constexpr int kPathCharacters = 2048;
  std::unique_ptr<char16_t[]> paths = std::make_unique<char16_t[]>(std::size_t{kCapacity} * kPathCharacters);
  int count = 0;

  char16_t* At(int index) { return paths.get() + std::ptrdiff_t{index} * kPathCharacters; }
  const char16_t* At(int index) const { return paths.get() + std::ptrdiff_t{index} * kPathCharacters; }
};

// Fills in the open files and folders at or below the two paths (either may be null), as drive-letter paths in the
// order of the handle table, no more than there is room for. Always answers 0.
int GetLockedFilesAndFoldersList(const char16_t* firstPath, const char16_t* secondPath, LockedPaths& locked);
