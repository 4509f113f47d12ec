// QBC.exe: Windows' wide console entry for the program.

#include "cli/main.h"

#include <windows.h>

int wmain(int argc, wchar_t** argv);  // the C runtime calls it, no header declares it

int wmain(int argc, wchar_t** argv) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t));
  SetDllDirectoryW(L"");  // an administrator may start this in a folder of someone else's: no DLL comes from there
  const int result = QuillbayMain(argc, reinterpret_cast<const char16_t* const*>(argv));
  return result;
}
