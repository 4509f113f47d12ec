#include "win32/volume.h"

#include "win32/native/cast.h"

namespace win32 {

using native::As;
using native::Wide;

DWORD GetLogicalDriveStringsW(DWORD nBufferLength, char16_t* lpBuffer) {
  return ::GetLogicalDriveStringsW(nBufferLength, Wide(lpBuffer));
}

UINT GetDriveTypeW(const char16_t* lpRootPathName) { return ::GetDriveTypeW(Wide(lpRootPathName)); }

DWORD QueryDosDeviceW(const char16_t* lpDeviceName, char16_t* lpTargetPath, DWORD ucchMax) {
  return ::QueryDosDeviceW(Wide(lpDeviceName), Wide(lpTargetPath), ucchMax);
}

BOOL GetVolumeInformationW(const char16_t* lpRootPathName, char16_t* lpVolumeNameBuffer, DWORD nVolumeNameSize,
                           DWORD* lpVolumeSerialNumber, DWORD* lpMaximumComponentLength, DWORD* lpFileSystemFlags,
                           char16_t* lpFileSystemNameBuffer, DWORD nFileSystemNameSize) {
  return ::GetVolumeInformationW(Wide(lpRootPathName), Wide(lpVolumeNameBuffer), nVolumeNameSize, lpVolumeSerialNumber,
                                 lpMaximumComponentLength, lpFileSystemFlags, Wide(lpFileSystemNameBuffer),
                                 nFileSystemNameSize);
}

BOOL GetDiskFreeSpaceExW(const char16_t* lpDirectoryName, ULARGE_INTEGER* lpFreeBytesAvailableToCaller,
                         ULARGE_INTEGER* lpTotalNumberOfBytes, ULARGE_INTEGER* lpTotalNumberOfFreeBytes) {
  return ::GetDiskFreeSpaceExW(Wide(lpDirectoryName), As<::ULARGE_INTEGER>(lpFreeBytesAvailableToCaller),
                               As<::ULARGE_INTEGER>(lpTotalNumberOfBytes),
                               As<::ULARGE_INTEGER>(lpTotalNumberOfFreeBytes));
}

HANDLE FindFirstVolumeW(char16_t* lpszVolumeName, DWORD cchBufferLength) {
  return ::FindFirstVolumeW(Wide(lpszVolumeName), cchBufferLength);
}

BOOL FindNextVolumeW(HANDLE hFindVolume, char16_t* lpszVolumeName, DWORD cchBufferLength) {
  return ::FindNextVolumeW(hFindVolume, Wide(lpszVolumeName), cchBufferLength);
}

BOOL FindVolumeClose(HANDLE hFindVolume) { return ::FindVolumeClose(hFindVolume); }

BOOL GetVolumeNameForVolumeMountPointW(const char16_t* lpszVolumeMountPoint, char16_t* lpszVolumeName,
                                       DWORD cchBufferLength) {
  return ::GetVolumeNameForVolumeMountPointW(Wide(lpszVolumeMountPoint), Wide(lpszVolumeName), cchBufferLength);
}

BOOL GetVolumePathNameW(const char16_t* lpszFileName, char16_t* lpszVolumePathName, DWORD cchBufferLength) {
  return ::GetVolumePathNameW(Wide(lpszFileName), Wide(lpszVolumePathName), cchBufferLength);
}

BOOL GetVolumePathNamesForVolumeNameW(const char16_t* lpszVolumeName, char16_t* lpszVolumePathNames,
                                      DWORD cchBufferLength, DWORD* lpcchReturnLength) {
  return ::GetVolumePathNamesForVolumeNameW(Wide(lpszVolumeName), Wide(lpszVolumePathNames), cchBufferLength,
                                            lpcchReturnLength);
}

BOOL SetVolumeMountPointW(const char16_t* lpszVolumeMountPoint, const char16_t* lpszVolumeName) {
  return ::SetVolumeMountPointW(Wide(lpszVolumeMountPoint), Wide(lpszVolumeName));
}

BOOL DeleteVolumeMountPointW(const char16_t* lpszVolumeMountPoint) {
  return ::DeleteVolumeMountPointW(Wide(lpszVolumeMountPoint));
}

}  // namespace win32
