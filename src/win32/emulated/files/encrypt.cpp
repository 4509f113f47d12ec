#include "win32/emulated/call.h"
#include "win32/file.h"

namespace win32 {

// The workstation runs an edition of Windows without the encrypting file system (as the home editions are), which
// answers that the request is not supported for whatever exists.
BOOL EncryptFileW(const char16_t* lpFileName) {
  WIN32_CALL(lpFileName);
  if (call.Refused()) return FALSE;
  if (!lpFileName) return call.Done(ERROR_INVALID_PARAMETER);
  if (GetFileAttributesW(lpFileName) == INVALID_FILE_ATTRIBUTES) return call.Done(emulated::LastError());
  return call.Done(ERROR_NOT_SUPPORTED);
}

}  // namespace win32
