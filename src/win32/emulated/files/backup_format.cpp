#include "win32/emulated/files/backup_format.h"

#include <algorithm>

namespace emulated {

namespace {

constexpr std::u16string_view kDataSuffix = u":$DATA";

// NextEntryOffset, Flags, EaNameLength, EaValueLength; the name with its terminator and the value follow.
constexpr std::size_t kAttributeHeader = 8;

bool IsAttributeName(std::string_view name) {
  return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 ||
           std::string_view("\"*+,/:;<=>?[\\]|").find(c) != std::string_view::npos;
  });
}

}  // namespace

void AppendStreamHeader(Bytes& to, BackupStreamHeader header, std::u16string_view name) {
  AppendLittleEndian(to, std::uint32_t{header.id});
  AppendLittleEndian(to, std::uint32_t{header.attributes});
  AppendLittleEndian(to, header.size);
  AppendLittleEndian(to, static_cast<std::uint32_t>(name.size() * sizeof(char16_t)));
  for (const char16_t unit : name) AppendLittleEndian(to, unit);
}

BackupStreamHeader LoadStreamHeader(ByteView from) {
  return {LoadLittleEndian<std::uint32_t>(from, 0), LoadLittleEndian<std::uint32_t>(from, 4),
          LoadLittleEndian<std::uint64_t>(from, 8), LoadLittleEndian<std::uint32_t>(from, 16)};
}

std::u16string BackupStreamName(std::u16string_view stream) {
  std::u16string name = u":";
  name += stream;
  name += kDataSuffix;
  return name;
}

std::optional<std::u16string> StreamOfBackupName(std::u16string_view name) {
  if (name.size() <= kDataSuffix.size() + 1 || name.front() != u':' || !name.ends_with(kDataSuffix))
    return std::nullopt;
  const std::u16string_view stream = name.substr(1, name.size() - 1 - kDataSuffix.size());
  if (stream.find_first_of(u":\\/") != std::u16string_view::npos || stream.find(u'\0') != std::u16string_view::npos)
    return std::nullopt;
  return std::u16string(stream);
}

Bytes PackExtendedAttributes(const std::vector<ExtendedAttribute>& attributes) {
  Bytes packed;
  std::size_t last = 0;
  for (const ExtendedAttribute& attribute : attributes) {
    if (!packed.empty()) {
      packed.resize((packed.size() + 3) & ~std::size_t{3});
      StoreLittleEndian(std::span(packed), last, static_cast<std::uint32_t>(packed.size() - last));
      last = packed.size();
    }
    AppendLittleEndian(packed, std::uint32_t{0});
    AppendLittleEndian(packed, attribute.flags);
    AppendLittleEndian(packed, static_cast<std::uint8_t>(attribute.name.size()));
    AppendLittleEndian(packed, static_cast<std::uint16_t>(attribute.value.size()));
    packed.insert(packed.end(), attribute.name.begin(), attribute.name.end());
    packed.push_back(0);
    packed.insert(packed.end(), attribute.value.begin(), attribute.value.end());
  }
  return packed;
}

win32::DWORD UnpackExtendedAttributes(ByteView from, std::vector<ExtendedAttribute>& attributes) {
  attributes.clear();
  for (std::size_t at = 0; !from.empty();) {
    if (from.size() - at < kAttributeHeader + 1) return win32::ERROR_EA_LIST_INCONSISTENT;
    const auto next = LoadLittleEndian<std::uint32_t>(from, at);
    const std::size_t nameLength = from[at + 5];
    const std::size_t valueLength = LoadLittleEndian<std::uint16_t>(from, at + 6);
    const std::size_t name = at + kAttributeHeader, value = name + nameLength + 1;
    if (from.size() < value || from.size() - value < valueLength || from[value - 1] != 0)
      return win32::ERROR_EA_LIST_INCONSISTENT;
    ExtendedAttribute attribute{from[at + 4],
                                std::string(from.begin() + static_cast<std::ptrdiff_t>(name),
                                            from.begin() + static_cast<std::ptrdiff_t>(value - 1)),
                                Bytes(from.begin() + static_cast<std::ptrdiff_t>(value),
                                      from.begin() + static_cast<std::ptrdiff_t>(value + valueLength))};
    if (!IsAttributeName(attribute.name)) return win32::ERROR_INVALID_EA_NAME;
    for (char& c : attribute.name)
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    attributes.push_back(std::move(attribute));
    if (next == 0) return 0;
    if (next % 4 != 0 || next < value + valueLength - at || next >= from.size() - at)
      return win32::ERROR_EA_LIST_INCONSISTENT;
    at += next;
  }
  return 0;
}

}  // namespace emulated
