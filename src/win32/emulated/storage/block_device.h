// What a volume lies on: an image of whole sectors.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "win32/emulated/bytes.h"

namespace emulated {

class BlockDevice {
 public:
  virtual ~BlockDevice() = default;
  virtual std::uint64_t Size() const = 0;
  // Both transfer all bytes or answer false.
  virtual bool Read(std::uint64_t offset, std::span<std::uint8_t> to) = 0;
  virtual bool Write(std::uint64_t offset, ByteView from) = 0;
};

// An image in memory whose 64 KiB pieces are shared with its copies until one of them writes: a test clones a
// prepared machine in microseconds.
class MemoryDevice : public BlockDevice {
 public:
  explicit MemoryDevice(std::uint64_t size);
  static std::unique_ptr<MemoryDevice> FromFile(const std::filesystem::path& image);
  std::unique_ptr<MemoryDevice> Clone() const;
  bool SaveTo(const std::filesystem::path& image) const;

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, std::span<std::uint8_t> to) override;
  bool Write(std::uint64_t offset, ByteView from) override;

 private:
  static constexpr std::size_t kPiece = 16 * 1024;
  struct Piece {
    std::uint8_t bytes[kPiece];
  };
  std::uint64_t size_;
  std::vector<std::shared_ptr<Piece>> pieces_;  // null: zeros
};

// Told how many bytes are done, of how many.
using ProgressSink = std::function<void(std::uint64_t done, std::uint64_t total)>;

// Who only reads shares a folder with others who do, needs no right to write to it, and leaves no trace in it.
enum class ImageAccess { kRead, kWrite };

// The image files of a workstation folder, opened together and changed together: until Commit every image still reads,
// for anybody else, exactly as it did, whatever has been written here and however this process ends.
//
// A write to a cluster that was free when the image was opened goes straight to the image (nothing refers to it yet);
// every other write is held here. Commit puts all of what is held, of all images, into one journal file and then into
// the images; the next Open completes a journal that was finished and drops one that was not.
//
// A frozen image is never written: what is written to it goes to a file beside it (IMAGE.frozen), by the same rules.
// DropFrozen, or opening the image as not frozen, forgets it.
class ImageSet {
 public:
  virtual ~ImageSet() = default;
  // Locks the folder against a second opener, completes or drops a journal. With kRead what is written to the images
  // stays in memory, and a journal stays where it is: the images read as if it had been completed. On failure answers
  // null and sets `error` to one clear line.
  static std::unique_ptr<ImageSet> Open(const std::filesystem::path& folder, std::string& error,
                                        ImageAccess access = ImageAccess::kWrite);

  // Opens FOLDER/name; `frozen` as above. Null and `error` when it cannot be.
  virtual BlockDevice* OpenImage(const std::string& name, bool frozen, std::string& error) = 0;
  // All images as they now stand, or all as they stood before: false and `error` when it could not be done, or
  // may not be. `progress` hears how much of the journal has been carried out.
  virtual bool Commit(std::string& error, const ProgressSink& progress = {}) = 0;
  // What was written to a frozen image since it was frozen is forgotten. The image must not be open.
  virtual bool DropFrozen(const std::string& name, std::string& error) = 0;
  // What was written to a frozen image becomes the folder's journal, and is forgotten beside the image: the next
  // opening puts it into the image, which is as it was until then. The image must not be open.
  virtual bool RecordFrozen(const std::string& name, std::string& error) = 0;
};

}  // namespace emulated
