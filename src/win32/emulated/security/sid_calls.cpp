// SIDs as texts, of win32/security.h.
#include "win32/emulated/machine.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/local_memory.h"
#include "win32/security.h"

namespace win32 {

BOOL ConvertSidToStringSidW(PSID Sid, char16_t** StringSid) {
  WIN32_CALL(Sid);
  if (call.Refused()) return FALSE;
  if (!StringSid) return call.Done(ERROR_INVALID_PARAMETER);
  const std::u16string text = emulated::SidToText(emulated::SidOf(Sid));
  if (text.empty()) return call.Done(ERROR_INVALID_SID);
  const emulated::ByteView bytes(reinterpret_cast<const std::uint8_t*>(text.c_str()),
                                 (text.size() + 1) * sizeof(char16_t));
  *StringSid = static_cast<char16_t*>(emulated::LocalCopy(bytes));
  return call.Done(*StringSid ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

BOOL ConvertStringSidToSidW(const char16_t* StringSid, PSID* Sid) {
  WIN32_CALL(StringSid);
  if (call.Refused()) return FALSE;
  if (!StringSid || !Sid) return call.Done(ERROR_INVALID_PARAMETER);
  const emulated::Sid bytes = emulated::SidFromSddl(StringSid);
  if (bytes.empty()) return call.Done(ERROR_INVALID_SID);
  *Sid = emulated::LocalCopy(bytes);
  return call.Done(*Sid ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace win32
