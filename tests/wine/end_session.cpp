// Says "held" when it is ready, and at the end of its standard input tells QBC.exe's window that its user logs off, as
// Windows does.
#include <windows.h>

#include <cstdio>

int wmain(int argc, wchar_t** argv);

int wmain(int /*argc*/, wchar_t** /*argv*/) {
  std::puts("held");
  std::fflush(stdout);
  while (std::getchar() != EOF) continue;
  const HWND window = FindWindowW(L"SessionEnd", nullptr);
  return window && SendNotifyMessageW(window, WM_ENDSESSION, TRUE, static_cast<LPARAM>(ENDSESSION_LOGOFF)) ? 0 : 1;
}
