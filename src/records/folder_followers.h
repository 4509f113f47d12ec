// The redirections that know a folder by its path, when its contents go to another place for good: the junctions of
// other folders that lead into it, the links of files, the records of files that were redirected from within.
//
// Paths lead there in many ways, by junctions that stay and by the folder's own name. Only who uses that loses the way.
#pragma once

#include <string>
#include <vector>

#include "records/records.h"

class FolderFollowers {
 public:
  // The contents of `folder` are to go to `newFolder`.
  FolderFollowers(std::u16string folder, std::u16string newFolder)
      : folder_(std::move(folder)), newFolder_(std::move(newFolder)) {}

  // Looks who they are; nothing has changed yet. False (logged) when a file's link leads there: it cannot be led
  // elsewhere in one step, and while it is made again, the file would have no name.
  bool Note();
  // The contents have gone. Leads them there. False (logged): some could not be.
  bool Lead() const;

 private:
  struct Junction {
    std::u16string path;  // where it is afterwards
    std::u16string oldText, newText;
  };

  bool NoteFile(const JunctionRecord& record);
  void NoteJunction(const JunctionRecord& record);
  std::u16string There(const std::u16string& path) const;
  static bool Lead(const Junction& junction);
  bool LeadLost() const;

  const std::u16string folder_, newFolder_;
  std::vector<Junction> junctions_;
  std::vector<JunctionRecord> files_;  // as they shall be
};
