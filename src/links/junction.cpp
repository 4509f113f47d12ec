#include "links/junction.h"

#include <array>
#include <cstring>
#include <exception>
#include <string_view>
#include <vector>

#include "links/mounted_folder.h"
#include "probes/privileges.h"
#include "report/log.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr std::size_t kPathBuffer = 260;      // characters of a path buffer, terminator included
constexpr std::size_t kJunctionBuffer = 540;  // bytes in which a junction's reparse data are built
constexpr std::u16string_view kNativePrefix = u"\\??\\";
constexpr std::u16string_view kVolumeName = u"\\??\\Volume{";  // begins what a mounted volume's folder holds
constexpr win32::DWORD kOpenLinkFlags = win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT;
constexpr win32::DWORD kDirectoryLink = win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT;

// The head of every reparse point's data (MS-FSCC 2.1.2.1) and of a mount point's names (2.1.2.5).
struct ReparseHeader {
  win32::DWORD ReparseTag = win32::IO_REPARSE_TAG_MOUNT_POINT;
  win32::WORD ReparseDataLength = 0;  // bytes behind this head
  win32::WORD Reserved = 0;
};
struct MountPointNames {
  win32::WORD SubstituteNameOffset = 0;
  win32::WORD SubstituteNameLength = 0;
  win32::WORD PrintNameOffset = 0;
  win32::WORD PrintNameLength = 0;
};
constexpr std::size_t kPathBufferOffset = sizeof(ReparseHeader) + sizeof(MountPointNames);
static_assert(sizeof(ReparseHeader) == 8 && kPathBufferOffset == 16);

