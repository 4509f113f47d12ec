// The log files beside a hive: changes that Windows had not put into the hive when it stopped.
//
// Both formats of Maxim Suhanov's description of the registry file format: that of Windows Vista to 8 (a vector of
// dirty pages) and that of Windows 8.1 and later (entries in sequence, with hashes).
#pragma once

#include <optional>
#include <span>
#include <string>

#include "win32/emulated/bytes.h"

namespace emulated {

// Do changes wait in logs? So where the two sequence numbers differ, or the header's checksum is wrong. A file that is
// no hive at all is not dirty.
bool IsDirtyHive(ByteView hive);

// The hive with what its logs (NAME.LOG1, NAME.LOG2, NAME.LOG; empty for a missing one) hold beyond it, as Windows
// recovers it: clean, and not yet read. Nothing, and one line in `error`, when no log goes with the hive or the first
// change that it lacks is damaged.
std::optional<Bytes> RecoverHive(ByteView hive, std::span<const Bytes> logs, std::string& error);

// The hash of log entries.
std::uint64_t Marvin32(ByteView data, std::uint64_t seed);

}  // namespace emulated
