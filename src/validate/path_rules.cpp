#include "validate/path_rules.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>
#include <vector>

#include "fsops/file_list.h"
#include "links/mounted_folder.h"
#include "links/real_path.h"
#include "report/console.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr std::size_t kPathBuffer = 260;
constexpr char16_t kNoDriveNumber[] = u"#ERROR: Unable to get Drive Number for path  = %ls.";

// "c:\" for the path's drive; empty without a drive letter, and no system error then: Windows gives none.
std::u16string DriveRoot(const char16_t* path) {
  win32::SetLastError(win32::ERROR_SUCCESS);
  const int number = win32::PathGetDriveNumberW(path);
  if (number < 0) return {};
  return {static_cast<char16_t>(u'a' + number), u':', u'\\'};
}

// The roots of the drives there are; false when Windows does not tell.
bool LogicalDrives(std::vector<std::u16string>& roots) {
  std::array<char16_t, kPathBuffer> buffer{};
  const win32::DWORD length = win32::GetLogicalDriveStringsW(kPathBuffer, buffer.data());
  if (length == 0 || length >= kPathBuffer) return false;
  for (std::u16string_view rest(buffer.data(), length); !rest.empty();) {
    const std::u16string_view entry = rest.substr(0, rest.find(u'\0'));
    if (entry.empty()) break;
    roots.emplace_back(entry);
    rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
  }
  return true;
}

// The drive type of the path's drive; DRIVE_NO_ROOT_DIR when it is not in the list.
win32::UINT DriveTypeOf(const std::u16string& root) {
  std::vector<std::u16string> drives;
  LogicalDrives(drives);
  for (const std::u16string& drive : drives)
    if (EqualPaths(drive, root)) return win32::GetDriveTypeW(drive.c_str());
  return win32::DRIVE_NO_ROOT_DIR;
}

// False when Windows does not name it.
bool SpecialFolder(int csidl, std::u16string& folder) {
  std::array<char16_t, kPathBuffer> path{};
  if (win32::SHGetSpecialFolderPathW(nullptr, path.data(), csidl, win32::FALSE)) folder = path.data();
  return !folder.empty();
}

bool Contains(const std::u16string& path, const std::u16string& folder) {
  return win32::StrStrIW(path.c_str(), folder.c_str()) != nullptr;
}

// The path without what makes no other folder of it: "\\?\", a backslash at the end, short names.
std::u16string PlainName(const char16_t* path) {
  const std::u16string plain = WithoutTrailingBackslash(WithoutExtendedPrefix(path));
  return plain.find(u'~') == std::u16string::npos ? plain : RealPath(plain);
}

