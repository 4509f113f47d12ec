#include "links/junction.h"

#include <exception>
#include <string_view>

#include "links/mounted_folder.h"
#include "links/reparse_data.h"
#include "probes/privileges.h"
#include "report/debugger.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

bool IsDirectoryLink(win32::DWORD attributes) {
  constexpr win32::DWORD kBoth = win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT;
  return (attributes & kBoth) == kBoth;
}

// OpenReparseDirectory; the log tells of a failure, by the name that the caller was given.
win32::UniqueFile OpenOrLog(const char16_t* path, const char16_t* given, const ReparseOpenOptions& options = {}) {
  win32::UniqueFile directory = OpenReparseDirectory(path, options);
  if (!directory) LogWithSystemError(u"#ERROR: Failed to open directory for path = %ls.", given);
  return directory;
}

bool ReadMountPoint(const win32::UniqueFile& directory, ReparseData& data) {
  return ReadReparseData(directory, data) && TagOf(data) == win32::IO_REPARSE_TAG_MOUNT_POINT;
}

// Makes the directory; an existing one will do. What holds it up (a folder that is still being deleted) is often over
// soon.
bool CreateJunctionDirectory(const char16_t* path) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (attempt > 0) win32::Sleep(2000);
    if (win32::CreateDirectoryW(path, nullptr) || win32::GetLastError() == win32::ERROR_ALREADY_EXISTS) return true;
  }
  return false;
}

// The name under which a junction holds its target. Empty without either path (the log tells), and, with the last
// error, when the target is too long for it.
std::u16string SubstituteName(const char16_t* junction, const char16_t* target) {
  if (!junction || !target) {
    Log(u"ERROR: Source or target path is missing.");
    return {};
  }
  const std::u16string name = std::u16string(kNativePrefix) + target;
  if (name.size() < win32::MAX_PATH) return name;
  win32::SetLastError(win32::ERROR_FILENAME_EXCED_RANGE);
  return {};
}

int CreateJunctionAt(const std::u16string& junction, const std::u16string& substituteName) {
  if (!CreateJunctionDirectory(junction.c_str())) return LogSystemFailure(line::kDirectoryNotCreated, junction);
  const PrivilegeResult privilege = EnablePrivilege(u"SeRestorePrivilege");
  if (privilege == PrivilegeResult::NotAdjusted) LogWithSystemError(u"ERROR: Unable to adjust token privileges.");
  if (privilege != PrivilegeResult::Enabled) return 0;

  win32::UniqueFile directory{win32::CreateFileW(junction.c_str(), win32::GENERIC_WRITE, 0, nullptr,
                                                 win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)};
  if (!directory) {
    TellDebugger(FormatText(u"#ERROR: CreateJunction: CreateFile() Failed for path = %s", junction).c_str());
    return 0;
  }
  if (WriteReparseData(directory, MountPointData(substituteName))) return 1;
  const win32::DWORD error = win32::GetLastError();
  directory.reset();
  win32::RemoveDirectoryW(junction.c_str());  // refused, without harm, for a folder that is not empty
  win32::SetLastError(error);
  return 0;
}

}  // namespace

bool IsWholeInItsStreams(win32::DWORD reparseTag) {
  // MS-FSCC 2.1.2.1
  constexpr win32::DWORD kCompressed = 0x80000017, kAppExecutionLink = 0x8000001B, kUnixSocket = 0x80000023,
                         kLinuxLink = 0xA000001D, kLinuxFifo = 0x80000024, kLinuxCharacterDevice = 0x80000025,
                         kLinuxBlockDevice = 0x80000026;
  switch (reparseTag) {
    case win32::IO_REPARSE_TAG_MOUNT_POINT:
    case win32::IO_REPARSE_TAG_SYMLINK:
    case kCompressed:
    case kAppExecutionLink:
    case kUnixSocket:
    case kLinuxLink:
    case kLinuxFifo:
    case kLinuxCharacterDevice:
    case kLinuxBlockDevice:
      return true;
    default:
      return false;
  }
}

win32::UniqueFile OpenReparseDirectory(const char16_t* path, const ReparseOpenOptions& options) {
  if (!path ||
      EnablePrivilege(options.forWrite ? u"SeRestorePrivilege" : u"SeBackupPrivilege") != PrivilegeResult::Enabled)
    return {};
  const win32::DWORD access = options.forWrite ? win32::GENERIC_READ | win32::GENERIC_WRITE : win32::GENERIC_READ;
  return win32::UniqueFile{win32::CreateFileW(ExtendedPath(path).c_str(), access, 0, nullptr, win32::OPEN_EXISTING,
                                              kOpenLinkFlags, nullptr)};
}

int CreateJunction(const char16_t* junction, const char16_t* target) try {
  const std::u16string substituteName = SubstituteName(junction, target);
  return substituteName.empty() ? 0 : CreateJunctionAt(ExtendedPath(junction), substituteName);
} catch (const std::exception&) {
  return 0;
}

int ChangeJunctionTarget(const char16_t* junction, const char16_t* target) try {
  if (SubstituteName(junction, target).empty()) return 0;
  const win32::UniqueFile directory = OpenOrLog(junction, junction, {.forWrite = true});
  ReparseData data;
  win32::FILETIME creation, lastAccess, lastWrite;
  if (!directory || !ReadMountPoint(directory, data) || IsVolumeMount(data) ||
      !win32::GetFileTime(directory.get(), &creation, &lastAccess, &lastWrite) ||
      !WriteReparseData(directory, LedTo(data, target)))
    return 0;
  win32::SetFileTime(directory.get(), &creation, &lastAccess, &lastWrite);
  return 1;
} catch (const std::exception&) {
  return 0;
}

