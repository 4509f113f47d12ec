#include "workstation/copy_volume.h"

#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "workstation/command.h"
#include "workstation/progress.h"

namespace workstation {

namespace {

using emulated::ByteView;
using emulated::FileDescriptor;

constexpr std::size_t kPiece = 1 << 20, kBlock = 4096;

[[noreturn]] void FailToWrite(int error) {
  FileDescriptor::LastWriteError() = error;
  throw Failure(std::strerror(error));
}

bool IsZero(ByteView bytes) {
  return bytes.empty() || (bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

// Both files then have the same blocks until one of them is written to.
bool ShareBlocks(const ImageSource& source, const FileDescriptor& target) {
  if (source.isBlockDevice) return false;
  file_clone_range range{source.file.get(), source.offset, source.size, 0};
  return ioctl(target.get(), FICLONERANGE, &range) == 0;
}

// What is not zero of a piece that is read, in as few writes as can be.
void WritePiece(const FileDescriptor& target, std::uint64_t at, ByteView piece) {
  while (!piece.empty()) {
    std::size_t length = 0;
    const auto block = [&] { return piece.subspan(length, std::min(kBlock, piece.size() - length)); };
    while (length < piece.size() && !IsZero(block())) length += block().size();
    if (length != 0 && !target.WriteAt(at, piece.first(length))) FailToWrite(errno);
    while (length < piece.size() && IsZero(block())) length += block().size();
    piece = piece.subspan(length);
    at += length;
  }
}

// The next bytes of the source from `at` on that are no hole, or `end`.
std::uint64_t NextData(const ImageSource& source, std::uint64_t at, std::uint64_t end) {
  const off_t data = lseek(source.file.get(), static_cast<off_t>(at), SEEK_DATA);
  if (data < 0) return errno == ENXIO ? end : at;  // a device has no holes
  return std::min(end, static_cast<std::uint64_t>(data));
}

std::uint64_t EndOfData(const ImageSource& source, std::uint64_t at, std::uint64_t end) {
  const off_t hole = lseek(source.file.get(), static_cast<off_t>(at), SEEK_HOLE);
  return hole < 0 ? end : std::min(end, static_cast<std::uint64_t>(hole));
}

// The pieces end at the borders of the target's blocks.
void CopyData(const ImageSource& source, const FileDescriptor& target) {
  Progress progress(source.size);
  emulated::Bytes buffer(kPiece);
  const std::uint64_t end = source.offset + source.size;
  for (std::uint64_t at = NextData(source, source.offset, end); at < end; at = NextData(source, at, end)) {
    at -= (at - source.offset) % kBlock;
    for (const std::uint64_t stop = EndOfData(source, at, end); at < stop;) {
      const std::span<std::uint8_t> piece = std::span(buffer).first(std::min<std::uint64_t>(kPiece, end - at));
      if (!source.file.ReadAt(at, piece)) throw Failure(std::string("cannot be read: ") + std::strerror(errno));
      WritePiece(target, at - source.offset, piece);
      at += piece.size();
      progress.Show(at - source.offset);
    }
  }
}

}  // namespace

void CopyVolumeInto(const ImageSource& source, const FileDescriptor& target) {
  if (!ShareBlocks(source, target)) {
    if (ftruncate(target.get(), static_cast<off_t>(source.size)) != 0) FailToWrite(errno);
    CopyData(source, target);
  }
  if (fsync(target.get()) != 0) FailToWrite(errno);
}

void CopyVolume(const ImageSource& source, const std::filesystem::path& target) {
  constexpr mode_t kAsTheUserLikes = 0666;
  const FileDescriptor file(open(target.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kAsTheUserLikes));
  if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0) FailToWrite(errno);
  CopyVolumeInto(source, file);
}

}  // namespace workstation
