#include "fsops/folder_itself.h"

#include <algorithm>
#include <cstring>

#include "fsops/backup_stream.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "links/reparse_data.h"
#include "win32/win32.h"

namespace {

constexpr win32::DWORD kLargestDescriptor = 0x40000;  // four parts of at most 64 KiB each
constexpr win32::DWORD kSmallestDescriptor = 20;      // its fixed part

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
  win32::BYTE bytes[kStreamHeaderSize];
  win32::DWORD read = 0;
  if (!reader.Read(bytes, kStreamHeaderSize, read) || read != kStreamHeaderSize) return {};
  const win32::WIN32_STREAM_ID header = StreamHeaderAt(bytes);
  if (header.dwStreamId != win32::BACKUP_SECURITY_DATA || header.dwStreamNameSize != 0 ||
      SizeOf(header) < kSmallestDescriptor || SizeOf(header) > kLargestDescriptor)
    return {};
  FolderDescriptor descriptor(SizeOf(header));
  const auto size = static_cast<win32::DWORD>(descriptor.size());
  if (!reader.Read(descriptor.data(), size, read) || read != size) return {};
  return descriptor;
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

FolderDescriptor ProtectedDescriptor(FolderDescriptor descriptor) {
  constexpr std::size_t kControlOffset = 2, kDaclOffset = 16;  // of a self-relative descriptor (MS-DTYP 2.4.6)
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

bool SavedFolder::Save(const std::u16string& folder) {
  descriptor_ = ReadDescriptor(folder);
  attributes_ = win32::GetFileAttributesW(folder.c_str());
  const AccessTimeKeepingFile file = OpenFolderItself(folder, win32::FILE_READ_ATTRIBUTES);
  if (descriptor_.empty() || attributes_ == win32::INVALID_FILE_ATTRIBUTES || !file ||
      !win32::GetFileTime(file.get(), &creation_, &lastAccess_, &lastWrite_))
    return false;
  folder_ = folder;
  return true;
}

bool SavedFolder::Restore() const {
  if (folder_.empty()) return true;
  const bool secured = WriteDescriptor(folder_, descriptor_);
  const bool attributed = win32::SetFileAttributesW(folder_.c_str(), attributes_) != win32::FALSE;
  const win32::UniqueFile file{OpenFolderItself(folder_, win32::FILE_WRITE_ATTRIBUTES).release()};
  return file && win32::SetFileTime(file.get(), &creation_, &lastAccess_, &lastWrite_) && secured && attributed;
}
