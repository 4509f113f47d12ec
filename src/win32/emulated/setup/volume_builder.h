// Puts folders and files on a volume that no Windows runs from yet, with the descriptors that Windows would give them.
#pragma once

#include <optional>
#include <string_view>

#include "win32/emulated/security/access.h"
#include "win32/emulated/storage/volume.h"

namespace emulated {

class VolumeBuilder {
 public:
  VolumeBuilder(Volume& volume, FileTime now);

  // The first error of all steps so far; later steps do nothing once there is one.
  win32::DWORD error() const { return error_; }

  // The folder, made when it is missing, with `sddl` as its own descriptor or what it inherits. 0 when it cannot be.
  FileId Directory(std::u16string_view path, std::u16string_view sddl = {}, win32::DWORD attributes = 0);
  // The file with this content, made or left alone when it exists.
  void File(std::u16string_view path, ByteView content, std::u16string_view sddl = {}, win32::DWORD attributes = 0);
  // A junction (an empty folder with a mount-point reparse point) to an absolute path such as u"C:\\Users".
  void Junction(std::u16string_view path, std::u16string_view target, std::u16string_view sddl = {},
                win32::DWORD attributes = 0);
  // A symbolic link to a folder by its absolute path.
  void FolderLink(std::u16string_view path, std::u16string_view target, std::u16string_view sddl,
                  win32::DWORD attributes);
  void SetSecurity(std::u16string_view path, std::u16string_view sddl);
  // How many folders, files and links were not there and have been made.
  std::size_t made() const { return made_; }

 private:
  FileId Make(std::u16string_view path, bool isDirectory, std::u16string_view sddl, win32::DWORD attributes,
              bool& made);
  void Fail(win32::DWORD error) {
    if (error_ == 0) error_ = error;
  }

  Volume& volume_;
  FileTime now_;
  std::shared_ptr<Token> system_;
  win32::DWORD error_ = 0;
  std::size_t made_ = 0;
};

}  // namespace emulated
