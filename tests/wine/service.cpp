// A service that runs until it is stopped. Its executable marks the folder for the log file. It does nothing else,
// unless "pipe.txt" beside the executable tells it to serve the product's pipe. That file is a list of words:
//   SECONDS   another client (of ours) has the only instance for so long; then one client is served
//   vanish    after the next client the pipe is closed for good
// After the last word clients are served one by one. What they write goes to "record-1.bin", "record-2.bin", ... beside
// the executable, one file for each write.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr wchar_t kPipe[] = L"\\\\.\\pipe\\QBDataPipe";
constexpr DWORD kBuffer = 65536;

SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopped;

void Report(DWORD state) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI Control(DWORD control, DWORD, void*, void*) {
  if (control == SERVICE_CONTROL_INTERROGATE) return NO_ERROR;
  if (control != SERVICE_CONTROL_STOP) return ERROR_CALL_NOT_IMPLEMENTED;
  Report(SERVICE_STOP_PENDING);
  SetEvent(stopped);
  return NO_ERROR;
}

std::wstring Beside(const std::wstring& name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring own = path;
  return own.substr(0, own.rfind(L'\\') + 1) + name;
}

void KeepRecord(const std::vector<char>& buffer, DWORD size) {
  static int number = 0;
  const std::wstring name = Beside(L"record-" + std::to_wstring(++number) + L".bin");
  const HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  WriteFile(file, buffer.data(), size, &written, nullptr);
  CloseHandle(file);
}

// One client from its connection to its end.
void ServeClient(HANDLE pipe) {
  if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) return;
  std::vector<char> buffer(kBuffer);
  for (DWORD read = 0; ReadFile(pipe, buffer.data(), kBuffer, &read, nullptr);) KeepRecord(buffer, read);
  DisconnectNamedPipe(pipe);
}

// Nobody else gets the pipe for a time.
void Occupy(HANDLE pipe, DWORD seconds) {
  const HANDLE client = CreateFileW(kPipe, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  Sleep(seconds * 1000);
  CloseHandle(client);
  DisconnectNamedPipe(pipe);
}

std::vector<std::string> Script() {
  std::vector<std::string> words;
  if (FILE* const file = _wfopen(Beside(L"pipe.txt").c_str(), L"r")) {
    char word[16];
    while (std::fscanf(file, "%15s", word) == 1) words.emplace_back(word);
    std::fclose(file);
  }
  return words;
}

DWORD WINAPI ServePipe(void*) {
  const HANDLE pipe = CreateNamedPipeW(kPipe, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1,
                                       kBuffer, kBuffer, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) return 1;
  for (const std::string& word : Script()) {
    if (word != "vanish") Occupy(pipe, std::strtoul(word.c_str(), nullptr, 10));
    ServeClient(pipe);
    if (word != "vanish") continue;
    CloseHandle(pipe);
    return 0;
  }
  for (;;) ServeClient(pipe);
}

void WINAPI Run(DWORD, wchar_t**) {
  statusHandle = RegisterServiceCtrlHandlerExW(L"", Control, nullptr);
  if (!statusHandle) return;
  if (GetFileAttributesW(Beside(L"pipe.txt").c_str()) != INVALID_FILE_ATTRIBUTES)
    CreateThread(nullptr, 0, ServePipe, nullptr, 0, nullptr);
  Report(SERVICE_RUNNING);
  WaitForSingleObject(stopped, INFINITE);
  Report(SERVICE_STOPPED);
}

}  // namespace

int wmain();

int wmain() {
  stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!stopped) return 1;
  wchar_t anyName[] = L"";  // an own-process service's name is not looked at
  const SERVICE_TABLE_ENTRYW services[] = {{anyName, Run}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(services) ? 0 : 1;
}
