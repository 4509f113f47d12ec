// Sections of files and views of them. A view is memory of its own, read when it is mapped and written when it is
// unmapped: there is nobody else here who could look meanwhile.
#include <limits>
#include <map>
#include <new>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

class SectionObject : public Object {
 public:
  SectionObject(std::shared_ptr<FileObject> of, std::uint64_t bytes) : file(std::move(of)), size(bytes) {}
  const char16_t* TypeName() const override { return u"Section"; }

  const std::shared_ptr<FileObject> file;  // its handle may be closed before the section's
  const std::uint64_t size;
};

// The file is named as a volume names it, because a view outlives the handles of file and section.
struct View {
  MountedVolume* volume;
  FileId file;
  std::u16string stream;
  std::uint64_t offset;
  bool writable;
  std::unique_ptr<Bytes> data;
};

std::map<const void*, View>& Views() {
  static std::map<const void*, View> views;
  return views;
}

// A section as large as asked for (0: as the file), the file made larger where it is smaller.
DWORD CreateSection(const std::shared_ptr<FileObject>& file, std::uint64_t size, std::shared_ptr<Object>& section) {
  constexpr DWORD kNeeded = win32::FILE_READ_DATA | win32::FILE_WRITE_DATA;
  if (file->isDirectory) return win32::ERROR_INVALID_HANDLE;
  if ((file->granted & kNeeded) != kNeeded) return win32::ERROR_ACCESS_DENIED;
  Volume& volume = *file->volume->volume;
  std::uint64_t present = 0;
  if (const DWORD error = volume.StreamSize(file->file, file->stream, present)) return error;
  if (size == 0) size = present;
  if (size == 0) return win32::ERROR_FILE_INVALID;
  if (size > present) {
    if (const DWORD error = volume.SetStreamSize(file->file, file->stream, size)) return error;
    Machine::Current().files().NoteWrite(*file);
  }
  section = std::make_shared<SectionObject>(file, size);
  return 0;
}

DWORD MapView(const SectionObject& section, bool writable, std::uint64_t offset, std::uint64_t size, void*& base) {
  constexpr std::uint64_t kGranularity = 0x10000;
  if (offset % kGranularity != 0) return win32::ERROR_MAPPED_ALIGNMENT;
  if (offset >= section.size || size > section.size - offset) return win32::ERROR_ACCESS_DENIED;
  if (size == 0) size = section.size - offset;
  const FileObject& file = *section.file;
  View view{file.volume, file.file, file.stream, offset, writable, nullptr};
  std::size_t done = 0;
  try {
    view.data = std::make_unique<Bytes>(static_cast<std::size_t>(size));
  } catch (const std::bad_alloc&) {
    return win32::ERROR_NOT_ENOUGH_MEMORY;
  }
  if (const DWORD error = view.volume->volume->Read(view.file, view.stream, offset, *view.data, done)) return error;
  base = view.data->data();
  Views().emplace(base, std::move(view));
  return 0;
}

DWORD UnmapView(const void* base) {
  const auto found = Views().find(base);
  if (found == Views().end()) return win32::ERROR_INVALID_ADDRESS;
  const View view = std::move(found->second);
  Views().erase(found);
  if (!view.writable) return 0;
  for (const auto& mounted : Machine::Current().volumes)
    if (mounted.get() == view.volume) return mounted->volume->Write(view.file, view.stream, view.offset, *view.data);
  return 0;  // a view that outlived its machine
}

}  // namespace

}  // namespace emulated

namespace win32 {

HANDLE CreateFileMappingW(HANDLE hFile, SECURITY_ATTRIBUTES* lpFileMappingAttributes, DWORD flProtect,
                          DWORD dwMaximumSizeHigh, DWORD dwMaximumSizeLow, const char16_t* lpName) {
  WIN32_CALL(hFile, flProtect, dwMaximumSizeHigh, dwMaximumSizeLow);
  if (call.Refused()) return nullptr;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(HANDLE{nullptr});
  };
  if (lpFileMappingAttributes || lpName || flProtect != PAGE_READWRITE) return fail(ERROR_NOT_SUPPORTED);
  const auto file = emulated::FileOf(hFile);
  if (!file) return fail(ERROR_INVALID_HANDLE);
  std::shared_ptr<emulated::Object> section;
  const std::uint64_t size = std::uint64_t{dwMaximumSizeHigh} << 32 | dwMaximumSizeLow;
  if (const DWORD error = emulated::CreateSection(file, size, section)) return fail(error);
  emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(emulated::NewHandle(std::move(section), FILE_MAP_READ | FILE_MAP_WRITE));
}

void* MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                    SIZE_T dwNumberOfBytesToMap) {
  WIN32_CALL(hFileMappingObject, dwDesiredAccess, dwFileOffsetHigh, dwFileOffsetLow, dwNumberOfBytesToMap);
  if (call.Refused()) return nullptr;
  const auto section = emulated::ObjectOf<emulated::SectionObject>(hFileMappingObject);
  void* base = nullptr;
  const DWORD error =
      section ? emulated::MapView(*section, (dwDesiredAccess & FILE_MAP_WRITE) != 0,
                                  std::uint64_t{dwFileOffsetHigh} << 32 | dwFileOffsetLow, dwNumberOfBytesToMap, base)
              : ERROR_INVALID_HANDLE;
  if (error != 0) emulated::SetLastError(error);
  return call.Return(base);
}

// A refused call leaves the view mapped, and its data unwritten.
BOOL UnmapViewOfFile(const void* lpBaseAddress) {
  WIN32_CALL(lpBaseAddress);
  if (call.Refused()) return FALSE;
  return call.Done(emulated::UnmapView(lpBaseAddress));
}

}  // namespace win32
