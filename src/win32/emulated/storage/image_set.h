// The images of a folder on the host's file system.
#pragma once

#include <functional>
#include <map>

#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/chunk_cache.h"
#include "win32/emulated/storage/file_descriptor.h"
#include "win32/emulated/storage/held_chunks.h"
#include "win32/emulated/storage/journal.h"

namespace emulated {

// What both kinds of image have: reads and writes by 4 KiB chunks, some of which are held until the next commit.
class Image : public BlockDevice {
 public:
  static constexpr std::size_t kChunk = ChunkCache::kChunk;

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, std::span<std::uint8_t> to) override;
  bool Write(std::uint64_t offset, ByteView from) override;

  // What has been written straight to the file is safe there.
  virtual bool SyncDirect() = 0;
  // What is to be in the file after the commit. False when it cannot be read.
  virtual bool AddTo(JournalWriter& journal) = 0;
  // The journal has been carried out.
  virtual bool Committed() = 0;

 protected:
  using Chunk = ChunkCache::Chunk;

  // Part of one chunk, none of which is held.
  virtual bool ReadUnder(std::uint64_t offset, std::span<std::uint8_t> to) = 0;
  // Whether nothing that counts refers to the place of the chunk, so that it may be written at once.
  virtual bool MayWriteDirectly(std::uint64_t chunk) const = 0;
  virtual bool WriteDirectly(std::uint64_t offset, ByteView from) = 0;
  bool AddHeldTo(JournalWriter& journal, const std::string& name);
  std::size_t ChunkLength(std::uint64_t chunk) const;

  bool isOnlyRead_ = false;
  std::uint64_t size_ = 0;
  HeldChunks held_;

 private:
  bool GoesDirectly(std::uint64_t chunk) const { return !isOnlyRead_ && MayWriteDirectly(chunk); }
  bool WriteHeld(std::uint64_t chunk, std::size_t inside, ByteView from);
};

// An image that changes at each commit. Clusters that were free after the last one are written directly.
class LiveImage final : public Image {
 public:
  // Null and one line in `error`. With `left`, a journal's content, it is only read.
  static std::unique_ptr<LiveImage> Open(const std::filesystem::path& folder, const std::string& name,
                                         std::string& error, const JournalContent* left = nullptr);

  bool SyncDirect() override;
  bool AddTo(JournalWriter& journal) override { return AddHeldTo(journal, name_); }
  bool Committed() override;

 protected:
  bool ReadUnder(std::uint64_t offset, std::span<std::uint8_t> to) override { return cache_.Read(offset, to); }
  bool MayWriteDirectly(std::uint64_t chunk) const override;
  bool WriteDirectly(std::uint64_t offset, ByteView from) override;

 private:
  bool FindFreeClusters(std::string& error);

  std::string name_;
  SourceFile file_;
  ChunkCache cache_{file_, size_};  // no chunk that is held is read or written through it
  Bytes clusters_;  // as the volume's bitmap had them after the last commit: a bit for each that is in use
  std::uint32_t clusterSize_ = 0;
  bool hasDirectWrites_ = false;
};

// An image that never changes. Chunks that were written lie, at their own offsets, in a sparse file beside it; behind
// them, from the next chunk border after the image's size on, one bit for each tells that it is there. A chunk that the
// last commit left absent may be written directly; the bits change by commits only.
class FrozenImage final : public Image {
 public:
  // As above.
  static std::unique_ptr<FrozenImage> Open(const std::filesystem::path& folder, const std::string& name,
                                           std::string& error, const JournalContent* left = nullptr);
  static std::filesystem::path AsideOf(const std::filesystem::path& image) { return image.string() + ".frozen"; }

  bool SyncDirect() override;
  bool AddTo(JournalWriter& journal) override;
  bool Committed() override;
  // What has been committed beside the image is to be in FOLDER/name after the journal. False when it cannot be read.
  bool AddAllTo(JournalWriter& journal, const std::string& name);

 protected:
  bool ReadUnder(std::uint64_t offset, std::span<std::uint8_t> to) override;
  bool MayWriteDirectly(std::uint64_t chunk) const override { return !HasBit(committed_, chunk); }
  bool WriteDirectly(std::uint64_t offset, ByteView from) override;

 private:
  static bool HasBit(const Bytes& bits, std::uint64_t chunk) { return (bits[chunk / 8] >> (chunk % 8) & 1) != 0; }
  std::uint64_t BitsOffset() const { return (size_ + kChunk - 1) / kChunk * kChunk; }
  bool OpenAside(bool create, std::string& error);

  std::filesystem::path image_;
  SourceFile file_;
  SourceFile aside_;  // opened when it exists, made by the first write
  Bytes committed_;   // whole chunks of bits
  Bytes present_;     // the same as it is now
  bool hasDirectWrites_ = false;
};

// The steps of a commit, each reported when it is done.
enum class CommitStep { kJournalWritten, kJournalRemoved };

class ImageFolder final : public ImageSet {
 public:
  ImageFolder(std::filesystem::path folder, FileDescriptor lock, ImageAccess access, JournalContent left)
      : folder_(std::move(folder)), lock_(std::move(lock)), access_(access), left_(std::move(left)) {}

  BlockDevice* OpenImage(const std::string& name, bool frozen, std::string& error) override;
  bool Commit(std::string& error, const ProgressSink& progress = {}) override;
  bool DropFrozen(const std::string& name, std::string& error) override;
  bool RecordFrozen(const std::string& name, std::string& error) override;

  std::function<void(CommitStep)> onStep;

 private:
  void Report(CommitStep step) const {
    if (onStep) onStep(step);
  }

  std::filesystem::path folder_;
  FileDescriptor lock_;  // the folder itself
  ImageAccess access_;
  JournalContent left_;  // with kRead
  std::map<std::string, std::unique_ptr<Image>> images_;
};

}  // namespace emulated
