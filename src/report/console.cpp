#include "report/console.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "win32/system.h"
#include "win32/file.h"

namespace {

constexpr unsigned kStringsInBlock = 16;
ConsoleCapture* capture = nullptr;
constexpr unsigned kStringIdLimit = 0x100000;  // for an id plus a block's strings

// The resource that holds the block of strings: neutral, or else in any language.
win32::HRSRC FindStringBlock(win32::HMODULE module, unsigned id) {
  const char16_t* const type = win32::MakeIntResource(win32::RT_STRING);
  const char16_t* const block = win32::MakeIntResource(static_cast<win32::WORD>(id / kStringsInBlock + 1));
  const win32::HRSRC neutral = win32::FindResourceExW(module, type, block, 0);
  return neutral ? neutral : win32::FindResourceW(module, block, type);
}

// The string at a position of a block of counted UTF-16 strings; empty when the block ends before it does.
std::u16string StringInBlock(std::string_view block, unsigned position) {
  for (std::size_t at = 0; at + sizeof(char16_t) <= block.size(); --position) {
    char16_t length = 0;
    std::memcpy(&length, block.data() + at, sizeof length);
    at += sizeof length;
    const std::size_t bytes = std::size_t{length} * sizeof(char16_t);
    if (bytes > block.size() - at) return {};
    if (position == 0) {
      std::u16string text(length, u'\0');
      std::memcpy(text.data(), block.data() + at, bytes);
      return text;
    }
    at += bytes;
  }
  return {};
}

// Two bytes more than Windows asks for: room for a terminator of any code page. Empty when Windows does not convert.
std::string ToOem(std::u16string_view text) {
  constexpr int kSlack = 2;
  const int characters = static_cast<int>(text.size());
  const int size =
      win32::WideCharToMultiByte(win32::CP_OEMCP, 0, text.data(), characters, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return {};
  std::string bytes(static_cast<std::size_t>(size) + kSlack, '\0');
  const int written = win32::WideCharToMultiByte(win32::CP_OEMCP, 0, text.data(), characters, bytes.data(),
                                                 size + kSlack, nullptr, nullptr);
  bytes.resize(static_cast<std::size_t>(std::max(written, 0)));
  return bytes;
}

// In pieces: consoles before Windows 8 refuse more than some 60,000 bytes at once.
void WriteAll(win32::HANDLE output, std::string_view bytes) {
  constexpr std::size_t kPiece = 8192;
  while (!bytes.empty()) {
    win32::DWORD written = 0;
    const auto size = static_cast<win32::DWORD>(std::min(bytes.size(), kPiece));
    if (!win32::WriteFile(output, bytes.data(), size, &written, nullptr) || written == 0) return;
    bytes.remove_prefix(std::min<std::size_t>(written, size));
  }
}

// No OEM code page has a line feed as the second byte of a character.
std::string WithCarriageReturns(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() + 1);  // of one line
  while (!bytes.empty()) {
    const std::size_t line = std::min(bytes.find('\n'), bytes.size());
    text += bytes.substr(0, line);
    if (line < bytes.size()) text += "\r\n";
    bytes.remove_prefix(std::min(line + 1, bytes.size()));
  }
  return text;
}

// Lines that have not been sent off.
struct HeldLines {
  std::string bytes;
  unsigned count = 0;
  std::uint64_t work = 0;
} held;

void SendHeldLines(win32::HANDLE output) { WriteAll(output, std::exchange(held, {}).bytes); }

}  // namespace

std::u16string LoadResourceString(StringId text) try {
  const auto id = static_cast<unsigned>(text);
  if (id >= kStringIdLimit - kStringsInBlock) {
    win32::SetLastError(win32::ERROR_RESOURCE_NAME_NOT_FOUND);
    return {};
  }
  const win32::HMODULE module = win32::GetModuleHandleW(nullptr);
  const win32::HRSRC resource = FindStringBlock(module, id);
  if (!resource) return {};
  const win32::HGLOBAL loaded = win32::LoadResource(module, resource);
  const void* const data = loaded ? win32::LockResource(loaded) : nullptr;
  if (!data) return {};
  return StringInBlock({static_cast<const char*>(data), win32::SizeofResource(module, resource)}, id % kStringsInBlock);
} catch (const std::exception&) {
  return {};
}

ConsoleCapture::ConsoleCapture() : before_(capture) { capture = this; }
ConsoleCapture::~ConsoleCapture() { capture = before_; }

bool ConsolePrint(std::u16string_view text) try {
  if (text.empty()) return true;
  if (capture) {
    capture->text_ += text;
    return true;
  }
  const std::string bytes = ToOem(text);
  if (bytes.empty()) return false;
  const win32::HANDLE output = win32::GetStdHandle(win32::STD_OUTPUT_HANDLE);
  SendHeldLines(output);
  WriteAll(output, WithCarriageReturns(bytes));
  return true;
} catch (const std::exception&) {
  return false;
}

ConsoleLines::ConsoleLines() : output_(win32::GetStdHandle(win32::STD_OUTPUT_HANDLE)) {}
ConsoleLines::~ConsoleLines() { SendHeldLines(output_); }

bool ConsoleLines::Print(std::u16string_view text, std::uint64_t bytes) const try {
  constexpr char16_t kFirstBeyondAscii = 0x80;
  constexpr unsigned kTogether = 16;
  constexpr std::uint64_t kMuchWork = 0x100000;
  if (capture) return ConsolePrint(text);
  const bool isAscii = std::ranges::all_of(text, [](char16_t unit) { return unit < kFirstBeyondAscii; });
  const std::string line = isAscii ? std::string(text.begin(), text.end()) : ToOem(text);
  held.bytes += WithCarriageReturns(line);
  held.work += bytes;
  if (++held.count >= kTogether || held.work >= kMuchWork) SendHeldLines(output_);
  return text.empty() || !line.empty();
} catch (const std::exception&) {
  return false;
}
