// hold_open PATH ACCESS SHARE: opens the file or folder and holds it until standard input ends. Prints "held" once it
// has it. ACCESS is "read", "write" or "attributes" (which no share mode stands against); SHARE is any of the letters
// r, w and d, or "none".
#include <windows.h>

#include <cstdio>
#include <cwchar>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  if (argc != 4) return 2;
  const DWORD access = std::wcscmp(argv[2], L"read") == 0    ? GENERIC_READ
                       : std::wcscmp(argv[2], L"write") == 0 ? GENERIC_READ | GENERIC_WRITE
                                                             : FILE_READ_ATTRIBUTES;
  DWORD share = 0;
  if (std::wcscmp(argv[3], L"none") != 0)
    for (const wchar_t* letter = argv[3]; *letter; ++letter)
      share |= *letter == L'r' ? FILE_SHARE_READ : *letter == L'w' ? FILE_SHARE_WRITE : FILE_SHARE_DELETE;
  const HANDLE file = CreateFileW(argv[1], access, share, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 1;
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  CloseHandle(file);
  return 0;
}
