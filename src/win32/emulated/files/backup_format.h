// What a backup of a file is made of: streams, each with a WIN32_STREAM_ID header of 20 bytes, a name and its content.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "win32/constants.h"
#include "win32/emulated/bytes.h"
#include "win32/emulated/storage/volume.h"

namespace emulated {

// The header without its name; all fields little-endian on the wire.
struct BackupStreamHeader {
  static constexpr std::size_t kSize = 20;

  win32::DWORD id = win32::BACKUP_INVALID;
  win32::DWORD attributes = win32::STREAM_NORMAL_ATTRIBUTE;
  std::uint64_t size = 0;     // bytes after the name; of a sparse block with the 8 bytes of its offset
  win32::DWORD nameSize = 0;  // bytes
};

void AppendStreamHeader(Bytes& to, BackupStreamHeader header, std::u16string_view name = {});
BackupStreamHeader LoadStreamHeader(ByteView from);  // of at least kSize bytes

// u":name:$DATA", the form of a named stream in a backup, and back. Nothing for any other form or an empty name.
std::u16string BackupStreamName(std::u16string_view stream);
std::optional<std::u16string> StreamOfBackupName(std::u16string_view name);

// The content of a BACKUP_EA_DATA stream, a list of FILE_FULL_EA_INFORMATION ([MS-FSCC] 2.4.16).
Bytes PackExtendedAttributes(const std::vector<ExtendedAttribute>& attributes);
// 0, 255 ERROR_EA_LIST_INCONSISTENT for a list that does not hold together, 254 for a name with an illegal character.
win32::DWORD UnpackExtendedAttributes(ByteView from, std::vector<ExtendedAttribute>& attributes);

}  // namespace emulated
