// Holds what it is told to until its standard input ends; prints "held" once it has it.
//   hold mutex NAME
//   hold open PATH ACCESS SHARE
//     A file or folder. ACCESS is "read", "write" or "attributes" (which no share mode stands against); SHARE is any of
//     the letters r, w and d, or "none".
//   hold pipe
//     Both ends of a synchronous pipe, one of them with a read that never comes to an end. On Windows, whoever asks for
//     that handle's name waits as long as the read does.
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

DWORD WINAPI ReadForEver(void* pipe) {
  char byte = 0;
  DWORD read = 0;
  ReadFile(pipe, &byte, 1, &read, nullptr);
  return 0;
}

bool HoldPipe() {
  constexpr wchar_t kName[] = L"\\\\.\\pipe\\qbc-test-hold-pipe";
  const HANDLE server =
      CreateNamedPipeW(kName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 4096, 4096, 0, nullptr);
  if (server == INVALID_HANDLE_VALUE) return false;
  const HANDLE client = CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const HANDLE reader = CreateThread(nullptr, 0, ReadForEver, server, 0, nullptr);
  // The read cannot be seen from here; a thread that waits in it for so long does not end by itself.
  return client != INVALID_HANDLE_VALUE && reader && WaitForSingleObject(reader, 200) == WAIT_TIMEOUT;
}

}  // namespace

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  const std::wstring_view what = argc > 1 ? argv[1] : L"";
  const bool held = what == L"mutex" && argc == 3  ? HoldMutex(argv[2])
                    : what == L"open" && argc == 5 ? HoldOpen(argv[2], argv[3], argv[4])
                                                   : what == L"pipe" && HoldPipe();
  if (!held) return 1;
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  // Nothing is closed: a pipe's end would wait for the read.
  TerminateProcess(GetCurrentProcess(), 0);
  return 0;
}
