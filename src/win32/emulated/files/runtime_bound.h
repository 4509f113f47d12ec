// Functions of file handling that programs look up at run time, because older Windows lacks them.
#pragma once

#include "win32/types.h"

namespace emulated {

// TRUE, or FALSE and the last error: 1314 without SeCreateSymbolicLinkPrivilege (held is enough), 183 when the name is
// taken. dwFlags: 0 or SYMBOLIC_LINK_FLAG_DIRECTORY. The target need not exist.
win32::BOOLEAN CreateSymbolicLinkW(const char16_t* lpSymlinkFileName, const char16_t* lpTargetFileName,
                                   win32::DWORD dwFlags);

// The length without the terminator; with it when the buffer is too short; 0 and the last error on failure.
win32::DWORD GetFinalPathNameByHandleW(win32::HANDLE hFile, char16_t* lpszFilePath, win32::DWORD cchFilePath,
                                       win32::DWORD dwFlags);

}  // namespace emulated
