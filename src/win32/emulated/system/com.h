// What COM knows of a thread.
#pragma once

#include "win32/types.h"

namespace emulated {

// The calling thread is in an apartment: without one no object can be made.
bool ComIsInitialized();

inline win32::HRESULT HresultFromWin32(win32::DWORD error) {
  return static_cast<win32::HRESULT>(0x80070000u | (error & 0xFFFFu));
}

}  // namespace emulated
