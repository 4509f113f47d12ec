#include "win32/system.h"

#include <bit>

#include "win32/native/wine.h"

#include "win32/native/cast.h"

#include <objbase.h>
#include <winver.h>

namespace win32 {

using native::As;
using native::AsHandle;
using native::Wide;

namespace {

::HMODULE Module(HMODULE module) { return AsHandle<::HMODULE>(module); }

}  // namespace

DWORD GetLastError() { return ::GetLastError(); }

void SetLastError(DWORD dwErrCode) { ::SetLastError(dwErrCode); }

BOOL CloseHandle(HANDLE hObject) { return ::CloseHandle(hObject); }

HANDLE CreateMutexW(SECURITY_ATTRIBUTES* lpMutexAttributes, BOOL bInitialOwner, const char16_t* lpName) {
  return ::CreateMutexW(As<::SECURITY_ATTRIBUTES>(lpMutexAttributes), bInitialOwner, Wide(lpName));
}

HANDLE GetCurrentProcess() { return ::GetCurrentProcess(); }

HANDLE GetCurrentThread() { return ::GetCurrentThread(); }

DWORD GetCurrentProcessId() { return ::GetCurrentProcessId(); }

DWORD GetCurrentThreadId() { return ::GetCurrentThreadId(); }

void Sleep(DWORD dwMilliseconds) { ::Sleep(dwMilliseconds); }

DWORD GetTickCount() { return ::GetTickCount(); }

void GetLocalTime(SYSTEMTIME* lpSystemTime) { ::GetLocalTime(As<::SYSTEMTIME>(lpSystemTime)); }

void InitializeCriticalSection(CRITICAL_SECTION* lpCriticalSection) {
  ::InitializeCriticalSection(As<::CRITICAL_SECTION>(lpCriticalSection));
}

void EnterCriticalSection(CRITICAL_SECTION* lpCriticalSection) {
  ::EnterCriticalSection(As<::CRITICAL_SECTION>(lpCriticalSection));
}

void LeaveCriticalSection(CRITICAL_SECTION* lpCriticalSection) {
  ::LeaveCriticalSection(As<::CRITICAL_SECTION>(lpCriticalSection));
}

void DeleteCriticalSection(CRITICAL_SECTION* lpCriticalSection) {
  ::DeleteCriticalSection(As<::CRITICAL_SECTION>(lpCriticalSection));
}

void OutputDebugStringW(const char16_t* lpOutputString) { ::OutputDebugStringW(Wide(lpOutputString)); }

HANDLE GetProcessHeap() { return ::GetProcessHeap(); }

void* HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes) { return ::HeapAlloc(hHeap, dwFlags, dwBytes); }

BOOL HeapFree(HANDLE hHeap, DWORD dwFlags, void* lpMem) { return ::HeapFree(hHeap, dwFlags, lpMem); }

void* LocalLock(HLOCAL hMem) { return ::LocalLock(hMem); }

BOOL LocalUnlock(HLOCAL hMem) { return ::LocalUnlock(hMem); }

HLOCAL LocalFree(HLOCAL hMem) { return ::LocalFree(hMem); }

HRESULT CoInitializeEx(void* pvReserved, DWORD dwCoInit) { return ::CoInitializeEx(pvReserved, dwCoInit); }

void CoUninitialize() { ::CoUninitialize(); }

HRESULT CoCreateGuid(GUID* pguid) { return ::CoCreateGuid(As<::GUID>(pguid)); }

int StringFromGUID2(const GUID& rguid, char16_t* lpsz, int cchMax) {
  return ::StringFromGUID2(*As<const ::GUID>(&rguid), Wide(lpsz), cchMax);
}

HANDLE GetStdHandle(DWORD nStdHandle) { return ::GetStdHandle(nStdHandle); }

BOOL GetVersionExW(OSVERSIONINFOEXW* lpVersionInformation) {
  return ::GetVersionExW(reinterpret_cast<::OSVERSIONINFOW*>(lpVersionInformation));
}

