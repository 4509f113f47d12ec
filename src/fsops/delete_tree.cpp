#include "fsops/delete_tree.h"

#include <exception>

#include "fsops/backwards.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "report/log.h"
#include "win32/win32.h"

namespace {

constexpr win32::DWORD kRetryWait = 5000;  // milliseconds

// Takes the read-only bit off an item that is to go. PutBack, for one that does not, gives it its attributes again.
class ReadOnlyLifted {
 public:
  explicit ReadOnlyLifted(const std::u16string& path)
      : path_(path), attributes_(win32::GetFileAttributesW(path.c_str())) {
    if (attributes_ != win32::INVALID_FILE_ATTRIBUTES)
      win32::SetFileAttributesW(path_.c_str(), attributes_ & ~win32::FILE_ATTRIBUTE_READONLY);
  }
  void PutBack() const {
    const win32::LastErrorKept error;  // why it does not go
    if (attributes_ != win32::INVALID_FILE_ATTRIBUTES && !win32::SetFileAttributesW(path_.c_str(), attributes_))
      win32::SetFileAttributesW(path_.c_str(), attributes_);  // it is the last chance
  }

 private:
  const std::u16string& path_;
  const win32::DWORD attributes_;
};

// A folder on which a volume is mounted (a drive's root is none). Where it is only to be cleaned up, the volume is not
// entered. By the attribute: IsJunction cannot read a mount folder that somebody holds open.
bool IsMountFolder(const char16_t* path) { return LookAt(path).IsReparsePoint() && IsVolumeMountPoint(path); }

bool RemoveDirectoryStrictly(const std::u16string& path) {
  if (win32::RemoveDirectoryW(path.c_str())) return true;
  const ReadOnlyLifted lifted(path);
  if (win32::RemoveDirectoryW(path.c_str())) return true;
  if (const win32::DWORD error = win32::GetLastError(); error == win32::ERROR_DIR_NOT_EMPTY) {
    Log(u"Failed to delete directory : %ls. Error: %d. Going to retry after a short while.", path, error);
    win32::Sleep(kRetryWait);
    if (win32::RemoveDirectoryW(path.c_str())) return true;
  }
  Log(u"Failed to delete directory : %ls. Error: %d", path, win32::GetLastError());
  lifted.PutBack();
  return false;
}

bool DeleteFileStrictly(const std::u16string& path) {
  if (win32::DeleteFileW(path.c_str())) return true;
  const ReadOnlyLifted lifted(path);
  if (win32::DeleteFileW(path.c_str())) return true;
  lifted.PutBack();
  Log(u"Failed to delete File : %ls.", path);
  return false;
}

bool Remove(const TreeEntry& entry, bool strict) {
  const std::u16string& path = entry.path;
  // A mounted volume is somebody's data: only its mount is taken off, so that the folder under it can go.
  if (entry.IsJunction() && IsVolumeMountPoint(path.c_str())) UnmountVolume(path);
  if (entry.IsDirectory())
    return strict ? RemoveDirectoryStrictly(path) : win32::RemoveDirectoryW(path.c_str()) != win32::FALSE;
  return strict ? DeleteFileStrictly(path) : win32::DeleteFileW(path.c_str()) != win32::FALSE;
}

}  // namespace

int DeleteEntry(const TreeEntry& entry) try { return Remove(entry, true) ? 1 : 0; } catch (const std::exception&) {
  return 0;
}

int DeleteDirectoryTree(const char16_t* root, const DeleteOptions& options) try {
  if (!root || !PathExists(root)) return 0;
  if (IsMountFolder(root)) return UnmountVolume(root) || !options.stopOnFailure ? 1 : 0;
  TreeListing listing;
  if (!GetFileList(root, listing)) return 0;
  for (const TreeEntry& entry : Backwards(listing.entries))
    if (!Remove(entry, options.stopOnFailure) && options.stopOnFailure) return 0;
  return 1;
} catch (const std::exception&) {
  return 0;
}

int DeleteDirectoryTreeAtReboot(const char16_t* root) try {
  if (root && IsMountFolder(root)) return UnmountVolume(root) ? 1 : 0;
  TreeListing listing;
  return root && GetFileList(root, listing) ? DeleteEntriesAtReboot(listing.entries) : 0;
} catch (const std::exception&) {
  return 0;
}

int DeleteEntriesAtReboot(const std::vector<TreeEntry>& entries) try {
  int result = 1;
  for (const TreeEntry& entry : Backwards(entries)) {
    const ReadOnlyLifted lifted(entry.path);
    if (win32::MoveFileExW(entry.path.c_str(), nullptr, win32::MOVEFILE_DELAY_UNTIL_REBOOT)) continue;
    lifted.PutBack();
    result = 0;
  }
  return result;
} catch (const std::exception&) {
  return 0;
}
