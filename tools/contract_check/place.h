// Where a run works: a folder that its owner has named, on a volume that the facts can be tried on.
#pragma once

#include <string>
#include <vector>

#include "contract_check/text.h"

namespace check {

class Place {
 public:
  // Looks at the folder. `whyNot` is empty when it can be worked in. Changes nothing.
  Place(const std::wstring& folder, std::wstring& whyNot);

  // Did a run that was ended leave something there? It carries the mark of this program.
  bool hasLeftovers() const { return hasLeftovers_; }
  // Makes the folder, and in it the one that all of the run lies in, with the mark; administrators alone may enter it.
  // Empty, or what failed.
  std::wstring Make();
  // Takes away what Make made and what lies in it, or what an ended run left. What stayed, and why.
  std::vector<std::wstring> Remove();

  const std::wstring& folder() const { return folder_; }
  const std::wstring& work() const { return work_; }
  // X:\ of the folder.
  std::wstring root() const { return folder_.substr(0, 3); }

 private:
  std::wstring WhyNotVolume() const;
  std::wstring WhyNotFolder();

  std::wstring folder_, work_;
  bool isThere_ = false, isMade_ = false, hasLeftovers_ = false;
  Handle mark_;
};

// Why nothing can be tried on this machine, or by this user; empty when it can. Changes nothing.
std::wstring WhyNotHere();
// Makes kKey with its mark: 0, or the error.
DWORD MakeKey();

}  // namespace check
