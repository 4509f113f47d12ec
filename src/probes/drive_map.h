// From the kernel's names of files to those that users know.
#pragma once

#include <string>
#include <utility>
#include <vector>

class DriveMap {
 public:
  // Asks which device each drive letter stands for.
  DriveMap();

  // "\Device\HarddiskVolume3\Users" to "C:\Users". 0, and a line for the debugger, when no letter stands for the
  // device.
  int GetFsFileName(const std::u16string& devicePath, std::u16string& path) const;

 private:
  std::vector<std::pair<char16_t, std::u16string>> devices_;
};
