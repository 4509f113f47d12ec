// Records of a volume that stay open behind a call of it, because the next calls are likely to want them: a file that
// was made is written, then it gets its times, its attributes and its descriptor, and all of that goes into the record
// at once. The library must never have a record open twice. Therefore whoever opens one asks here first (ntfs::Inode
// does), and has it alone again; and none of a directory is kept: the library opens those by itself.
#pragma once

#include <utility>
#include <vector>

#include "win32/emulated/storage/volume.h"

struct _ntfs_inode;
struct _ntfs_volume;

namespace emulated::ntfs {

class KeptInodes {
 public:
  void SetVolume(_ntfs_volume* volume) { volume_ = volume; }
  _ntfs_volume* volume() const { return volume_; }

  // Time to put all of them down: each takes some KB.
  bool IsFull() const { return kept_.size() >= kMost; }
  void Keep(FileId file, _ntfs_inode* inode) { kept_.emplace_back(file, inode); }
  // The record, which is not kept any more; nullptr when it was not.
  _ntfs_inode* Take(FileId file);
  // The first error; none is kept in any case.
  win32::DWORD CloseAll();

 private:
  static constexpr std::size_t kMost = 32;

  _ntfs_volume* volume_ = nullptr;
  std::vector<std::pair<FileId, _ntfs_inode*>> kept_;
};

}  // namespace emulated::ntfs
