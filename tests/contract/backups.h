// Whole backups, in pieces of a size.
#pragma once

#include <algorithm>

#include "contract/fixture.h"

namespace contract {

using Bytes = std::vector<win32::BYTE>;

// All that BackupRead gives; `reads` says how many bytes came at once.
inline Bytes ReadBackup(const win32::UniqueFile& file, win32::DWORD size = 4096, std::string* reads = nullptr) {
  Bytes all, piece(size);
  void* context = nullptr;
  for (win32::DWORD read = 1; read != 0 && !testing::Test::HasFailure();) {
    EXPECT_EQ(ErrorOf(win32::BackupRead(file.get(), piece.data(), size, &read, 0, 1, &context)), 0u);
    all.insert(all.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(read));
    if (reads) *reads += std::to_string(read) + " ";
  }
  win32::DWORD read = 0;
  EXPECT_TRUE(win32::BackupRead(file.get(), nullptr, 0, &read, 1, 0, &context));
  return all;
}

// 0, or the error of the first BackupWrite that fails.
inline win32::DWORD WriteBackup(const win32::UniqueFile& file, Bytes backup, win32::DWORD size = 4096) {
  void* context = nullptr;
  win32::DWORD written = 0, error = 0;
  for (std::size_t at = 0; at < backup.size() && error == 0; at += written) {
    const auto count = static_cast<win32::DWORD>(std::min<std::size_t>(size, backup.size() - at));
    error = ErrorOf(win32::BackupWrite(file.get(), backup.data() + at, count, &written, 0, 1, &context));
    EXPECT_TRUE(error != 0 || written == count);
  }
  EXPECT_TRUE(win32::BackupWrite(file.get(), nullptr, 0, &written, 1, 0, &context));
  return error;
}

}  // namespace contract
