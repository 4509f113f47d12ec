// Where `create`, `import` and `adopt` make what is to be in a folder: under another name until it is whole.
//
//   FOLDER/.workstation-making-XXXXXXXX/        what is being made; locked as long as somebody is at it
//   .FOLDER.workstation-making-XXXXXXXX/        the same beside a folder that is not there yet: it becomes the folder
//     .workstation-made-XXXXXXXX/               what is whole: all that is left to do with it is what Finish does
//       images/                                 a folder of images
//       taken                                   the image that the user gives away for one of them
//
// It is whole from one rename on. A process that ends before it leaves what ClearUnfinished takes away, one that ends
// behind it what ClearUnfinished finishes.
#pragma once

#include <exception>
#include <filesystem>
#include <string>

#include "win32/emulated/storage/file_descriptor.h"

namespace workstation {

class Staging {
 public:
  explicit Staging(const std::filesystem::path& folder);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  const std::filesystem::path& images() const { return images_; }

  // What a failure on the way says of the folder that is to be, with the host's own reason where a file could not be
  // written.
  std::string Reason(const std::exception& failure) const;
  // The user's image goes away when all is whole here. It is the file that is open.
  void Take(const std::filesystem::path& image, const emulated::FileDescriptor& file);
  // All that is in images() is put down safely and comes to the folder, the image that was taken goes away.
  // Nothing is locked any more then.
  void Finish();

 private:
  std::filesystem::path folder_;  // absolute
  std::filesystem::path making_;  // removed unless it is finished
  std::filesystem::path made_;    // in it
  std::filesystem::path images_;  // in that
  emulated::FileDescriptor makingLock_, madeLock_;
};

// What processes have left of a folder when they were killed: removed, or finished where it was whole. What somebody is
// at, or is not the user's own, stays.
void ClearUnfinished(const std::filesystem::path& folder);

}  // namespace workstation
