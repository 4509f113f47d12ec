#include "win32/registry.h"

#include "win32/native/cast.h"

namespace win32 {

using native::As;
using native::AsHandle;
using native::Wide;

namespace {

::HKEY Key(HKEY key) { return AsHandle<::HKEY>(key); }

}  // namespace

LSTATUS RegOpenKeyExW(HKEY hKey, const char16_t* lpSubKey, DWORD ulOptions, DWORD samDesired, HKEY* phkResult) {
  return ::RegOpenKeyExW(Key(hKey), Wide(lpSubKey), ulOptions, samDesired, As<::HKEY>(phkResult));
}

LSTATUS RegCreateKeyExW(HKEY hKey, const char16_t* lpSubKey, DWORD Reserved, char16_t* lpClass, DWORD dwOptions,
                        DWORD samDesired, const SECURITY_ATTRIBUTES* lpSecurityAttributes, HKEY* phkResult,
                        DWORD* lpdwDisposition) {
  return ::RegCreateKeyExW(Key(hKey), Wide(lpSubKey), Reserved, Wide(lpClass), dwOptions, samDesired,
                           As<::SECURITY_ATTRIBUTES>(const_cast<SECURITY_ATTRIBUTES*>(lpSecurityAttributes)),
                           As<::HKEY>(phkResult), lpdwDisposition);
}

LSTATUS RegCloseKey(HKEY hKey) { return ::RegCloseKey(Key(hKey)); }

LSTATUS RegQueryInfoKeyW(HKEY hKey, char16_t* lpClass, DWORD* lpcchClass, DWORD* lpReserved, DWORD* lpcSubKeys,
                         DWORD* lpcbMaxSubKeyLen, DWORD* lpcbMaxClassLen, DWORD* lpcValues, DWORD* lpcbMaxValueNameLen,
                         DWORD* lpcbMaxValueLen, DWORD* lpcbSecurityDescriptor, FILETIME* lpftLastWriteTime) {
  return ::RegQueryInfoKeyW(Key(hKey), Wide(lpClass), lpcchClass, lpReserved, lpcSubKeys, lpcbMaxSubKeyLen,
                            lpcbMaxClassLen, lpcValues, lpcbMaxValueNameLen, lpcbMaxValueLen, lpcbSecurityDescriptor,
                            As<::FILETIME>(lpftLastWriteTime));
}

LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, char16_t* lpName, DWORD* lpcchName, DWORD* lpReserved,
                      char16_t* lpClass, DWORD* lpcchClass, FILETIME* lpftLastWriteTime) {
  return ::RegEnumKeyExW(Key(hKey), dwIndex, Wide(lpName), lpcchName, lpReserved, Wide(lpClass), lpcchClass,
                         As<::FILETIME>(lpftLastWriteTime));
}

LSTATUS RegEnumKeyW(HKEY hKey, DWORD dwIndex, char16_t* lpName, DWORD cchName) {
  return ::RegEnumKeyW(Key(hKey), dwIndex, Wide(lpName), cchName);
}

LSTATUS RegEnumValueW(HKEY hKey, DWORD dwIndex, char16_t* lpValueName, DWORD* lpcchValueName, DWORD* lpReserved,
                      DWORD* lpType, BYTE* lpData, DWORD* lpcbData) {
  return ::RegEnumValueW(Key(hKey), dwIndex, Wide(lpValueName), lpcchValueName, lpReserved, lpType, lpData, lpcbData);
}

LSTATUS RegQueryValueExW(HKEY hKey, const char16_t* lpValueName, DWORD* lpReserved, DWORD* lpType, BYTE* lpData,
                         DWORD* lpcbData) {
  return ::RegQueryValueExW(Key(hKey), Wide(lpValueName), lpReserved, lpType, lpData, lpcbData);
}

LSTATUS RegSetValueExW(HKEY hKey, const char16_t* lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                       DWORD cbData) {
  return ::RegSetValueExW(Key(hKey), Wide(lpValueName), Reserved, dwType, lpData, cbData);
}

LSTATUS RegDeleteKeyW(HKEY hKey, const char16_t* lpSubKey) { return ::RegDeleteKeyW(Key(hKey), Wide(lpSubKey)); }

LSTATUS RegDeleteValueW(HKEY hKey, const char16_t* lpValueName) {
  return ::RegDeleteValueW(Key(hKey), Wide(lpValueName));
}

LSTATUS RegLoadKeyW(HKEY hKey, const char16_t* lpSubKey, const char16_t* lpFile) {
  return ::RegLoadKeyW(Key(hKey), Wide(lpSubKey), Wide(lpFile));
}

LSTATUS RegUnLoadKeyW(HKEY hKey, const char16_t* lpSubKey) { return ::RegUnLoadKeyW(Key(hKey), Wide(lpSubKey)); }

}  // namespace win32
