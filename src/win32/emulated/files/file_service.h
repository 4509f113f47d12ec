// The file service: names to files, opens with access checks and sharing, and what Windows adds on top of NTFS.
//
// The functions of win32/file.h, win32/volume.h, win32/shell.h and the file half of win32/security.h are written on it.
#pragma once

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "win32/constants.h"
#include "win32/emulated/machine.h"

namespace emulated {

// Where a path leads, links followed as asked.
struct Location {
  MountedVolume* volume = nullptr;
  FileId directory = 0;    // the directory that holds the last component; 0 for the root itself
  std::u16string name;     // the last component as it was asked for; empty for the root
  FileId file = 0;         // 0: it does not exist (the directory does)
  FileInfo info;           // of `file`
  std::u16string stream;   // after a colon; empty for the unnamed stream
  bool hasStream = false;  // a colon was there, be it for the unnamed stream
  bool trailingBackslash = false;
};

class FileService;
enum class DosDevice;

// Two names of streams (or of items) that are one on the volume: letter case does not matter.
bool EqualNames(const Volume& volume, std::u16string_view a, std::u16string_view b);

// What goes with its last open: the stream alone, or the name, and with the last one the file and all its streams.
enum class Deletion { None, Stream, Name };

// One open of a file: what the handles made by one CreateFileW name. The share modes stand until the last handle goes;
// an open without a handle (an internal one) ends with its last reference.
class FileObject final : public OpenedFile {
 public:
  ~FileObject() override { Closed(); }
  std::u16string Device() const override { return volume->device; }
  std::u16string NameOnDevice() const override;  // empty once it is closed
  void Closed() override;

  MountedVolume* volume = nullptr;
  FileId file = 0;
  FileId directory = 0;  // the name that was opened; 0 for the root. A rename changes it in every open.
  std::u16string name;   // as the directory spells it
  std::u16string stream;
  bool isDirectory = false;
  win32::ACCESS_MASK granted = 0;
  win32::DWORD share = 0;
  win32::DWORD flags = 0;  // FILE_FLAG_*
  win32::DWORD processId = 0;
  std::uint64_t position = 0;
  bool deleteOnClose = false;
  Deletion pending = Deletion::None;
  // This handle no longer changes that time: SetFileTime set it, or was given all bits set.
  bool keepLastAccess = false, keepLastWrite = false, keepChange = false;
  bool wrote = false;     // data was written through it: the times follow, at the latest when it is closed
  bool accessed = false;  // data or names were read through it

 private:
  friend class FileService;
  FileService* service_ = nullptr;  // null once closed
  FileTime writeNoted_ = 0;
};

inline constexpr win32::DWORD kAnyShare = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;

struct OpenRequest {
  std::u16string_view path;  // as a Win32 program gives it
  win32::DWORD access = 0;   // exactly this; CreateFileW's additional SYNCHRONIZE and FILE_READ_ATTRIBUTES are its own
  win32::DWORD share = 0;
  win32::DWORD disposition = win32::OPEN_EXISTING;
  win32::DWORD flags = 0;              // FILE_FLAG_*
  win32::DWORD attributes = 0;         // of a new file
  std::optional<ByteView> descriptor;  // of a new file: the creator's, self-relative
  // Internal openers (the named-security functions, directory calls) say what they need beyond CreateFileW:
  bool wantDirectory = false;    // 267 for a file
  bool createDirectory = false;  // a new item is a directory
};

class FileService {
 public:
  explicit FileService(Machine& machine);
  ~FileService();

  // Resolves a Win32 path ("C:\...", "\\?\...", "\\?\Volume{...}\...", relative to C:\). `followLast` decides about a
  // reparse point in the last component; those before it are always followed. 0, or 2, 3, 123, 1920, 1921, ...
  win32::DWORD Resolve(std::u16string_view path, bool followLast, Location& location);
  // The DosDevice that a path names, None for another's. 3 where a device is looked for in a folder that is not there.
  win32::DWORD FindDevice(std::u16string_view path, DosDevice& device);
  // CreateFileW without the handle. `existed` tells whether the file was there before.
  win32::DWORD Open(const OpenRequest& request, std::shared_ptr<FileObject>& object, bool* existed = nullptr);
  // Opens the item itself, be it a link or a directory, as the system's own calls do: privileges count as for a backup,
  // and everybody may share it.
  win32::DWORD OpenItself(std::u16string_view path, win32::DWORD access, std::shared_ptr<FileObject>& object,
                          bool wantDirectory = false);
  // Opens what is there at a place that has been resolved. `overwrite`: the open is going to replace the data.
  win32::DWORD OpenAt(const Location& location, const OpenRequest& request, bool overwrite,
                      std::shared_ptr<FileObject>& object);
  // Makes a file or directory at a resolved place that is free, and opens it.
  win32::DWORD CreateAt(const Location& location, const OpenRequest& request, std::shared_ptr<FileObject>& object);
  // Removes what `object` is an open of when the last open of that goes: a stream, or else the name of the file.
  win32::DWORD MarkForDeletion(FileObject& object);
  void UnmarkForDeletion(FileObject& object);

