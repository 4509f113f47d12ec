// Folders that are made, renamed and removed on the way of a redirection.
#pragma once

#include <string>
#include <vector>

#include "fsops/descriptor.h"

// How a folder came to be there.
enum class FolderMade { New, StoodThere, Failed };
// SHCreateDirectoryExW. Nothing is said about a failure. descriptor: what it is made with; empty for none of its own.
FolderMade MakeFolder(const std::u16string& folder, FolderDescriptor descriptor = {});

// Makes the folder at `path` if it is gone, and gives it what `like` has of its own.
bool MakeFolderLike(const std::u16string& path, const std::u16string& like);
// MoveFileW; a failure has its line in the log.
bool Rename(const std::u16string& from, const std::u16string& to);

// The folders that a command made on its way to a target.
class CreatedFolders {
 public:
  // Looks which of `folder` and the folders above it do not exist yet. Before they are made.
  explicit CreatedFolders(std::u16string folder);

  // Takes them away again, as far as they are empty.
  void RemoveIfEmpty() const;

 private:
  std::vector<std::u16string> missing_;  // the deepest first
};

// Removes an empty folder, a read-only one, too. False, with the last error, when it is not empty or cannot be removed;
// nothing has changed then.
bool RemoveEmptyFolder(const std::u16string& folder);
