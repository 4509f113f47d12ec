#include "win32/shell.h"

#include <cwchar>

#include "win32/native/cast.h"

#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>

namespace win32 {

using native::As;
using native::AsHandle;
using native::Utf16;
using native::Wide;

BOOL PathFileExistsW(const char16_t* pszPath) { return ::PathFileExistsW(Wide(pszPath)); }

BOOL PathIsDirectoryW(const char16_t* pszPath) { return ::PathIsDirectoryW(Wide(pszPath)); }

BOOL PathIsUNCW(const char16_t* pszPath) { return ::PathIsUNCW(Wide(pszPath)); }

BOOL PathIsRelativeW(const char16_t* pszPath) { return ::PathIsRelativeW(Wide(pszPath)); }

int PathGetDriveNumberW(const char16_t* pszPath) { return ::PathGetDriveNumberW(Wide(pszPath)); }

BOOL PathUnquoteSpacesW(char16_t* lpsz) {
  // Windows tells whether quotes were taken off; these headers still call it void, so the text's length is asked.
  if (!lpsz) return 0;
  const std::size_t length = std::wcslen(Wide(lpsz));
  ::PathUnquoteSpacesW(Wide(lpsz));
  return std::wcslen(Wide(lpsz)) != length;
}

char16_t* PathFindFileNameW(const char16_t* pszPath) { return Utf16(::PathFindFileNameW(Wide(pszPath))); }

char16_t* StrStrIW(const char16_t* pszFirst, const char16_t* pszSrch) {
  return Utf16(::StrStrIW(Wide(pszFirst), Wide(pszSrch)));
}

int SHCreateDirectory(HWND hwnd, const char16_t* pszPath) {
  return ::SHCreateDirectory(AsHandle<::HWND>(hwnd), Wide(pszPath));
}

int SHCreateDirectoryExW(HWND hwnd, const char16_t* pszPath, const SECURITY_ATTRIBUTES* psa) {
  return ::SHCreateDirectoryExW(AsHandle<::HWND>(hwnd), Wide(pszPath), As<const ::SECURITY_ATTRIBUTES>(psa));
}

int SHFileOperationW(SHFILEOPSTRUCTW* lpFileOp) { return ::SHFileOperationW(As<::SHFILEOPSTRUCTW>(lpFileOp)); }

BOOL SHGetSpecialFolderPathW(HWND hwnd, char16_t* pszPath, int csidl, BOOL fCreate) {
  return ::SHGetSpecialFolderPathW(AsHandle<::HWND>(hwnd), Wide(pszPath), csidl, fCreate);
}

}  // namespace win32
