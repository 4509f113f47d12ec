// hold_mutex NAME: holds the named mutex until its standard input ends. Prints "held" once it has it.
#include <windows.h>

#include <cstdio>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) return 2;
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, argv[1]);
  if (!mutex || GetLastError() == ERROR_ALREADY_EXISTS) return 1;
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  CloseHandle(mutex);
  return 0;
}
