// Processes, threads and their memory. Every function behaves, returns and sets the last error as Windows' own of that
// name.
#pragma once

#include "win32/constants.h"

namespace win32 {

HANDLE OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId);
BOOL DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle, HANDLE hTargetProcessHandle,
                     HANDLE* lpTargetHandle, DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwOptions);

// The processes of all sessions as the terminal service tells them. A process that it cannot look into has no SID
// (null).
struct WTS_PROCESS_INFOW {
  DWORD SessionId;
  DWORD ProcessId;
  char16_t* pProcessName;
  PSID pUserSid;
};
inline constexpr HANDLE WTS_CURRENT_SERVER_HANDLE = nullptr;
BOOL WTSEnumerateProcessesW(HANDLE hServer, DWORD Reserved, DWORD Version, WTS_PROCESS_INFOW** ppProcessInfo,
                            DWORD* pCount);  // Reserved 0, Version 1
void WTSFreeMemory(void* pMemory);

using LPTHREAD_START_ROUTINE = DWORD (*)(void* lpThreadParameter);
// lpThreadAttributes: null. dwCreationFlags: 0. lpThreadId may be null.
HANDLE CreateThread(SECURITY_ATTRIBUTES* lpThreadAttributes, SIZE_T dwStackSize, LPTHREAD_START_ROUTINE lpStartAddress,
                    void* lpParameter, DWORD dwCreationFlags, DWORD* lpThreadId);
BOOL TerminateThread(HANDLE hThread, DWORD dwExitCode);
// Of a thread, a process or a mutex: WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED with the last error.
DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);

void* VirtualAlloc(void* lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect);
BOOL VirtualFree(void* lpAddress, SIZE_T dwSize, DWORD dwFreeType);

// What `__try { call(context) } __except (filter(GetExceptionCode())) {}` does, which not every compiler has: a
// structured exception (an access violation, ...) during `call` goes to `filter`; when that answers
// EXCEPTION_EXECUTE_HANDLER, the call is given up and the answer is FALSE. Frames of `call` are left without their
// destructors. C++ exceptions pass through.
BOOL CallWithExceptionFilter(void (*call)(void* context), void* context, LONG (*filter)(DWORD exceptionCode));

}  // namespace win32
