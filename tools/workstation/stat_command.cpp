// stat: everything that NTFS keeps about a file, read from the volume itself.

#include <cstdio>
#include <ctime>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"
#include "workstation/command.h"

namespace workstation {

using emulated::Bytes;
using emulated::Utf16;
using emulated::Utf8;

namespace {

std::string TimeText(emulated::FileTime time) {
  constexpr emulated::FileTime kUnixEpoch = 116'444'736'000'000'000;
  const std::time_t seconds = static_cast<std::time_t>((time - kUnixEpoch) / 10'000'000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%07lld UTC (%lld)", static_cast<long long>(time % 10'000'000),
                static_cast<long long>(time));
  return text;
}

std::string AttributeText(win32::DWORD attributes) {
  struct Name {
    win32::DWORD bit;
    const char* text;
  };
  static constexpr Name names[] = {{0x1, "READONLY"},     {0x2, "HIDDEN"},        {0x4, "SYSTEM"},
                                   {0x10, "DIRECTORY"},   {0x20, "ARCHIVE"},      {0x80, "NORMAL"},
                                   {0x100, "TEMPORARY"},  {0x200, "SPARSE_FILE"}, {0x400, "REPARSE_POINT"},
                                   {0x800, "COMPRESSED"}, {0x1000, "OFFLINE"},    {0x2000, "NOT_CONTENT_INDEXED"},
                                   {0x4000, "ENCRYPTED"}};
  std::string text;
  for (const Name& name : names)
    if (attributes & name.bit) text += std::string(text.empty() ? "" : " ") + name.text;
  return text;
}

std::string Hex(emulated::ByteView bytes, std::size_t most = 64) {
  std::string text;
  char pair[4];
  for (std::size_t i = 0; i < bytes.size() && i < most; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
    text += pair;
  }
  return bytes.size() > most ? text + "..." : text;
}

// The two names of a mount point or symbolic link; empty where the data does not hold what it says.
std::u16string ReparseName(const Bytes& data, std::size_t field, std::size_t buffer) {
  if (data.size() < buffer) return {};
  const std::size_t offset = buffer + emulated::LoadLittleEndian<std::uint16_t>(data, field);
  const std::size_t length = emulated::LoadLittleEndian<std::uint16_t>(data, field + 2);
  if (offset + length > data.size()) return {};
  std::u16string name(length / 2, u'\0');
  std::memcpy(name.data(), data.data() + offset, length / 2 * 2);
  return name;
}

void PrintReparse(const Bytes& data) {
  const auto tag = emulated::LoadLittleEndian<std::uint32_t>(data, 0);
  const bool junction = tag == win32::IO_REPARSE_TAG_MOUNT_POINT, link = tag == win32::IO_REPARSE_TAG_SYMLINK;
  std::printf("Reparse tag:  0x%08X%s, %zu bytes\n", tag,
              junction ? " (mount point)"
              : link   ? " (symbolic link)"
                       : "",
              data.size());
  if (junction || link) {
    const std::size_t buffer = junction ? 16 : 20;
    std::printf("  substitute: %s\n  print name: %s\n", Utf8(ReparseName(data, 8, buffer)).c_str(),
                Utf8(ReparseName(data, 12, buffer)).c_str());
  }
  std::printf("  bytes:      %s\n", Hex(data, 1024).c_str());
}

void PrintFile(emulated::Volume& volume, emulated::FileId file) {
  emulated::FileInfo info;
  if (const auto error = volume.Stat(file, info)) FailWith("stat", error);
  std::printf("Record:       %llu, sequence %llu, %u name%s\n",
              static_cast<unsigned long long>(info.id & 0xFFFFFFFFFFFF), static_cast<unsigned long long>(info.id >> 48),
              info.links, info.links == 1 ? "" : "s");
  std::printf("Attributes:   0x%04X %s\n", info.attributes, AttributeText(info.attributes).c_str());
  std::printf("Created:      %s\nAccessed:     %s\nWritten:      %s\nChanged:      %s\n",
              TimeText(info.creation).c_str(), TimeText(info.lastAccess).c_str(), TimeText(info.lastWrite).c_str(),
              TimeText(info.change).c_str());
  Bytes descriptor;
  if (const auto error = volume.GetSecurity(file, descriptor)) FailWith("stat", error);
  const auto part = [&](win32::DWORD information) { return Utf8(emulated::DescriptorToText(descriptor, information)); };
  std::printf("Owner, group: %s %s\nAccess:       %s\n", part(win32::OWNER_SECURITY_INFORMATION).c_str(),
              part(win32::GROUP_SECURITY_INFORMATION).c_str(), part(win32::DACL_SECURITY_INFORMATION).c_str());
  if (const std::string audit = part(win32::SACL_SECURITY_INFORMATION); !audit.empty())
    std::printf("Audit:        %s\n", audit.c_str());
  std::vector<emulated::StreamInfo> streams;
  if (volume.Streams(file, streams) == 0)
    for (const auto& stream : streams)
      std::printf("Stream:       %s %llu bytes, %llu allocated%s\n",
                  stream.name.empty() ? "(data)" : Utf8(stream.name).c_str(),
                  static_cast<unsigned long long>(stream.size), static_cast<unsigned long long>(stream.allocated),
                  stream.sparse ? ", sparse" : "");
  std::vector<emulated::ExtendedAttribute> attributes;
  if (volume.GetExtendedAttributes(file, attributes) == 0)
    for (const auto& attribute : attributes)
      std::printf("EA:           %s = %s (flags 0x%02X)\n", attribute.name.c_str(), Hex(attribute.value).c_str(),
                  attribute.flags);
  Bytes data;
  if (volume.GetObjectId(file, data) == 0) std::printf("Object id:    %s\n", Hex(data).c_str());
  if (volume.GetReparse(file, data) == 0 && data.size() >= 8) PrintReparse(data);
}

}  // namespace

void Stat(const std::filesystem::path& folder, const Arguments& arguments) {
  OnMachine(folder, false, [&](emulated::Machine& machine) {
    emulated::Location location;
    const win32::DWORD error = machine.files().Resolve(Utf16(arguments[0]), false, location);
    if (error != 0 || location.file == 0) FailWith(arguments[0], error != 0 ? error : win32::ERROR_FILE_NOT_FOUND);
    std::printf("Path:         %s (%s)\n", Utf8(machine.files().PathInVolume(*location.volume, location.file)).c_str(),
                location.volume->image.c_str());
    emulated::FileId file = 0;
    std::u16string shortName;
    if (location.directory != 0 &&
        location.volume->volume->Lookup(location.directory, location.name, file, nullptr, &shortName) == 0 &&
        !shortName.empty())
      std::printf("Short name:   %s\n", Utf8(shortName).c_str());
    PrintFile(*location.volume->volume, location.file);
  });
}

}  // namespace workstation
