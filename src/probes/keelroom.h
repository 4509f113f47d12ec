// Keelroom: Rimehold's volumes that survive a restart, and the version of their driver, Keeldisk.
#pragma once

#include <string>
#include <vector>

#include "win32/types.h"

// The drives that Keelroom volumes are mounted as ("T:"), in the order of the volumes' keys. True when there is one.
bool ReadKeelroomVolumes(std::vector<std::u16string>& drives);

// Is the drive with this letter (of either case) a Keelroom volume?
bool IsKeelroomDrive(char16_t driveLetter);

// The version in a program file's version resource (VS_FIXEDFILEINFO).
struct FileVersionRecord {
  win32::WORD major = 0, minor = 0, build = 0, revision = 0;
  std::u16string majorText, minorText, buildText, revisionText;
  std::u16string text;  // "8.33.0.1"
};
// 1 when the file's version could be read.
int GetFileVersionRecord(const std::u16string& path, FileVersionRecord& record);

// 1 when the Keeldisk driver is of version 8.33 or later; 0 for an older one, none, or one whose version cannot be read
// (logged).
int IsNewKeelroomVersion();
