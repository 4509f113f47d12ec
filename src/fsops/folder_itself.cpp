#include "fsops/folder_itself.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fsops/backup_stream.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "links/reparse_data.h"
#include "win32/win32.h"

namespace {

constexpr win32::DWORD kLargestDescriptor = 0x40000;         // four parts of at most 64 KiB each
constexpr win32::DWORD kSmallestDescriptor = 20;             // its fixed part
constexpr std::size_t kControlOffset = 2, kDaclOffset = 16;  // of a self-relative descriptor (MS-DTYP 2.4.6)
constexpr win32::DWORD kAllParts = win32::OWNER_SECURITY_INFORMATION | win32::GROUP_SECURITY_INFORMATION |
                                   win32::DACL_SECURITY_INFORMATION | win32::SACL_SECURITY_INFORMATION;
constexpr win32::DWORD kPiece = 0x10000;  // bytes read or written at once

AccessTimeKeepingFile OpenFolderItself(const std::u16string& folder, win32::DWORD access) {
  return AccessTimeKeepingFile{
      win32::CreateFileW(folder.c_str(), access, kShareAll, nullptr, win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)};
}

}  // namespace

// The descriptor is the first stream of a backup.
FolderDescriptor ReadDescriptor(const std::u16string& folder) {
  const AccessTimeKeepingFile file = OpenFolderItself(folder, win32::GENERIC_READ);
  if (!file) return {};
  BackupReader reader(file);
  win32::BYTE bytes[kStreamHeaderSize] = {};
  win32::DWORD read = 0;
  if (!reader.Read(bytes, kStreamHeaderSize, read)) return {};
  const win32::DWORD size = read == kStreamHeaderSize ? DescriptorSize(StreamHeaderAt(bytes)) : 0;
  if (size == 0) {
    IsInvalidStream();
    return {};
  }
  FolderDescriptor descriptor(size);
  if (!reader.Read(descriptor.data(), size, read)) return {};
  if (read == size) return descriptor;
  IsInvalidStream();
  return {};
}

bool WriteDescriptor(const std::u16string& folder, FolderDescriptor descriptor) {
  if (descriptor.size() < kSmallestDescriptor || descriptor.size() > kLargestDescriptor) return false;
  const AccessTimeKeepingFile file =
      OpenFolderItself(folder, win32::GENERIC_WRITE | win32::WRITE_DAC | win32::WRITE_OWNER);
  if (!file) return false;
  KeepInheritanceMark(descriptor.data());
  win32::WIN32_STREAM_ID header{};
  header.dwStreamId = win32::BACKUP_SECURITY_DATA;
  header.dwStreamAttributes = win32::STREAM_CONTAINS_SECURITY;
  header.Size.QuadPart = static_cast<std::int64_t>(descriptor.size());
  std::vector<win32::BYTE> stream(kStreamHeaderSize + descriptor.size());
  std::memcpy(stream.data(), &header, kStreamHeaderSize);
  std::ranges::copy(descriptor, stream.begin() + kStreamHeaderSize);
  return BackupWriter(file).Write(stream.data(), static_cast<win32::DWORD>(stream.size()));
}

FolderDescriptor ReadWholeDescriptor(const std::u16string& item) {
  constexpr win32::DWORD kUsual = 0x400;
  for (const win32::DWORD parts : {kAllParts, kAllParts & ~win32::SACL_SECURITY_INFORMATION}) {
    FolderDescriptor descriptor(kUsual);
    for (int attempt = 0; attempt < 2; ++attempt) {
      win32::DWORD size = 0;
      if (win32::GetFileSecurityW(item.c_str(), parts, descriptor.data(), static_cast<win32::DWORD>(descriptor.size()),
                                  &size)) {
        descriptor.resize(std::min<std::size_t>(size, descriptor.size()));
        return descriptor;
      }
      if (win32::GetLastError() != win32::ERROR_INSUFFICIENT_BUFFER || size > kLargestDescriptor) break;
      descriptor.resize(size);
    }
  }
  return {};
}

