// The headers of libntfs-3g as C++ can take them, and the owners of what the library hands out. The headers define
// names such as `min`, `BOOL` and `SID`: include this last, and only in a .cpp file.
#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_kept_inodes.h"

#ifndef HAVE_TIME_H
#define HAVE_TIME_H 1
#endif
#ifndef HAVE_SYS_STAT_H
#define HAVE_SYS_STAT_H 1
#endif
#ifndef HAVE_STDINT_H
#define HAVE_STDINT_H 1
#endif
// An option that the library is built with; its headers leave out a member of the volume without it.
#ifndef XATTR_MAPPINGS
#define XATTR_MAPPINGS 1
#endif

#include <sys/stat.h>
#include <time.h>

extern "C" {
#include <ntfs-3g/types.h>
#include <ntfs-3g/layout.h>
#include <ntfs-3g/acls.h>
#include <ntfs-3g/attrib.h>
#include <ntfs-3g/bitmap.h>
#include <ntfs-3g/bootsect.h>
#include <ntfs-3g/cache.h>
#include <ntfs-3g/device.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/ea.h>
#include <ntfs-3g/index.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/lcnalloc.h>
#include <ntfs-3g/logfile.h>
#include <ntfs-3g/logging.h>
#include <ntfs-3g/mft.h>
#include <ntfs-3g/object_id.h>
#include <ntfs-3g/reparse.h>
#include <ntfs-3g/security.h>
#include <ntfs-3g/unistr.h>
#include <ntfs-3g/volume.h>
}
#undef min
#undef max

namespace emulated::ntfs {

// A state bit off; the library's own macros for it change the sign of the mask.
inline void ClearState(unsigned long& state, unsigned bit) { state &= ~(1UL << bit); }

// The Win32 error for a failure that the library reports as an errno value.
inline win32::DWORD ErrorFrom(int error) {
  switch (error) {
    case ENOENT:
      return win32::ERROR_FILE_NOT_FOUND;
    case EEXIST:
      return win32::ERROR_ALREADY_EXISTS;
    case ENOSPC:
    case EFBIG:
      return win32::ERROR_DISK_FULL;
    case ENOTEMPTY:
      return win32::ERROR_DIR_NOT_EMPTY;
    case EINVAL:
      return win32::ERROR_INVALID_PARAMETER;
    case EACCES:
    case EPERM:
      return win32::ERROR_ACCESS_DENIED;
    case ENOMEM:
      return win32::ERROR_NOT_ENOUGH_MEMORY;
    case ENAMETOOLONG:
      return win32::ERROR_INVALID_NAME;
    case EMLINK:
      return win32::ERROR_TOO_MANY_LINKS;
    case EROFS:
      return win32::ERROR_WRITE_PROTECT;
    case EOPNOTSUPP:
      return win32::ERROR_NOT_SUPPORTED;
    case ENOTDIR:
      return win32::ERROR_DIRECTORY;
    case EIO:
      return win32::ERROR_FILE_CORRUPT;
    default:
      return win32::ERROR_IO_DEVICE;
  }
}

// The same after a call that has just failed.
inline win32::DWORD LastError() { return ErrorFrom(errno); }

// One open MFT record. A record must never be open twice: an Inode lives no longer than one call of the volume, and is
// closed or kept at its end.
class Inode {
 public:
  // Refuses a reference whose sequence number is not the record's (the library checks only what it reads afresh).
  Inode(KeptInodes& kept, MFT_REF file) : inode_(kept.Take(file)) {
    if (inode_) return;
    errno = 0;
    inode_ = ntfs_inode_open(kept.volume(), MREF(file));
    if (!inode_) {
      error_ = errno == EIO ? win32::ERROR_FILE_CORRUPT : win32::ERROR_FILE_NOT_FOUND;
    } else if (le16_to_cpu(inode_->mrec->sequence_number) != MSEQNO(file) || inode_->mrec->base_mft_record != 0) {
      Close();
      error_ = win32::ERROR_FILE_NOT_FOUND;
    }
  }
  explicit Inode(ntfs_inode* opened) : inode_(opened) {}
  Inode(const Inode&) = delete;
  Inode& operator=(const Inode&) = delete;
  ~Inode() { Close(); }

  // 0, or why there is no record to work with.
  win32::DWORD error() const { return error_; }
  ntfs_inode* get() const { return inode_; }
  ntfs_inode* operator->() const { return inode_; }
  ntfs_inode* release() { return std::exchange(inode_, nullptr); }

  // The record is written when it has changed, and is open no more, whether that could be done or not.
  win32::DWORD Close();
  // The same with the directory open in which the names are: the index entries of those that are there follow. (The
  // library's own function for it closes the directory when an entry is missing.)
  win32::DWORD CloseIn(ntfs_inode* directory);
  // Open for the next calls, when it is a file that may be kept; otherwise closed. What the record holds is written
  // when it is put down, and the index entries follow then.
  win32::DWORD KeepIn(KeptInodes& kept, MFT_REF file);

 private:
  ntfs_inode* inode_ = nullptr;
  win32::DWORD error_ = 0;
};

// A file and a folder that has, or is to have, a name of it.
struct InodeInFolder {
  InodeInFolder(KeptInodes& kept, MFT_REF file, MFT_REF directory) : inode(kept, file), folder(kept, directory) {}
  win32::DWORD error() const { return inode.error() ? inode.error() : folder.error(); }
  // The name into the folder's index and into the record.
  win32::DWORD Link(std::u16string_view name);

  Inode inode, folder;
};

// Takes the only name of a file out of the folder's index, and the file off the volume. For one without records beside
// its own, and in no index but the folder's: ntfs_delete does it for all of them, but gives the folder times of its own
// and writes them into the folder's entry in its parent, each time; they are set by whoever calls this.
win32::DWORD DeletePlainFile(Inode& file, Inode& folder, std::u16string_view name);

struct CloseAttribute {
  void operator()(ntfs_attr* attribute) const { ntfs_attr_close(attribute); }
};
using UniqueAttribute = std::unique_ptr<ntfs_attr, CloseAttribute>;

struct PutIndexContext {
  void operator()(ntfs_index_context* context) const { ntfs_index_ctx_put(context); }
};
using UniqueIndex = std::unique_ptr<ntfs_index_context, PutIndexContext>;

struct PutSearchContext {
  void operator()(ntfs_attr_search_ctx* context) const { ntfs_attr_put_search_ctx(context); }
};
using UniqueSearch = std::unique_ptr<ntfs_attr_search_ctx, PutSearchContext>;

// The library takes names as mutable little-endian units, which is what char16_t is on the machines we run on.
inline ntfschar* Units(std::u16string_view name) {
  static_assert(sizeof(ntfschar) == sizeof(char16_t));
  return const_cast<ntfschar*>(reinterpret_cast<const ntfschar*>(name.data()));
}
inline ntfschar* StreamName(std::u16string_view name) { return name.empty() ? AT_UNNAMED : Units(name); }

inline UniqueAttribute OpenData(ntfs_inode* inode, std::u16string_view stream) {
  return UniqueAttribute(ntfs_attr_open(inode, AT_DATA, StreamName(stream), static_cast<u32>(stream.size())));
}

}  // namespace emulated::ntfs
