// The shell's folders: making a path with all that leads to it, and where Windows' own folders are.

#include <optional>
#include <string>

#include "win32/emulated/call.h"
#include "win32/emulated/registry/registry.h"
#include "win32/file.h"
#include "win32/shell.h"

namespace {

using win32::DWORD;

constexpr std::size_t kLongestPath = 260;

bool Exists(DWORD error) { return error == win32::ERROR_ALREADY_EXISTS || error == win32::ERROR_FILE_EXISTS; }

DWORD MakeDirectory(const std::u16string& path, const win32::SECURITY_ATTRIBUTES* attributes) {
  win32::SECURITY_ATTRIBUTES own;
  if (attributes) own = *attributes;
  return win32::CreateDirectoryW(path.c_str(), attributes ? &own : nullptr) ? 0 : emulated::LastError();
}

// Makes `path`; on the way every missing folder above it.
DWORD MakePath(const std::u16string& path, const win32::SECURITY_ATTRIBUTES* attributes) {
  const DWORD error = MakeDirectory(path, attributes);
  if (error != win32::ERROR_PATH_NOT_FOUND && error != win32::ERROR_FILE_NOT_FOUND) return error;
  const std::size_t cut = path.find_last_not_of(u'\\', path.rfind(u'\\'));
  if (path.rfind(u'\\') == std::u16string::npos || cut == std::u16string::npos || path[cut] == u':') return error;
  const DWORD above = MakePath(path.substr(0, cut + 1), attributes);
  return above == 0 || Exists(above) ? MakeDirectory(path, attributes) : above;
}

// 0, or 183 for a directory that was there, 80 for a file in its place, 3, 161 for a relative path, 206 for a long one.
DWORD MakeShellDirectory(const char16_t* given, const win32::SECURITY_ATTRIBUTES* attributes) {
  if (win32::PathIsRelativeW(given)) return win32::ERROR_BAD_PATHNAME;
  std::u16string path = given;
  if (path.size() >= kLongestPath && !path.starts_with(u"\\\\?\\")) return win32::ERROR_FILENAME_EXCED_RANGE;
  while (path.size() > 3 && path.back() == u'\\') path.pop_back();
  const DWORD error = MakePath(path, attributes);
  if (error == 0) return 0;
  // What is there answers in its own way (a drive's root denies to be made); only a directory is what was asked for.
  const DWORD found = win32::GetFileAttributesW(path.c_str());
  if (found == win32::INVALID_FILE_ATTRIBUTES) return error;
  if (found & win32::FILE_ATTRIBUTE_DIRECTORY) return win32::ERROR_ALREADY_EXISTS;
  return Exists(error) ? DWORD{win32::ERROR_FILE_EXISTS} : error;
}

std::u16string RegisteredFolder(std::u16string_view key, std::u16string_view value, std::u16string_view otherwise) {
  const auto found = emulated::Machine::Current().registry().Query(key, value);
  const std::u16string text = found ? found->Text() : std::u16string();
  return text.empty() ? std::u16string(otherwise) : text;
}

constexpr std::u16string_view kCurrentVersion = u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
constexpr std::u16string_view kCurrentVersionNt = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

std::optional<std::u16string> SpecialFolder(int csidl) {
  switch (csidl) {
    case win32::CSIDL_WINDOWS:
      return RegisteredFolder(kCurrentVersionNt, u"SystemRoot", u"C:\\Windows");
    case win32::CSIDL_SYSTEM:
      return RegisteredFolder(kCurrentVersionNt, u"SystemRoot", u"C:\\Windows") + u"\\system32";
    case win32::CSIDL_PROGRAM_FILES:
      return RegisteredFolder(kCurrentVersion, u"ProgramFilesDir", u"C:\\Program Files");
    case win32::CSIDL_PROGRAM_FILESX86:
      return RegisteredFolder(kCurrentVersion, u"ProgramFilesDir (x86)", u"C:\\Program Files (x86)");
    default:
      return std::nullopt;
  }
}

}  // namespace

namespace win32 {

int SHCreateDirectory(HWND hwnd, const char16_t* pszPath) {
  WIN32_CALL(hwnd, pszPath);
  if (call.Refused()) return call.Code<int>(call.error());
  return call.Code<int>(MakeShellDirectory(pszPath, nullptr));
}

int SHCreateDirectoryExW(HWND hwnd, const char16_t* pszPath, const SECURITY_ATTRIBUTES* psa) {
  WIN32_CALL(hwnd, pszPath);
  if (call.Refused()) return call.Code<int>(call.error());
  return call.Code<int>(MakeShellDirectory(pszPath, psa));
}

BOOL SHGetSpecialFolderPathW(HWND hwnd, char16_t* pszPath, int csidl, BOOL fCreate) {
  WIN32_CALL(hwnd, csidl, fCreate);
  if (call.Refused()) return FALSE;
  const auto folder = SpecialFolder(csidl);
  if (!pszPath || !folder || folder->size() >= kLongestPath) return call.Done(ERROR_INVALID_PARAMETER);
  if (fCreate) MakeShellDirectory(folder->c_str(), nullptr);
  folder->copy(pszPath, folder->size());
  pszPath[folder->size()] = 0;
  return call.Done(ERROR_SUCCESS);
}

}  // namespace win32
