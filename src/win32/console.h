// The console that a program was started from. Every function behaves, returns and sets the last error as Windows' own
// of that name.
#pragma once

#include "win32/constants.h"

namespace win32 {

// Called on a thread of its own, with one of CTRL_*_EVENT. TRUE: it was for this routine; else the one that was added
// before is asked, and Windows' own, the last, ends the process. After CLOSE, LOGOFF and SHUTDOWN the process ends as
// soon as the routine returns, or when it does not for some seconds.
using PHANDLER_ROUTINE = BOOL (*)(DWORD dwCtrlType);
BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add);  // HandlerRoutine is not null

BOOL GetConsoleMode(HANDLE hConsoleHandle, DWORD* lpMode);  // FALSE for what is no console
// The title of the console's window. The length of the title; 0 on failure, and of an empty one with no last error.
DWORD GetConsoleTitleW(char16_t* lpConsoleTitle, DWORD nSize);
BOOL SetConsoleTitleW(const char16_t* lpConsoleTitle);

}  // namespace win32
