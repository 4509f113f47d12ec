// A link that has to make way, kept so that it can be put back as it was.
#pragma once

#include <string>

#include "fsops/folder_itself.h"
#include "links/link_data.h"

class KeptLink {
 public:
  // Reads all that the link is: its data, descriptor, attributes and times. False when it cannot all be read.
  bool Keep(const std::u16string& link, bool isDirectory);
  const std::u16string& path() const { return link_.source; }
  const ReparseData& data() const { return link_.reparseData; }

  // Makes the link again, where an empty folder or file, another link or nothing stands now. False: it cannot be made.
  // (When only its descriptor, attributes or times cannot be given back, the log tells.)
  bool PutBack() const;

 private:
  SavedLink link_;
  SavedFolder itself_;
};
