// A service that does nothing: it runs until it is stopped. Its executable marks the folder for the log file.
#include <windows.h>

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

DWORD WINAPI Control(DWORD control, DWORD, void*, void*) {
  if (control == SERVICE_CONTROL_INTERROGATE) return NO_ERROR;
  if (control != SERVICE_CONTROL_STOP) return ERROR_CALL_NOT_IMPLEMENTED;
  Report(SERVICE_STOP_PENDING);
  SetEvent(stopped);
  return NO_ERROR;
}

void WINAPI Run(DWORD, wchar_t**) {
  statusHandle = RegisterServiceCtrlHandlerExW(L"", Control, nullptr);
  if (!statusHandle) return;
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
