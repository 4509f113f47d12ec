// A volume goes back into the partition that it came from.
//
// The partition is compared block by block with what it held when it was imported (X.origin). What is to be in the
// blocks that change is noted there before the first of them is written: a call that is interrupted leaves a partition
// whose other blocks are as they were, and the next call takes it up. The volume in the workstation is the truth all
// the while, whatever happens to it in between.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <system_error>

#include "win32/emulated/storage/journal.h"
#include "workstation/command.h"
#include "workstation/container.h"
#include "workstation/export_image.h"
#include "workstation/image_origin.h"
#include "workstation/progress.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::Bytes;
using emulated::FileDescriptor;

namespace {

[[noreturn]] void Fail(const fs::path& what, const std::string& why) { throw Failure(what.string() + ": " + why); }
[[noreturn]] void FailWithErrno(const fs::path& what) { Fail(what, strerror(errno)); }

void RequireSamePartition(const LockedImage& image, const ImageSource& source, const Origin& origin) {
  const std::string number = std::to_string(origin.partition);
  if (source.partition != origin.partition)
    Fail(source.shown, "it is partition " + number + " of " + origin.disk.string() + " that " +
                           image.volume.shown.string() + " came from");
  if (source.start != origin.offset || source.size != origin.size || source.identity != origin.identity ||
      source.container != origin.container)
    Fail(source.shown, "partition " + number + " is not the one that " + image.volume.shown.string() + " came from");
  if (image.volume.size != origin.size) Fail(image.volume.shown, "is not of the partition's size any more");
}

// Whether a block is as it was left. One that was being written in place may hold anything; a container is the old one
// or the new.
bool IsAsLeft(const Origin::Block& block, const Digest& digest, bool isPacked) {
  return digest == block.digest || (block.next && (!isPacked || digest == *block.next));
}

// Notes in `origin` what the disk holds and what is to be written. Nothing is written to the disk before all of it has
// been looked at.
void NoteChanges(const LockedImage& image, const ImageSource& source, Origin& origin) {
  Progress progress(image.volume.size);
  Bytes here, there;
  for (std::size_t i = 0; i < origin.blocks.size(); ++i) {
    ReadBlock(image.volume.file, 0, image.volume.size, i, here, image.volume.shown);
    ReadBlock(source.file, source.offset, source.size, i, there, source.shown);
    Origin::Block& block = origin.blocks[i];
    const Digest digest = DigestOf(there);
    if (!IsAsLeft(block, digest, !source.container.empty()))
      Fail(source.shown, "partition " + std::to_string(origin.partition) +
                             " has changed since it was imported (at byte " + std::to_string(i * kOriginBlock) +
                             " of it); nothing has been written");
    block = {digest, std::nullopt};
    if (here != there) block.next = DigestOf(here);
    progress.Show(i * kOriginBlock);
  }
}

// For writing; the descriptor that the source has keeps a device from being mounted meanwhile.
FileDescriptor OpenToWrite(const ImageSource& source) {
  FileDescriptor disk(open(source.shown.c_str(), O_RDWR | O_CLOEXEC));
  struct stat one {
  }, other{};
  if (!disk || fstat(disk.get(), &one) != 0 || fstat(source.file.get(), &other) != 0) FailWithErrno(source.shown);
  if (one.st_dev != other.st_dev || one.st_ino != other.st_ino) Fail(source.shown, "has been replaced meanwhile");
  return disk;
}

void WriteNoted(const LockedImage& image, const ImageSource& source, const Origin& origin, const FileDescriptor& disk) {
  Progress progress(image.volume.size);
  Bytes block;
  for (std::size_t i = 0; i < origin.blocks.size(); ++i) {
    if (!origin.blocks[i].next) continue;
    ReadBlock(image.volume.file, 0, image.volume.size, i, block, image.volume.shown);
    if (!disk.WriteAt(source.offset + i * kOriginBlock, block)) FailWithErrno(source.shown);
    progress.Show(i * kOriginBlock);
  }
  if (fsync(disk.get()) != 0) FailWithErrno(source.shown);
}

// A container is made anew beside the old one, in a folder of its own (it may hold its own name), and takes its place
// when it is whole.
void ReplaceContainer(const LockedImage& image, const ImageSource& source, const Container& container) {
  const fs::path making = source.shown.string() + ".workstation-new", made = making / source.shown.filename();
  struct stat before {
  }, now{};
  if (fstat(source.packed.get(), &before) != 0) FailWithErrno(source.shown);
  std::error_code failed;
  // What an interrupted call has left; nothing else that may stand there.
  const auto clear = [&] {
    fs::remove(made, failed);
    fs::remove(making, failed);
  };
  clear();
  fs::create_directory(making, failed);
  if (failed) Fail(making, failed.message());
  try {
    Repack(container, image.volume.shown, source.start, source.size, made);
    const FileDescriptor file(open(made.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || fchmod(file.get(), before.st_mode & 07777) != 0 || fsync(file.get()) != 0) FailWithErrno(made);
    if (fchown(file.get(), before.st_uid, before.st_gid) != 0 && errno != EPERM) FailWithErrno(made);
    if (stat(source.shown.c_str(), &now) != 0 || now.st_ino != before.st_ino ||
        std::memcmp(&now.st_mtim, &before.st_mtim, sizeof now.st_mtim) != 0)
      Fail(source.shown, "has changed meanwhile; it stays as it is");
    if (std::rename(made.c_str(), source.shown.c_str()) != 0) FailWithErrno(source.shown);
  } catch (...) {
    clear();
    throw;
  }
  clear();
  emulated::SyncFolder(fs::absolute(source.shown).parent_path());
}

}  // namespace

void WriteBack(const LockedImage& image, const fs::path& disk, unsigned partition) {
  Origin origin = ReadOrigin(image.volume.shown);
  // A name that is a link would be replaced by a container in place of what it leads to.
  std::error_code failed;
  const fs::path real = fs::canonical(disk, failed);
  const ImageSource source = OpenImageSource(failed ? disk : real, partition, image.volume.shown.parent_path());
  RequireSamePartition(image, source, origin);
  const bool isPacked = !source.container.empty();
  if (flock((isPacked ? source.packed : source.file).get(), LOCK_EX | LOCK_NB) != 0)
    Fail(source.shown, "in use by another process");
  Container container;
  if (isPacked) container = OpenContainer(source.shown, source.container);
  if (!container.whyNotMadeAnew.empty())
    Fail(source.shown, container.whyNotMadeAnew +
                           " would be lost; make a raw disk of it (qemu-img convert -O raw) and "
                           "import from that");
  const FileDescriptor target = isPacked ? FileDescriptor() : OpenToWrite(source);
  NoteChanges(image, source, origin);
  WriteOrigin(origin, image.volume.shown);
  if (isPacked) {
    ReplaceContainer(image, source, container);
  } else {
    WriteNoted(image, source, origin, target);
  }
  for (Origin::Block& block : origin.blocks) block = {block.next.value_or(block.digest), std::nullopt};
  WriteOrigin(origin, image.volume.shown);
}

}  // namespace workstation
