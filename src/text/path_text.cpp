#include "text/path_text.h"

#include <algorithm>

#include "text/ascii_case.h"

namespace {

constexpr std::u16string_view kExtendedPrefix = u"\\\\?\\";
constexpr std::size_t kMaxPath = 260;

}  // namespace

bool EqualPaths(std::u16string_view a, std::u16string_view b) { return EqualIgnoringAsciiCase(a, b); }

bool MayBeOneName(std::u16string_view a, std::u16string_view b) {
  constexpr char16_t kBeyondAscii = 0x80;
  return std::ranges::equal(a, b, [](char16_t one, char16_t other) {
    return one >= kBeyondAscii || other >= kBeyondAscii ||
           EqualIgnoringAsciiCase(std::u16string_view(&one, 1), std::u16string_view(&other, 1));
  });
}

bool MayBeShortName(std::u16string_view name) {
  constexpr std::size_t kLongest = 12;
  return name.size() <= kLongest && name.find(u'~') != name.npos;
}

bool HasExtendedPrefix(std::u16string_view path) { return path.starts_with(kExtendedPrefix); }

std::u16string_view WithoutExtendedPrefix(std::u16string_view path) {
  return HasExtendedPrefix(path) ? path.substr(kExtendedPrefix.size()) : path;
}

std::u16string WithExtendedPrefix(std::u16string_view path) {
  return std::u16string(kExtendedPrefix) += WithoutExtendedPrefix(path);
}

std::u16string ExtendedPath(std::u16string_view path) {
  return path.size() < kMaxPath ? std::u16string(path) : WithExtendedPrefix(path);
}

std::u16string ParentPath(std::u16string_view path) {
  const std::size_t backslash = path.rfind(u'\\');
  return std::u16string(backslash == std::u16string_view::npos ? std::u16string_view() : path.substr(0, backslash));
}

std::u16string LastComponent(std::u16string_view path) {
  const std::size_t backslash = path.rfind(u'\\');
  return std::u16string(backslash == std::u16string_view::npos ? path : path.substr(backslash + 1));
}

std::u16string JoinPath(std::u16string_view folder, std::u16string_view name) {
  std::u16string path(folder);
  if (!path.ends_with(u'\\')) path += u'\\';
  return path += name;
}

std::u16string WithoutTrailingBackslash(std::u16string_view path) {
  while (path.size() > 1 && path.back() == u'\\' && path[path.size() - 2] != u':') path.remove_suffix(1);
  return std::u16string(path);
}

std::u16string FolderForm(std::u16string path) {
  if (path.ends_with(u':')) path += u'\\';
  return path;
}

bool HasDotComponents(std::u16string_view path) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(u"\\/"), path.size());
    const std::u16string_view component = path.substr(0, end);
    if (component == u"." || component == u"..") return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

bool IsPlainPath(std::u16string_view path) {
  if (path.find(u'/') != path.npos) return false;
  if (path.starts_with(u"\\\\")) path.remove_prefix(2);
  if (path.ends_with(u'\\')) path.remove_suffix(1);
  for (bool more = true; more;) {
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    if (end == 0 || path[end - 1] == u'.' || path[end - 1] == u' ') return false;
    more = end < path.size();
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return true;
}

bool IsDeviceName(std::u16string_view name) {
  name = name.substr(0, name.find_first_of(u".:"));
  while (name.ends_with(u' ')) name.remove_suffix(1);
  if (name.size() == 4) {
    const bool isPort = EqualPaths(name.substr(0, 3), u"com") || EqualPaths(name.substr(0, 3), u"lpt");
    return isPort && std::u16string_view(u"0123456789\u00b9\u00b2\u00b3").find(name[3]) != name.npos;
  }
  static constexpr std::u16string_view kDevices[] = {u"nul", u"con", u"prn", u"aux", u"conin$", u"conout$"};
  return std::ranges::any_of(kDevices, [&](std::u16string_view device) { return EqualPaths(name, device); });
}

bool IsSameOrBelow(std::u16string_view path, std::u16string_view folder) {
  if (folder.ends_with(u'\\')) folder.remove_suffix(1);
  if (folder.empty() || !StartsWithIgnoringAsciiCase(path, folder)) return false;
  return path.size() == folder.size() || path[folder.size()] == u'\\';
}

std::u16string ReplaceFolder(std::u16string_view path, std::u16string_view oldFolder, std::u16string_view newFolder) {
  if (!IsSameOrBelow(path, oldFolder)) return std::u16string(path);
  if (oldFolder.ends_with(u'\\')) oldFolder.remove_suffix(1);
  std::u16string_view rest = path.substr(oldFolder.size());
  if (newFolder.ends_with(u'\\') && rest.starts_with(u'\\')) rest.remove_prefix(1);
  return std::u16string(newFolder) += rest;
}

std::u16string RealTargetOf(const std::u16string& source, const std::u16string& target) {
  return source.find(u'\\') == std::u16string::npos ? target : JoinPath(target, LastComponent(source));
}
