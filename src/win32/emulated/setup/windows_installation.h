// Makes a volume a system volume: the folders, descriptors and hives that a Windows installation would have put there.
#pragma once

#include <string>
#include <vector>

#include "win32/emulated/machine.h"

namespace emulated {

struct ProfileFacts {
  std::u16string name;  // the folder below \Users
  std::u16string sid;
  bool ownWallpaper = false;  // the desktop shows a picture that lies in the profile
};

struct InstallationFacts {
  win32::DWORD majorVersion = 10, minorVersion = 0, buildNumber = 19045;
  win32::UINT oemCodePage = 437;
  win32::DWORD disable8dot3NameCreation = 1;  // as in the registry: 0 for short names on all volumes
  std::u16string computerName = u"WORKSTATION";
  std::vector<ProfileFacts> profiles;
};

// What the SIDs of the machine's own accounts begin with.
inline constexpr std::u16string_view kMachineSid = u"S-1-5-21-1004336348-1177238915-682003330";

// What an installation has put on the volume.
struct InstallationReport {
  std::size_t items = 0;  // folders, files and links
  std::vector<std::u16string> hives;
  bool registry = false;  // services, accounts and profiles are in the hives
};

// Puts what is missing on the system volume (C.ntfs) of a machine that has not been booted: what is there stays. 0 or
// an error, with one line in `error` when its registry cannot be read or written.
win32::DWORD InstallWindows(Machine& machine, const InstallationFacts& facts, std::string& error,
                            InstallationReport* report = nullptr);

// The descriptor that a freshly formatted drive's root has on Windows, and "System Volume Information" below it.
win32::DWORD PrepareDataVolume(Volume& volume, FileTime now);

// The profiles that a machine is made with when nobody says otherwise: Administrator, anna (whose wallpaper is her own)
// and jan.
std::vector<ProfileFacts> DefaultProfiles();

}  // namespace emulated
