// One file on its way from one place to another: held against changes, copied whole, removed.
#pragma once

#include <string>

#include "fsops/copy_watch.h"
#include "fsops/file_facts.h"
#include "win32/handle.h"

// A file that nobody can write to while it is held. It can be read, renamed and deleted; deleted, its name is free when
// it is let go.
class HeldFile {
 public:
  // False with the last error: a sharing violation when somebody has it open for writing.
  bool Hold(const std::u16string& path);
  void LetGo() { file_.reset(); }
  const FileFacts& facts() const { return facts_; }

 private:
  win32::UniqueFile file_;
  FileFacts facts_;
};

// Copies a file - data, named streams, attributes, written time - to a place that is free. True only when the copy is
// as long as the file and on the disk; otherwise nothing that was made stays, and the last error says why. The copy is
// not read-only or hidden yet: times and attributes are to follow (CopyTimesAndAttributes).
bool CopyContents(const std::u16string& from, const std::u16string& to, const CopyWatch& watch = {});

// CopyFileTimesAndAttributes, and whether the attributes are there now. False: not all of them could be given.
bool CopyTimesAndAttributes(const std::u16string& from, const std::u16string& to);

// Gives a file another one's owner and access entries, inherited ones as they are: at its new place it is open to the
// same users. An owner that cannot be given stays as it is. False: the file has the access entries that it had.
bool CopyOwnerAndDacl(const std::u16string& from, const std::u16string& to);

// DeleteFileW, of a read-only file and of a symbolic link itself, too. False with the last error: nothing has changed.
bool RemoveFile(const std::u16string& path);

// A file that somebody has open keeps its name after it was deleted until he lets it go. Waits for that, some seconds
// at the most.
void WaitUntilGone(const std::u16string& path);

// A file's copy on its way to a place: whole under a free name beside it first ("NAME.copy1"), then put there in one
// step. Wherever the run is cut off, no unfinished file ever stands in the place itself.
class CopyBeside {
 public:
  explicit CopyBeside(std::u16string place) : place_(std::move(place)) {}

  // As CopyContents.
  bool Make(const std::u16string& from, const CopyWatch& watch = {});
  const std::u16string& path() const { return path_; }
  // To its place, which is free. False with the last error: it is where it was.
  bool PutInPlace();
  // Would it be in its place after a power failure, too?
  bool IsOnDisk() const;
  // It is not wanted any more.
  void Remove();

 private:
  const std::u16string place_;
  std::u16string path_;
  win32::UniqueFile file_;  // open from before it may become read-only
  win32::DWORD openError_ = 0;
};

// What stands in the place that a file goes to, kept beside it under another name until the file is there for good.
class KeptAside {
 public:
  explicit KeptAside(std::u16string path) : path_(std::move(path)) {}

  // True when the place is free now. Otherwise, with the last error, nothing has changed: a folder, a hidden or a
  // read-only file is not replaced.
  bool Keep();
  // Back to its place, which is free again; when it cannot go there, the log says where it is.
  void PutBack();
  // It is not wanted any more.
  void Remove();
  // It may be wanted: it stays, and the log says where.
  void Leave();

 private:
  const std::u16string path_;
  std::u16string aside_;  // empty when nothing is kept
};
