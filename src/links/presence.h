// What stands at a path. Each question is one call of Windows, asked of the path as it is given ("\\?\" is not added),
// and answered for a link itself, not for what it leads to.
#pragma once

#include <string>

#include "win32/constants.h"
#include "win32/handle.h"

// "It is not there" is taken from the error alone: a question that failed for another reason is no answer, and what may
// be there must neither be taken for new (a roll-back would delete it) nor be passed over.
enum class Presence { There, Gone, NotTold };

// Does a call on a path that failed with this error say that nothing is there?
constexpr bool MeansGone(win32::DWORD error) {
  return error == win32::ERROR_FILE_NOT_FOUND || error == win32::ERROR_PATH_NOT_FOUND;
}

struct Look {
  Presence presence = Presence::NotTold;
  win32::DWORD attributes = 0;  // none unless it is there

  bool IsThere() const { return presence == Presence::There; }
  bool IsGone() const { return presence == Presence::Gone; }
  bool Has(win32::DWORD attribute) const { return (attributes & attribute) != 0; }
  bool IsDirectory() const { return Has(win32::FILE_ATTRIBUTE_DIRECTORY); }  // whatever it leads to
  bool IsReparsePoint() const { return Has(win32::FILE_ATTRIBUTE_REPARSE_POINT); }
  bool IsEncrypted() const { return Has(win32::FILE_ATTRIBUTE_ENCRYPTED); }
  // Neither a link nor a folder on which a volume is mounted.
  bool IsPlainDirectory() const { return IsDirectory() && !IsReparsePoint(); }
  bool IsPlainFile() const { return IsThere() && !IsDirectory() && !IsReparsePoint(); }
};

// GetFileAttributesW. The last error stays as the call left it.
Look LookAt(const std::u16string& path);
bool DirectoryExists(const std::u16string& path);  // LookAt says so
bool IsGone(const std::u16string& path);           // LookAt says so

// PathFileExistsW. False also where Windows does not tell; the last error says why.
bool PathExists(const std::u16string& path);
// FILE_SHARE_*: nobody is kept out.
inline constexpr win32::DWORD kShareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
enum class LastLink { Itself, Followed };
// Opens what stands there for its attributes alone, so that nobody's open of it is in the way. Empty with the last
// error.
win32::UniqueFile OpenForAttributes(const std::u16string& path, LastLink link);

// FindFirstFileW: the last component carries a reparse point. False where nothing is found.
bool IsReparsePoint(const std::u16string& path);
