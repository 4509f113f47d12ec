// May this folder be redirected to that place? Every operation answers 1 (yes) or 0, and each rule that says no has its
// line in the log.
#pragma once

#include "validate/path_rules.h"

// The whole decision on a source and a target folder, the scan of the source included. All rules on target, relations
// and contents are tried even after one has failed, so that the log tells everything that is wrong.
int ValidateRedirectionPaths(const char16_t* source, const char16_t* target, int prescanFlag,
                             int sourceIsRedirectedProfile, int excludeMountedVolume, int quietSystemFolder,
                             int stopMediaSharing, int allowLockedSpecialCase, int targetOnly);

// The rules for a source folder alone; the quiet flags are IsSystemFolder's. The first rule that fails ends it.
int ValidateSourcePath(const char16_t* path, int quiet1, int quiet2);

// The rules for a target folder alone. allowDriveRoot is also IsSystemFolder's insideProductOnly.
int ValidateTargetPath(const char16_t* path, int mustExist, int allowDriveRoot, int quiet1, int quiet2);

// The decision on a source folder and a volume, named by its GUID, that is to be mounted in the folder's place.
int ValidateVolumeRedirection(const char16_t* source, const char16_t* volume);

// The volume exists, is NTFS, and is mounted nowhere but on that folder, if at all. What Windows does not tell counts
// as a mount: a profile would mingle with what is on the volume.
int ValidateProfileVolume(const char16_t* volume, const char16_t* mountFolder);
// The volume exists, is NTFS, is not mounted anywhere and can be written to.
int ValidateVolume(const char16_t* volume);
