#include "win32/emulated/files/reparse.h"

#include "win32/constants.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr DWORD kMicrosoftBit = 0x80000000;
constexpr DWORD kHighestReservedTag = 1;
constexpr DWORD kRelativeLink = 1;              // SYMLINK_FLAG_RELATIVE
constexpr std::size_t kMountPointNames = 16;    // where the names' buffer begins
constexpr std::size_t kSymbolicLinkNames = 20;  // 4 bytes of flags come before it

std::u16string TextAt(ByteView bytes, std::size_t offset, std::size_t length) {
  std::u16string text(length / sizeof(char16_t), u'\0');
  std::memcpy(text.data(), bytes.data() + offset, text.size() * sizeof(char16_t));
  return text;
}

void AppendText(Bytes& to, std::u16string_view text) {
  const auto* const from = reinterpret_cast<const std::uint8_t*>(text.data());
  to.insert(to.end(), from, from + text.size() * sizeof(char16_t));
}

}  // namespace

bool IsMicrosoftTag(DWORD tag) { return (tag & kMicrosoftBit) != 0; }

DWORD ParseLink(ByteView reparse, LinkTarget& target) {
  if (reparse.size() < kReparseHeader) return win32::ERROR_INVALID_REPARSE_DATA;
  target.tag = LoadLittleEndian<std::uint32_t>(reparse, 0);
  const bool isSymbolicLink = target.tag == win32::IO_REPARSE_TAG_SYMLINK;
  if (!isSymbolicLink && target.tag != win32::IO_REPARSE_TAG_MOUNT_POINT) return win32::ERROR_CANT_ACCESS_FILE;
  const std::size_t names = isSymbolicLink ? kSymbolicLinkNames : kMountPointNames;
  const std::size_t end = kReparseHeader + LoadLittleEndian<std::uint16_t>(reparse, 4);
  if (end > reparse.size() || end < names) return win32::ERROR_INVALID_REPARSE_DATA;
  const std::size_t offset = LoadLittleEndian<std::uint16_t>(reparse, 8),
                    length = LoadLittleEndian<std::uint16_t>(reparse, 10);
  if (length % sizeof(char16_t) != 0 || offset + length > end - names) return win32::ERROR_INVALID_REPARSE_DATA;
  target.substituteName = TextAt(reparse, names + offset, length);
  target.relative = isSymbolicLink && (LoadLittleEndian<std::uint32_t>(reparse, 16) & kRelativeLink) != 0;
  return 0;
}

// Windows writes the print name first (seen in the data that mklink leaves behind).
Bytes MakeSymbolicLink(std::u16string_view substituteName, std::u16string_view printName, bool relative) {
  const std::size_t print = printName.size() * sizeof(char16_t), substitute = substituteName.size() * sizeof(char16_t);
  if (kSymbolicLinkNames + print + substitute > win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE) return {};
  Bytes data;
  AppendLittleEndian<std::uint32_t>(data, win32::IO_REPARSE_TAG_SYMLINK);
  AppendLittleEndian(data, static_cast<std::uint16_t>(kSymbolicLinkNames - kReparseHeader + print + substitute));
  AppendLittleEndian<std::uint16_t>(data, 0);
  AppendLittleEndian(data, static_cast<std::uint16_t>(print));
  AppendLittleEndian(data, static_cast<std::uint16_t>(substitute));
  AppendLittleEndian<std::uint16_t>(data, 0);
  AppendLittleEndian(data, static_cast<std::uint16_t>(print));
  AppendLittleEndian<std::uint32_t>(data, relative ? kRelativeLink : 0);
  AppendText(data, printName);
  AppendText(data, substituteName);
  return data;
}

DWORD CheckReparseData(ByteView data) {
  if (data.size() < kReparseHeader || data.size() > win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE)
    return win32::ERROR_INVALID_REPARSE_DATA;
  const auto tag = LoadLittleEndian<std::uint32_t>(data, 0);
  const std::size_t header = IsMicrosoftTag(tag) ? kReparseHeader : kReparseGuidHeader;
  if (data.size() != header + LoadLittleEndian<std::uint16_t>(data, 4)) return win32::ERROR_INVALID_REPARSE_DATA;
  if (tag <= kHighestReservedTag) return win32::ERROR_REPARSE_TAG_INVALID;
  LinkTarget target;
  const DWORD error = ParseLink(data, target);
  if (error == win32::ERROR_CANT_ACCESS_FILE) return 0;  // what is in other tags' data is their owners' business
  return error == 0 && target.substituteName.empty() ? DWORD{win32::ERROR_INVALID_REPARSE_DATA} : error;
}

}  // namespace emulated
