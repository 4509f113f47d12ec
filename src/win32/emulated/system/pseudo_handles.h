// What GetCurrentProcess and GetCurrentThread answer: handles that are in no table, for whoever uses them.
#pragma once

#include "win32/types.h"

namespace win32 {

inline const HANDLE kCurrentProcess = reinterpret_cast<HANDLE>(LONG_PTR{-1});
inline const HANDLE kCurrentThread = reinterpret_cast<HANDLE>(LONG_PTR{-2});

}  // namespace win32