  // May the effective token have `access` on a file? As for an open with backup semantics when `backupIntent`.
  win32::DWORD Check(MountedVolume& volume, FileId file, FileId directory, win32::DWORD access, bool backupIntent,
                     win32::DWORD& granted);

  // The path of a file within its volume (u"\\Users\\x"), through its first name.
  std::u16string PathInVolume(const MountedVolume& volume, FileId file);
  // The path within the volume of the name that was opened.
  std::u16string PathInVolume(const FileObject& object);
  // All opens, of all processes.
  const std::vector<FileObject*>& opens() const { return opens_; }
  bool IsOpen(const MountedVolume& volume, FileId file) const;
  // What stands at the place goes with its last open: nobody opens it any more (5). Other names of a file stay.
  bool IsDeletePending(const Location& location) const;
  bool IsDeletePending(const MountedVolume& volume, FileId directory) const;
  // Something below the directory is open.
  bool IsOpenBelow(const MountedVolume& volume, FileId directory);

  // Data was written through the open: last write and change time, the archive attribute.
  void NoteWrite(FileObject& object);
  // An entry of the directory was made, removed or renamed.
  void TouchDirectory(MountedVolume& volume, FileId directory);
  // An open file has got another name.
  void NoteRename(MountedVolume& volume, FileId file, FileId fromDirectory, std::u16string_view fromName,
                  FileId toDirectory, std::u16string_view toName);
  // Paths lead elsewhere from now on: a directory was renamed or removed, a reparse point or a drive letter came or
  // went. Whoever changes those without the functions of win32/file.h must say so.
  void ForgetPaths() { directories_.clear(); }

  // Carries out SYSTEM\...\Session Manager\PendingFileRenameOperations and deletes the value. Part of Boot.
  void CarryOutDelayedRenames();

  // Another process opens a file of this machine and keeps it open; null when it cannot. Scripted by tests and tools;
  // see system/processes.h for what else other processes do.
  std::shared_ptr<FileObject> OpenForeign(win32::DWORD processId, std::u16string_view path, win32::DWORD access,
                                          win32::DWORD share);
  void CloseForeign(const std::shared_ptr<FileObject>& object);

  // Reading changes the last access time; off as on Windows since Vista (NtfsDisableLastAccessUpdate = 1).
  bool lastAccessUpdates = false;

 private:
  friend class FileObject;
  struct DirectoryPlace {
    MountedVolume* volume = nullptr;
    FileId directory = 0;
  };
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::u16string_view text) const { return std::hash<std::u16string_view>{}(text); }
  };
  struct SameText {  // by bytes; the library's own goes by units
    using is_transparent = void;
    bool operator()(std::u16string_view a, std::u16string_view b) const {
      return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
    }
  };

  bool FindKnownDirectory(std::u16string_view path, Location& location);
  win32::DWORD ShareConflict(const Location& location, win32::DWORD access, win32::DWORD share) const;
  win32::DWORD Overwrite(FileObject& object, const FileInfo& info, win32::DWORD attributes);
  // Counts the new open among all; what the place and the request say of it is put into it.
  std::shared_ptr<FileObject> Register(std::shared_ptr<FileObject> object, const Location& location,
                                       const OpenRequest& request);
  void CloseObject(FileObject& object);
  // All opens of the stream alone, or of any stream by that name of the file.
  std::vector<FileObject*> OpensOf(const FileObject& object, Deletion what) const;
  void RemoveName(FileObject& object);

  Machine& machine_;
  std::vector<FileObject*> opens_;
  // Directories that paths have led to, by the path's text: most calls of a program name files of few directories.
  std::unordered_map<std::u16string, DirectoryPlace, TextHash, SameText> directories_;
};

// The file object of a handle of the current process that stands for a file or directory; null (and error 6) otherwise.
std::shared_ptr<FileObject> FileOf(win32::HANDLE handle);

// The creator's descriptor in SECURITY_ATTRIBUTES, absolute or self-relative, as self-relative bytes. 0, or 87 or 1338.
win32::DWORD CreatorDescriptor(const win32::SECURITY_ATTRIBUTES* attributes, std::optional<Bytes>& descriptor);

win32::FILETIME ToFileTime(FileTime time);
FileTime FromFileTime(const win32::FILETIME& time);

}  // namespace emulated
