// WideCharToMultiByte of win32/system.h, on the host's iconv.
#include <iconv.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "win32/emulated/machine.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace win32 {

namespace {

// One direction of iconv, kept open while the code page stays the same.
class Converter {
 public:
  ~Converter() { Close(); }

  bool Use(UINT codePage) {
    if (open_ && codePage == codePage_) return true;
    Close();
    handle_ = iconv_open(("CP" + std::to_string(codePage)).c_str(), "UTF-16LE");
    open_ = handle_ != reinterpret_cast<iconv_t>(-1);
    codePage_ = codePage;
    return open_;
  }

  // The bytes of one character (one or two units); nothing when the page has none for it.
  std::string Convert(std::u16string_view character) {
    char from[4], to[8];
    std::memcpy(from, character.data(), character.size() * 2);
    char* source = from;
    char* target = to;
    std::size_t left = character.size() * 2, room = sizeof to;
    const std::size_t result = iconv(handle_, &source, &left, &target, &room);
    if (result != 0) {  // not convertible, or only to something like it
      iconv(handle_, nullptr, nullptr, nullptr, nullptr);
      return {};
    }
    return {to, sizeof to - room};
  }

 private:
  void Close() {
    if (open_) iconv_close(handle_);
    open_ = false;
  }
  iconv_t handle_ = nullptr;
  bool open_ = false;
  UINT codePage_ = 0;
};

bool IsPair(std::u16string_view text, std::size_t at) {
  return text[at] >= 0xD800 && text[at] < 0xDC00 && at + 1 < text.size() && text[at + 1] >= 0xDC00 &&
         text[at + 1] < 0xE000;
}

bool HasLoneSurrogate(std::u16string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsPair(text, i))
      ++i;
    else if (text[i] >= 0xD800 && text[i] < 0xE000)
      return true;
  }
  return false;
}

// A text in a code page, as far as there was room for it: whole characters only.
struct Converted {
  std::string bytes;
  bool usedDefault = false;  // in these bytes
  bool fits = true;
};

// Characters that the page lacks become the default character, one for each unit. False: there is no such page.
bool ToCodePage(std::u16string_view text, UINT codePage, const char* defaultCharacter, std::size_t room,
                Converted& converted) {
  thread_local Converter converter;
  if (codePage != CP_UTF8 && !converter.Use(codePage)) return false;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] < 0x80) {
      converted.fits = converted.bytes.size() < room;
      if (!converted.fits) break;
      converted.bytes += static_cast<char>(text[i++]);
      continue;
    }
    const std::size_t units = IsPair(text, i) ? 2 : 1;
    const std::u16string_view character = text.substr(i, units);
    std::string bytes = codePage == CP_UTF8 ? emulated::Utf8(character) : converter.Convert(character);
    const bool isMissing = bytes.empty();
    if (isMissing) bytes.assign(units, defaultCharacter ? *defaultCharacter : '?');
    converted.fits = bytes.size() <= room - converted.bytes.size();
    if (!converted.fits) break;
    converted.usedDefault = converted.usedDefault || isMissing;
    converted.bytes += bytes;
    i += units;
  }
  return true;
}

}  // namespace

int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, const char16_t* lpWideCharStr, int cchWideChar,
                        char* lpMultiByteStr, int cbMultiByte, const char* lpDefaultChar, BOOL* lpUsedDefaultChar) {
  WIN32_CALL(CodePage, dwFlags, cchWideChar, cbMultiByte);
  if (call.Refused()) return 0;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(0);
  };
  if (!lpWideCharStr || cchWideChar == 0 || cchWideChar < -1 || cbMultiByte < 0 ||
      (cbMultiByte != 0 && !lpMultiByteStr))
    return fail(ERROR_INVALID_PARAMETER);
  // A length of -1 takes the terminator along.
  const std::u16string_view text =
      cchWideChar == -1 ? std::u16string_view(lpWideCharStr, std::char_traits<char16_t>::length(lpWideCharStr) + 1)
                        : std::u16string_view(lpWideCharStr, static_cast<std::size_t>(cchWideChar));
  const emulated::Machine& machine = emulated::Machine::Current();
  const UINT page = CodePage == CP_OEMCP ? machine.oemCodePage : CodePage == CP_ACP ? machine.ansiCodePage : CodePage;
  if (page == CP_UTF8 && (lpDefaultChar || lpUsedDefaultChar)) return fail(ERROR_INVALID_PARAMETER);
  // Characters that the page has only something like are never converted here, asked for or not.
  if ((dwFlags & ~(page == CP_UTF8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS)) != 0)
    return fail(ERROR_INVALID_FLAGS);
  if (page == CP_UTF8 && (dwFlags & WC_ERR_INVALID_CHARS) != 0 && HasLoneSurrogate(text))
    return fail(ERROR_NO_UNICODE_TRANSLATION);
  Converted converted;
  const std::size_t room = cbMultiByte == 0 ? SIZE_MAX : static_cast<std::size_t>(cbMultiByte);
  if (!ToCodePage(text, page, lpDefaultChar, room, converted)) return fail(ERROR_INVALID_PARAMETER);
  if (lpUsedDefaultChar) *lpUsedDefaultChar = converted.usedDefault ? TRUE : FALSE;
  if (cbMultiByte != 0) std::ranges::copy(converted.bytes, lpMultiByteStr);
  return converted.fits ? call.Return(static_cast<int>(converted.bytes.size())) : fail(ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace win32
