#include "fsops/link_data.h"

#include <exception>

#include "win32/win32.h"

namespace {

constexpr std::size_t kHeaderSize = 8;  // tag, length of what follows, reserved
constexpr win32::DWORD kOpenLink = win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT;

bool WriteLinkData(const std::u16string& path, std::vector<win32::BYTE> data) {
  const win32::UniqueFile file{
      win32::CreateFileW(path.c_str(), win32::GENERIC_WRITE, 0, nullptr, win32::OPEN_EXISTING, kOpenLink, nullptr)};
  win32::DWORD returned = 0;
  return file && win32::DeviceIoControl(file.get(), win32::FSCTL_SET_REPARSE_POINT, data.data(),
                                        static_cast<win32::DWORD>(data.size()), nullptr, 0, &returned, nullptr);
}

bool MakeItem(const SavedLink& link) {
  if (link.isDirectory) return win32::CreateDirectoryW(link.source.c_str(), nullptr) != win32::FALSE;
  const win32::UniqueFile file{win32::CreateFileW(link.source.c_str(), win32::GENERIC_WRITE, 0, nullptr,
                                                  win32::CREATE_NEW, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
  return static_cast<bool>(file);
}

}  // namespace

std::vector<win32::BYTE> ReadLinkData(const std::u16string& path) {
  const win32::DWORD shareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
  const win32::UniqueFile file{win32::CreateFileW(path.c_str(), win32::FILE_READ_ATTRIBUTES, shareAll, nullptr,
                                                  win32::OPEN_EXISTING, kOpenLink, nullptr)};
  std::vector<win32::BYTE> data(win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
  win32::DWORD size = 0;
  if (!file || !win32::DeviceIoControl(file.get(), win32::FSCTL_GET_REPARSE_POINT, nullptr, 0, data.data(),
                                       win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE, &size, nullptr))
    return {};
  if (size < kHeaderSize || size > data.size()) return {};
  data.resize(size);
  return data;
}

int RestoreLink(const SavedLink& link) try {
  if (link.reparseData.empty()) return 0;
  const win32::DWORD attributes = win32::GetFileAttributesW(link.source.c_str());
  if (attributes == win32::INVALID_FILE_ATTRIBUTES && !MakeItem(link)) return 0;
  const bool isReparsePoint =
      attributes != win32::INVALID_FILE_ATTRIBUTES && (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  if (isReparsePoint && ReadLinkData(link.source) == link.reparseData) return 1;
  // Refused by Windows for a folder or file that has contents.
  return WriteLinkData(link.source, link.reparseData) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}
