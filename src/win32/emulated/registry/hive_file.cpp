#include "win32/emulated/registry/hive_file.h"

#include <array>
#include <utility>

#include "win32/constants.h"
#include "win32/emulated/registry/hive_log.h"

namespace emulated {

using win32::DWORD;

DWORD ReadHiveFile(Volume& volume, const HivePlace& place, Bytes& content, std::string& why) {
  if (const DWORD error = ReadWholeFile(volume, place.file, content)) return error;
  if (!IsDirtyHive(content)) return win32::ERROR_SUCCESS;
  std::array<Bytes, 3> logs;
  constexpr std::u16string_view kEndings[] = {u".LOG1", u".LOG2", u".LOG"};
  for (std::size_t i = 0; i < logs.size(); ++i) {
    FileId log = 0;
    if (volume.Lookup(place.directory, std::u16string(place.name) + std::u16string(kEndings[i]), log, nullptr) != 0)
      continue;
    if (const DWORD error = ReadWholeFile(volume, log, logs[i])) return error;
  }
  auto recovered = RecoverHive(content, logs, why);
  if (!recovered) return kBadDatabase;
  content = std::move(*recovered);
  return win32::ERROR_SUCCESS;
}

}  // namespace emulated
