#include "configuration/service_config_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <span>
#include <vector>

#include "records/registry_text.h"
#include "text/path_text.h"
#include "win32/handle.h"
#include "win32/shell.h"

namespace {

constexpr char16_t kByteOrderMark = u'\uFEFF';
constexpr win32::WORD kDefaultConfig = 102;  // the resource, of type "BINARY"
constexpr std::size_t kPathBuffer = 260;     // characters, terminator included

// All or nothing: a write that ends early has failed.
bool WriteBytes(win32::HANDLE file, const void* bytes, win32::DWORD size) {
  win32::DWORD written = 0;
  if (!win32::WriteFile(file, bytes, size, &written, nullptr)) return false;
  if (written == size) return true;
  win32::SetLastError(win32::ERROR_DISK_FULL);
  return false;
}

// What is read or written next begins at this offset, which a file of this kind does not outgrow.
bool Seek(win32::HANDLE file, std::size_t offset) {
  return win32::SetFilePointer(file, static_cast<win32::LONG>(offset), nullptr, win32::FILE_BEGIN) !=
         win32::INVALID_SET_FILE_POINTER;
}

bool CutTo(win32::HANDLE file, std::size_t size) { return Seek(file, size) && win32::SetEndOfFile(file); }

// The bytes of the text behind its mark, at least as many as `size`: what is missing is blanks, which mean nothing
// behind the document.
std::vector<win32::BYTE> BytesOf(const std::u16string& text, std::size_t& used, std::size_t size) {
  const std::u16string marked = kByteOrderMark + text;
  used = marked.size() * sizeof(char16_t);
  std::vector<win32::BYTE> bytes(std::max(used, size));
  std::memcpy(bytes.data(), marked.data(), used);
  for (std::size_t at = used; at < bytes.size(); at += 2) bytes[at] = u' ';
  return bytes;
}

// The whole file. Behind its `size` bytes the buffer has a unit that is zero.
bool ReadBytes(const std::u16string& path, std::vector<char16_t>& buffer, win32::DWORD& size) {
  constexpr win32::DWORD kLargest = std::numeric_limits<win32::LONG>::max();
  const win32::UniqueFile file{win32::CreateFileW(path.c_str(), win32::GENERIC_READ, win32::FILE_SHARE_READ, nullptr,
                                                  win32::OPEN_EXISTING, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
  if (!file) return false;
  if (!Seek(file.get(), 0)) return false;
  win32::DWORD high = 0;
  const win32::DWORD fileSize = win32::GetFileSize(file.get(), &high);
  if (high != 0 || fileSize >= kLargest) return false;  // INVALID_FILE_SIZE among them

  // Two bytes more than the file has, and then a unit that stays zero whatever is read.
  const win32::DWORD toRead = fileSize + 2;
  buffer.assign((toRead + 1) / sizeof(char16_t) + 1, u'\0');
  return win32::ReadFile(file.get(), buffer.data(), toRead, &size, nullptr) != win32::FALSE;
}

std::span<const win32::BYTE> DefaultConfig() {
  const win32::HRSRC resource = win32::FindResourceW(nullptr, win32::MakeIntResource(kDefaultConfig), u"BINARY");
  if (!resource) return {};
  const win32::HGLOBAL loaded = win32::LoadResource(nullptr, resource);
  const void* const bytes = loaded ? win32::LockResource(loaded) : nullptr;
  if (!bytes) return {};
  return {static_cast<const win32::BYTE*>(bytes), win32::SizeofResource(nullptr, resource)};
}

win32::UniqueFile CreateConfigFile(const std::u16string& path) {
  const auto create = [&path] {
    return win32::UniqueFile{win32::CreateFileW(path.c_str(), win32::GENERIC_READ | win32::GENERIC_WRITE, 0, nullptr,
                                                win32::CREATE_ALWAYS, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
  };
  win32::UniqueFile file = create();
  const std::u16string folder = ParentPath(path);
  if (file || folder.empty()) return file;
  win32::SHCreateDirectory(nullptr, folder.c_str());
  return create();
}

}  // namespace

bool ReadConfigText(const std::u16string& path, std::u16string& text) {
  std::vector<char16_t> buffer;
  win32::DWORD size = 0;
  if (!ReadBytes(path, buffer, size) || size <= 4) return false;
  text = buffer.data() + 1;
  return true;
}

bool WriteConfigText(const std::u16string& path, const std::u16string& text) {
  if (text.empty() || text.size() > std::numeric_limits<win32::LONG>::max() / sizeof(char16_t) - 1) {
    win32::SetLastError(win32::ERROR_INVALID_DATA);
    return false;
  }
  std::vector<char16_t> old;
  win32::DWORD oldSize = 0;
  const bool hasOld = ReadBytes(path, old, oldSize);
  const win32::UniqueFile file{win32::CreateFileW(path.c_str(), win32::GENERIC_WRITE, win32::FILE_SHARE_READ, nullptr,
                                                  win32::OPEN_ALWAYS, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
  if (!file) return false;
  // Over the old text, in one piece: were the file cut to nothing first, a machine that stops there would lose all of
  // it. What of the old text is longer than the new one is first made blank, then cut off.
  std::size_t size = 0;
  const std::vector<win32::BYTE> bytes = BytesOf(text, size, hasOld ? oldSize : 0);
  if (!Seek(file.get(), 0)) return false;
  if (WriteBytes(file.get(), bytes.data(), static_cast<win32::DWORD>(bytes.size())) && CutTo(file.get(), size)) {
    win32::FlushFileBuffers(file.get());
    return true;
  }
  const win32::DWORD error = win32::GetLastError();
  if (hasOld && Seek(file.get(), 0) && WriteBytes(file.get(), old.data(), oldSize)) CutTo(file.get(), oldSize);
  win32::SetLastError(error);
  return false;
}

bool DefaultConfigText(std::u16string& text) {
  const std::span<const win32::BYTE> config = DefaultConfig();
  if (config.size() <= sizeof(char16_t)) return false;
  text.resize(config.size() / sizeof(char16_t) - 1);  // without the byte-order mark
  std::memcpy(text.data(), config.data() + sizeof(char16_t), text.size() * sizeof(char16_t));
  return true;
}

bool WriteDefaultConfigFile(const std::u16string& path) {
  const std::span<const win32::BYTE> config = DefaultConfig();
  if (config.empty()) return false;
  const win32::UniqueFile file = CreateConfigFile(path);
  if (!file) return false;
  const win32::UniqueKernelHandle section{win32::CreateFileMappingW(file.get(), nullptr, win32::PAGE_READWRITE, 0,
                                                                    static_cast<win32::DWORD>(config.size()), nullptr)};
  if (!section) return false;
  void* const view = win32::MapViewOfFile(section.get(), win32::FILE_MAP_READ | win32::FILE_MAP_WRITE, 0, 0, 0);
  if (!view) return false;
  std::memcpy(view, config.data(), config.size());
  return win32::UnmapViewOfFile(view) != win32::FALSE;
}

bool ReadProfilesDirectory(std::u16string& directory) {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kProfileListPath, 0, win32::KEY_QUERY_VALUE, key.put()) != 0)
    return false;
  std::array<char16_t, kPathBuffer + 1> value{};  // a value may be stored without its terminator
  win32::DWORD type = win32::REG_NONE;
  win32::DWORD size = kPathBuffer * sizeof(char16_t);
  if (win32::RegQueryValueExW(key.get(), u"ProfilesDirectory", nullptr, &type,
                              reinterpret_cast<win32::BYTE*>(value.data()), &size) != win32::ERROR_SUCCESS ||
      (type != win32::REG_SZ && type != win32::REG_EXPAND_SZ))
    return false;
  std::array<char16_t, kPathBuffer> expanded{};
  const win32::DWORD length = win32::ExpandEnvironmentStringsW(value.data(), expanded.data(), kPathBuffer);
  if (length == 0 || length > kPathBuffer) return false;
  directory = expanded.data();
  return true;
}
