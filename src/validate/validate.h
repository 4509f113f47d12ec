// May this folder be redirected to that place? Every operation answers 1 (yes) or 0, and each rule that says no has its
// line in the log.
#pragma once

#include "validate/path_rules.h"

// As they stand, those of a folder that is redirected.
struct RedirectionOptions {
  bool prescan = true;                     // the scan asks which items processes hold open
  bool sourceIsRedirectedProfile = false;  // see RelationOptions, as the next two; no warning about system folders
  bool excludeMountedVolume = false;
  bool quietSystemFolder = false;       // no warning about system folders, either
  bool stopMediaSharing = false;        // which holds files of profiles open
  bool allowLockedSpecialCase = false;  // see PreScanOptions
  bool targetOnly = false;              // the source stays as it is: not its own rules, but access to the target
  const char16_t* standIn = nullptr;    // see RelationOptions
};
// The whole decision on a source and a target folder, the scan of the source included. All rules on target, relations
// and contents are tried even after one has failed, so that the log tells everything that is wrong.
int ValidateRedirectionPaths(const char16_t* source, const char16_t* target, const RedirectionOptions& options = {});

// The rules for a source folder alone. The first rule that fails ends it.
int ValidateSourcePath(const char16_t* path, const SystemFolderOptions& options = {});

struct TargetPathOptions {
  bool mustExist = false;
  bool allowDriveRoot = false;            // of those that must exist
  SystemFolderOptions systemFolder = {};  // asked of those that must exist
};
// The rules for a target folder alone. The first rule that fails ends it.
int ValidateTargetPath(const char16_t* path, const TargetPathOptions& options = {});

// The decision on a source folder and a volume, named by its GUID, that is to be mounted in the folder's place.
int ValidateVolumeRedirection(const char16_t* source, const char16_t* volume);

// The volume exists, is NTFS, and is mounted nowhere but on that folder, if at all. What Windows does not tell counts
// as a mount: a profile would mingle with what is on the volume.
int ValidateProfileVolume(const char16_t* volume, const char16_t* mountFolder);
// The volume exists, is NTFS, is not mounted anywhere and can be written to.
int ValidateVolume(const char16_t* volume);
