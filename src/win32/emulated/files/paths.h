// Win32 path names: from what a program writes to a volume and the names below its root.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/machine.h"

namespace emulated {

struct ParsedPath {
  MountedVolume* volume = nullptr;
  std::u16string text;                     // what `names` points into
  std::vector<std::u16string_view> names;  // below the root, in order
  bool trailingBackslash = false;
};

// A path as CreateFileW takes it: "\\?\" and "\??\" literally, anything else with slashes turned, "." and "..",
// trailing dots and spaces taken away, relative to "C:\". 0; 3 for an empty or too long path (MAX_PATH and more units
// with the terminator, "\\?\" excepted) or a drive that is not there; 53 for a network path; 123; 50 for a volume's
// device; 2 for a DosDevice, which no disk holds.
win32::DWORD ParsePath(Machine& machine, std::u16string_view path, ParsedPath& parsed);

// What follows "\??\" in an object name: "C:\x", "Volume{...}\x".
win32::DWORD ParseObjectName(Machine& machine, std::u16string_view name, ParsedPath& parsed);

// The full path with the rules above applied to its text ("C:\a\b"); literal paths as they are.
std::u16string FullPath(std::u16string_view path);

// Windows takes the path for a device, whatever folder it names: its last name is nul, con, prn, aux, com1 to com9 or
// lpt1 to lpt9 (superscript 1 to 3 are digits, too), alone, with blanks or with an extension. Not a literal path.
enum class DosDevice { None, Null, Other };
DosDevice DosDeviceOf(std::u16string_view path);
// The same of the last name of a path that is not literal.
DosDevice DosDeviceOfName(std::u16string_view name);

bool IsLiteral(std::u16string_view path);  // starts with "\\?\" or "\??\"

// A name that a directory can hold: not empty, at most 255 units, nothing that NTFS refuses, not "." or "..".
bool IsLegalComponent(std::u16string_view name);

}  // namespace emulated