// One of its components is a device's name: the item itself would be reached by "\\?\" only.
bool NamesDevice(std::u16string_view path) {
  for (path = WithoutExtendedPrefix(path); !path.empty();) {
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    if (IsDeviceName(path.substr(0, end))) return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

}  // namespace

bool DriveExists(const char16_t* path) {
  std::u16string root = DriveRoot(path);
  if (root.empty()) {
    LogWithSystemError(kNoDriveNumber, path);
    std::array<char16_t, kPathBuffer> expanded{};
    const win32::DWORD length = win32::ExpandEnvironmentStringsW(path, expanded.data(), kPathBuffer);
    if (length == 0 || length > kPathBuffer) expanded[0] = u'\0';
    root = DriveRoot(expanded.data());
    if (root.empty()) return LogSystemFailure(kNoDriveNumber, expanded.data());
  }
  std::vector<std::u16string> drives;
  if (!LogicalDrives(drives)) return LogFailure(u"#ERROR: Unable to get Logical Drive Strings.");
  return std::ranges::any_of(drives, [&](const std::u16string& drive) { return EqualPaths(drive, root); });
}

bool IsDriveRoot(const char16_t* path) {
  std::u16string_view root = WithoutExtendedPrefix(path);
  if (root.ends_with(u'\\')) root.remove_suffix(1);
  return root.size() == 2 && root[1] == u':' && win32::PathGetDriveNumberW(path) >= 0;
}

bool IsNetworkPath(const char16_t* path) {
  if (win32::PathIsUNCW(path)) return true;
  const std::u16string root = DriveRoot(path);
  if (root.empty()) {
    LogWithSystemError(kNoDriveNumber, path);
    LogWithSystemError(u"#ERROR: Unable to get Drive Name for path = %ls drive =%ls\n", path, root);
    return true;
  }
  return DriveTypeOf(root) == win32::DRIVE_REMOTE;
}

bool IsOnFixedOrRemovableDrive(const char16_t* path) {
  const std::u16string root = DriveRoot(path);
  const win32::UINT type = root.empty() ? win32::DRIVE_NO_ROOT_DIR : DriveTypeOf(root);
  return type == win32::DRIVE_FIXED || type == win32::DRIVE_REMOVABLE;
}

bool IsExtendedDrivePath(std::u16string_view path) {
  return HasExtendedPrefix(path) && WithoutExtendedPrefix(path).substr(0, 2).ends_with(u':');
}

bool IsUsablePath(const std::u16string& path) {
  if (IsExtendedDrivePath(path)) return LogFailure(line::kInvalidPath, path);
  // With "..", the last component would not be the folder's name, and a folder inside another would not look like it.
  if (HasDotComponents(path)) return LogFailure(line::kRelativePath, path);
  // Windows itself would take the odd parts away, but not from the path that a junction holds: it would lead nowhere.
  if (!IsPlainPath(path) || NamesDevice(path)) return LogFailure(line::kInvalidPath, path);
  return true;
}

bool HasAllowedLength(const std::u16string& path) {
  if (path.size() < kPathLengthLimit) return true;
  return LogFailure(line::kPathTooLong, path);
}

bool IsOrdinaryPath(const std::u16string& path) {
  for (const char16_t* const prefix : {u"\\\\?\\", u"\\\\.\\", u"\\??\\"})
    if (path.starts_with(prefix)) return LogFailure(line::kInvalidPath, path);
  return IsUsablePath(path);
}

bool IsRelativePath(const char16_t* path) {
  return win32::PathIsRelativeW(TrimAndUnquote(path).c_str()) != win32::FALSE;
}

std::u16string TrimAndUnquote(std::u16string_view path) {
  while (!path.empty() && path.front() == u' ') path.remove_prefix(1);
  while (!path.empty() && path.back() == u' ') path.remove_suffix(1);
  std::u16string text(path);
  win32::PathUnquoteSpacesW(text.data());
  return text.c_str();  // unquoting shortens the text in its place
}

bool IsOnNtfs(const char16_t* path) {
  const std::u16string root = IsVolumePath(path) ? path : DriveRoot(path);
  if (root.empty()) return LogFailure(kNoDriveNumber, path);
  std::array<char16_t, 261> name{};
  if (!win32::GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, name.data(), 261))
    return false;
  return EqualIgnoringAsciiCase(name.data(), u"NTFS");
}

int IsSystemFolder(const char16_t* path, const SystemFolderOptions& options) try {
  std::u16string system, windows, programs, programsX86;
  if (!SpecialFolder(win32::CSIDL_SYSTEM, system) || !SpecialFolder(win32::CSIDL_WINDOWS, windows) ||
      !SpecialFolder(win32::CSIDL_PROGRAM_FILES, programs) ||
      !SpecialFolder(win32::CSIDL_PROGRAM_FILESX86, programsX86)) {
    Log(u"#ERROR: Unable to tell the Windows system folders, of which %ls may be one.", path);
    return 1;
  }
  const std::u16string name = PlainName(path);
  if (Contains(name, system) || EqualPaths(name, windows) || EqualPaths(name, programs) ||
      EqualPaths(name, programsX86)) {
    Log(line::kSystemFolder, path);
    return 1;
  }
  const bool belowWindows = Contains(name, windows);
  if (!belowWindows && !Contains(name, programs) && !Contains(name, programsX86)) return 0;
  if (options.insideProductOnly) {
    const auto product = [](const std::u16string& folder) { return folder + u"\\Velmora\\Rimehold"; };
    return Contains(name, product(programs)) || Contains(name, product(programsX86)) ? 0 : 1;
  }
  if (!options.quiet) Say(belowWindows ? StringId::BelowWindows : StringId::BelowProgramFiles);
  return 0;
} catch (const std::exception&) {
  return 1;
}

bool IsOutsideSystemFolders(const std::u16string& path) {
  for (const std::u16string& name : {path, RealPath(path)})
    for (std::u16string folder = name; !folder.empty(); folder = ParentPath(folder))
      if (IsSystemFolderName(LastComponent(folder))) return LogFailure(line::kSystemFolder, path);
  return true;
}

int GetParentDirPath(const char16_t* path, std::u16string& parent) try {
  if (!path) return 0;
  const std::u16string_view whole = path;
  const std::size_t backslash = whole.rfind(u'\\');
  if (backslash == std::u16string_view::npos) return 0;
  parent = whole.substr(0, backslash);
  return 1;
} catch (const std::exception&) {
  return LogFailure(u"#ERROR: GetParentDirPath: Buffer Memory allocation failed");
}
