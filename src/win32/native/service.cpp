#include "win32/service.h"

#include "win32/native/cast.h"

namespace win32 {

using native::As;
using native::AsHandle;
using native::Wide;

namespace {

::SC_HANDLE Service(SC_HANDLE handle) { return AsHandle<::SC_HANDLE>(handle); }

}  // namespace

SC_HANDLE OpenSCManagerW(const char16_t* lpMachineName, const char16_t* lpDatabaseName, DWORD dwDesiredAccess) {
  return ::OpenSCManagerW(Wide(lpMachineName), Wide(lpDatabaseName), dwDesiredAccess);
}

SC_HANDLE OpenServiceW(SC_HANDLE hSCManager, const char16_t* lpServiceName, DWORD dwDesiredAccess) {
  return ::OpenServiceW(Service(hSCManager), Wide(lpServiceName), dwDesiredAccess);
}

BOOL CloseServiceHandle(SC_HANDLE hSCObject) { return ::CloseServiceHandle(Service(hSCObject)); }

BOOL QueryServiceConfigW(SC_HANDLE hService, QUERY_SERVICE_CONFIGW* lpServiceConfig, DWORD cbBufSize,
                         DWORD* pcbBytesNeeded) {
  return ::QueryServiceConfigW(Service(hService), As<::QUERY_SERVICE_CONFIGW>(lpServiceConfig), cbBufSize,
                               pcbBytesNeeded);
}

BOOL ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          const char16_t* lpBinaryPathName, const char16_t* lpLoadOrderGroup, DWORD* lpdwTagId,
                          const char16_t* lpDependencies, const char16_t* lpServiceStartName,
                          const char16_t* lpPassword, const char16_t* lpDisplayName) {
  return ::ChangeServiceConfigW(Service(hService), dwServiceType, dwStartType, dwErrorControl, Wide(lpBinaryPathName),
                                Wide(lpLoadOrderGroup), lpdwTagId, Wide(lpDependencies), Wide(lpServiceStartName),
                                Wide(lpPassword), Wide(lpDisplayName));
}

BOOL QueryServiceStatus(SC_HANDLE hService, SERVICE_STATUS* lpServiceStatus) {
  return ::QueryServiceStatus(Service(hService), As<::SERVICE_STATUS>(lpServiceStatus));
}

BOOL StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, const char16_t** lpServiceArgVectors) {
  return ::StartServiceW(Service(hService), dwNumServiceArgs, As<const wchar_t*>(lpServiceArgVectors));
}

BOOL ControlService(SC_HANDLE hService, DWORD dwControl, SERVICE_STATUS* lpServiceStatus) {
  return ::ControlService(Service(hService), dwControl, As<::SERVICE_STATUS>(lpServiceStatus));
}

}  // namespace win32
