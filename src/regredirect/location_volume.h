// A volume without a letter becomes a location by being mounted on a folder beside Rimehold's service. That this
// program mounted it is noted in the registry (32-bit view, SOFTWARE\Velmora\Quillbay\RegistryVolumes: the folder's
// path, and the volume's name), so that it is known also when Rimehold has gone, or the power failed before the
// location was saved. What lies on a volume stays there.
#pragma once

#include <string>

#include "fsops/folders.h"

// What was made for the mount is taken away again unless it is kept.
class LocationVolume {
 public:
  LocationVolume() = default;
  LocationVolume(const LocationVolume&) = delete;
  LocationVolume& operator=(const LocationVolume&) = delete;
  ~LocationVolume();

  // Mounts it. One that a run which was cut off has left mounted there is gone on with, another one that such a run has
  // left is taken off. location: the volume's name. False with a line in the log.
  bool Mount(const std::u16string& location);
  void Keep() { kept_ = true; }
  const std::u16string& folder() const { return folder_; }

 private:
  bool Note(const std::u16string& volume) const;

  std::u16string folder_;
  CreatedFolders created_{{}};
  bool begun_ = false, mounted_ = false, kept_ = false;
};

// Was the location made by mounting a volume, which is, or may be, still mounted there?
bool IsLocationOnVolume(const std::u16string& location);

// The volume that is noted as mounted on the folder; empty when none is. False when the registry does not tell.
bool ReadLocationVolume(const std::u16string& folder, std::u16string& volume);

// Takes the volume off that LocationVolume mounted, and removes the folder. Another's mount stays. Nothing of this is
// checked; the log tells of a volume that stays mounted.
void LeaveLocationVolume(const std::u16string& location);
