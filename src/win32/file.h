// Files and directories. Every function behaves, returns and sets the last error as Windows' own of that name.
#pragma once

#include "win32/constants.h"

namespace win32 {

HANDLE CreateFileW(const char16_t* lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   SECURITY_ATTRIBUTES* lpSecurityAttributes, DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes,
                   HANDLE hTemplateFile);
BOOL ReadFile(HANDLE hFile, void* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead,
              OVERLAPPED* lpOverlapped);
BOOL WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten,
               OVERLAPPED* lpOverlapped);
DWORD GetFileSize(HANDLE hFile, DWORD* lpFileSizeHigh);
DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG* lpDistanceToMoveHigh, DWORD dwMoveMethod);
BOOL SetEndOfFile(HANDLE hFile);
BOOL FlushFileBuffers(HANDLE hFile);
BOOL GetFileTime(HANDLE hFile, FILETIME* lpCreationTime, FILETIME* lpLastAccessTime, FILETIME* lpLastWriteTime);
BOOL SetFileTime(HANDLE hFile, const FILETIME* lpCreationTime, const FILETIME* lpLastAccessTime,
                 const FILETIME* lpLastWriteTime);
BOOL GetFileInformationByHandle(HANDLE hFile, BY_HANDLE_FILE_INFORMATION* lpFileInformation);
// FileInformationClass: FileDispositionInfo, with a FILE_DISPOSITION_INFO.
BOOL SetFileInformationByHandle(HANDLE hFile, int FileInformationClass, void* lpFileInformation, DWORD dwBufferSize);

DWORD GetFileAttributesW(const char16_t* lpFileName);
// fInfoLevelId: GetFileExInfoStandard, with a WIN32_FILE_ATTRIBUTE_DATA.
BOOL GetFileAttributesExW(const char16_t* lpFileName, int fInfoLevelId, void* lpFileInformation);
BOOL SetFileAttributesW(const char16_t* lpFileName, DWORD dwFileAttributes);
BOOL CreateDirectoryW(const char16_t* lpPathName, SECURITY_ATTRIBUTES* lpSecurityAttributes);
BOOL CreateDirectoryExW(const char16_t* lpTemplateDirectory, const char16_t* lpNewDirectory,
                        SECURITY_ATTRIBUTES* lpSecurityAttributes);
BOOL RemoveDirectoryW(const char16_t* lpPathName);
BOOL DeleteFileW(const char16_t* lpFileName);
BOOL MoveFileW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName);
BOOL MoveFileExW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName, DWORD dwFlags);
// Called at the beginning of each stream and after each piece; answers PROGRESS_CONTINUE or PROGRESS_CANCEL.
using LPPROGRESS_ROUTINE = DWORD (*)(LARGE_INTEGER TotalFileSize, LARGE_INTEGER TotalBytesTransferred,
                                     LARGE_INTEGER StreamSize, LARGE_INTEGER StreamBytesTransferred,
                                     DWORD dwStreamNumber, DWORD dwCallbackReason, HANDLE hSourceFile,
                                     HANDLE hDestinationFile, void* lpData);
// lpProgressRoutine may be null; pbCancel: null; dwCopyFlags: 0 or COPY_FILE_FAIL_IF_EXISTS.
BOOL CopyFileExW(const char16_t* lpExistingFileName, const char16_t* lpNewFileName,
                 LPPROGRESS_ROUTINE lpProgressRoutine, void* lpData, BOOL* pbCancel, DWORD dwCopyFlags);
BOOL CreateHardLinkW(const char16_t* lpFileName, const char16_t* lpExistingFileName,
                     SECURITY_ATTRIBUTES* lpSecurityAttributes);
BOOL EncryptFileW(const char16_t* lpFileName);

HANDLE FindFirstFileW(const char16_t* lpFileName, WIN32_FIND_DATAW* lpFindFileData);
BOOL FindNextFileW(HANDLE hFindFile, WIN32_FIND_DATAW* lpFindFileData);
BOOL FindClose(HANDLE hFindFile);

// Sections of files: flProtect PAGE_READWRITE, dwDesiredAccess FILE_MAP_READ and FILE_MAP_WRITE, no name. A section
// larger than the file makes the file as large.
HANDLE CreateFileMappingW(HANDLE hFile, SECURITY_ATTRIBUTES* lpFileMappingAttributes, DWORD flProtect,
                          DWORD dwMaximumSizeHigh, DWORD dwMaximumSizeLow, const char16_t* lpName);
void* MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                    SIZE_T dwNumberOfBytesToMap);
BOOL UnmapViewOfFile(const void* lpBaseAddress);

// Waits until the server of a pipe ("\\.\pipe\...") has an instance free for a client.
BOOL WaitNamedPipeW(const char16_t* lpNamedPipeName, DWORD nTimeOut);

// The control codes that both backends know: the three FSCTL_*_REPARSE_POINT and FSCTL_SET_SPARSE.
BOOL DeviceIoControl(HANDLE hDevice, DWORD dwIoControlCode, void* lpInBuffer, DWORD nInBufferSize, void* lpOutBuffer,
                     DWORD nOutBufferSize, DWORD* lpBytesReturned, OVERLAPPED* lpOverlapped);

BOOL BackupRead(HANDLE hFile, BYTE* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead, BOOL bAbort,
                BOOL bProcessSecurity, void** lpContext);
BOOL BackupWrite(HANDLE hFile, BYTE* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten, BOOL bAbort,
                 BOOL bProcessSecurity, void** lpContext);

// CreateSymbolicLinkW and GetFinalPathNameByHandleW are newer than the oldest supported Windows: see GetProcAddress
// (module.h).
using CreateSymbolicLinkWFunction = BOOLEAN (*)(const char16_t* lpSymlinkFileName, const char16_t* lpTargetFileName,
                                                DWORD dwFlags);
using GetFinalPathNameByHandleWFunction = DWORD (*)(HANDLE hFile, char16_t* lpszFilePath, DWORD cchFilePath,
                                                    DWORD dwFlags);

}  // namespace win32
