// One NTFS volume, in Windows' terms: files by reference number, names and stream names in UTF-16, times as FILETIME
// counts, security descriptors as self-relative bytes, results as Win32 error codes. Storage is libntfs-3g.
//
// What NTFS itself does is here (names, streams, descriptors, reparse index, object ids). What Windows does on top of
// it is not: access checks, sharing, following reparse points, inheritance of descriptors, the rules about times and
// the archive bit are the file service's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/bytes.h"
#include "win32/types.h"

namespace emulated {

class BlockDevice;

// MFT record number and sequence number, as NTFS stores a file reference. 0 is no file (it names $MFT itself).
using FileId = std::uint64_t;

// 100 ns since 1601.
using FileTime = std::int64_t;

struct FileInfo {
  FileId id = 0;
  win32::DWORD attributes =
      0;  // FILE_ATTRIBUTE_*, with DIRECTORY, REPARSE_POINT, SPARSE_FILE; NORMAL when nothing else
  win32::DWORD reparseTag = 0;  // when attributes has REPARSE_POINT
  FileTime creation = 0;
  FileTime lastAccess = 0;
  FileTime lastWrite = 0;
  FileTime change = 0;
  std::uint64_t size = 0;  // of the unnamed data stream; 0 for a directory
  std::uint64_t allocated = 0;
  std::uint32_t links = 1;       // names, short names not counted
  std::uint32_t securityId = 0;  // 0 when the descriptor has no number (a new one has none until it is put down)
};

struct DirectoryEntry {
  std::u16string name;
  std::u16string shortName;  // empty when there is none
  FileId id = 0;
};

struct StreamInfo {
  std::u16string name;  // empty for the unnamed data stream
  std::uint64_t size = 0;
  std::uint64_t allocated = 0;
  bool sparse = false;
};

struct StreamRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

struct ExtendedAttribute {
  std::uint8_t flags = 0;  // 0x80: FILE_NEED_EA
  std::string name;        // upper case
  Bytes value;
};

// The times to set; a field that is 0 is left as it is.
struct FileTimes {
  FileTime creation = 0;
  FileTime lastAccess = 0;
  FileTime lastWrite = 0;
  FileTime change = 0;
};

// Every operation answers 0 or a Win32 error code; names compare by the volume's own up-case table.
class Volume {
 public:
  // Mounts what is on the device (the device outlives the volume). 1392 ERROR_FILE_CORRUPT or 1005
  // ERROR_UNRECOGNIZED_VOLUME when it is not a sound NTFS volume.
  static win32::DWORD Mount(BlockDevice& device, std::unique_ptr<Volume>& volume);
  virtual ~Volume() = default;  // flushes

  virtual FileId Root() const = 0;
  // By a long or a short name. 2 ERROR_FILE_NOT_FOUND; `storedName`, when given, receives the name as the directory
  // spells it, `shortName` the short one beside it.
  virtual win32::DWORD Lookup(FileId directory, std::u16string_view name, FileId& file, std::u16string* storedName,
                              std::u16string* shortName = nullptr) = 0;
  // Walks a path of the volume such as u"\\Windows\\System32" without following reparse points.
  win32::DWORD LookupPath(std::u16string_view path, FileId& file);
  // 2 when the reference is stale (the record was freed or used again).
  virtual win32::DWORD Stat(FileId file, FileInfo& info) = 0;
  // In the index's order (upper-case names); no "." and "..", no metafiles in the root.
  virtual win32::DWORD List(FileId directory, std::vector<DirectoryEntry>& entries) = 0;
  // The names of a file with their directories (a directory has one; the root has none).
  virtual win32::DWORD Names(FileId file, std::vector<std::pair<FileId, std::u16string>>& names) = 0;

  // `descriptor` is the whole self-relative security descriptor of the new file. All four times are set to `now`.
  // 183 when the name exists; 123 for a name that NTFS refuses; 112 when the volume is full.
  virtual win32::DWORD Create(FileId directory, std::u16string_view name, bool isDirectory, win32::DWORD attributes,
                              ByteView descriptor, FileTime now, FileId& file) = 0;
  virtual win32::DWORD Link(FileId file, FileId directory, std::u16string_view name) = 0;
  // Removes one name; the file goes with its last one. 145 ERROR_DIR_NOT_EMPTY.
  virtual win32::DWORD Unlink(FileId directory, std::u16string_view name) = 0;
  // The new name must be free, or be another spelling of the old one in the same directory.
  virtual win32::DWORD Rename(FileId fromDirectory, std::u16string_view fromName, FileId toDirectory,
                              std::u16string_view toName) = 0;

