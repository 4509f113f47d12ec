#include "win32/console.h"

#include "win32/native/session_end.h"

#include "win32/native/cast.h"

namespace win32 {

using native::Wide;

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add) {
  const BOOL done = ::SetConsoleCtrlHandler(HandlerRoutine, Add);
  if (done && Add) native::HandOnSessionEnd(HandlerRoutine);
  return done;
}

BOOL GetConsoleMode(HANDLE hConsoleHandle, DWORD* lpMode) { return ::GetConsoleMode(hConsoleHandle, lpMode); }

DWORD GetConsoleTitleW(char16_t* lpConsoleTitle, DWORD nSize) {
  return ::GetConsoleTitleW(Wide(lpConsoleTitle), nSize);
}

BOOL SetConsoleTitleW(const char16_t* lpConsoleTitle) { return ::SetConsoleTitleW(Wide(lpConsoleTitle)); }

}  // namespace win32
