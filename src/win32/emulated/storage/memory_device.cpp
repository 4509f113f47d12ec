#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/file_descriptor.h"

namespace emulated {

MemoryDevice::MemoryDevice(std::uint64_t size) : size_(size), pieces_((size + kPiece - 1) / kPiece) {}

std::unique_ptr<MemoryDevice> MemoryDevice::FromFile(const std::filesystem::path& image) {
  const FileDescriptor file(open(image.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return nullptr;
  auto device = std::make_unique<MemoryDevice>(static_cast<std::uint64_t>(status.st_size));
  for (off_t data = 0; (data = lseek(file.get(), data, SEEK_DATA)) >= 0;) {
    const off_t hole = lseek(file.get(), data, SEEK_HOLE);
    const std::size_t last = (static_cast<std::size_t>(hole) + kPiece - 1) / kPiece;
    for (std::size_t index = static_cast<std::size_t>(data) / kPiece; index < last; ++index) {
      if (device->pieces_[index]) continue;
      auto piece = std::make_shared<Piece>();
      const std::uint64_t offset = std::uint64_t{index} * kPiece;
      const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, device->size_ - offset));
      if (!file.ReadAt(offset, {piece->bytes, length})) return nullptr;
      device->pieces_[index] = std::move(piece);
    }
    data = hole;
  }
  return device;
}

std::unique_ptr<MemoryDevice> MemoryDevice::Clone() const { return std::make_unique<MemoryDevice>(*this); }

bool MemoryDevice::SaveTo(const std::filesystem::path& image) const {
  const FileDescriptor file(open(image.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file || ftruncate(file.get(), static_cast<off_t>(size_)) != 0) return false;
  for (std::size_t index = 0; index < pieces_.size(); ++index) {
    if (!pieces_[index]) continue;
    const std::uint64_t offset = std::uint64_t{index} * kPiece;
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size_ - offset));
    if (!file.WriteAt(offset, {pieces_[index]->bytes, length})) return false;
  }
  return true;
}

bool MemoryDevice::Read(std::uint64_t offset, std::span<std::uint8_t> to) {
  if (offset > size_ || to.size() > size_ - offset) return false;
  while (!to.empty()) {
    const std::size_t inside = offset % kPiece;
    const std::size_t length = std::min(to.size(), kPiece - inside);
    if (const auto& piece = pieces_[offset / kPiece]) {
      std::memcpy(to.data(), piece->bytes + inside, length);
    } else {
      std::memset(to.data(), 0, length);
    }
    to = to.subspan(length);
    offset += length;
  }
  return true;
}

bool MemoryDevice::Write(std::uint64_t offset, ByteView from) {
  if (offset > size_ || from.size() > size_ - offset) return false;
  while (!from.empty()) {
    const std::size_t inside = offset % kPiece;
    const std::size_t length = std::min(from.size(), kPiece - inside);
    auto& piece = pieces_[offset / kPiece];
    if (!piece) {
      piece = std::make_shared<Piece>();
    } else if (piece.use_count() > 1) {
      piece = std::make_shared<Piece>(*piece);
    }
    std::memcpy(piece->bytes + inside, from.data(), length);
    from = from.subspan(length);
    offset += length;
  }
  return true;
}

}  // namespace emulated
