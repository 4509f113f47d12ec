// Processes, memory, time, modules, resources and texts. Every function behaves, returns and sets the last error as
// Windows' own of that name.
#pragma once

#include "win32/constants.h"

namespace win32 {

DWORD GetLastError();
void SetLastError(DWORD dwErrCode);

BOOL CloseHandle(HANDLE hObject);
HANDLE CreateMutexW(SECURITY_ATTRIBUTES* lpMutexAttributes, BOOL bInitialOwner, const char16_t* lpName);
HANDLE GetCurrentProcess();
HANDLE GetCurrentThread();
DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();
void Sleep(DWORD dwMilliseconds);
DWORD GetTickCount();  // milliseconds since the start of the machine; begins again at 0 after 49.7 days
void GetLocalTime(SYSTEMTIME* lpSystemTime);
void InitializeCriticalSection(CRITICAL_SECTION* lpCriticalSection);
void EnterCriticalSection(CRITICAL_SECTION* lpCriticalSection);
void LeaveCriticalSection(CRITICAL_SECTION* lpCriticalSection);
void DeleteCriticalSection(CRITICAL_SECTION* lpCriticalSection);
void OutputDebugStringW(const char16_t* lpOutputString);

HANDLE GetProcessHeap();
void* HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes);
BOOL HeapFree(HANDLE hHeap, DWORD dwFlags, void* lpMem);
void* LocalLock(HLOCAL hMem);
BOOL LocalUnlock(HLOCAL hMem);
HLOCAL LocalFree(HLOCAL hMem);
HRESULT CoInitializeEx(void* pvReserved, DWORD dwCoInit);
void CoUninitialize();
HRESULT CoCreateGuid(GUID* pguid);
// "{00000000-0000-0000-0000-000000000000}", digits and capitals; the number of characters with the terminator, 0 when
// they do not fit.
int StringFromGUID2(const GUID& rguid, char16_t* lpsz, int cchMax);

HANDLE GetStdHandle(DWORD nStdHandle);                       // nStdHandle: STD_OUTPUT_HANDLE
BOOL GetVersionExW(OSVERSIONINFOEXW* lpVersionInformation);  // dwOSVersionInfoSize 284 or 276, see OSVERSIONINFOEXW
DWORD ExpandEnvironmentStringsW(const char16_t* lpSrc, char16_t* lpDst, DWORD nSize);
int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, const char16_t* lpWideCharStr, int cchWideChar,
                        char* lpMultiByteStr, int cbMultiByte, const char* lpDefaultChar, BOOL* lpUsedDefaultChar);
UINT GetSystemDirectoryW(char16_t* lpBuffer, UINT uSize);

HMODULE GetModuleHandleW(const char16_t* lpModuleName);
DWORD GetModuleFileNameW(HMODULE hModule, char16_t* lpFilename, DWORD nSize);
HMODULE LoadLibraryW(const char16_t* lpLibFileName);
HMODULE LoadLibraryExW(const char16_t* lpLibFileName, HANDLE hFile, DWORD dwFlags);
BOOL FreeLibrary(HMODULE hLibModule);
FARPROC GetProcAddress(HMODULE hModule, const char* lpProcName);

// A resource's type or name is a text, or a number made into a pointer by MakeIntResource.
inline const char16_t* MakeIntResource(WORD id) {
  return reinterpret_cast<const char16_t*>(static_cast<ULONG_PTR>(id));
}
inline constexpr WORD RT_STRING = 6;
inline constexpr WORD RT_VERSION = 16;
HRSRC FindResourceW(HMODULE hModule, const char16_t* lpName, const char16_t* lpType);
HRSRC FindResourceExW(HMODULE hModule, const char16_t* lpType, const char16_t* lpName, WORD wLanguage);
HGLOBAL LoadResource(HMODULE hModule, HRSRC hResInfo);
void* LockResource(HGLOBAL hResData);
DWORD SizeofResource(HMODULE hModule, HRSRC hResInfo);
DWORD GetFileVersionInfoSizeW(const char16_t* lptstrFilename, DWORD* lpdwHandle);
BOOL GetFileVersionInfoW(const char16_t* lptstrFilename, DWORD dwHandle, DWORD dwLen, void* lpData);
BOOL VerQueryValueW(const void* pBlock, const char16_t* lpSubBlock, void** lplpBuffer, UINT* puLen);

// With FORMAT_MESSAGE_ALLOCATE_BUFFER lpBuffer points to a pointer that receives the text, freed with LocalFree.
// No inserts are taken: the caller passes FORMAT_MESSAGE_IGNORE_INSERTS.
DWORD FormatMessageW(DWORD dwFlags, const void* lpSource, DWORD dwMessageId, DWORD dwLanguageId, char16_t* lpBuffer,
                     DWORD nSize);

}  // namespace win32