// A junction's reparse data: the substitute name, then an empty print name, each with its terminator. Both names'
// lengths leave the terminator out.
std::vector<win32::BYTE> JunctionData(std::u16string_view substituteName) {
  const auto nameBytes = static_cast<win32::WORD>(substituteName.size() * sizeof(char16_t));
  const ReparseHeader header{.ReparseDataLength = static_cast<win32::WORD>(nameBytes + 12)};
  const MountPointNames names{.SubstituteNameLength = nameBytes,
                              .PrintNameOffset = static_cast<win32::WORD>(nameBytes + sizeof(char16_t))};
  std::vector<win32::BYTE> data(kPathBufferOffset + nameBytes + 2 * sizeof(char16_t));
  std::memcpy(data.data(), &header, sizeof header);
  std::memcpy(data.data() + sizeof header, &names, sizeof names);
  std::memcpy(data.data() + kPathBufferOffset, substituteName.data(), nameBytes);
  return data;
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

// The reparse data of an open directory: its tag and, read up to a terminator, the text at the start of the path
// buffer. The buffer is zeroed and the text is looked for inside it, whatever the lengths in the data say.
bool ReadReparsePoint(const win32::UniqueFile& directory, win32::DWORD& tag, std::u16string& substituteName) {
  std::vector<win32::BYTE> data(win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
  win32::DWORD returned = 0;
  if (!win32::DeviceIoControl(directory.get(), win32::FSCTL_GET_REPARSE_POINT, nullptr, 0, data.data(),
                              win32::MAXIMUM_REPARSE_DATA_BUFFER_SIZE, &returned, nullptr))
    return false;
  std::memcpy(&tag, data.data(), sizeof tag);
  std::u16string text((data.size() - kPathBufferOffset) / sizeof(char16_t), u'\0');
  std::memcpy(text.data(), data.data() + kPathBufferOffset, text.size() * sizeof(char16_t));
  substituteName = text.substr(0, text.find(u'\0'));
  return true;
}

bool WriteReparsePoint(const win32::UniqueFile& directory, std::u16string_view substituteName) {
  std::vector<win32::BYTE> data = JunctionData(substituteName);
  win32::DWORD returned = 0;
  return win32::DeviceIoControl(directory.get(), win32::FSCTL_SET_REPARSE_POINT, data.data(),
                                static_cast<win32::DWORD>(data.size()), nullptr, 0, &returned, nullptr) != win32::FALSE;
}

// The name under which a junction holds its target; empty, with the last error, when that is too long for it.
std::u16string SubstituteName(const char16_t* target) {
  static_assert((kPathBuffer - 1) * sizeof(char16_t) + 20 <= kJunctionBuffer);
  const std::u16string name = std::u16string(kNativePrefix) + target;
  if (name.size() < kPathBuffer) return name;
  win32::SetLastError(win32::ERROR_FILENAME_EXCED_RANGE);
  return {};
}

int CreateJunctionAt(const std::u16string& junction, const std::u16string& substituteName) {
  if (!CreateJunctionDirectory(junction.c_str())) {
    LogWithSystemError(u"#ERROR: Failed To create directory = %ls.", junction);
    return 0;
  }
  const PrivilegeResult privilege = EnablePrivilege(u"SeRestorePrivilege");
  if (privilege == PrivilegeResult::NotAdjusted) LogWithSystemError(u"ERROR: Unable to adjust token privileges.");
  if (privilege != PrivilegeResult::Enabled) return 0;

  win32::UniqueFile directory{win32::CreateFileW(junction.c_str(), win32::GENERIC_WRITE, 0, nullptr,
                                                 win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)};
  if (!directory) {
    win32::OutputDebugStringW(
        FormatText(u"#ERROR: CreateJunction: CreateFile() Failed for path = %s", junction).c_str());
    return 0;
  }
  if (WriteReparsePoint(directory, substituteName)) return 1;
  const win32::DWORD error = win32::GetLastError();
  directory.reset();
  win32::RemoveDirectoryW(junction.c_str());  // refused, without harm, for a folder that is not empty
  win32::SetLastError(error);
  return 0;
}

}  // namespace

win32::UniqueFile OpenReparseDirectory(const char16_t* path, int forWrite) {
  if (!path || EnablePrivilege(forWrite ? u"SeRestorePrivilege" : u"SeBackupPrivilege") != PrivilegeResult::Enabled)
    return {};
  const win32::DWORD access = forWrite ? win32::GENERIC_READ | win32::GENERIC_WRITE : win32::GENERIC_READ;
  return win32::UniqueFile{win32::CreateFileW(ExtendedPath(path).c_str(), access, 0, nullptr, win32::OPEN_EXISTING,
                                              kOpenLinkFlags, nullptr)};
}

int CreateJunction(const char16_t* junction, const char16_t* target) try {
  if (!junction || !target) {
    Log(u"ERROR: Source or target path is missing.");
    return 0;
  }
  const std::u16string substituteName = SubstituteName(target);
  return substituteName.empty() ? 0 : CreateJunctionAt(ExtendedPath(junction), substituteName);
} catch (const std::exception&) {
  return 0;
}

int ChangeJunctionTarget(const char16_t* junction, const char16_t* target) try {
  if (!junction || !target) {
    Log(u"ERROR: Source or target path is missing.");
    return 0;
  }
  const std::u16string substituteName = SubstituteName(target);
  if (substituteName.empty()) return 0;
  const win32::UniqueFile directory = OpenReparseDirectory(junction, 1);
  if (!directory) {
    LogWithSystemError(u"#ERROR: Failed to open directory for path = %ls.", junction);
    return 0;
  }
  win32::DWORD tag = 0;
  std::u16string name;
  win32::FILETIME creation, lastAccess, lastWrite;
  if (!ReadReparsePoint(directory, tag, name) || tag != win32::IO_REPARSE_TAG_MOUNT_POINT ||
      name.starts_with(kVolumeName) || !win32::GetFileTime(directory.get(), &creation, &lastAccess, &lastWrite) ||
      !WriteReparsePoint(directory, substituteName))
    return 0;
  win32::SetFileTime(directory.get(), &creation, &lastAccess, &lastWrite);
  return 1;
} catch (const std::exception&) {
  return 0;
}

int DeleteJunction(const char16_t* path) try {
  if (!path) {
    Log(u"#ERROR: Directory is Path Missing.");
    return 0;
  }
  if (!IsJunction(path, 0)) {
    if (!IsSymbolicLink(path)) Log(u"#ERROR: Path %ls is not junction.", path);
    return 0;
  }
  const win32::UniqueFile directory = OpenReparseDirectory(path, 1);
  if (!directory) {
    LogWithSystemError(u"#ERROR: Failed to open directory for path = %ls.", path);
    return 0;
  }
  ReparseHeader header;
  win32::DWORD returned = 0;
  return win32::DeviceIoControl(directory.get(), win32::FSCTL_DELETE_REPARSE_POINT, &header, sizeof header, nullptr, 0,
                                &returned, nullptr)
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}

int IsJunction(const char16_t* path, int excludeMountedVolume) try {
  if (!path) {
    Log(u"#ERROR: Directoy path is missing.");
    return 0;
  }
  if (excludeMountedVolume && IsVolumeMountPoint(path)) return 0;

  std::u16string reached = path;
  win32::DWORD attributes = win32::GetFileAttributesW(path);
  if (attributes == win32::INVALID_FILE_ATTRIBUTES && !HasExtendedPrefix(reached)) {
    reached.insert(0, u"\\\\?\\");
    attributes = win32::GetFileAttributesW(reached.c_str());
  }
  if (attributes == win32::INVALID_FILE_ATTRIBUTES) {
    LogWithSystemError(u"#ERROR: Unable to get File Attributes for path = %ls", path);
    return 0;
  }
  if ((attributes & kDirectoryLink) != kDirectoryLink) return 0;

  const win32::UniqueFile directory = OpenReparseDirectory(reached.c_str(), 0);
  if (!directory) {
    LogWithSystemError(u"#ERROR: Failed to open directory for path = %ls.", path);
    return 0;
  }
  win32::DWORD tag = 0;
  std::u16string substituteName;
  return ReadReparsePoint(directory, tag, substituteName) && tag == win32::IO_REPARSE_TAG_MOUNT_POINT ? 1 : 0;
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
  if (!path) {
    Log(u"#ERROR: Directory Path is Missing.");
    return 0;
  }
  const win32::DWORD attributes = win32::GetFileAttributesW(ExtendedPath(path).c_str());
  if (attributes == win32::INVALID_FILE_ATTRIBUTES) {
    LogWithSystemError(u"#ERROR: Unable to get File Attributes for path = %ls", path);
    return 0;
  }
  if ((attributes & kDirectoryLink) != kDirectoryLink) {
    Log(u"#ERROR: Not a directory or no reparse point.");
    return 0;
  }
  const win32::UniqueFile directory = OpenReparseDirectory(path, 0);
  if (!directory) {
    LogWithSystemError(u"#ERROR: Failed to open directory for path = %ls.", path);
    return 0;
  }
  win32::DWORD tag = 0;
  std::u16string name;
  if (!ReadReparsePoint(directory, tag, name)) {
    Log(u"#ERROR: Unable to perform DeviceIoControl operation.");
    return 0;
  }
  std::u16string text = name;
  if (text.starts_with(kNativePrefix)) text.erase(0, kNativePrefix.size());
  if (!text.empty() && text.back() == u'\\') text.pop_back();
  // A longer target would be cut to some other folder's path.
  if (tag != win32::IO_REPARSE_TAG_MOUNT_POINT || name.size() <= kNativePrefix.size() || text.size() >= kPathBuffer) {
    Log(u"#ERROR: Unable to obtain a valid target path\nReparseBuffer.ReparseTag = %d\npszTemp= %s", tag, name);
    return 0;
  }
  target = text;
  return 1;
} catch (const std::exception&) {
  return 0;
}

namespace {

// What a volume is called in a final path.
constexpr win32::DWORD kByLetter = 0, kByVolumeName = 1;

// The name of the opened file that `path` leads to; empty when Windows cannot tell it.
std::u16string FinalPathName(const char16_t* path, win32::DWORD form, win32::DWORD room) {
  const win32::UniqueLibrary kernel{win32::LoadLibraryW(u"Kernel32.dll")};
  if (!kernel) return {};
  const auto getFinalPathName = reinterpret_cast<win32::GetFinalPathNameByHandleWFunction>(
      win32::GetProcAddress(kernel.get(), "GetFinalPathNameByHandleW"));
  if (!getFinalPathName) return {};
  const win32::DWORD shareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
  const win32::UniqueFile file{win32::CreateFileW(ExtendedPath(path).c_str(), win32::FILE_READ_ATTRIBUTES, shareAll,
                                                  nullptr, win32::OPEN_EXISTING, win32::FILE_FLAG_BACKUP_SEMANTICS,
                                                  nullptr)};
  if (!file) return {};
  std::u16string name(room, u'\0');
  const win32::DWORD length = getFinalPathName(file.get(), name.data(), room, form);
  return length < room ? name.substr(0, length) : std::u16string();
}

}  // namespace

int FindFinalTargetPath(const char16_t* path, std::u16string& target) try {
  std::u16string name = path ? FinalPathName(path, kByLetter, kPathBuffer) : std::u16string();
  const bool longEnough = name.size() > kNativePrefix.size();
  if (name.starts_with(kNativePrefix) || name.starts_with(u"\\\\?\\")) name.erase(0, kNativePrefix.size());
  if (!name.empty() && name.back() == u'\\') name.pop_back();
  // Without a drive letter (a network share, a volume that has none) what is left behind the prefix is no path at all.
  if (!longEnough || name.size() < 2 || name[1] != u':') return 0;
  target = name;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int FindFinalVolumePath(const char16_t* path, std::u16string& target) try {
  constexpr win32::DWORD kRoom = 1024;  // the name of a volume is longer than its letter
  const std::u16string name = path ? FinalPathName(path, kByVolumeName, kRoom) : std::u16string();
  if (!IsVolumePath(name.c_str())) return 0;
  target = name;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int GetFinalTargetPath(const char16_t* path, std::u16string& target) try {
  if (FindFinalTargetPath(path, target)) return 1;
  Log(u"#ERROR: Unable to obtain a valid target path");
  return 0;
} catch (const std::exception&) {
  return 0;
}

int CreateSymbolicLinkEntry(const char16_t* link, const char16_t* target, int forceFileLink) try {
  if (!link || !target) return 0;
  // A path that does not fit would be cut to another one.
  if (std::u16string_view(link).size() >= kPathBuffer || std::u16string_view(target).size() >= kPathBuffer) return 0;
  const win32::UniqueLibrary kernel{win32::LoadLibraryW(u"Kernel32.dll")};
  if (!kernel) return 0;
  const auto createSymbolicLink =
      reinterpret_cast<win32::CreateSymbolicLinkWFunction>(win32::GetProcAddress(kernel.get(), "CreateSymbolicLinkW"));
  if (!createSymbolicLink) return 0;
  const bool toDirectory = !forceFileLink && win32::PathIsDirectoryW(target);
  return createSymbolicLink(link, target, toDirectory ? win32::SYMBOLIC_LINK_FLAG_DIRECTORY : 0) ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}
