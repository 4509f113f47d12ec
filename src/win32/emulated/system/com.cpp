// COM's apartments and identifiers, of win32/system.h.
#include "win32/emulated/system/com.h"

#include <cstdio>
#include <cstring>

#include <sys/random.h>

#include "win32/emulated/call.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace emulated {

namespace {

thread_local int apartments = 0;

}  // namespace

bool ComIsInitialized() { return apartments > 0; }

}  // namespace emulated

namespace win32 {

HRESULT CoInitializeEx(void* pvReserved, DWORD dwCoInit) {
  WIN32_CALL(pvReserved, dwCoInit);
  if (call.Refused()) return emulated::HresultFromWin32(call.error());
  return call.Return(emulated::apartments++ == 0 ? S_OK : S_FALSE);
}

void CoUninitialize() {
  WIN32_CALL();
  if (emulated::apartments > 0) --emulated::apartments;
}

// Random but for the six bits that say so.
HRESULT CoCreateGuid(GUID* pguid) {
  WIN32_CALL();
  if (call.Refused()) return emulated::HresultFromWin32(call.error());
  if (!pguid) return call.Return(E_INVALIDARG);
  if (getrandom(pguid, sizeof *pguid, 0) != sizeof *pguid) return call.Return(E_FAIL);
  pguid->Data3 = static_cast<WORD>((pguid->Data3 & 0x0FFF) | 0x4000);
  pguid->Data4[0] = static_cast<BYTE>((pguid->Data4[0] & 0x3F) | 0x80);
  return call.Return(S_OK);
}

int StringFromGUID2(const GUID& rguid, char16_t* lpsz, int cchMax) {
  WIN32_CALL(cchMax);
  if (call.Refused()) return 0;
  char text[40];
  const BYTE* const tail = rguid.Data4;
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(rguid.Data1), rguid.Data2, rguid.Data3, tail[0], tail[1], tail[2], tail[3],
                tail[4], tail[5], tail[6], tail[7]);
  const std::u16string wide = emulated::Utf16(text);
  const int needed = static_cast<int>(wide.size()) + 1;
  if (!lpsz || cchMax < needed) return call.Return(0);
  std::memcpy(lpsz, wide.c_str(), static_cast<std::size_t>(needed) * sizeof(char16_t));
  return call.Return(needed);
}

}  // namespace win32
