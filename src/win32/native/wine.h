// Where Wine answers otherwise than Windows.
#pragma once

#include "win32/system.h"

namespace win32::native {

// What stands in for this entry point of ntdll.dll under Wine; `found` itself for every other, and on Windows.
//
// NtQueryObject: Wine names a file by its drive ("\??\C:\x"); told is its device's name, as on Windows.
FARPROC AsOnWindows(HMODULE module, const char* name, FARPROC found);

}  // namespace win32::native