DWORD ExpandEnvironmentStringsW(const char16_t* lpSrc, char16_t* lpDst, DWORD nSize) {
  return ::ExpandEnvironmentStringsW(Wide(lpSrc), Wide(lpDst), nSize);
}

int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, const char16_t* lpWideCharStr, int cchWideChar,
                        char* lpMultiByteStr, int cbMultiByte, const char* lpDefaultChar, BOOL* lpUsedDefaultChar) {
  return ::WideCharToMultiByte(CodePage, dwFlags, Wide(lpWideCharStr), cchWideChar, lpMultiByteStr, cbMultiByte,
                               lpDefaultChar, lpUsedDefaultChar);
}

UINT GetSystemDirectoryW(char16_t* lpBuffer, UINT uSize) { return ::GetSystemDirectoryW(Wide(lpBuffer), uSize); }

HMODULE GetModuleHandleW(const char16_t* lpModuleName) { return ::GetModuleHandleW(Wide(lpModuleName)); }

DWORD GetModuleFileNameW(HMODULE hModule, char16_t* lpFilename, DWORD nSize) {
  return ::GetModuleFileNameW(Module(hModule), Wide(lpFilename), nSize);
}

HMODULE LoadLibraryW(const char16_t* lpLibFileName) { return ::LoadLibraryW(Wide(lpLibFileName)); }

HMODULE LoadLibraryExW(const char16_t* lpLibFileName, HANDLE hFile, DWORD dwFlags) {
  return ::LoadLibraryExW(Wide(lpLibFileName), hFile, dwFlags);
}

BOOL FreeLibrary(HMODULE hLibModule) { return ::FreeLibrary(Module(hLibModule)); }

FARPROC GetProcAddress(HMODULE hModule, const char* lpProcName) {
  // Windows' type for "some function" returns INT_PTR, ours nothing: neither is the function's own, which the caller
  // names.
  return native::AsOnWindows(hModule, lpProcName,
                             std::bit_cast<FARPROC>(::GetProcAddress(Module(hModule), lpProcName)));
}

HRSRC FindResourceW(HMODULE hModule, const char16_t* lpName, const char16_t* lpType) {
  return ::FindResourceW(Module(hModule), Wide(lpName), Wide(lpType));
}

HRSRC FindResourceExW(HMODULE hModule, const char16_t* lpType, const char16_t* lpName, WORD wLanguage) {
  return ::FindResourceExW(Module(hModule), Wide(lpType), Wide(lpName), wLanguage);
}

HGLOBAL LoadResource(HMODULE hModule, HRSRC hResInfo) {
  return ::LoadResource(Module(hModule), AsHandle<::HRSRC>(hResInfo));
}

void* LockResource(HGLOBAL hResData) { return ::LockResource(hResData); }

DWORD SizeofResource(HMODULE hModule, HRSRC hResInfo) {
  return ::SizeofResource(Module(hModule), AsHandle<::HRSRC>(hResInfo));
}

DWORD GetFileVersionInfoSizeW(const char16_t* lptstrFilename, DWORD* lpdwHandle) {
  return ::GetFileVersionInfoSizeW(Wide(lptstrFilename), lpdwHandle);
}

BOOL GetFileVersionInfoW(const char16_t* lptstrFilename, DWORD dwHandle, DWORD dwLen, void* lpData) {
  return ::GetFileVersionInfoW(Wide(lptstrFilename), dwHandle, dwLen, lpData);
}

BOOL VerQueryValueW(const void* pBlock, const char16_t* lpSubBlock, void** lplpBuffer, UINT* puLen) {
  return ::VerQueryValueW(pBlock, Wide(lpSubBlock), lplpBuffer, puLen);
}

DWORD FormatMessageW(DWORD dwFlags, const void* lpSource, DWORD dwMessageId, DWORD dwLanguageId, char16_t* lpBuffer,
                     DWORD nSize) {
  return ::FormatMessageW(dwFlags, lpSource, dwMessageId, dwLanguageId, Wide(lpBuffer), nSize, nullptr);
}

}  // namespace win32
