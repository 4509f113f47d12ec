// NTFS attribute records as values, and which file attributes are whose.
#pragma once

#include <optional>
#include <string>

#include "win32/constants.h"
#include "win32/emulated/storage/volume.h"

namespace emulated {

// The attributes that a program may set.
inline constexpr win32::DWORD kSettableAttributes = win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                                    win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE |
                                                    win32::FILE_ATTRIBUTE_TEMPORARY | win32::FILE_ATTRIBUTE_OFFLINE |
                                                    win32::FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

// These and the ones that follow from what the file is, as $STANDARD_INFORMATION keeps them.
inline constexpr win32::DWORD kStoredAttributes = kSettableAttributes | win32::FILE_ATTRIBUTE_SPARSE_FILE |
                                                  win32::FILE_ATTRIBUTE_REPARSE_POINT |
                                                  win32::FILE_ATTRIBUTE_COMPRESSED | win32::FILE_ATTRIBUTE_ENCRYPTED;

// NORMAL stands for no attribute at all and is stored nowhere.
inline win32::DWORD ShownAttributes(win32::DWORD attributes) {
  attributes &= ~win32::FILE_ATTRIBUTE_NORMAL;
  return attributes ? attributes : win32::FILE_ATTRIBUTE_NORMAL;
}

struct FileName {
  FileId directory = 0;
  std::u16string name;
  bool isShort = false;  // a DOS name beside a long one
};

// The value of a resident attribute record; empty when it is not resident or does not fit its record.
ByteView ResidentValue(ByteView record);
std::optional<FileName> FileNameFrom(ByteView value);
// Name, sizes and flags of a data attribute (its first record when it has several).
StreamInfo StreamFrom(ByteView record);
// What is shown as allocated for a value inside the MFT record.
inline std::uint64_t ResidentAllocation(std::uint64_t size) { return (size + 7) & ~std::uint64_t{7}; }

}  // namespace emulated
