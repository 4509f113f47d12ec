// Makes a volume a system volume: the folders, descriptors and hives that a Windows installation would have put there.
#pragma once

#include <string>
#include <vector>

#include "win32/emulated/machine.h"

namespace emulated {

struct ProfileFacts {
  std::u16string name;  // the folder below \Users
  std::u16string sid;
};

struct InstallationFacts {
  win32::DWORD majorVersion = 10, minorVersion = 0, buildNumber = 19045;
  win32::UINT oemCodePage = 437;
  std::u16string computerName = u"WORKSTATION";
  std::vector<ProfileFacts> profiles;
};

// Puts what is missing on the system volume (C.ntfs) of a machine that has not been booted: what is there stays. 0 or
// an error.
win32::DWORD InstallWindows(Machine& machine, const InstallationFacts& facts);

// The descriptor that a freshly formatted drive's root has on Windows, and "System Volume Information" below it.
win32::DWORD PrepareDataVolume(Volume& volume, FileTime now);

// The profiles that a machine is made with when nobody says otherwise.
std::vector<ProfileFacts> DefaultProfiles();

}  // namespace emulated
