// A folder itself: what it has of its own even while a volume is mounted on it. Read and written with the rights of a
// backup, so that no entry of its DACL keeps an administrator out.
#pragma once

#include <string>

#include "fsops/descriptor.h"

// The descriptor of the folder (or of a volume's root, by the volume's name); empty when it cannot be read.
FolderDescriptor ReadDescriptor(const std::u16string& folder);
// Writes it as it is: nothing is inherited anew, here or below. False when it cannot be written.
bool WriteDescriptor(const std::u16string& folder, FolderDescriptor descriptor);

// Owner, group, DACL and SACL of any item (without the SACL where that may not be read), written back as they were. By
// the rights that the caller has on the item: nobody's open of it is in the way. Empty, false: refused, the last error
// says why.
FolderDescriptor ReadWholeDescriptor(const std::u16string& item);
bool WriteWholeDescriptor(const std::u16string& item, FolderDescriptor descriptor);
// The descriptor with all its entries its own, the inherited ones too, and protected: nothing in it depends on the
// folder above any more. Empty when it is none.
FolderDescriptor ProtectedDescriptor(FolderDescriptor descriptor);

// Are the access lists the same, and protected against the folder above both or neither?
bool HaveSameDacl(const FolderDescriptor& a, const FolderDescriptor& b);

// What a folder (or a link itself) has of its own, to give it back: its descriptor with the audit entries, named
// streams, extended attributes, object id, attributes and times.
class SavedFolder {
 public:
  // False when not all of it could be read.
  bool Save(const std::u16string& folder);
  const FolderDescriptor& descriptor() const { return streams_.descriptor; }  // empty when nothing was read
  // Back to the folder that it was read from; nothing is done when none was. Streams that it has got since go. False
  // when something could not be written.
  bool Restore() const;

 private:
  // Streams of a backup.
  struct Streams {
    std::vector<win32::BYTE> bytes;  // but for reparse data
    FolderDescriptor descriptor;
    std::vector<std::u16string> names;  // of the named ones, as DeleteFileW takes them behind the path
  };
  static bool Read(const std::u16string& folder, Streams& streams);
  bool RestoreStreams() const;
  bool RestoreOnce() const;

  std::u16string folder_;
  Streams streams_;
  win32::DWORD attributes_ = 0;
  win32::FILETIME creation_{}, lastAccess_{}, lastWrite_{};
};