int DeleteJunction(const char16_t* path) try {
  if (!path) return LogFailure(u"#ERROR: Directory is Path Missing.");
  if (!IsJunction(path)) {
    if (!IsSymbolicLink(path)) Log(u"#ERROR: Path %ls is not junction.", path);
    return 0;
  }
  const win32::UniqueFile directory = OpenOrLog(path, path, {.forWrite = true});
  return directory && DeleteReparseData(directory, win32::IO_REPARSE_TAG_MOUNT_POINT) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int IsJunction(const char16_t* path, const JunctionTestOptions& options) try {
  if (!path) return LogFailure(u"#ERROR: Directoy path is missing.");
  if (options.excludeMountedVolume && IsVolumeMountPoint(path)) return 0;

  std::u16string reached = path;
  win32::DWORD attributes = win32::GetFileAttributesW(path);
  if (attributes == win32::INVALID_FILE_ATTRIBUTES && !HasExtendedPrefix(reached)) {
    reached = WithExtendedPrefix(path);
    attributes = win32::GetFileAttributesW(reached.c_str());
  }
  if (attributes == win32::INVALID_FILE_ATTRIBUTES)
    return LogSystemFailure(u"#ERROR: Unable to get File Attributes for path = %ls", path);
  if (!IsDirectoryLink(attributes)) return 0;

  const win32::UniqueFile directory = OpenOrLog(reached.c_str(), path);
  ReparseData data;
  return directory && ReadMountPoint(directory, data) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

int IsSymbolicLink(const char16_t* path) try {
  if (!path) return 0;
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(ExtendedPath(path).c_str(), &found)};
  if (!find || !IsSymbolicLinkRecord(found.dwFileAttributes, found.dwReserved0)) return 0;
  Log(u"IsSymbolicLink()::The specified directory or file %ls is symbolic link", path);
  return 1;
} catch (const std::exception&) {
  return 0;
}

win32::DWORD LinkTagAt(const std::u16string& path) {
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(path.c_str(), &found)};
  if (!find || !(found.dwFileAttributes & win32::FILE_ATTRIBUTE_REPARSE_POINT)) return 0;
  const win32::DWORD tag = found.dwReserved0;
  return tag == win32::IO_REPARSE_TAG_MOUNT_POINT || tag == win32::IO_REPARSE_TAG_SYMLINK ? tag : 0;
}

int GetJunctionTarget(const char16_t* path, std::u16string& target) try {
  if (!path) return LogFailure(u"#ERROR: Directory Path is Missing.");
  const win32::DWORD attributes = win32::GetFileAttributesW(ExtendedPath(path).c_str());
  if (attributes == win32::INVALID_FILE_ATTRIBUTES)
    return LogSystemFailure(u"#ERROR: Unable to get File Attributes for path = %ls", path);
  if (!IsDirectoryLink(attributes)) return LogFailure(u"#ERROR: Not a directory or no reparse point.");
  const win32::UniqueFile directory = OpenOrLog(path, path);
  if (!directory) return 0;
  ReparseData data;
  if (!ReadReparseData(directory, data)) return LogFailure(u"#ERROR: Unable to perform DeviceIoControl operation.");
  const win32::DWORD tag = TagOf(data);
  const std::u16string name = MountPointName(data);
  std::u16string text = name;
  if (text.starts_with(kNativePrefix)) text.erase(0, kNativePrefix.size());
  if (!text.empty() && text.back() == u'\\') text.pop_back();
  // A longer target would be cut to some other folder's path.
  if (tag != win32::IO_REPARSE_TAG_MOUNT_POINT || name.size() <= kNativePrefix.size() || text.size() >= win32::MAX_PATH)
    return LogFailure(u"#ERROR: Unable to obtain a valid target path\nReparseBuffer.ReparseTag = %d\npszTemp= %s", tag,
                      name);
  target = text;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int CreateSymbolicLinkEntry(const char16_t* link, const char16_t* target, const SymbolicLinkOptions& options) try {
  if (!link || !target) return 0;
  // A path that does not fit would be cut to another one.
  if (std::u16string_view(link).size() >= win32::MAX_PATH || std::u16string_view(target).size() >= win32::MAX_PATH) {
    win32::SetLastError(win32::ERROR_FILENAME_EXCED_RANGE);
    return 0;
  }
  const win32::UniqueLibrary kernel{win32::LoadLibraryW(u"Kernel32.dll")};
  if (!kernel) return 0;
  const auto createSymbolicLink =
      reinterpret_cast<win32::CreateSymbolicLinkWFunction>(win32::GetProcAddress(kernel.get(), "CreateSymbolicLinkW"));
  if (!createSymbolicLink) return 0;
  const bool toDirectory =
      options.forceDirectoryLink || (!options.forceFileLink && win32::PathIsDirectoryW(target) != win32::FALSE);
  return createSymbolicLink(link, target, toDirectory ? win32::SYMBOLIC_LINK_FLAG_DIRECTORY : 0) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}
