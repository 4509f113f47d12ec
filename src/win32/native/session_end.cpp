#include "win32/native/session_end.h"

#include "win32/native/cast.h"

namespace win32::native {

namespace {

PHANDLER_ROUTINE told = nullptr;

// What WM_QUERYENDSESSION asks, everybody may go on, is answered by default.
LRESULT CALLBACK OnMessage(::HWND window, ::UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_ENDSESSION && wParam != 0)
    told((static_cast<ULONG_PTR>(lParam) & ENDSESSION_LOGOFF) != 0 ? ::DWORD{CTRL_LOGOFF_EVENT}
                                                                   : ::DWORD{CTRL_SHUTDOWN_EVENT});
  return ::DefWindowProcW(window, message, wParam, lParam);
}

::DWORD WINAPI RunWindow(void* /*parameter*/) {
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = OnMessage;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = L"SessionEnd";
  // Of the kind that messages to all windows reach.
  if (!::RegisterClassW(&windowClass) || !::CreateWindowExW(0, windowClass.lpszClassName, L"", 0, 0, 0, 0, 0, nullptr,
                                                            nullptr, windowClass.hInstance, nullptr))
    return 0;
  MSG message{};
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
  return 0;
}

}  // namespace

void HandOnSessionEnd(PHANDLER_ROUTINE routine) {
  const bool first = told == nullptr;
  told = routine;
  if (!first) return;
  if (const ::HANDLE thread = ::CreateThread(nullptr, 0, RunWindow, nullptr, 0, nullptr)) ::CloseHandle(thread);
}

}  // namespace win32::native
