#include "win32/net.h"

#include "win32/native/cast.h"

#include <lm.h>

namespace win32 {

using native::Wide;

DWORD NetShareEnum(char16_t* servername, DWORD level, BYTE** bufptr, DWORD prefmaxlen, DWORD* entriesread,
                   DWORD* totalentries, DWORD* resume_handle) {
  return ::NetShareEnum(Wide(servername), level, bufptr, prefmaxlen, entriesread, totalentries, resume_handle);
}

DWORD NetShareAdd(char16_t* servername, DWORD level, BYTE* buf, DWORD* parm_err) {
  return ::NetShareAdd(Wide(servername), level, buf, parm_err);
}

DWORD NetShareDel(char16_t* servername, char16_t* netname, DWORD reserved) {
  return ::NetShareDel(Wide(servername), Wide(netname), reserved);
}

DWORD NetApiBufferFree(void* Buffer) { return ::NetApiBufferFree(Buffer); }

}  // namespace win32