bool WriteWholeDescriptor(const std::u16string& item, FolderDescriptor descriptor) {
  if (descriptor.size() < kSmallestDescriptor) return false;
  KeepInheritanceMark(descriptor.data());
  win32::WORD control = 0;
  std::memcpy(&control, descriptor.data() + kControlOffset, sizeof control);
  const win32::DWORD parts =
      control & win32::SE_SACL_PRESENT ? kAllParts : kAllParts & ~win32::SACL_SECURITY_INFORMATION;
  return win32::SetFileSecurityW(item.c_str(), parts, descriptor.data()) != win32::FALSE;
}

FolderDescriptor ProtectedDescriptor(FolderDescriptor descriptor) {
  if (descriptor.size() < kSmallestDescriptor) return {};
  win32::WORD control = 0;
  std::memcpy(&control, descriptor.data() + kControlOffset, sizeof control);
  control |= win32::SE_DACL_PROTECTED;
  std::memcpy(descriptor.data() + kControlOffset, &control, sizeof control);
  win32::DWORD daclAt = 0;
  std::memcpy(&daclAt, descriptor.data() + kDaclOffset, sizeof daclAt);
  if (daclAt == 0) return descriptor;  // everybody may do everything
  if (daclAt > descriptor.size() - sizeof(win32::ACL)) return {};
  auto* const dacl = reinterpret_cast<win32::ACL*>(descriptor.data() + daclAt);
  for (win32::DWORD index = 0; index < dacl->AceCount; ++index) {
    void* ace = nullptr;
    if (!win32::GetAce(dacl, index, &ace)) return {};
    win32::BYTE& flags = static_cast<win32::ACE_HEADER*>(ace)->AceFlags;
    flags = static_cast<win32::BYTE>(flags & ~win32::INHERITED_ACE);
  }
  return descriptor;
}

bool HaveSameDacl(const FolderDescriptor& a, const FolderDescriptor& b) {
  const auto textOf = [](FolderDescriptor descriptor) {
    char16_t* sddl = nullptr;
    if (!win32::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), 1,
                                                                     win32::DACL_SECURITY_INFORMATION, &sddl, nullptr))
      return std::u16string();
    const win32::UniqueLocalMemory memory{sddl};
    std::u16string text = sddl;
    // How the list came to be is no part of it.
    for (const char16_t* mark : {u"AI", u"AR"})
      if (const std::size_t at = text.find(mark); at < text.find(u'(')) text.erase(at, 2);
    return text;
  };
  return textOf(a) == textOf(b);
}

