// Drives, volumes and mount points. Every function behaves, returns and sets the last error as Windows' own of that
// name.
#pragma once

#include "win32/constants.h"

namespace win32 {

DWORD GetLogicalDriveStringsW(DWORD nBufferLength, char16_t* lpBuffer);
UINT GetDriveTypeW(const char16_t* lpRootPathName);
DWORD QueryDosDeviceW(const char16_t* lpDeviceName, char16_t* lpTargetPath, DWORD ucchMax);
BOOL GetVolumeInformationW(const char16_t* lpRootPathName, char16_t* lpVolumeNameBuffer, DWORD nVolumeNameSize,
                           DWORD* lpVolumeSerialNumber, DWORD* lpMaximumComponentLength, DWORD* lpFileSystemFlags,
                           char16_t* lpFileSystemNameBuffer, DWORD nFileSystemNameSize);
BOOL GetDiskFreeSpaceExW(const char16_t* lpDirectoryName, ULARGE_INTEGER* lpFreeBytesAvailableToCaller,
                         ULARGE_INTEGER* lpTotalNumberOfBytes, ULARGE_INTEGER* lpTotalNumberOfFreeBytes);

HANDLE FindFirstVolumeW(char16_t* lpszVolumeName, DWORD cchBufferLength);
BOOL FindNextVolumeW(HANDLE hFindVolume, char16_t* lpszVolumeName, DWORD cchBufferLength);
BOOL FindVolumeClose(HANDLE hFindVolume);
BOOL GetVolumeNameForVolumeMountPointW(const char16_t* lpszVolumeMountPoint, char16_t* lpszVolumeName,
                                       DWORD cchBufferLength);
BOOL GetVolumePathNameW(const char16_t* lpszFileName, char16_t* lpszVolumePathName, DWORD cchBufferLength);
BOOL GetVolumePathNamesForVolumeNameW(const char16_t* lpszVolumeName, char16_t* lpszVolumePathNames,
                                      DWORD cchBufferLength, DWORD* lpcchReturnLength);
BOOL SetVolumeMountPointW(const char16_t* lpszVolumeMountPoint, const char16_t* lpszVolumeName);
BOOL DeleteVolumeMountPointW(const char16_t* lpszVolumeMountPoint);

}  // namespace win32
