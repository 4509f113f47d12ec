#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>

#include "win32/constants.h"
#include "win32/emulated/storage/image_set.h"
#include "win32/emulated/storage/ntfs_device.h"
#include "win32/emulated/storage/windows_state.h"

namespace emulated {
namespace {

// One line that says which file and why.
std::string Problem(const std::filesystem::path& file, const std::string& what) { return file.string() + ": " + what; }

// Opened and locked: two folders may reach one image by links. Who only reads it shares it with others who do.
FileDescriptor OpenSized(const std::filesystem::path& image, int flags, std::uint64_t& size, std::string& error) {
  constexpr mode_t kAsTheUserLikes = 0666;
  const bool onlyReads = (flags & O_ACCMODE) == O_RDONLY;
  FileDescriptor file =
      onlyReads ? OpenToRead(image) : FileDescriptor(open(image.c_str(), flags | O_CLOEXEC, kAsTheUserLikes));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    error = Problem(image, strerror(errno));
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    error = Problem(image, "not a file");
    return {};
  }
  if (flock(file.get(), (onlyReads ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0) {
    error = Problem(image, "in use by another process");
    return {};
  }
  size = static_cast<std::uint64_t>(status.st_size);
  return file;
}

std::map<std::uint64_t, Bytes> PendingIn(const std::filesystem::path& file, const JournalContent* left) {
  const auto found = left ? left->find(file.filename().string()) : JournalContent::const_iterator();
  return left && found != left->end() ? found->second : std::map<std::uint64_t, Bytes>();
}

}  // namespace

std::size_t Image::ChunkLength(std::uint64_t chunk) const {
  return static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, size_ - chunk * kChunk));
}

bool Image::Read(std::uint64_t offset, std::span<std::uint8_t> to) {
  if (offset > size_ || to.size() > size_ - offset) return false;
  while (!to.empty()) {
    std::uint64_t chunk = offset / kChunk;
    const std::size_t inside = offset % kChunk;
    std::size_t length = std::min(to.size(), kChunk - inside);
    if (const auto held = held_.Find(chunk)) {
      if (!held_.Read(*held, inside, to.first(length))) return false;
    } else {
      while (length < to.size() && !held_.Find(++chunk)) length = std::min(to.size(), length + kChunk);
      if (!ReadUnder(offset, to.first(length))) return false;
    }
    to = to.subspan(length);
    offset += length;
  }
  return true;
}

bool Image::Write(std::uint64_t offset, ByteView from) {
  if (offset > size_ || from.size() > size_ - offset) return false;
  while (!from.empty()) {
    std::uint64_t chunk = offset / kChunk;
    const std::size_t inside = offset % kChunk;
    std::size_t length = std::min(from.size(), kChunk - inside);
    if (GoesDirectly(chunk)) {
      while (length < from.size() && GoesDirectly(++chunk)) length = std::min(from.size(), length + kChunk);
      if (!WriteDirectly(offset, from.first(length))) return false;
    } else if (!WriteHeld(chunk, inside, from.first(length))) {
      return false;
    }
    from = from.subspan(length);
    offset += length;
  }
  return true;
}

// Writing what is there already changes nothing.
bool Image::WriteHeld(std::uint64_t chunk, std::size_t inside, ByteView from) {
  if (const auto held = held_.Find(chunk)) return held_.Write(*held, inside, from);
  Chunk copy{};
  if (!ReadUnder(chunk * kChunk, std::span(copy).first(ChunkLength(chunk)))) return false;
  if (std::memcmp(copy.data() + inside, from.data(), from.size()) == 0) return true;
  std::memcpy(copy.data() + inside, from.data(), from.size());
  return held_.Add(chunk, copy);
}

bool Image::AddHeldTo(JournalWriter& journal, const std::string& name) {
  Chunk bytes;
  for (const std::uint64_t chunk : held_.InOrder()) {
    if (!held_.Read(*held_.Find(chunk), 0, bytes)) return false;
    journal.Add(name, chunk * kChunk, ByteView(bytes).first(ChunkLength(chunk)));
  }
  return true;
}

std::unique_ptr<LiveImage> LiveImage::Open(const std::filesystem::path& folder, const std::string& name,
                                           std::string& error, const JournalContent* left) {
  auto image = std::make_unique<LiveImage>();
  image->isOnlyRead_ = left != nullptr;
  if (!image->isOnlyRead_) image->held_.MayUse(folder);
  image->name_ = name;
  image->file_ = {OpenSized(folder / name, left ? O_RDONLY : O_RDWR, image->size_, error),
                  PendingIn(folder / name, left)};
  if (!image->file_.file) return nullptr;
  if (!image->FindFreeClusters(error)) {
    error = Problem(folder / name, error);
    return nullptr;
  }
  return image;
}

bool LiveImage::FindFreeClusters(std::string& error) {
  const win32::DWORD failure = ntfs::ReadClusterBitmap(*this, clusters_, clusterSize_);
  if (failure == 0) return true;
  clusters_.clear();
  error = WhyNotMounted(*this, failure);
  return false;
}

bool LiveImage::MayWriteDirectly(std::uint64_t chunk) const {
  const std::uint64_t first = chunk * kChunk / clusterSize_;
  const std::uint64_t last = (chunk * kChunk + ChunkLength(chunk) - 1) / clusterSize_;
  // What the volume does not count as its own (the copy of the boot sector at the end) is nobody's to write directly.
  if (last / 8 >= clusters_.size() || chunk == (size_ - 1) / kChunk) return false;
  for (std::uint64_t cluster = first; cluster <= last; ++cluster)
    if ((clusters_[cluster / 8] >> (cluster % 8) & 1) != 0) return false;
  return true;
}

