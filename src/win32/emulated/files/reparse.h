// The contents of reparse points that name another place: junctions, mounted volumes and symbolic links
// (MS-FSCC 2.1.2.4 and 2.1.2.5).
#pragma once

#include <string>
#include <string_view>

#include "win32/emulated/bytes.h"
#include "win32/types.h"

namespace emulated {

struct LinkTarget {
  win32::DWORD tag = 0;
  std::u16string substituteName;  // u"\\??\\C:\\x"; of a relative symbolic link u"..\\x"
  bool relative = false;
};

// 0; 1920 for a tag that leads nowhere; 4392 when a name does not lie inside the data.
win32::DWORD ParseLink(ByteView reparse, LinkTarget& target);

// The reparse data of a symbolic link, its 8-byte header included. Empty when it would be too long.
Bytes MakeSymbolicLink(std::u16string_view substituteName, std::u16string_view printName, bool relative);

// Is this what FSCTL_SET_REPARSE_POINT accepts, as far as the data alone tell? 0, 4392 or 4393.
win32::DWORD CheckReparseData(ByteView data);

inline constexpr std::size_t kReparseHeader = 8;       // of a tag of Microsoft's
inline constexpr std::size_t kReparseGuidHeader = 24;  // of any other: a GUID follows
bool IsMicrosoftTag(win32::DWORD tag);
inline constexpr win32::DWORD kDirectoryTagBit = 0x10000000;  // a directory with this tag may have entries

}  // namespace emulated
