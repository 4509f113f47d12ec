// Holds what it is told to until its standard input ends; prints "held" once it has it.
//   hold NAME                 a mutex
//   hold PATH ACCESS SHARE    a file or folder, opened so (numbers as CreateFileW takes them)
#include <windows.h>

#include <cstdio>
#include <cwchar>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  const bool held = argc == 2 ? CreateMutexW(nullptr, TRUE, argv[1]) != nullptr
                              : argc == 4 && CreateFileW(argv[1], std::wcstoul(argv[2], nullptr, 0),
                                                         std::wcstoul(argv[3], nullptr, 0), nullptr, OPEN_EXISTING,
                                                         FILE_FLAG_BACKUP_SEMANTICS, nullptr) != INVALID_HANDLE_VALUE;
  if (!held) return 1;
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) continue;
  return 0;
}
