#include "links/reparse_data.h"

#include <cstring>

#include "text/path_text.h"
#include "win32/win32.h"

namespace {

struct Head {
  win32::DWORD ReparseTag = 0;
  win32::WORD ReparseDataLength = 0;  // bytes behind the head
  win32::WORD Reserved = 0;
};
// Where the names are, counted from behind these numbers (of a symbolic link, from behind its flags).
struct Names {
  win32::WORD SubstituteNameOffset = 0;
  win32::WORD SubstituteNameLength = 0;
  win32::WORD PrintNameOffset = 0;
  win32::WORD PrintNameLength = 0;
};
constexpr std::size_t kMountPointNames = sizeof(Head) + sizeof(Names);
constexpr std::size_t kSymbolicLinkNames = kMountPointNames + sizeof(win32::DWORD);
constexpr win32::DWORD kRelative = 1;  // SYMLINK_FLAG_RELATIVE
static_assert(sizeof(Head) == 8 && kMountPointNames == 16);

// Zero when the data end before it.
template <typename Value>
Value At(const ReparseData& data, std::size_t offset) {
  Value value{};
  if (offset + sizeof value <= data.size()) std::memcpy(&value, data.data() + offset, sizeof value);
  return value;
}

// A name of a junction, by its place and length in bytes; empty when the data end before it.
std::u16string NameAt(const ReparseData& data, std::size_t offset, std::size_t length) {
  offset += kMountPointNames;
  if (offset + length > data.size()) return {};
  std::u16string name(length / sizeof(char16_t), u'\0');
  std::memcpy(name.data(), data.data() + offset, name.size() * sizeof(char16_t));
  return name;
}

}  // namespace

bool ReadReparseData(const win32::UniqueFile& item, ReparseData& data) {
  data.assign(win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE, 0);
  win32::DWORD size = 0;
  if (!win32::DeviceIoControl(item.get(), win32::FSCTL_GET_REPARSE_POINT, nullptr, 0, data.data(),
                              win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE, &size, nullptr) ||
      size < sizeof(Head) || size > data.size())
    return false;
  data.resize(size);
  return true;
}

bool WriteReparseData(const win32::UniqueFile& item, ReparseData data) {
  win32::DWORD returned = 0;
  return win32::DeviceIoControl(item.get(), win32::FSCTL_SET_REPARSE_POINT, data.data(),
                                static_cast<win32::DWORD>(data.size()), nullptr, 0, &returned, nullptr) != win32::FALSE;
}

bool DeleteReparseData(const win32::UniqueFile& item, win32::DWORD tag) {
  Head head{.ReparseTag = tag};
  win32::DWORD returned = 0;
  return win32::DeviceIoControl(item.get(), win32::FSCTL_DELETE_REPARSE_POINT, &head, sizeof head, nullptr, 0,
                                &returned, nullptr) != win32::FALSE;
}

win32::DWORD TagOf(const ReparseData& data) { return At<win32::DWORD>(data, 0); }

// The substitute name, then the print name, each with its terminator, which both names' lengths leave out.
ReparseData MountPointData(std::u16string_view substituteName, std::u16string_view printName) {
  const auto nameBytes = static_cast<win32::WORD>(substituteName.size() * sizeof(char16_t));
  const auto printBytes = static_cast<win32::WORD>(printName.size() * sizeof(char16_t));
  const Names names{.SubstituteNameLength = nameBytes,
                    .PrintNameOffset = static_cast<win32::WORD>(nameBytes + sizeof(char16_t)),
                    .PrintNameLength = printBytes};
  ReparseData data(kMountPointNames + nameBytes + printBytes + 2 * sizeof(char16_t));
  const Head head{.ReparseTag = win32::IO_REPARSE_TAG_MOUNT_POINT,
                  .ReparseDataLength = static_cast<win32::WORD>(data.size() - sizeof(Head))};
  std::memcpy(data.data(), &head, sizeof head);
  std::memcpy(data.data() + sizeof head, &names, sizeof names);
  std::memcpy(data.data() + kMountPointNames, substituteName.data(), nameBytes);
  if (printBytes != 0)
    std::memcpy(data.data() + kMountPointNames + names.PrintNameOffset, printName.data(), printBytes);
  return data;
}

ReparseData LedTo(const ReparseData& junction, const std::u16string& target) {
  const auto names = At<Names>(junction, sizeof(Head));
  const std::u16string name = NameAt(junction, names.SubstituteNameOffset, names.SubstituteNameLength);
  const std::u16string printName = NameAt(junction, names.PrintNameOffset, names.PrintNameLength);
  const std::size_t prefix = name.starts_with(kNativePrefix) ? kNativePrefix.size() : 0;
  const std::u16string folder = WithoutTrailingBackslash(name.substr(prefix));
  const auto replaced = [&](const std::u16string& text) {
    return WithoutTrailingBackslash(target) + (text.ends_with(u'\\') && !target.ends_with(u":\\") ? u"\\" : u"");
  };
  return MountPointData(std::u16string(kNativePrefix) + replaced(name),
                        EqualPaths(WithoutTrailingBackslash(printName), folder) ? replaced(printName) : printName);
}

bool IsVolumeMount(const ReparseData& data) {
  constexpr std::u16string_view kVolume = u"\\??\\Volume{";
  const std::u16string name = MountPointName(data);
  const std::size_t end = name.find(u'}');
  return TagOf(data) == win32::IO_REPARSE_TAG_MOUNT_POINT && name.starts_with(kVolume) && end != name.npos &&
         (end + 1 == name.size() || (end + 2 == name.size() && name.back() == u'\\'));
}

std::u16string MountPointName(const ReparseData& data) {
  if (data.size() <= kMountPointNames) return {};
  std::u16string text((data.size() - kMountPointNames) / sizeof(char16_t), u'\0');
  std::memcpy(text.data(), data.data() + kMountPointNames, text.size() * sizeof(char16_t));
  return text.substr(0, text.find(u'\0'));
}

LinkText TextOfLink(const ReparseData& data) {
  const bool symbolic = TagOf(data) == win32::IO_REPARSE_TAG_SYMLINK;
  if (!symbolic && TagOf(data) != win32::IO_REPARSE_TAG_MOUNT_POINT) return {};
  const auto names = At<Names>(data, sizeof(Head));
  const std::size_t begin = (symbolic ? kSymbolicLinkNames : kMountPointNames) + names.SubstituteNameOffset;
  if (begin + names.SubstituteNameLength > data.size()) return {};
  LinkText text;
  text.symbolic = symbolic;
  text.path.resize(names.SubstituteNameLength / sizeof(char16_t));
  std::memcpy(text.path.data(), data.data() + begin, text.path.size() * sizeof(char16_t));
  text.relative = symbolic && (At<win32::DWORD>(data, kMountPointNames) & kRelative) != 0;
  if (!text.relative && text.path.starts_with(kNativePrefix)) text.path.erase(0, kNativePrefix.size());
  return text;
}
