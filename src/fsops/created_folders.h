// The folders that a command made on its way to a target.
#pragma once

#include <string>
#include <vector>

class CreatedFolders {
 public:
  // Looks which of `folder` and the folders above it do not exist yet. Before they are made.
  explicit CreatedFolders(std::u16string folder);

  // Takes them away again, as far as they are empty.
  void RemoveIfEmpty() const;

 private:
  std::vector<std::u16string> missing_;  // the deepest first
};

// Removes an empty folder, a read-only one, too. False when it is not empty or cannot be removed; nothing has changed
// then.
bool RemoveEmptyFolder(const std::u16string& folder);
