#include "contract_check/text.h"

namespace check {

std::string Utf8(std::wstring_view text) {
  const int wide = static_cast<int>(text.size());
  std::string bytes(text.size() * 3, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), wide, bytes.data(), static_cast<int>(bytes.size()),
                                       nullptr, nullptr);
  bytes.resize(static_cast<std::size_t>(size));
  return bytes;
}

std::wstring Wide(std::string_view utf8) {
  std::wstring text(utf8.size(), L'\0');
  const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), text.data(),
                                       static_cast<int>(text.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

std::wstring ErrorText(DWORD error) {
  wchar_t words[200] = {};
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, words,
                                static_cast<DWORD>(std::size(words)), nullptr);
  while (length > 0 && (words[length - 1] == L'\n' || words[length - 1] == L'\r')) --length;
  return L"error " + std::to_wstring(error) + L" (" + std::wstring(words, length) + L")";
}

void Say(std::string_view utf8) {
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  const std::string line = std::string(utf8) + "\r\n";
  DWORD mode = 0, written = 0;
  if (GetConsoleMode(output, &mode)) {
    const std::wstring text = Wide(line);
    WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  } else {
    WriteFile(output, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  }
}

bool LineFile::Open(const std::wstring& path) {
  file_ = Handle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
  isFailed_ = !file_;
  return !isFailed_;
}

void LineFile::Line(std::string_view utf8) {
  const std::string line = std::string(utf8) + "\r\n";
  DWORD written = 0;
  if (!WriteFile(file_.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr) ||
      written != line.size())
    isFailed_ = true;
}

std::string ReadAll(const std::wstring& path) {
  const Handle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, 0, nullptr));
  std::string all;
  char part[4096];
  DWORD size = 0;
  while (file && ReadFile(file.get(), part, sizeof part, &size, nullptr) && size > 0) all.append(part, size);
  return all;
}

}  // namespace check
