#include "links/link_data.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr std::size_t kHeaderSize = 8;  // tag, length of what follows, reserved
constexpr win32::DWORD kOpenLink = win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT;

// Of both kinds of link (MS-FSCC 2.1.2.4, 2.1.2.5): the head, the substitute name's offset and length, the print
// name's, of a symbolic link its flags, then the names.
constexpr std::size_t kMountPointNames = 16, kSymbolicLinkNames = 20;
constexpr win32::DWORD kRelative = 1;  // SYMLINK_FLAG_RELATIVE
constexpr std::u16string_view kNativePrefix = u"\\??\\";

// 0 when the data end before it.
template <typename Number>
Number NumberAt(const std::vector<win32::BYTE>& data, std::size_t offset) {
  Number number = 0;
  if (offset + sizeof number <= data.size()) std::memcpy(&number, data.data() + offset, sizeof number);
  return number;
}

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

struct LinkText {
  bool symbolic = false;
  std::u16string path;    // empty when the data are not those of a junction or symbolic link
  bool relative = false;  // to the folder that the link is in, or ("\\x") to its volume
};

LinkText TextOfLink(const std::vector<win32::BYTE>& reparseData) {
  const auto tag = NumberAt<win32::DWORD>(reparseData, 0);
  const bool symbolic = tag == win32::IO_REPARSE_TAG_SYMLINK;
  if (!symbolic && tag != win32::IO_REPARSE_TAG_MOUNT_POINT) return {};
  const std::size_t begin =
      (symbolic ? kSymbolicLinkNames : kMountPointNames) + NumberAt<win32::WORD>(reparseData, kHeaderSize);
  const std::size_t size = NumberAt<win32::WORD>(reparseData, kHeaderSize + sizeof(win32::WORD));
  if (begin + size > reparseData.size()) return {};
  LinkText text;
  text.symbolic = symbolic;
  text.path.resize(size / sizeof(char16_t));
  std::memcpy(text.path.data(), reparseData.data() + begin, text.path.size() * sizeof(char16_t));
  text.relative = symbolic && (NumberAt<win32::DWORD>(reparseData, kMountPointNames) & kRelative) != 0;
  if (!text.relative && text.path.starts_with(kNativePrefix)) text.path.erase(0, kNativePrefix.size());
  return text;
}

// Does a link at `link` (a path below a tree's root) lead out of the tree by its relative text?
bool LeavesTree(std::u16string_view link, std::u16string_view text) {
  if (text.starts_with(u'\\')) return true;
  auto depth = std::ranges::count(link, u'\\') - 1;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(u'\\'), text.size());
    const std::u16string_view component = text.substr(0, end);
    if (component == u"..") {
      if (--depth < 0) return true;
    } else if (component != u"." && !component.empty()) {
      ++depth;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return false;
}

// The link is there, and what it leads to is not.
bool LeadsNowhere(const std::u16string& link) {
  const win32::DWORD shareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
  const win32::UniqueFile file{win32::CreateFileW(link.c_str(), win32::FILE_READ_ATTRIBUTES, shareAll, nullptr,
                                                  win32::OPEN_EXISTING, win32::FILE_FLAG_BACKUP_SEMANTICS, nullptr)};
  if (file) return false;
  const win32::DWORD error = win32::GetLastError();
  return error == win32::ERROR_FILE_NOT_FOUND || error == win32::ERROR_PATH_NOT_FOUND ||
         error == win32::ERROR_CANT_RESOLVE_FILENAME;
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

bool MustChangeWithTree(const std::u16string& link, const std::vector<win32::BYTE>& reparseData,
                        const std::u16string& root) {
  if (reparseData.empty()) return true;
  const LinkText text = TextOfLink(reparseData);
  const std::size_t rootSize = root.size() + (HasExtendedPrefix(link) && !HasExtendedPrefix(root) ? 4 : 0);
  const bool moves = text.relative ? LeavesTree(std::u16string_view(link).substr(rootSize), text.path)
                                   : IsSameOrBelow(text.path, root);
  return moves && !LeadsNowhere(link);
}

std::u16string SymbolicLinkText(const std::u16string& link) {
  const LinkText text = TextOfLink(ReadLinkData(link));
  return text.symbolic && !text.relative ? text.path : std::u16string();
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
