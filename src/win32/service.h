// The service control manager. Every function behaves, returns and sets the last error as Windows' own of that name.
#pragma once

#include "win32/constants.h"

namespace win32 {

SC_HANDLE OpenSCManagerW(const char16_t* lpMachineName, const char16_t* lpDatabaseName, DWORD dwDesiredAccess);
SC_HANDLE OpenServiceW(SC_HANDLE hSCManager, const char16_t* lpServiceName, DWORD dwDesiredAccess);
BOOL CloseServiceHandle(SC_HANDLE hSCObject);
BOOL QueryServiceConfigW(SC_HANDLE hService, QUERY_SERVICE_CONFIGW* lpServiceConfig, DWORD cbBufSize,
                         DWORD* pcbBytesNeeded);
BOOL ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          const char16_t* lpBinaryPathName, const char16_t* lpLoadOrderGroup, DWORD* lpdwTagId,
                          const char16_t* lpDependencies, const char16_t* lpServiceStartName,
                          const char16_t* lpPassword, const char16_t* lpDisplayName);
BOOL QueryServiceStatus(SC_HANDLE hService, SERVICE_STATUS* lpServiceStatus);
BOOL StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, const char16_t** lpServiceArgVectors);
BOOL ControlService(SC_HANDLE hService, DWORD dwControl, SERVICE_STATUS* lpServiceStatus);

}  // namespace win32
