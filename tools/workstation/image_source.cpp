#include "workstation/image_source.h"

#include <fcntl.h>
#include <mntent.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>

#include "win32/emulated/storage/windows_state.h"
#include "workstation/command.h"
#include "workstation/container.h"
#include "workstation/partition_list.h"
#include "workstation/partition_table.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::FileDescriptor;

namespace {

constexpr std::size_t kSector = 512;
using Sector = std::array<std::uint8_t, kSector>;

[[noreturn]] void Fail(const fs::path& what, const std::string& why) { throw Failure(what.string() + ": " + why); }

Sector FirstSector(const FileDescriptor& file, std::uint64_t offset) {
  Sector sector{};
  return file.ReadAt(offset, sector) ? sector : Sector{};
}

// Where boot sectors name their file system, unless they are those of FAT, which master boot records resemble.
bool IsNtfs(emulated::ByteView sector) { return std::memcmp(sector.data() + 3, "NTFS    ", 8) == 0; }
std::string KindAtStart(emulated::ByteView sector) { return emulated::OtherVolumeKind(sector.first(54)); }

const Partition& Choose(const fs::path& image, const FileDescriptor& file, const std::vector<Partition>& partitions,
                        std::optional<unsigned> wanted, bool hasVolumes) {
  const auto list = [&] { return ListPartitions(file, partitions, hasVolumes); };
  const auto fits = [&](const Partition& one) { return wanted ? one.number == *wanted : KindOf(file, one) == kNtfs; };
  const auto found = std::ranges::find_if(partitions, fits);
  if (found == partitions.end())
    Fail(image, (wanted ? "no partition " + std::to_string(*wanted) : "no NTFS partition") + " among these:" + list());
  if (std::find_if(found + 1, partitions.end(), fits) != partitions.end())
    Fail(image, "--partition N says which of these it is to be:" + list());
  if (const std::string kind = KindOf(file, *found); kind != kNtfs)
    Fail(image, "partition " + std::to_string(found->number) + " holds " + kind);
  return *found;
}

// Open and locked, as what it is.
void OpenLocked(ImageSource& source, std::uint64_t& size) {
  struct stat status {};
  if (stat(source.shown.c_str(), &status) != 0) Fail(source.shown, strerror(errno));
  source.isBlockDevice = S_ISBLK(status.st_mode);
  if (!source.isBlockDevice && !S_ISREG(status.st_mode)) Fail(source.shown, "neither a file nor a block device");
  // Of a block device O_EXCL says that nobody may have mounted it, or any part of it.
  source.file = FileDescriptor(open(source.shown.c_str(), O_RDONLY | O_CLOEXEC | (source.isBlockDevice ? O_EXCL : 0)));
  if (!source.file && errno == EBUSY) Fail(source.shown, "mounted, or in use by the host");
  if (!source.file) Fail(source.shown, strerror(errno));
  RequireUnused(source.shown);
  struct flock any {};  // the lock that a running virtual machine has on parts of its disk
  any.l_type = F_WRLCK;
  if (flock(source.file.get(), LOCK_SH | LOCK_NB) != 0 ||
      (fcntl(source.file.get(), F_OFD_GETLK, &any) == 0 && any.l_type != F_UNLCK))
    Fail(source.shown, "in use by another process");
  size = static_cast<std::uint64_t>(lseek(source.file.get(), 0, SEEK_END));
}

void TakePartition(ImageSource& source, const Partition& partition, std::uint64_t diskSize) {
  if (partition.start > diskSize || partition.size > diskSize - partition.start)
    Fail(source.shown, "partition " + std::to_string(partition.number) + " reaches beyond the end of the disk");
  source.partition = partition.number;
  source.identity = partition.identity;
  source.offset = source.start = partition.start;
  source.size = partition.size;
}

// The volume in a container becomes a file.
void TakeFromContainer(ImageSource& source, std::optional<unsigned> wanted, const fs::path& scratch) {
  const Container container = OpenContainer(source.shown, source.container);
  const FileDescriptor table = UnpackTable(container, scratch);
  source.size = container.size;
  if (!IsNtfs(FirstSector(table, 0)) && KindAtStart(FirstSector(table, 0)).empty()) {
    const std::vector<Partition> partitions = ReadPartitions(table.get());
    if (!partitions.empty())
      TakePartition(source, Choose(source.shown, table, partitions, wanted, false), container.size);
  }
  FileDescriptor volume = MakeNamelessFile(scratch, source.size);
  Unpack(container, source.offset, source.size, volume, 0);
  source.packed = std::exchange(source.file, std::move(volume));
  source.offset = 0;
}

bool IsSameFile(const fs::path& one, const fs::path& other) {
  std::error_code failed;
  return fs::equivalent(one, other, failed) && !failed;
}

}  // namespace

ImageSource OpenImageSource(const fs::path& image, std::optional<unsigned> partition, const fs::path& scratch) {
  ImageSource source;
  source.shown = image;
  std::uint64_t size = 0;
  OpenLocked(source, size);
  const Sector first = FirstSector(source.file, 0);
  source.container = ContainerFormat(first);
  if (!source.container.empty()) {
    TakeFromContainer(source, partition, scratch.empty() ? fs::temp_directory_path() : scratch);
  } else {
    source.size = size;
    const bool isVolume = IsNtfs(first) || !KindAtStart(first).empty();
    const auto partitions = isVolume ? std::vector<Partition>() : ReadPartitions(source.file.get());
    if (!partitions.empty()) TakePartition(source, Choose(image, source.file, partitions, partition, true), size);
  }
  if (partition && !source.partition) Fail(image, "there are no partitions on it");
  return source;
}

std::unique_ptr<emulated::BlockDevice> MakeDevice(const ImageSource& source) {
  return std::make_unique<RangeDevice>(source.file, source.offset, source.size);
}

void RequireUnused(const fs::path& image) {
  const std::unique_ptr<std::FILE, decltype(&endmntent)> mounts(setmntent("/proc/self/mounts", "r"), endmntent);
  while (const mntent* const mount = mounts ? getmntent(mounts.get()) : nullptr)
    if (mount->mnt_fsname[0] == '/' && IsSameFile(mount->mnt_fsname, image))
      Fail(image, std::string("mounted on ") + mount->mnt_dir);
  std::error_code failed;
  for (const auto& device : fs::directory_iterator("/sys/block", failed)) {
    std::ifstream file(device.path() / "loop" / "backing_file");
    std::string backing;
    if (std::getline(file, backing) && IsSameFile(backing, image))
      Fail(image, "in use by /dev/" + device.path().filename().string());
  }
}

FileDescriptor MakeNamelessFile(const fs::path& folder, std::uint64_t size) {
  FileDescriptor file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666));
  if (!file && (errno == EOPNOTSUPP || errno == EISDIR)) {  // file systems that cannot, and that do not know of it
    std::string name = (folder / ".workstation-XXXXXX").string();
    file = FileDescriptor(mkostemp(name.data(), O_CLOEXEC));
    if (file) unlink(name.c_str());
  }
  if (!file || ftruncate(file.get(), static_cast<off_t>(size)) != 0) Fail(folder, strerror(errno));
  return file;
}

}  // namespace workstation
