// The shell's path tests and file operations. Every function behaves as Windows' own of that name.
#pragma once

#include "win32/constants.h"

namespace win32 {

BOOL PathFileExistsW(const char16_t* pszPath);
BOOL PathIsDirectoryW(const char16_t* pszPath);  // FALSE, or FILE_ATTRIBUTE_DIRECTORY (any non-zero value means yes)
BOOL PathIsUNCW(const char16_t* pszPath);
BOOL PathIsRelativeW(const char16_t* pszPath);
int PathGetDriveNumberW(const char16_t* pszPath);  // 0 for A, 1 for B, ...; -1 without a drive letter
BOOL PathUnquoteSpacesW(char16_t* lpsz);
char16_t* PathFindFileNameW(const char16_t* pszPath);
char16_t* StrStrIW(const char16_t* pszFirst, const char16_t* pszSrch);

int SHCreateDirectory(HWND hwnd, const char16_t* pszPath);                                     // an error code
int SHCreateDirectoryExW(HWND hwnd, const char16_t* pszPath, const SECURITY_ATTRIBUTES* psa);  // an error code
int SHFileOperationW(SHFILEOPSTRUCTW* lpFileOp);                                               // 0 on success
BOOL SHGetSpecialFolderPathW(HWND hwnd, char16_t* pszPath, int csidl, BOOL fCreate);

}  // namespace win32
