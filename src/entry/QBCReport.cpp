// QBCReport.exe: Windows' wide console entry for the report program, and the way its answer goes out: to a console as
// UTF-16, whatever its code page, to a file or a pipe as UTF-8.

#include <algorithm>
#include <string>
#include <string_view>

#include "survey/main.h"

#include <windows.h>

int wmain(int argc, wchar_t** argv);  // the C runtime calls it, no header declares it

namespace {

constexpr DWORD kPiece = 8192;  // consoles before Windows 8 refuse more than some 60,000 bytes at once

std::string WithCarriageReturns(std::string_view text) {
  std::string result;
  for (const char byte : text) {
    if (byte == '\n' && !result.ends_with('\r')) result += '\r';
    result += byte;
  }
  return result;
}

std::wstring Wide(std::string_view text) {
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(std::max(size, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
  return wide;
}

// `write` takes a piece of at most so many characters and tells how many of them went.
template <typename Text, typename Write>
bool WriteInPieces(const Text& text, Write write) {
  for (std::size_t at = 0; at < text.size();) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(text.size() - at, kPiece));
    if (!write(text.data() + at, size, written) || written == 0) return false;
    at += written;
  }
  return true;
}

bool Print(DWORD where, const std::string& said) {
  const std::string text = WithCarriageReturns(said);
  const HANDLE output = GetStdHandle(where);
  DWORD mode = 0;
  if (!GetConsoleMode(output, &mode))
    return WriteInPieces(text, [&](const char* piece, DWORD size, DWORD& written) {
      return WriteFile(output, piece, size, &written, nullptr);
    });
  return WriteInPieces(Wide(text), [&](const wchar_t* piece, DWORD size, DWORD& written) {
    return WriteConsoleW(output, piece, size, &written, nullptr);
  });
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t));
  SetDllDirectoryW(L"");  // an administrator may start this in a folder of someone else's: no DLL comes from there
  const Answer answer = SurveyMain(argc, reinterpret_cast<const char16_t* const*>(argv));
  Print(STD_ERROR_HANDLE, answer.errors);
  // An answer that did not arrive is none.
  const bool arrived = Print(STD_OUTPUT_HANDLE, answer.output);
  return static_cast<int>(arrived ? answer.result : SurveyResult::CannotBeTold);
}
