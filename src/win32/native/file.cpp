#include "win32/file.h"

#include <bit>

#include "win32/native/cast.h"

namespace win32 {

using native::As;
using native::Wide;

HANDLE CreateFileW(const char16_t* lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   SECURITY_ATTRIBUTES* lpSecurityAttributes, DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes,
                   HANDLE hTemplateFile) {
  return ::CreateFileW(Wide(lpFileName), dwDesiredAccess, dwShareMode, As<::SECURITY_ATTRIBUTES>(lpSecurityAttributes),
                       dwCreationDisposition, dwFlagsAndAttributes, hTemplateFile);
}

BOOL ReadFile(HANDLE hFile, void* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead,
              OVERLAPPED* lpOverlapped) {
  return ::ReadFile(hFile, lpBuffer, nNumberOfBytesToRead, lpNumberOfBytesRead,
                    reinterpret_cast<::OVERLAPPED*>(lpOverlapped));
}

BOOL WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten,
               OVERLAPPED* lpOverlapped) {
  return ::WriteFile(hFile, lpBuffer, nNumberOfBytesToWrite, lpNumberOfBytesWritten,
                     reinterpret_cast<::OVERLAPPED*>(lpOverlapped));
}

DWORD GetFileSize(HANDLE hFile, DWORD* lpFileSizeHigh) { return ::GetFileSize(hFile, lpFileSizeHigh); }

DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG* lpDistanceToMoveHigh, DWORD dwMoveMethod) {
  return ::SetFilePointer(hFile, lDistanceToMove, lpDistanceToMoveHigh, dwMoveMethod);
}

BOOL SetEndOfFile(HANDLE hFile) { return ::SetEndOfFile(hFile); }

BOOL FlushFileBuffers(HANDLE hFile) { return ::FlushFileBuffers(hFile); }

BOOL GetFileTime(HANDLE hFile, FILETIME* lpCreationTime, FILETIME* lpLastAccessTime, FILETIME* lpLastWriteTime) {
  return ::GetFileTime(hFile, As<::FILETIME>(lpCreationTime), As<::FILETIME>(lpLastAccessTime),
                       As<::FILETIME>(lpLastWriteTime));
}

BOOL SetFileTime(HANDLE hFile, const FILETIME* lpCreationTime, const FILETIME* lpLastAccessTime,
                 const FILETIME* lpLastWriteTime) {
  return ::SetFileTime(hFile, As<const ::FILETIME>(lpCreationTime), As<const ::FILETIME>(lpLastAccessTime),
                       As<const ::FILETIME>(lpLastWriteTime));
}

BOOL GetFileInformationByHandle(HANDLE hFile, BY_HANDLE_FILE_INFORMATION* lpFileInformation) {
  return ::GetFileInformationByHandle(hFile, As<::BY_HANDLE_FILE_INFORMATION>(lpFileInformation));
}

BOOL SetFileInformationByHandle(HANDLE hFile, int FileInformationClass, void* lpFileInformation, DWORD dwBufferSize) {
  return ::SetFileInformationByHandle(hFile, static_cast<::FILE_INFO_BY_HANDLE_CLASS>(FileInformationClass),
                                      lpFileInformation, dwBufferSize);
}

DWORD GetFileAttributesW(const char16_t* lpFileName) { return ::GetFileAttributesW(Wide(lpFileName)); }

BOOL GetFileAttributesExW(const char16_t* lpFileName, int fInfoLevelId, void* lpFileInformation) {
  return ::GetFileAttributesExW(Wide(lpFileName), static_cast<::GET_FILEEX_INFO_LEVELS>(fInfoLevelId),
                                lpFileInformation);
}

BOOL SetFileAttributesW(const char16_t* lpFileName, DWORD dwFileAttributes) {
  return ::SetFileAttributesW(Wide(lpFileName), dwFileAttributes);
}

BOOL CreateDirectoryW(const char16_t* lpPathName, SECURITY_ATTRIBUTES* lpSecurityAttributes) {
  return ::CreateDirectoryW(Wide(lpPathName), As<::SECURITY_ATTRIBUTES>(lpSecurityAttributes));
}

BOOL CreateDirectoryExW(const char16_t* lpTemplateDirectory, const char16_t* lpNewDirectory,
                        SECURITY_ATTRIBUTES* lpSecurityAttributes) {
  return ::CreateDirectoryExW(Wide(lpTemplateDirectory), Wide(lpNewDirectory),
                              As<::SECURITY_ATTRIBUTES>(lpSecurityAttributes));
}

