// Memory that a call hands to the program, which frees it with LocalFree (or HeapFree): the host's heap, so that what
// is not freed, or freed twice, shows up in a leak check.
#pragma once

#include <cstdlib>
#include <cstring>

#include "win32/emulated/bytes.h"

namespace emulated {

// A copy of the bytes; null when there is no memory.
inline void* LocalCopy(ByteView bytes) {
  void* const copy = std::malloc(bytes.empty() ? 1 : bytes.size());
  if (copy && !bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
  return copy;
}

}  // namespace emulated