  // While this is set, what is made or renamed gets a short name (8.3) beside its long one. The machine decides it
  // (Machine::MakeShortNames); these are the volume's own say in it, a flag of its $Volume.
  bool makesShortNames = false;
  virtual bool AllowsShortNames() const = 0;
  virtual win32::DWORD AllowShortNames(bool allow) = 0;

  // Data streams; an empty name is the unnamed one. 2 when the stream does not exist.
  virtual win32::DWORD Streams(FileId file, std::vector<StreamInfo>& streams) = 0;
  virtual win32::DWORD CreateStream(FileId file, std::u16string_view stream) = 0;
  virtual win32::DWORD RemoveStream(FileId file, std::u16string_view stream) = 0;
  virtual win32::DWORD StreamSize(FileId file, std::u16string_view stream, std::uint64_t& size) = 0;
  // `done` is less than asked for only at the end of the stream.
  virtual win32::DWORD Read(FileId file, std::u16string_view stream, std::uint64_t offset, std::span<std::uint8_t> to,
                            std::size_t& done) = 0;
  // Extends the stream as needed; the gap reads as zeros (a hole only in a sparse stream). 112 when the volume is full:
  // then nothing of this write is counted as done.
  virtual win32::DWORD Write(FileId file, std::u16string_view stream, std::uint64_t offset, ByteView from) = 0;
  virtual win32::DWORD SetStreamSize(FileId file, std::u16string_view stream, std::uint64_t size) = 0;
  // Marks the stream sparse (FILE_ATTRIBUTE_SPARSE_FILE for the unnamed one).
  virtual win32::DWORD SetSparse(FileId file, std::u16string_view stream) = 0;
  // What of the stream is allocated, in order, without overlap.
  virtual win32::DWORD AllocatedRanges(FileId file, std::u16string_view stream, std::vector<StreamRange>& ranges) = 0;

  // Only the bits that a program may set are taken (READONLY, HIDDEN, SYSTEM, ARCHIVE, TEMPORARY, OFFLINE,
  // NOT_CONTENT_INDEXED).
  virtual win32::DWORD SetAttributes(FileId file, win32::DWORD attributes) = 0;
  virtual win32::DWORD SetTimes(FileId file, const FileTimes& times) = 0;
  virtual win32::DWORD GetSecurity(FileId file, Bytes& descriptor) = 0;
  virtual win32::DWORD SetSecurity(FileId file, ByteView descriptor) = 0;
  // The whole reparse buffer, its 8-byte header included. 4390 when there is none.
  virtual win32::DWORD GetReparse(FileId file, Bytes& data) = 0;
  virtual win32::DWORD SetReparse(FileId file, ByteView data) = 0;
  virtual win32::DWORD RemoveReparse(FileId file) = 0;
  // Every file that has reparse data, by tag.
  virtual win32::DWORD ReparsePoints(std::vector<FileId>& files) = 0;
  virtual win32::DWORD GetExtendedAttributes(FileId file,
                                             std::vector<ExtendedAttribute>& attributes) = 0;  // none: 0 and empty
  virtual win32::DWORD SetExtendedAttributes(FileId file,
                                             const std::vector<ExtendedAttribute>& attributes) = 0;  // all of them
  // Object id and the three birth ids, 64 bytes. 2 when there is none; 183 when another file has the id.
  virtual win32::DWORD GetObjectId(FileId file, Bytes& id) = 0;
  virtual win32::DWORD SetObjectId(FileId file, ByteView id) = 0;

  virtual std::u16string Label() const = 0;
  virtual std::uint64_t SerialNumber() const = 0;  // all 64 bits; Windows shows the low 32
  virtual std::uint64_t TotalBytes() const = 0;
  virtual std::uint64_t FreeBytes() const = 0;
  virtual std::uint32_t ClusterSize() const = 0;
  // As the volume was when it was mounted: was its journal put away, so that nothing is to be replayed, and is it
  // marked for a check (chkdsk)?
  virtual bool IsJournalClean() const = 0;
  virtual bool IsMarkedForCheck() const = 0;
  // Gives up what an unclean journal holds.
  virtual win32::DWORD DiscardJournal() = 0;
  // Upper case of one UTF-16 unit by the volume's table.
  virtual char16_t UpCase(char16_t unit) const = 0;
  // Puts everything that is held back down to the device.
  virtual win32::DWORD Flush() = 0;
};

// Whole-file helpers for what the machine itself keeps on a volume (hives). The path is as for LookupPath.
win32::DWORD ReadWholeFile(Volume& volume, std::u16string_view path, Bytes& content);
win32::DWORD ReadWholeFile(Volume& volume, FileId file, Bytes& content);
// Replaces the content of an existing file in place.
win32::DWORD WriteWholeFile(Volume& volume, std::u16string_view path, ByteView content);

}  // namespace emulated
