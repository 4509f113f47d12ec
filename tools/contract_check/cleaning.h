// Takes away what facts left behind, whatever state they left it in.
#pragma once

#include <string>
#include <vector>

#include <windows.h>

namespace check {

// While it lives, this thread reads and deletes what access lists keep from it. Its own token, not the process's: the
// facts' processes inherit that, and must not have more than QBC.exe has.
class BackupPrivileges {
 public:
  BackupPrivileges();
  ~BackupPrivileges();
  BackupPrivileges(const BackupPrivileges&) = delete;
  BackupPrivileges& operator=(const BackupPrivileges&) = delete;
};

struct Entry {
  std::wstring name;
  DWORD attributes = 0, tag = 0;  // the tag of a reparse point
  bool isDirectory() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
  bool isLink() const { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
};
// What a folder has, without "." and "..".
std::vector<Entry> EntriesOf(const std::wstring& folder);

// Deletes all that the folder has but the entry `keep`, and says what stayed, and why. Links are deleted, never
// entered; volumes are unmounted; what somebody holds open is waited for.
std::vector<std::wstring> EmptyFolder(const std::wstring& folder, const std::wstring& keep = L"");
// Deletes a file, a link or an empty folder: 0, or the error.
DWORD DeleteItem(const std::wstring& path);

// Deletes the keys below kKey, and says which stayed. Links are deleted, never followed.
std::vector<std::wstring> EmptyKey();
DWORD DeleteKey();

}  // namespace check
