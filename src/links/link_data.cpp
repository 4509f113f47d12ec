#include "links/link_data.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "links/presence.h"
#include "links/real_path.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

bool WriteLink(const SavedLink& link) {
  const win32::UniqueFile file{win32::CreateFileW(link.source.c_str(), win32::GENERIC_WRITE, 0, nullptr,
                                                  win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)};
  if (!file || !WriteReparseData(file, link.reparseData)) return false;
  if (link.timesKnown) win32::SetFileTime(file.get(), &link.creation, &link.lastAccess, &link.lastWrite);
  return true;
}

bool MakeItem(const SavedLink& link) {
  if (link.isDirectory) return win32::CreateDirectoryW(link.source.c_str(), nullptr) != win32::FALSE;
  const win32::UniqueFile file{win32::CreateFileW(link.source.c_str(), win32::GENERIC_WRITE, 0, nullptr,
                                                  win32::CREATE_NEW, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
  return static_cast<bool>(file);
}

void RemoveItem(const SavedLink& link) {
  if (link.isDirectory)
    win32::RemoveDirectoryW(link.source.c_str());
  else
    win32::DeleteFileW(link.source.c_str());
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
  if (OpenForAttributes(link, LastLink::Followed)) return false;
  const win32::DWORD error = win32::GetLastError();
  return MeansGone(error) || error == win32::ERROR_CANT_RESOLVE_FILENAME;
}

}  // namespace

ReparseData ReadLinkData(const std::u16string& path) {
  const win32::UniqueFile file = OpenForAttributes(path, LastLink::Itself);
  ReparseData data;
  return file && ReadReparseData(file, data) ? data : ReparseData();
}

SavedLink SaveLink(const std::u16string& source, const std::u16string& target, bool isDirectory) {
  SavedLink link{source, target, isDirectory};
  const win32::UniqueFile file = OpenForAttributes(source, LastLink::Itself);
  if (!file || !ReadReparseData(file, link.reparseData)) link.reparseData.clear();
  link.timesKnown =
      file && win32::GetFileTime(file.get(), &link.creation, &link.lastAccess, &link.lastWrite) != win32::FALSE;
  return link;
}

bool MustChangeWithTree(const std::u16string& link, const ReparseData& reparseData, const std::u16string& root) {
  if (reparseData.empty()) return true;
  const LinkText text = TextOfLink(reparseData);
  const bool moves = text.relative
                         ? LeavesTree(WithoutExtendedPrefix(link).substr(WithoutExtendedPrefix(root).size()), text.path)
                         : IsSameOrBelow(text.path, root);
  return moves && !LeadsNowhere(link);
}

std::u16string SymbolicLinkText(const std::u16string& link) {
  const LinkText text = TextOfLink(ReadLinkData(link));
  return text.symbolic && !text.relative ? text.path : std::u16string();
}

int RestoreLink(const SavedLink& link) try {
  if (link.reparseData.empty() || IsShortNameOfAnother(link.source)) return 0;
  const Look look = LookAt(link.source);
  const bool made = !look.IsThere() && MakeItem(link);
  if (look.IsGone() && !made) return 0;
  if (look.IsReparsePoint() && ReadLinkData(link.source) == link.reparseData) return 1;
  // Refused by Windows for a folder or file that has contents.
  if (WriteLink(link)) return 1;
  if (made) RemoveItem(link);
  return 0;
} catch (const std::exception&) {
  return 0;
}
