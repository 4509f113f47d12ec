// The folder that profiles go to: who may write to it may take a profile away and put one of his own in its place.
#pragma once

#include <string>

#include "fsops/folders.h"

// Makes what is missing of `location`, as private as `home`, the folder that Windows keeps profiles in. False: logged.
bool MakeProfilesLocation(const std::u16string& location, const std::u16string& home);
// A location that stood there is the administrator's and stays as it is. Where others may rename or replace it, or a
// folder above it, the log says by which entry.
void TellWhoMayReplace(const std::u16string& location);

// The same for a command that may have to take it back.
class ProfilesLocation {
 public:
  explicit ProfilesLocation(const std::u16string& folder);
  ~ProfilesLocation();  // as far as it is empty again
  ProfilesLocation(const ProfilesLocation&) = delete;
  ProfilesLocation& operator=(const ProfilesLocation&) = delete;

  bool Make(const std::u16string& home) { return MakeProfilesLocation(folder_, home); }
  void Keep();

 private:
  const std::u16string folder_;
  const CreatedFolders created_;
  bool kept_ = false;
};
