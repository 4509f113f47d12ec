#include "win32/process.h"

#include "win32/native/cast.h"

#include <wtsapi32.h>

namespace win32 {

using native::As;

HANDLE OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId) {
  return ::OpenProcess(dwDesiredAccess, bInheritHandle, dwProcessId);
}

BOOL DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle, HANDLE hTargetProcessHandle,
                     HANDLE* lpTargetHandle, DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwOptions) {
  return ::DuplicateHandle(hSourceProcessHandle, hSourceHandle, hTargetProcessHandle, lpTargetHandle, dwDesiredAccess,
                           bInheritHandle, dwOptions);
}

BOOL WTSEnumerateProcessesW(HANDLE hServer, DWORD Reserved, DWORD Version, WTS_PROCESS_INFOW** ppProcessInfo,
                            DWORD* pCount) {
  return ::WTSEnumerateProcessesW(hServer, Reserved, Version, As<::PWTS_PROCESS_INFOW>(ppProcessInfo), pCount);
}

void WTSFreeMemory(void* pMemory) { ::WTSFreeMemory(pMemory); }

// On x64 there is one calling convention only, so the start routine is called as it is.
HANDLE CreateThread(SECURITY_ATTRIBUTES* lpThreadAttributes, SIZE_T dwStackSize, LPTHREAD_START_ROUTINE lpStartAddress,
                    void* lpParameter, DWORD dwCreationFlags, DWORD* lpThreadId) {
  return ::CreateThread(As<::SECURITY_ATTRIBUTES>(lpThreadAttributes), dwStackSize, lpStartAddress, lpParameter,
                        dwCreationFlags, lpThreadId);
}

BOOL TerminateThread(HANDLE hThread, DWORD dwExitCode) { return ::TerminateThread(hThread, dwExitCode); }

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
  return ::WaitForSingleObject(hHandle, dwMilliseconds);
}

void* VirtualAlloc(void* lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect) {
  return ::VirtualAlloc(lpAddress, dwSize, flAllocationType, flProtect);
}

BOOL VirtualFree(void* lpAddress, SIZE_T dwSize, DWORD dwFreeType) {
  return ::VirtualFree(lpAddress, dwSize, dwFreeType);
}

}  // namespace win32
