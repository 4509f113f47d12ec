#include "survey/place.h"

#include "fsops/file_facts.h"
#include "links/link_data.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

std::u16string Stands::LeadsTo() const {
  const std::u16string text = TextOfLink(data).path;
  if (!IsVolume()) return WithoutTrailingBackslash(text);
  return u"\\\\?\\" + text + (text.ends_with(u'\\') ? u"" : u"\\");
}

Stands WhatStandsAt(const std::u16string& path) {
  Stands stands;
  stands.look = LookAt(path);
  if (!stands.look.IsThere()) stands.error = win32::GetLastError();
  if (!stands.look.IsReparsePoint()) return stands;
  stands.data = ReadLinkData(path);
  if (stands.data.empty()) stands.error = win32::GetLastError();
  return stands;
}

std::optional<bool> LeadToOne(const std::u16string& a, const std::u16string& b, win32::DWORD& error) {
  const std::optional<FileFacts> factsOfA = FactsOf(a, LastLink::Followed);
  error = factsOfA ? 0 : win32::GetLastError();
  if (!factsOfA) return std::nullopt;
  const std::optional<FileFacts> factsOfB = FactsOf(b, LastLink::Followed);
  error = factsOfB ? 0 : win32::GetLastError();
  if (!factsOfB) return std::nullopt;
  return factsOfA->IsSameFileAs(*factsOfB);
}

std::optional<bool> IsFolderEmpty(const std::u16string& folder) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(ExtendedPath(JoinPath(folder, u"*")).c_str(), &found)};
  if (!find) {
    // A drive's root has no "." in it.
    if (win32::GetLastError() == win32::ERROR_FILE_NOT_FOUND) return true;
    return std::nullopt;
  }
  do {
    const std::u16string_view name = found.cFileName;
    if (name != u"." && name != u"..") return false;
  } while (win32::FindNextFileW(find.get(), &found));
  if (win32::GetLastError() == win32::ERROR_NO_MORE_FILES) return true;
  return std::nullopt;
}

std::u16string NotToldOf(const std::u16string& path, win32::DWORD error) {
  return FormatText(u"Windows does not tell what stands at %ls (error %u).", path, error);
}
