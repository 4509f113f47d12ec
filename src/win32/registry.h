// The registry. Every function behaves as Windows' own of that name and returns the error code.
#pragma once

#include "win32/constants.h"

namespace win32 {

LSTATUS RegOpenKeyExW(HKEY hKey, const char16_t* lpSubKey, DWORD ulOptions, DWORD samDesired, HKEY* phkResult);
LSTATUS RegCreateKeyExW(HKEY hKey, const char16_t* lpSubKey, DWORD Reserved, char16_t* lpClass, DWORD dwOptions,
                        DWORD samDesired, const SECURITY_ATTRIBUTES* lpSecurityAttributes, HKEY* phkResult,
                        DWORD* lpdwDisposition);
LSTATUS RegCloseKey(HKEY hKey);
LSTATUS RegQueryInfoKeyW(HKEY hKey, char16_t* lpClass, DWORD* lpcchClass, DWORD* lpReserved, DWORD* lpcSubKeys,
                         DWORD* lpcbMaxSubKeyLen, DWORD* lpcbMaxClassLen, DWORD* lpcValues, DWORD* lpcbMaxValueNameLen,
                         DWORD* lpcbMaxValueLen, DWORD* lpcbSecurityDescriptor, FILETIME* lpftLastWriteTime);
LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, char16_t* lpName, DWORD* lpcchName, DWORD* lpReserved,
                      char16_t* lpClass, DWORD* lpcchClass, FILETIME* lpftLastWriteTime);
LSTATUS RegEnumKeyW(HKEY hKey, DWORD dwIndex, char16_t* lpName, DWORD cchName);
LSTATUS RegEnumValueW(HKEY hKey, DWORD dwIndex, char16_t* lpValueName, DWORD* lpcchValueName, DWORD* lpReserved,
                      DWORD* lpType, BYTE* lpData, DWORD* lpcbData);
LSTATUS RegQueryValueExW(HKEY hKey, const char16_t* lpValueName, DWORD* lpReserved, DWORD* lpType, BYTE* lpData,
                         DWORD* lpcbData);
LSTATUS RegSetValueExW(HKEY hKey, const char16_t* lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                       DWORD cbData);
LSTATUS RegDeleteKeyW(HKEY hKey, const char16_t* lpSubKey);
LSTATUS RegDeleteValueW(HKEY hKey, const char16_t* lpValueName);
LSTATUS RegLoadKeyW(HKEY hKey, const char16_t* lpSubKey, const char16_t* lpFile);
LSTATUS RegUnLoadKeyW(HKEY hKey, const char16_t* lpSubKey);

}  // namespace win32