BOOL RemoveDirectoryW(const char16_t* lpPathName) { return ::RemoveDirectoryW(Wide(lpPathName)); }

BOOL DeleteFileW(const char16_t* lpFileName) { return ::DeleteFileW(Wide(lpFileName)); }

BOOL MoveFileW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName) {
  return ::MoveFileW(Wide(lpExistingFileName), Wide(lpNewFileName));
}

BOOL MoveFileExW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName, DWORD dwFlags) {
  return ::MoveFileExW(Wide(lpExistingFileName), Wide(lpNewFileName), dwFlags);
}

BOOL CopyFileExW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName,
                 LPPROGRESS_ROUTINE lpProgressRoutine, void* lpData, BOOL* pbCancel, DWORD dwCopyFlags) {
  // On x64 there is one calling convention only, and a union of one number is passed as the number.
  return ::CopyFileExW(Wide(lpExistingFileName), Wide(lpNewFileName),
                       std::bit_cast<::LPPROGRESS_ROUTINE>(lpProgressRoutine), lpData, pbCancel, dwCopyFlags);
}

BOOL CreateHardLinkW(const char16_t* lpFileName, const char16_t* lpExistingFileName,
                     SECURITY_ATTRIBUTES* lpSecurityAttributes) {
  return ::CreateHardLinkW(Wide(lpFileName), Wide(lpExistingFileName), As<::SECURITY_ATTRIBUTES>(lpSecurityAttributes));
}

BOOL EncryptFileW(const char16_t* lpFileName) { return ::EncryptFileW(Wide(lpFileName)); }

HANDLE FindFirstFileW(const char16_t* lpFileName, WIN32_FIND_DATAW* lpFindFileData) {
  return ::FindFirstFileW(Wide(lpFileName), As<::WIN32_FIND_DATAW>(lpFindFileData));
}

BOOL FindNextFileW(HANDLE hFindFile, WIN32_FIND_DATAW* lpFindFileData) {
  return ::FindNextFileW(hFindFile, As<::WIN32_FIND_DATAW>(lpFindFileData));
}

BOOL FindClose(HANDLE hFindFile) { return ::FindClose(hFindFile); }

HANDLE CreateFileMappingW(HANDLE hFile, SECURITY_ATTRIBUTES* lpFileMappingAttributes, DWORD flProtect,
                          DWORD dwMaximumSizeHigh, DWORD dwMaximumSizeLow, const char16_t* lpName) {
  return ::CreateFileMappingW(hFile, As<::SECURITY_ATTRIBUTES>(lpFileMappingAttributes), flProtect, dwMaximumSizeHigh,
                              dwMaximumSizeLow, Wide(lpName));
}

void* MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                    SIZE_T dwNumberOfBytesToMap) {
  return ::MapViewOfFile(hFileMappingObject, dwDesiredAccess, dwFileOffsetHigh, dwFileOffsetLow, dwNumberOfBytesToMap);
}

BOOL UnmapViewOfFile(const void* lpBaseAddress) { return ::UnmapViewOfFile(lpBaseAddress); }

BOOL WaitNamedPipeW(const char16_t* lpNamedPipeName, DWORD nTimeOut) {
  return ::WaitNamedPipeW(Wide(lpNamedPipeName), nTimeOut);
}

BOOL DeviceIoControl(HANDLE hDevice, DWORD dwIoControlCode, void* lpInBuffer, DWORD nInBufferSize, void* lpOutBuffer,
                     DWORD nOutBufferSize, DWORD* lpBytesReturned, OVERLAPPED* lpOverlapped) {
  return ::DeviceIoControl(hDevice, dwIoControlCode, lpInBuffer, nInBufferSize, lpOutBuffer, nOutBufferSize,
                           lpBytesReturned, reinterpret_cast<::OVERLAPPED*>(lpOverlapped));
}

BOOL BackupRead(HANDLE hFile, BYTE* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead, BOOL bAbort,
                BOOL bProcessSecurity, void** lpContext) {
  return ::BackupRead(hFile, lpBuffer, nNumberOfBytesToRead, lpNumberOfBytesRead, bAbort, bProcessSecurity, lpContext);
}

BOOL BackupWrite(HANDLE hFile, BYTE* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten, BOOL bAbort,
                 BOOL bProcessSecurity, void** lpContext) {
  return ::BackupWrite(hFile, lpBuffer, nNumberOfBytesToWrite, lpNumberOfBytesWritten, bAbort, bProcessSecurity,
                       lpContext);
}

}  // namespace win32
