// Which files and folders do other processes hold open?
#pragma once

#include <cstddef>
#include <memory>

// Room for the answer, made once for a scan: 1,000 paths of 2,048 characters each, terminator included.
struct LockedPaths {
  static constexpr int kCapacity = 1000;
  static constexpr int kPathCharacters = 2048;
  std::unique_ptr<char16_t[]> paths = std::make_unique<char16_t[]>(std::size_t{kCapacity} * kPathCharacters);
  int count = 0;

  const char16_t* At(int index) const { return paths.get() + std::ptrdiff_t{index} * kPathCharacters; }
};

// Fills in the open files and folders at or below the two paths (either may be null). Always answers 0.
int GetLockedFilesAndFoldersList(const char16_t* firstPath, const char16_t* secondPath, LockedPaths& locked);
