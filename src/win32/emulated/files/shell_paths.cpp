// The shell's tests on the text of a path, and its two questions to the file system.

#include <string_view>

#include "win32/emulated/call.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/text.h"
#include "win32/file.h"
#include "win32/shell.h"

namespace {

using emulated::StartsWithAsciiNoCase;

bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }

// Upper case by the system volume's table, which has Windows' own mappings; of A to Z alone before there is a volume.
char16_t Upper(char16_t unit) {
  if (unit < 0x80) return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
  const emulated::MountedVolume* const system = emulated::Machine::Current().SystemVolume();
  return system ? system->volume->UpCase(unit) : unit;
}

}  // namespace

namespace win32 {

BOOL PathFileExistsW(const char16_t* pszPath) {
  WIN32_CALL(pszPath);
  if (call.Refused()) return FALSE;
  return call.Return<BOOL>(pszPath && GetFileAttributesW(pszPath) != INVALID_FILE_ATTRIBUTES);
}

BOOL PathIsDirectoryW(const char16_t* pszPath) {
  WIN32_CALL(pszPath);
  if (call.Refused()) return FALSE;
  const DWORD attributes = pszPath ? GetFileAttributesW(pszPath) : INVALID_FILE_ATTRIBUTES;
  if (attributes == INVALID_FILE_ATTRIBUTES) return call.Return<BOOL>(FALSE);
  return call.Return<BOOL>(static_cast<BOOL>(attributes & FILE_ATTRIBUTE_DIRECTORY));
}

// Two backslashes begin a network path, but for the prefix \\?\ when not UNC follows it.
BOOL PathIsUNCW(const char16_t* pszPath) {
  WIN32_CALL(pszPath);
  if (call.Refused() || !pszPath) return FALSE;
  const std::u16string_view path = pszPath;
  return call.Return<BOOL>(path.starts_with(u"\\\\") &&
                           (!path.starts_with(u"\\\\?\\") || StartsWithAsciiNoCase(path, u"\\\\?\\UNC\\")));
}

// A path is relative unless it begins with a backslash or has a colon behind its first character: C:name is not.
BOOL PathIsRelativeW(const char16_t* pszPath) {
  WIN32_CALL(pszPath);
  if (call.Refused()) return FALSE;
  const std::u16string_view path = pszPath ? pszPath : u"";
  return call.Return<BOOL>(path.empty() || !(path[0] == u'\\' || (path.size() > 1 && path[1] == u':')));
}

int PathGetDriveNumberW(const char16_t* pszPath) {
  WIN32_CALL(pszPath);
  if (call.Refused() || !pszPath) return -1;
  std::u16string_view path = pszPath;
  if (path.starts_with(u"\\\\?\\")) path.remove_prefix(4);
  if (path.size() < 2 || path[1] != u':') return call.Return(-1);
  const char16_t letter = Upper(path[0]);
  return call.Return(letter >= u'A' && letter <= u'Z' ? letter - u'A' : -1);
}

// Takes off quotation marks that stand at both ends. A single one stands at both.
BOOL PathUnquoteSpacesW(char16_t* lpsz) {
  WIN32_CALL(lpsz);
  if (call.Refused() || !lpsz) return FALSE;
  const std::size_t length = std::u16string_view(lpsz).size();
  if (length == 0 || lpsz[0] != u'"' || lpsz[length - 1] != u'"') return call.Return<BOOL>(FALSE);
  for (std::size_t i = 0; i + 2 < length; ++i) lpsz[i] = lpsz[i + 1];
  lpsz[length < 2 ? 0 : length - 2] = 0;
  return call.Return<BOOL>(TRUE);
}

// What follows the last separator or colon; a separator at the very end belongs to the name before it.
char16_t* PathFindFileNameW(const char16_t* pszPath) {
  WIN32_CALL(pszPath);
  if (call.Refused()) return nullptr;
  const char16_t* name = pszPath;
  for (const char16_t* at = pszPath; at && *at; ++at)
    if ((IsSeparator(*at) || *at == u':') && at[1] && !IsSeparator(at[1])) name = at + 1;
  return const_cast<char16_t*>(call.Return(name));
}

// The first occurrence whatever the case; null when there is none or the text looked for is empty.
char16_t* StrStrIW(const char16_t* pszFirst, const char16_t* pszSrch) {
  WIN32_CALL(pszFirst, pszSrch);
  if (call.Refused() || !pszFirst || !pszSrch || !*pszSrch) return nullptr;
  const std::u16string_view text = pszFirst, searched = pszSrch;
  for (std::size_t start = 0; start + searched.size() <= text.size(); ++start) {
    std::size_t same = 0;
    while (same < searched.size() && Upper(text[start + same]) == Upper(searched[same])) ++same;
    if (same == searched.size()) return const_cast<char16_t*>(call.Return(pszFirst + start));
  }
  return nullptr;
}

}  // namespace win32
