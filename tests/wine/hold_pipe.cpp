// hold_pipe: holds both ends of a synchronous pipe, one of them with a read that never comes to an end, until standard
// input ends. Prints "held" once the read is under way. On Windows, whoever asks for that handle's name waits as long
// as the read does.
#include <windows.h>

#include <cstdio>

namespace {

DWORD WINAPI ReadForEver(void* pipe) {
  char byte = 0;
  DWORD read = 0;
  ReadFile(pipe, &byte, 1, &read, nullptr);
  return 0;
}

}  // namespace

int wmain();

int wmain() {
  constexpr wchar_t kName[] = L"\\\\.\\pipe\\qbc-test-hold-pipe";
  const HANDLE server =
      CreateNamedPipeW(kName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 4096, 4096, 0, nullptr);
  if (server == INVALID_HANDLE_VALUE) return 1;
  const HANDLE client = CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (client == INVALID_HANDLE_VALUE) return 1;
  const HANDLE reader = CreateThread(nullptr, 0, ReadForEver, server, 0, nullptr);
  if (!reader) return 1;
  // The read cannot be seen from here; a thread that waits in it for so long does not end by itself.
  if (WaitForSingleObject(reader, 200) != WAIT_TIMEOUT) return 1;
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  // Neither end is closed: that would wait for the read.
  TerminateProcess(GetCurrentProcess(), 0);
  return 0;
}
