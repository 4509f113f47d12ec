// The data of reparse points as Windows reads and writes them (MS-FSCC 2.1.2).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "win32/handle.h"

// Begins every full path in them.
inline constexpr std::u16string_view kNativePrefix = u"\\??\\";

// With these flags CreateFileW opens a folder or a reparse point itself, not what it leads to.
inline constexpr win32::DWORD kOpenLinkFlags = win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT;

// The head (tag, length, reserved) and what follows it.
using ReparseData = std::vector<win32::BYTE>;

// All three are false, with the last error, when Windows refuses. What was read is at least a head.
bool ReadReparseData(const win32::UniqueFile& item, ReparseData& data);
bool WriteReparseData(const win32::UniqueFile& item, ReparseData data);
bool DeleteReparseData(const win32::UniqueFile& item, win32::DWORD tag);

// 0 when there are no data.
win32::DWORD TagOf(const ReparseData& data);

// A junction's data. The print name is what Windows' own tools show; a junction does without.
ReparseData MountPointData(std::u16string_view substituteName, std::u16string_view printName = {});

// The data of a junction, leading to `target` instead. All else stays: a backslash at the end, and a print name, which
// follows if it named the same folder.
ReparseData LedTo(const ReparseData& junction, const std::u16string& target);

// The data of a folder on which a volume is mounted, not those of a junction: they name a volume's root by its name.
bool IsVolumeMount(const ReparseData& data);

// A junction's substitute name: the text at the start of its names, up to a terminator, whatever the lengths say.
std::u16string MountPointName(const ReparseData& data);

// What a junction or symbolic link leads to, by the offset and the length in its data.
struct LinkText {
  bool symbolic = false;
  std::u16string path;    // without the native prefix; empty when the data are those of neither, or damaged
  bool relative = false;  // to the folder that the link is in, or ("\\x") to its volume
};
LinkText TextOfLink(const ReparseData& data);
