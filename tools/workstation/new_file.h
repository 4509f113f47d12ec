// Files of the host that are there whole or not at all.
#pragma once

#include <filesystem>
#include <string>

#include "win32/emulated/storage/file_descriptor.h"

namespace workstation {

// A file that has no name until it is published: nothing is left of it when this process ends before, however it does.
// (On a file system that has no such files it has a name that begins with ".workstation-", and kill -9 leaves it.)
class NewFile {
 public:
  // Makes it in the folder where its name will be.
  explicit NewFile(std::filesystem::path name);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  emulated::FileDescriptor& file() { return file_; }
  // All of it is safe on the disk, then it has its name. Fails when there is such a file already.
  void Publish();

 private:
  std::filesystem::path name_;
  std::string temporary_;  // empty for a file without a name
  emulated::FileDescriptor file_;
};

// Replaces a small file by what is to be in it, at once and for good.
void ReplaceFile(const std::filesystem::path& name, const std::string& text);

}  // namespace workstation
