#include "links/presence.h"

#include "links/reparse_data.h"
#include "win32/win32.h"

Look LookAt(const std::u16string& path) {
  const win32::DWORD attributes = win32::GetFileAttributesW(path.c_str());
  if (attributes != win32::INVALID_FILE_ATTRIBUTES) return {Presence::There, attributes};
  return {MeansGone(win32::GetLastError()) ? Presence::Gone : Presence::NotTold, 0};
}

bool DirectoryExists(const std::u16string& path) { return LookAt(path).IsDirectory(); }

bool IsGone(const std::u16string& path) { return LookAt(path).IsGone(); }

bool PathExists(const std::u16string& path) { return win32::PathFileExistsW(path.c_str()) != win32::FALSE; }

win32::UniqueFile OpenForAttributes(const std::u16string& path, LastLink link) {
  const win32::DWORD flags = link == LastLink::Itself ? kOpenLinkFlags : win32::FILE_FLAG_BACKUP_SEMANTICS;
  return win32::UniqueFile{win32::CreateFileW(path.c_str(), win32::FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                              win32::OPEN_EXISTING, flags, nullptr)};
}

bool IsReparsePoint(const std::u16string& path) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  return find && (found.dwFileAttributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}
