// Which file is it, whatever names lead to it?
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "links/presence.h"

// What tells one file from another, and how much there is of it.
struct FileFacts {
  win32::DWORD volume = 0;
  std::uint64_t index = 0;
  std::uint64_t size = 0;      // bytes of the main stream
  win32::DWORD linkCount = 0;  // hard links: its names

  bool IsSameFileAs(const FileFacts& other) const { return volume == other.volume && index == other.index; }
};
// Nothing, and the last error, when the file cannot be opened. Nobody's open of the file is in the way.
std::optional<FileFacts> FactsOf(const std::u16string& path, LastLink link = LastLink::Itself);
std::optional<FileFacts> FactsOf(const win32::UniqueFile& file);

// Tells whether somebody has written to a file, or has put something else in its place, since.
struct FileVersion {
  win32::DWORD kind = 0;                      // FILE_ATTRIBUTE_DIRECTORY, _REPARSE_POINT, _ENCRYPTED
  std::uint64_t creation = 0, lastWrite = 0;  // as FILETIME counts
  std::uint64_t size = 0;                     // bytes of the main stream

  bool operator==(const FileVersion&) const = default;
};
FileVersion VersionOf(const win32::BY_HANDLE_FILE_INFORMATION& information);
// Of a link itself. Nothing, and the last error, when Windows does not tell.
std::optional<FileVersion> VersionOf(const std::u16string& path);

// What is written into a file of several names (hard links) is written to all of them, and the others may lie where the
// user who made this one may not write. True, with a line in the log, also when Windows does not tell.
bool HasOtherNames(const std::u16string& file);
