// What the report says of the machine, and what it does not say of its owner.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace check {

// "Wine 8.0"; empty on Windows.
std::wstring WineVersion();

// Lines for the head of the report. `folder` is an empty one on the volume that is asked: a file is made in it for a
// moment.
std::vector<std::string> DescribeMachine();
std::vector<std::string> DescribeVolume(const std::wstring& root, const std::wstring& folder);

// Covers the names of user and machine, and the part of their SIDs that no other machine has.
class Veil {
 public:
  Veil();
  std::string Over(std::string line) const;

 private:
  void Cover(const std::wstring& text, const char* cover);
  std::vector<std::pair<std::string, std::string>> words_, parts_;
};

}  // namespace check
