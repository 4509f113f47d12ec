// Which Windows is this? As GetVersionExW tells it, which is no newer than what the program's manifest declares.
#pragma once

#include "win32/types.h"

// The first two say so on the console when Windows does not tell its version; all answer false (0) then.
bool IsVistaOrLater();
bool IsWindows8OrLater();
bool IsWindows10();

// 4 for 5.0, 3 for 5.1, 2 for 5.2, 1 for 6.0 (Vista), 5 for 6.1 (Windows 7), 6 for 6.2, 7 for 6.3 and for 10.0; 8 to 11
// for 6.0 to 6.3 on a platform other than NT; 0 for everything else.
int GetWindowsVersionCode();

// 10 for Windows 10, 6 for Vista to 8.1; 0 when Windows does not tell.
win32::DWORD GetWindowsMajorVersion();
