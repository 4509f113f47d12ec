// A folder itself: what it has of its own even while a volume is mounted on it. Read and written with the rights of a
// backup, so that no entry of its DACL keeps an administrator out.
#pragma once

#include <string>
#include <vector>

#include "win32/types.h"

// A self-relative security descriptor: owner, group and DACL.
using FolderDescriptor = std::vector<win32::BYTE>;

// The descriptor of the folder (or of a volume's root, by the volume's name); empty when it cannot be read.
FolderDescriptor ReadDescriptor(const std::u16string& folder);
// Writes it as it is: nothing is inherited anew, here or below. False when it cannot be written.
bool WriteDescriptor(const std::u16string& folder, FolderDescriptor descriptor);

// The descriptor with all its entries its own, the inherited ones too, and protected: nothing in it depends on the
// folder above any more. Empty when it is none.
FolderDescriptor ProtectedDescriptor(FolderDescriptor descriptor);

// A folder's descriptor, attributes and times, to give them back.
class SavedFolder {
 public:
  // False when they could not all be read.
  bool Save(const std::u16string& folder);
  // Back to the folder they were read from; nothing is done when none were. False when something could not be written.
  bool Restore() const;

 private:
  std::u16string folder_;
  FolderDescriptor descriptor_;
  win32::DWORD attributes_ = 0;
  win32::FILETIME creation_{}, lastAccess_{}, lastWrite_{};
};
