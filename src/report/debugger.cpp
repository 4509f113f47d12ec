#include "report/debugger.h"

#include "win32/handle.h"
#include "win32/system.h"

void TellDebugger(const char16_t* text) {
  const win32::LastErrorKept error;
  win32::OutputDebugStringW(text);
}
