// The names that the items of one tree copy have taken at its target.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "fsops/file_list.h"

class TargetNames {
 public:
  // A folder of the source whose copy was made by this run: whatever stands in that copy is an item of this run.
  void AddMadeFolder(std::u16string_view source) { madeFolders_.emplace(source); }
  // The item goes to the target, where nothing stood when it is new.
  void Add(const TreeEntry& source, const std::u16string& target, bool isNew);

  // Is what stands at the target another item than the one of this name? Two items of the source can be one name at the
  // target (letter case there, a short name that the target's volume has just made): the second would overwrite the
  // first, and both would then be deleted at the source.
  bool IsTaken(const TreeEntry& source, const std::u16string& target) const;

 private:
  bool IsOther(const std::u16string& target) const;

  std::set<std::u16string> targets_;      // lower case, also as the disk has them; none that lies in a made folder
  std::set<std::u16string> madeFolders_;  // paths of the source
};
