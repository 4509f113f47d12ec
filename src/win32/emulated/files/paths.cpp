#include "win32/emulated/files/paths.h"

#include <algorithm>
#include <array>

#include "win32/constants.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

constexpr std::size_t kMaximumComponent = 255;
constexpr std::u16string_view kWin32Prefix = u"\\\\?\\", kObjectPrefix = u"\\??\\", kDevicePrefix = u"\\\\.\\";
constexpr win32::DWORD kBadNetPath = win32::ERROR_BAD_NETPATH;

bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }
bool IsLetter(char16_t unit) { return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z'); }
// This is asked of every path: most names are no devices by their first letter.
bool MayBeginDevice(char16_t unit) {
  constexpr unsigned kLowerCase = 0x20;
  switch (unit | kLowerCase) {
    case u'a':
    case u'c':
    case u'l':
    case u'n':
    case u'p':
      return true;
    default:
      return false;
  }
}
bool HasDrive(std::u16string_view path) { return path.size() >= 2 && IsLetter(path[0]) && path[1] == u':'; }

// The table of the first 128 units: this is asked for every unit of every path.
constexpr auto kIllegal = [] {
  std::array<bool, 128> table{};
  for (std::size_t unit = 0; unit < 0x20; ++unit) table[unit] = true;
  for (const char16_t unit : std::u16string_view(u"\"*/:<>?\\|")) table[unit] = true;
  return table;
}();

// The parts of a path without a prefix, turned into a full path: "C:\a\b", with a trailing backslash where one was.
class Normalizer {
 public:
  explicit Normalizer(std::u16string_view path) {
    full_ = u"C:\\";
    if (HasDrive(path)) {
      full_[0] = path[0];
      path.remove_prefix(2);  // every drive's current directory is its root
    }
    while (!path.empty() && IsSeparator(path.front())) path.remove_prefix(1);
    const bool endsInSeparator = !path.empty() && IsSeparator(path.back());
    if (!endsInSeparator) {
      // Dots that are a component of their own are no trailing dots.
      const std::size_t lastStart = LastComponent(path);
      const std::u16string_view last = path.substr(lastStart);
      if (last != u"." && last != u"..") {
        while (path.size() > lastStart && (path.back() == u'.' || path.back() == u' ')) path.remove_suffix(1);
      }
    }
    while (!path.empty()) {
      const std::size_t end = std::min(path.find_first_of(u"\\/"), path.size());
      Add(path.substr(0, end));
      path.remove_prefix(std::min(end + 1, path.size()));
    }
    if (endsInSeparator && full_.back() != u'\\') full_ += u'\\';
  }
  std::u16string full() && { return std::move(full_); }

 private:
  static std::size_t LastComponent(std::u16string_view path) {
    const std::size_t separator = path.find_last_of(u"\\/");
    return separator == std::u16string_view::npos ? 0 : separator + 1;
  }
  void Add(std::u16string_view component) {
    if (component.empty() || component == u".") return;
    if (component == u"..") {
      const std::size_t cut = full_.rfind(u'\\');
      full_.resize(std::max<std::size_t>(cut, 3));
      return;
    }
    if (component.size() >= 2 && component.back() == u'.' && component[component.size() - 2] != u'.')
      component.remove_suffix(1);
    if (full_.back() != u'\\') full_ += u'\\';
    full_ += component;
  }
  std::u16string full_;
};

// Splits "a\b\c" (no leading backslash). 123 when a name between two backslashes, or behind the last but one, is empty,
// whether or not what stands before it exists.
win32::DWORD Split(std::u16string_view rest, ParsedPath& parsed) {
  if (!rest.empty() && rest.back() == u'\\') {
    parsed.trailingBackslash = true;
    rest.remove_suffix(1);
  }
  for (bool more = !rest.empty(); more;) {
    const std::size_t end = std::min(rest.find(u'\\'), rest.size());
    if (end == 0) return win32::ERROR_INVALID_NAME;
    parsed.names.push_back(rest.substr(0, end));
    more = end < rest.size();
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return 0;
}

}  // namespace

bool IsLiteral(std::u16string_view path) { return path.starts_with(kWin32Prefix) || path.starts_with(kObjectPrefix); }

bool IsLegalComponent(std::u16string_view name) {
  if (name.empty() || name.size() > kMaximumComponent || name == u"." || name == u"..") return false;
  return std::none_of(name.begin(), name.end(), [](char16_t unit) { return unit < kIllegal.size() && kIllegal[unit]; });
}

DosDevice DosDeviceOf(std::u16string_view path) {
  if (IsLiteral(path) || path.starts_with(kDevicePrefix)) return DosDevice::None;
  if (HasDrive(path)) path.remove_prefix(2);
  std::size_t start = path.size();
  while (start > 0 && !IsSeparator(path[start - 1])) --start;
  return DosDeviceOfName(path.substr(start));
}

DosDevice DosDeviceOfName(std::u16string_view name) {
  if (name.empty() || !MayBeginDevice(name.front())) return DosDevice::None;
  name = name.substr(0, name.find_first_of(u".:"));
  while (name.ends_with(u' ')) name.remove_suffix(1);
  if (name.size() < 3 || name.size() > 4) return DosDevice::None;
  if (EqualAsciiNoCase(name, u"nul")) return DosDevice::Null;
  for (const std::u16string_view device : {u"con", u"prn", u"aux"})
    if (EqualAsciiNoCase(name, device)) return DosDevice::Other;
  const bool isPort = name.size() == 4 && (StartsWithAsciiNoCase(name, u"com") || StartsWithAsciiNoCase(name, u"lpt"));
  return isPort && std::u16string_view(u"123456789\u00b9\u00b2\u00b3").find(name[3]) != name.npos ? DosDevice::Other
                                                                                                  : DosDevice::None;
}

std::u16string FullPath(std::u16string_view path) {
  if (IsLiteral(path)) return std::u16string(path);
  if (path.starts_with(kDevicePrefix)) path.remove_prefix(kDevicePrefix.size());
  return Normalizer(path).full();
}

win32::DWORD ParseObjectName(Machine& machine, std::u16string_view name, ParsedPath& parsed) {
  parsed.text = name;
  parsed.names.clear();
  parsed.trailingBackslash = false;
  const std::u16string_view text = parsed.text;
  if (StartsWithAsciiNoCase(text, u"UNC\\")) return kBadNetPath;
  const std::size_t end = std::min(text.find(u'\\'), text.size());
  const std::u16string_view device = text.substr(0, end);
  if (device.size() == 2 && HasDrive(device)) {
    parsed.volume = machine.FindByLetter(device[0]);
  } else if (StartsWithAsciiNoCase(device, u"Volume{")) {
    parsed.volume = machine.FindByGuidName(std::u16string(kWin32Prefix) + std::u16string(device));
  } else {
    return device.size() > 2 && HasDrive(device) ? win32::ERROR_INVALID_NAME : win32::ERROR_PATH_NOT_FOUND;
  }
  if (!parsed.volume) return win32::ERROR_PATH_NOT_FOUND;
  if (!parsed.volume->volume) return win32::ERROR_UNRECOGNIZED_VOLUME;
  if (end == text.size()) return 0;  // the volume itself, taken as its root
  if (const win32::DWORD error = Split(text.substr(end + 1), parsed)) return error;
  if (parsed.names.empty()) parsed.trailingBackslash = true;
  return 0;
}

win32::DWORD ParsePath(Machine& machine, std::u16string_view path, ParsedPath& parsed) {
  if (path.empty()) return win32::ERROR_PATH_NOT_FOUND;
  if (IsLiteral(path)) {
    path.remove_prefix(kWin32Prefix.size());
    if (path.empty()) return win32::ERROR_INVALID_NAME;
    // Without a backslash it is the device and not its root directory: no volume is opened raw here.
    if (path.find(u'\\') == std::u16string_view::npos)
      return StartsWithAsciiNoCase(path, u"Volume{") || HasDrive(path) ? win32::ERROR_NOT_SUPPORTED
                                                                       : win32::ERROR_FILE_NOT_FOUND;
    return ParseObjectName(machine, path, parsed);
  }
  if (path.starts_with(kDevicePrefix)) {
    const std::u16string_view rest = path.substr(kDevicePrefix.size());
    if (!HasDrive(rest)) return win32::ERROR_FILE_NOT_FOUND;  // no other device of the machine has files
    if (rest.size() == 2) return win32::ERROR_NOT_SUPPORTED;
  } else if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
    return kBadNetPath;
  }
  if (DosDeviceOf(path) != DosDevice::None) return win32::ERROR_FILE_NOT_FOUND;
  const std::u16string full = FullPath(path);
  if (full.size() >= win32::MAX_PATH) return win32::ERROR_PATH_NOT_FOUND;
  return ParseObjectName(machine, full, parsed);
}

}  // namespace emulated