bool LiveImage::WriteDirectly(std::uint64_t offset, ByteView from) {
  hasDirectWrites_ = true;
  return cache_.Write(offset, from);
}

bool LiveImage::SyncDirect() { return !hasDirectWrites_ || (cache_.Flush() && fdatasync(file_.file.get()) == 0); }

bool LiveImage::Committed() {
  if (!hasDirectWrites_ && held_.IsEmpty()) return true;
  held_.Clear();
  cache_.Forget();  // what was held is in the file now
  hasDirectWrites_ = false;
  std::string ignored;
  return FindFreeClusters(ignored);
}

std::unique_ptr<FrozenImage> FrozenImage::Open(const std::filesystem::path& folder, const std::string& name,
                                               std::string& error, const JournalContent* left) {
  auto image = std::make_unique<FrozenImage>();
  image->isOnlyRead_ = left != nullptr;
  if (!image->isOnlyRead_) image->held_.MayUse(folder);
  image->image_ = folder / name;
  image->file_.file = OpenSized(image->image_, O_RDONLY, image->size_, error);
  image->aside_.pending = PendingIn(AsideOf(image->image_), left);
  if (!image->file_.file) return nullptr;
  const std::uint64_t bits = (image->size_ + kChunk - 1) / kChunk;
  image->committed_.assign(static_cast<std::size_t>((bits / 8 + kChunk) / kChunk * kChunk), 0);
  if (std::filesystem::exists(AsideOf(image->image_)) && !image->OpenAside(false, error)) return nullptr;
  image->present_ = image->committed_;

  Bytes bitmap;
  std::uint32_t clusterSize = 0;
  if (const win32::DWORD failure = ntfs::ReadClusterBitmap(*image, bitmap, clusterSize)) {
    error = Problem(image->image_, WhyNotMounted(*image, failure));
    return nullptr;
  }
  return image;
}

bool FrozenImage::OpenAside(bool create, std::string& error) {
  const std::filesystem::path name = AsideOf(image_);
  const std::uint64_t wanted = BitsOffset() + committed_.size();
  std::uint64_t size = 0;
  aside_.file = OpenSized(name, isOnlyRead_ ? O_RDONLY : O_RDWR | (create ? O_CREAT : 0), size, error);
  if (!aside_.file) return false;
  if (size == 0) {  // made by a run that did not end
    if (isOnlyRead_ || ftruncate(aside_.file.get(), static_cast<off_t>(wanted)) == 0) return true;
    error = Problem(name, strerror(errno));
    return false;
  }
  if (size == wanted && aside_.ReadAt(BitsOffset(), committed_)) return true;
  error = Problem(name, "does not belong to its image");
  return false;
}

bool FrozenImage::ReadUnder(std::uint64_t offset, std::span<std::uint8_t> to) {
  while (!to.empty()) {
    const std::size_t length = std::min(to.size(), kChunk - static_cast<std::size_t>(offset % kChunk));
    const SourceFile& from = HasBit(present_, offset / kChunk) ? aside_ : file_;
    if (!from.ReadAt(offset, to.first(length))) return false;
    to = to.subspan(length);
    offset += length;
  }
  return true;
}

bool FrozenImage::WriteDirectly(std::uint64_t offset, ByteView from) {
  std::string ignored;
  if (!aside_.file && !OpenAside(true, ignored)) return false;
  hasDirectWrites_ = true;
  while (!from.empty()) {
    const std::uint64_t chunk = offset / kChunk;
    const std::size_t inside = offset % kChunk;
    const std::size_t length = std::min(from.size(), kChunk - inside);
    Chunk whole;
    if (length != ChunkLength(chunk) && !ReadUnder(chunk * kChunk, std::span(whole).first(ChunkLength(chunk))))
      return false;
    std::memcpy(whole.data() + inside, from.data(), length);
    if (!aside_.file.WriteAt(chunk * kChunk, ByteView(whole).first(ChunkLength(chunk)))) return false;
    present_[chunk / 8] = static_cast<std::uint8_t>(present_[chunk / 8] | 1 << (chunk % 8));
    from = from.subspan(length);
    offset += length;
  }
  return true;
}

bool FrozenImage::SyncDirect() { return !hasDirectWrites_ || fdatasync(aside_.file.get()) == 0; }

bool FrozenImage::AddAllTo(JournalWriter& journal, const std::string& name) {
  Chunk bytes;
  for (std::uint64_t chunk = 0; chunk * kChunk < size_; ++chunk) {
    if (!HasBit(committed_, chunk)) continue;
    if (!aside_.ReadAt(chunk * kChunk, std::span(bytes).first(ChunkLength(chunk)))) return false;
    journal.Add(name, chunk * kChunk, ByteView(bytes).first(ChunkLength(chunk)));
  }
  return true;
}

bool FrozenImage::AddTo(JournalWriter& journal) {
  const std::string name = AsideOf(image_).filename().string();
  if (!AddHeldTo(journal, name)) return false;
  for (std::size_t at = 0; at < present_.size(); at += kChunk) {
    const ByteView bits = ByteView(present_).subspan(at, kChunk);
    if (!std::ranges::equal(bits, ByteView(committed_).subspan(at, kChunk))) journal.Add(name, BitsOffset() + at, bits);
  }
  return true;
}

bool FrozenImage::Committed() {
  held_.Clear();
  hasDirectWrites_ = false;
  committed_ = present_;
  return true;
}

}  // namespace emulated
