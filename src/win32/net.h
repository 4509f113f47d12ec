// Network shares of this computer. Every function behaves as Windows' own of that name and returns the error code.
// A null servername means this computer; a null resume_handle starts at the beginning.
#pragma once

#include "win32/constants.h"

namespace win32 {

DWORD NetShareEnum(char16_t* servername, DWORD level, BYTE** bufptr, DWORD prefmaxlen, DWORD* entriesread,
                   DWORD* totalentries, DWORD* resume_handle);
DWORD NetShareAdd(char16_t* servername, DWORD level, BYTE* buf, DWORD* parm_err);
DWORD NetShareDel(char16_t* servername, char16_t* netname, DWORD reserved);
DWORD NetApiBufferFree(void* Buffer);

}  // namespace win32
