// FormatMessageW of win32/system.h.
#include <cstring>

#include "win32/emulated/call.h"
#include "win32/emulated/system/local_memory.h"
#include "win32/emulated/system/message_table.h"
#include "win32/emulated/system/modules.h"
#include "win32/system.h"

namespace win32 {

namespace {

// A module's own table is looked at first, then the system's, each when the flags say so.
DWORD FindMessage(DWORD flags, const void* source, DWORD id, std::u16string_view& text) {
  if ((flags & (FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM)) == 0) return ERROR_INVALID_PARAMETER;
  if ((flags & FORMAT_MESSAGE_FROM_HMODULE) != 0 && source && source == emulated::SystemModule(u"netmsg.dll"))
    text = emulated::NetworkMessage(id);
  if (text.empty() && (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0) {
    // An HRESULT of the Win32 facility has the text of its error code.
    constexpr DWORD kWin32Facility = 0x80070000;
    text = emulated::SystemMessage((id & 0xFFFF0000) == kWin32Facility ? id & 0xFFFF : id);
  }
  return text.empty() ? ERROR_MR_MID_NOT_FOUND : ERROR_SUCCESS;
}

}  // namespace

DWORD FormatMessageW(DWORD dwFlags, const void* lpSource, DWORD dwMessageId, DWORD dwLanguageId, char16_t* lpBuffer,
                     DWORD nSize) {
  WIN32_CALL(dwFlags, lpSource, dwMessageId, dwLanguageId, nSize);
  if (call.Refused()) return 0;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(DWORD{0});
  };
  std::u16string_view text;
  if (!lpBuffer) return fail(ERROR_INVALID_PARAMETER);
  if (const DWORD error = FindMessage(dwFlags, lpSource, dwMessageId, text)) return fail(error);
  const bool hasInserts = text.find(u'%') != std::u16string_view::npos;
  if (hasInserts && (dwFlags & FORMAT_MESSAGE_IGNORE_INSERTS) == 0) return fail(ERROR_INVALID_PARAMETER);
  if ((dwFlags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
    emulated::Bytes bytes;
    for (const char16_t unit : text) emulated::AppendLittleEndian(bytes, unit);
    emulated::AppendLittleEndian(bytes, u'\0');
    void* const copy = emulated::LocalCopy(bytes);
    if (!copy) return fail(ERROR_NOT_ENOUGH_MEMORY);
    std::memcpy(lpBuffer, &copy, sizeof copy);  // lpBuffer is the address of a pointer
    return call.Return(static_cast<DWORD>(text.size()));
  }
  if (nSize <= text.size()) return fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(lpBuffer, text.data(), text.size() * sizeof(char16_t));
  lpBuffer[text.size()] = u'\0';
  return call.Return(static_cast<DWORD>(text.size()));
}

}  // namespace win32