bool SavedFolder::Read(const std::u16string& folder, Streams& streams) {
  AccessTimeKeepingFile file = OpenFolderItself(folder, win32::GENERIC_READ | win32::ACCESS_SYSTEM_SECURITY);
  if (!file) file = OpenFolderItself(folder, win32::GENERIC_READ);
  if (!file) return false;
  streams = {};
  std::vector<win32::BYTE>& bytes = streams.bytes;
  BackupReader reader(file);
  for (;;) {
    const std::size_t start = bytes.size();
    win32::DWORD read = 0;
    bytes.resize(start + kStreamHeaderSize);
    if (!reader.Read(bytes.data() + start, kStreamHeaderSize, read)) return false;
    if (read != 0 && read != kStreamHeaderSize) return IsInvalidStream();
    if (read == 0) {
      bytes.resize(start);
      return !streams.descriptor.empty() || IsInvalidStream();
    }
    const win32::WIN32_STREAM_ID header = StreamHeaderAt(bytes.data() + start);
    if (header.dwStreamId == win32::BACKUP_DATA && SizeOf(header) != 0) return IsInvalidStream();  // a file
    std::uint64_t left = SizeOf(header) + header.dwStreamNameSize;
    while (left > 0) {
      const auto piece = static_cast<win32::DWORD>(std::min<std::uint64_t>(left, kPiece));
      const std::size_t end = bytes.size();
      bytes.resize(end + piece);
      if (!reader.Read(bytes.data() + end, piece, read)) return false;
      if (read != piece) return IsInvalidStream();
      left -= piece;
    }
    const win32::BYTE* const body = std::as_const(bytes).data() + start + kStreamHeaderSize;
    if (header.dwStreamId == win32::BACKUP_SECURITY_DATA) {
      streams.descriptor.assign(body, body + SizeOf(header));
      if (streams.descriptor.size() < kSmallestDescriptor) return IsInvalidStream();
      KeepInheritanceMark(bytes.data() + start + kStreamHeaderSize);
    } else if (header.dwStreamId == win32::BACKUP_ALTERNATE_DATA) {
      std::u16string name(header.dwStreamNameSize / sizeof(char16_t), u'\0');
      std::memcpy(name.data(), body, name.size() * sizeof(char16_t));
      streams.names.push_back(std::move(name));
    } else if (header.dwStreamId == win32::BACKUP_REPARSE_DATA || header.dwStreamId == win32::BACKUP_DATA) {
      bytes.resize(start);
    }
  }
}

bool SavedFolder::Save(const std::u16string& folder) {
  attributes_ = win32::GetFileAttributesW(folder.c_str());
  if (attributes_ == win32::INVALID_FILE_ATTRIBUTES) return false;
  const AccessTimeKeepingFile file = OpenFolderItself(folder, win32::FILE_READ_ATTRIBUTES);
  if (!file || !win32::GetFileTime(file.get(), &creation_, &lastAccess_, &lastWrite_) || !Read(folder, streams_))
    return false;
  folder_ = folder;
  return true;
}

bool SavedFolder::RestoreStreams() const {
  Streams present;
  if (!Read(folder_, present)) return false;
  if (present.bytes == streams_.bytes) return true;
  bool all = true;
  for (const std::u16string& name : present.names)
    if (std::ranges::find(streams_.names, name) == streams_.names.end() &&
        !win32::DeleteFileW((folder_ + name).c_str()))
      all = false;
  constexpr win32::DWORD kWrite = win32::GENERIC_WRITE | win32::WRITE_DAC | win32::WRITE_OWNER;
  AccessTimeKeepingFile file = OpenFolderItself(folder_, kWrite | win32::ACCESS_SYSTEM_SECURITY);
  if (!file) file = OpenFolderItself(folder_, kWrite);
  if (!file) return false;
  std::vector<win32::BYTE> bytes = streams_.bytes;
  BackupWriter writer(file);
  for (std::size_t done = 0; done < bytes.size();) {
    const auto piece = static_cast<win32::DWORD>(std::min<std::size_t>(bytes.size() - done, kPiece));
    if (!writer.Write(bytes.data() + done, piece)) return false;
    done += piece;
  }
  return all;
}

bool SavedFolder::RestoreOnce() const {
  const Look look = LookAt(folder_);
  if (look.Has(win32::FILE_ATTRIBUTE_READONLY))
    win32::SetFileAttributesW(folder_.c_str(), look.attributes & ~win32::FILE_ATTRIBUTE_READONLY);
  const bool streams = RestoreStreams();
  const bool attributed = win32::SetFileAttributesW(folder_.c_str(), attributes_) != win32::FALSE;
  const win32::UniqueFile file{OpenFolderItself(folder_, win32::FILE_WRITE_ATTRIBUTES).release()};
  return file && win32::SetFileTime(file.get(), &creation_, &lastAccess_, &lastWrite_) && streams && attributed;
}

// What keeps a folder from being written is often over soon (somebody has it open), and this is the last chance.
bool SavedFolder::Restore() const { return folder_.empty() || RestoreOnce() || RestoreOnce(); }
