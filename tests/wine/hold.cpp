// Holds what it is told to until its standard input ends; prints "held" once it has it.
//   hold mutex NAME
//   hold open PATH ACCESS SHARE
//     A file or folder. ACCESS is "read", "write" or "attributes" (which no share mode stands against); SHARE is any of
//     the letters r, w and d, or "none".
#include <windows.h>

#include <cstdio>
#include <string_view>

namespace {

bool HoldMutex(const wchar_t* name) {
  return CreateMutexW(nullptr, TRUE, name) && GetLastError() != ERROR_ALREADY_EXISTS;
}

bool HoldOpen(const wchar_t* path, std::wstring_view access, std::wstring_view share) {
  const DWORD rights = access == L"read"    ? GENERIC_READ
                       : access == L"write" ? GENERIC_READ | GENERIC_WRITE
                                            : FILE_READ_ATTRIBUTES;
  DWORD shared = 0;
  for (const wchar_t letter : share == L"none" ? std::wstring_view() : share)
    shared |= letter == L'r' ? FILE_SHARE_READ : letter == L'w' ? FILE_SHARE_WRITE : FILE_SHARE_DELETE;
  return CreateFileW(path, rights, shared, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr) !=
         INVALID_HANDLE_VALUE;
}

}  // namespace

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  const std::wstring_view what = argc > 1 ? argv[1] : L"";
  const bool held = what == L"mutex" && argc == 3 ? HoldMutex(argv[2])
                                                  : what == L"open" && argc == 5 && HoldOpen(argv[2], argv[3], argv[4]);
  if (!held) return 1;
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  return 0;
}
