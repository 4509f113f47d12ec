#include "workstation/container.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <sstream>

#include "workstation/command.h"
#include "workstation/host_tool.h"
#include "workstation/image_source.h"
#include "workstation/partition_table.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::FileDescriptor;

namespace {

constexpr std::uint64_t kSector = 512;

std::string WithDoubledCommas(const std::string& text) {
  std::string quoted;
  for (const char c : text) quoted.append(c == ',' ? 2 : 1, c);
  return quoted;
}

// What stands behind `key` in a line of qemu-img's, wherever it is indented to.
std::optional<std::string> Behind(std::string_view line, std::string_view key) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  if (!line.starts_with(key)) return std::nullopt;
  return std::string(line.substr(key.size()));
}

// A chain of boot records leads from one logical partition to the next: where they lie is in themselves alone. What
// they say is libblkid's to read; here they are fetched for it.
void UnpackBootRecords(const Container& container, std::uint64_t extended, const FileDescriptor& to) {
  constexpr std::size_t kLink = 446 + 16, kType = kLink + 4, kSectors = kLink + 8;
  constexpr int kMost = 256;
  std::uint64_t at = extended;
  for (int i = 0; i < kMost && at + kSector <= container.size; ++i) {
    std::array<std::uint8_t, kSector> record{};
    Unpack(container, at, kSector, to, at);
    if (!to.ReadAt(at, record) || record[kType] == 0) return;
    at = extended + emulated::LoadLittleEndian<std::uint32_t>(record, kSectors) * kSector;
  }
}

}  // namespace

std::string ContainerFormat(emulated::ByteView start) {
  struct Format {
    std::size_t offset;
    std::string_view magic, name;
  };
  static constexpr Format formats[] = {{0, "QFI\xFB", "qcow2"},
                                       {0, "vhdxfile", "vhdx"},
                                       {0, "conectix", "vpc"},
                                       {0, "KDMV", "vmdk"},
                                       {0, "# Disk DescriptorFile", "vmdk"},
                                       {0x40, "\x7F\x10\xDA\xBE", "vdi"}};
  const std::string_view text(reinterpret_cast<const char*>(start.data()), start.size());
  for (const Format& format : formats)
    if (text.size() > format.offset && text.substr(format.offset).starts_with(format.magic))
      return std::string(format.name);
  return {};
}

std::string ImageOptions(const std::string& format, const fs::path& path) {
  const std::string file = "driver=file,filename=" + WithDoubledCommas(path.string());
  if (format.empty()) return file;
  return "driver=" + format + ",file.driver=file,file.filename=" + WithDoubledCommas(path.string());
}

std::string RangeOptions(const std::string& format, const fs::path& path, std::uint64_t offset, std::uint64_t size) {
  const std::string range = "driver=raw,offset=" + std::to_string(offset) + ",size=" + std::to_string(size);
  const std::string name = WithDoubledCommas(path.string());
  if (format.empty()) return range + ",file.driver=file,file.filename=" + name;
  return range + ",file.driver=" + format + ",file.file.driver=file,file.file.filename=" + name;
}

Container OpenContainer(const fs::path& path, const std::string& format) {
  Container container{path, format, 0, {}};
  std::istringstream lines;
  try {
    lines.str(RunHostTool({"qemu-img", "info", "--image-opts", ImageOptions(format, path)}, kQemuPackage));
  } catch (const Failure& failure) {
    throw Failure(path.string() + ": " + failure.what());
  }
  for (std::string line; std::getline(lines, line);) {
    if (const auto size = Behind(line, "virtual size: "); size && container.size == 0)
      container.size = std::strtoull(size->c_str() + std::min(size->find('(') + 1, size->size()), nullptr, 10);
    if (Behind(line, "Snapshot list:")) container.whyNotMadeAnew = "its snapshots";
    if (const auto type = Behind(line, "create type: "); type && *type != "monolithicSparse")
      container.whyNotMadeAnew = "its form (" + *type + ")";
    for (const char* const key : {"backing file: ", "data file: ", "filename: "}) {
      const auto other = Behind(line, key);
      if (!other || *other == path.string()) continue;
      throw Failure(path.string() + ": part of it is in another file, \"" + *other +
                    "\"; make one of them first (qemu-img convert), when they belong together");
    }
  }
  if (container.size == 0) throw Failure(path.string() + ": a " + format + " container of no size");
  return container;
}

void Unpack(const Container& container, std::uint64_t offset, std::uint64_t size, const FileDescriptor& to,
            std::uint64_t toOffset) {
  RunHostTool({"qemu-img", "convert", "-n", "--target-is-zero", "--image-opts",
               RangeOptions(container.format, container.path, offset, size), "--target-image-opts",
               RangeOptions("", kInheritedFile, toOffset, size)},
              kQemuPackage, to.get());
}

void Repack(const Container& container, const fs::path& volume, std::uint64_t offset, std::uint64_t size,
            const fs::path& to) {
  std::vector<std::string> words{
      "qemu-img", "convert", "--image-opts", ImageOptions(container.format, container.path), "-O", container.format};
  // Sizes of this format are rounded to what old disks could have, unless it is told not to.
  if (container.format == "vpc") words.insert(words.end(), {"-o", "force_size=on"});
  words.push_back(to.string());
  RunHostTool(words, kQemuPackage);
  if (OpenContainer(to, container.format).size != container.size)
    throw Failure(container.path.string() + ": qemu-img makes a disk of another size of it");
  RunHostTool({"qemu-img", "convert", "-n", "--image-opts", ImageOptions("raw", volume), "--target-image-opts",
               RangeOptions(container.format, to, offset, size)},
              kQemuPackage);
}

FileDescriptor UnpackTable(const Container& container, const fs::path& scratch) {
  constexpr std::uint64_t kEnds = std::uint64_t{1} << 20;  // room for every table, and for GPT's copy at the end
  const std::uint64_t size = container.size / kSector * kSector, end = size - std::min(kEnds, size);
  FileDescriptor table = MakeNamelessFile(scratch, size);
  Unpack(container, 0, std::min(kEnds, size), table, 0);
  if (end >= kEnds) Unpack(container, end, size - end, table, end);
  for (const Partition& partition : ReadPartitions(table.get()))
    if (partition.isExtended) UnpackBootRecords(container, partition.start, table);
  for (const Partition& partition : ReadPartitions(table.get()))
    if (partition.start >= kEnds && partition.start + kSector <= end)
      Unpack(container, partition.start, kSector, table, partition.start);
  return table;
}

}  // namespace workstation
