#include "win32/emulated/setup/volume_builder.h"

#include "win32/emulated/files/reparse.h"

namespace emulated {

namespace {

// The setup writes security to what it has made: what is not protected has the inherited entries behind its own.
Bytes WithOwn(ByteView made, ByteView own, ByteView parent, bool isDirectory) {
  const Bytes owned = MergeDescriptor(made, own, win32::OWNER_SECURITY_INFORMATION | win32::GROUP_SECURITY_INFORMATION);
  const auto view = ViewDescriptor(own);
  if (owned.empty() || !view) return {};
  const bool isProtected = (view->control & win32::SE_DACL_PROTECTED) != 0;
  return ApplyDacl(owned, view->dacl, isProtected ? win32::PROTECTED_DACL_SECURITY_INFORMATION : 0, parent, isDirectory,
                   kFileMapping);
}

}  // namespace

VolumeBuilder::VolumeBuilder(Volume& volume, FileTime now) : volume_(volume), now_(now), system_(MakeSystemToken()) {}

FileId VolumeBuilder::Make(std::u16string_view path, bool isDirectory, std::u16string_view sddl,
                           win32::DWORD attributes, bool& made) {
  made = false;
  if (error_ != 0) return 0;
  FileId file = 0;
  if (volume_.LookupPath(path, file) == 0) return file;
  const std::size_t cut = path.rfind(u'\\');
  FileId directory = 0;
  if (const win32::DWORD error = volume_.LookupPath(path.substr(0, cut), directory)) return Fail(error), 0;
  Bytes parent;
  if (const win32::DWORD error = volume_.GetSecurity(directory, parent)) return Fail(error), 0;
  std::optional<Bytes> own;
  if (!sddl.empty() && !(own = DescriptorFromText(sddl))) return Fail(win32::ERROR_INVALID_SECURITY_DESCR), 0;
  Bytes descriptor = NewObjectDescriptor(*system_, ByteView(parent), std::nullopt, isDirectory, kFileMapping);
  if (own) descriptor = WithOwn(descriptor, *own, parent, isDirectory);
  if (const win32::DWORD error =
          volume_.Create(directory, path.substr(cut + 1), isDirectory, attributes, descriptor, now_, file))
    return Fail(error), 0;
  made = true;
  ++made_;
  return file;
}

FileId VolumeBuilder::Directory(std::u16string_view path, std::u16string_view sddl, win32::DWORD attributes) {
  bool made = false;
  return Make(path, true, sddl, attributes, made);
}

void VolumeBuilder::File(std::u16string_view path, ByteView content, std::u16string_view sddl,
                         win32::DWORD attributes) {
  bool made = false;
  const FileId file = Make(path, false, sddl, attributes | win32::FILE_ATTRIBUTE_ARCHIVE, made);
  if (made && !content.empty()) Fail(volume_.Write(file, {}, 0, content));
}

void VolumeBuilder::Junction(std::u16string_view path, std::u16string_view target, std::u16string_view sddl,
                             win32::DWORD attributes) {
  bool made = false;
  const FileId file = Make(path, true, sddl, attributes, made);
  if (!made) return;
  const std::u16string substitute = u"\\??\\" + std::u16string(target);
  const auto bytesOf = [](std::size_t units) { return static_cast<std::uint16_t>(units * 2); };
  Bytes data;
  AppendLittleEndian(data, std::uint32_t{win32::IO_REPARSE_TAG_MOUNT_POINT});
  AppendLittleEndian(data, bytesOf(4 + substitute.size() + 1 + target.size() + 1));
  AppendLittleEndian(data, std::uint16_t{0});
  AppendLittleEndian(data, std::uint16_t{0});
  AppendLittleEndian(data, bytesOf(substitute.size()));
  AppendLittleEndian(data, bytesOf(substitute.size() + 1));
  AppendLittleEndian(data, bytesOf(target.size()));
  for (const char16_t unit : substitute) AppendLittleEndian(data, unit);
  AppendLittleEndian(data, u'\0');
  for (const char16_t unit : target) AppendLittleEndian(data, unit);
  AppendLittleEndian(data, u'\0');
  Fail(volume_.SetReparse(file, data));
}

void VolumeBuilder::FolderLink(std::u16string_view path, std::u16string_view target, std::u16string_view sddl,
                               win32::DWORD attributes) {
  bool made = false;
  const FileId file = Make(path, true, sddl, attributes, made);
  if (made) Fail(volume_.SetReparse(file, MakeSymbolicLink(u"\\??\\" + std::u16string(target), target, false)));
}

void VolumeBuilder::SetSecurity(std::u16string_view path, std::u16string_view sddl) {
  if (error_ != 0) return;
  FileId file = 0;
  const std::optional<Bytes> descriptor = DescriptorFromText(sddl);
  if (!descriptor) return Fail(win32::ERROR_INVALID_SECURITY_DESCR);
  if (const win32::DWORD error = volume_.LookupPath(path, file)) return Fail(error);
  Fail(volume_.SetSecurity(file, *descriptor));
}

}  // namespace emulated
