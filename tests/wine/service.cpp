// A service that runs until it is stopped. Its executable marks the folder for the log file. Meanwhile it serves the
// product's pipe, client by client: what they write is added to "record.bin" beside the executable.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopped;

void Report(DWORD state) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  SetServiceStatus(statusHandle, &status);
}

void WINAPI Control(DWORD control) {
  if (control != SERVICE_CONTROL_STOP) return;
  Report(SERVICE_STOP_PENDING);
  SetEvent(stopped);
}

DWORD WINAPI ServePipe(void*) {
  std::wstring path(MAX_PATH, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
  path.replace(path.rfind(L'\\') + 1, path.npos, L"record.bin");
  FILE* const record = _wfopen(path.c_str(), L"ab");
  std::vector<char> buffer(65536);
  const HANDLE pipe =
      CreateNamedPipeW(L"\\\\.\\pipe\\QBDataPipe", PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1,
                       static_cast<DWORD>(buffer.size()), static_cast<DWORD>(buffer.size()), 0, nullptr);
  while (ConnectNamedPipe(pipe, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED) {
    for (DWORD read = 0; ReadFile(pipe, buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr);)
      std::fwrite(buffer.data(), 1, read, record);
    std::fflush(record);
    DisconnectNamedPipe(pipe);
  }
  return 0;
}

void WINAPI Run(DWORD, wchar_t**) {
  statusHandle = RegisterServiceCtrlHandlerW(L"", Control);
  CreateThread(nullptr, 0, ServePipe, nullptr, 0, nullptr);
  Report(SERVICE_RUNNING);
  WaitForSingleObject(stopped, INFINITE);
  Report(SERVICE_STOPPED);
}

}  // namespace

int wmain();

int wmain() {
  stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  wchar_t anyName[] = L"";  // an own-process service's name is not looked at
  const SERVICE_TABLE_ENTRYW services[] = {{anyName, Run}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(services) ? 0 : 1;
}
