// Virtual machines' disks, read and written by qemu-img.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "win32/emulated/bytes.h"
#include "win32/emulated/storage/file_descriptor.h"

namespace workstation {

struct Container {
  std::filesystem::path path;
  std::string format;          // as qemu-img calls it: qcow2, vhdx, vpc, vmdk, vdi
  std::uint64_t size = 0;      // of the disk in it
  std::string whyNotMadeAnew;  // what would be lost with it
};

// qemu-img's name of the format that a file begins like; empty when it is none that we know. It is never asked to
// guess: a raw disk whose owner makes it look like a container that names other files would be taken for one.
std::string ContainerFormat(emulated::ByteView start);

// Asks qemu-img about it. Fails when it takes part of what it holds from other files: whoever made the container chose
// their names.
Container OpenContainer(const std::filesystem::path& path, const std::string& format);

// Copies a range of the disk in it into an open file that holds nothing but zeros there.
void Unpack(const Container& container, std::uint64_t offset, std::uint64_t size, const emulated::FileDescriptor& to,
            std::uint64_t toOffset);

// A file with the bytes that libblkid needs to see the partitions: of the size of the disk, and nearly all hole.
emulated::FileDescriptor UnpackTable(const Container& container, const std::filesystem::path& scratch);

// Makes a container of the same format and with the same disk, but for the partition, which is `volume` there.
void Repack(const Container& container, const std::filesystem::path& volume, std::uint64_t offset, std::uint64_t size,
            const std::filesystem::path& to);

// How qemu-img's --image-opts name an image. Without a format the file itself.
std::string ImageOptions(const std::string& format, const std::filesystem::path& path);
// The same for a range of it.
std::string RangeOptions(const std::string& format, const std::filesystem::path& path, std::uint64_t offset,
                         std::uint64_t size);

inline constexpr const char* kQemuPackage = "qemu-utils";

}  // namespace workstation
