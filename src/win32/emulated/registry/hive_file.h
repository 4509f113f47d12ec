// A hive as a file of a volume, with the logs beside it.
#pragma once

#include <string>
#include <string_view>

#include "win32/emulated/storage/volume.h"

namespace emulated {

inline constexpr win32::DWORD kBadDatabase = 1009;  // ERROR_BADDB

// Where a hive lies: its folder, its name there, the file.
struct HivePlace {
  FileId directory = 0;
  std::u16string_view name;
  FileId file = 0;
};

// The hive's bytes; of a dirty one with what its logs (NAME.LOG1, NAME.LOG2, NAME.LOG) hold beyond it. Nothing is
// written. 0, or an error code: kBadDatabase, with one line in `why`, for one that is dirty and has no logs that go
// with it.
win32::DWORD ReadHiveFile(Volume& volume, const HivePlace& place, Bytes& content, std::string& why);

}  // namespace emulated
