// A log-off and a shutdown, for a console program that Windows takes for one with windows.
#pragma once

#include "win32/console.h"

namespace win32::native {

// Windows tells routines of CTRL_LOGOFF_EVENT and CTRL_SHUTDOWN_EVENT in services only, and nowhere once user32.dll is
// loaded, which every program has that calls the shell: to these it sends window messages. From now on a window that is
// never shown, on a thread of its own, hands them on to the routine. Nothing is said where there can be no window.
void HandOnSessionEnd(PHANDLER_ROUTINE routine);

}  // namespace win32::native
