// The folders that Windows' profile list names for everybody: where new profiles are made, and the Default and Public
// profiles.
#pragma once

#include <string>

#include "records/registry_text.h"

enum class ProfileFolder { ProfilesDirectory, Default, Public };

// One of the values as it stands.
struct ProfileFolderValue : RegistryValue {
  std::u16string folder;  // variables replaced, without a backslash at the end
};

// False when the value is missing, no text, or empty.
bool ReadProfileFolder(ProfileFolder which, ProfileFolderValue& value);
// The same for whom there is no going on without it: a failure has its line in the log.
bool RequireProfileFolder(ProfileFolder which, ProfileFolderValue& value);
// Has the value name this folder; it keeps its type. A folder on the system drive is written with %SystemDrive% where
// the type replaces variables. False: as it was.
bool WriteProfileFolder(ProfileFolder which, const std::u16string& folder);
// Puts a value back byte for byte.
bool RestoreProfileFolder(ProfileFolder which, const RegistryValue& value);

// One of the values changed for as long as nobody says that it stays so.
class ProfileFolderChange {
 public:
  ProfileFolderChange(ProfileFolder which, ProfileFolderValue before);
  ~ProfileFolderChange();  // takes back
  ProfileFolderChange(const ProfileFolderChange&) = delete;
  ProfileFolderChange& operator=(const ProfileFolderChange&) = delete;

  // WriteProfileFolder; a failure has its line in the log.
  bool Set(const std::u16string& folder);
  // Byte for byte as it was. False (logged): it still names the new folder.
  bool TakeBack();
  void Keep() { changed_ = false; }
  const ProfileFolderValue& before() const { return before_; }

 private:
  const ProfileFolder which_;
  const ProfileFolderValue before_;
  bool changed_ = false;
};
