#include "win32/emulated/storage/volume.h"

#include "win32/constants.h"

namespace emulated {

win32::DWORD Volume::LookupPath(std::u16string_view path, FileId& file) {
  FileId current = Root();
  while (!path.empty()) {
    const std::size_t cut = path.find(u'\\');
    const std::u16string_view name = path.substr(0, cut);
    path.remove_prefix(cut == path.npos ? path.size() : cut + 1);
    if (name.empty()) continue;
    const win32::DWORD error = Lookup(current, name, current, nullptr);
    if (error == win32::ERROR_FILE_NOT_FOUND || error == win32::ERROR_DIRECTORY) {
      return path.empty() && error == win32::ERROR_FILE_NOT_FOUND ? error : win32::ERROR_PATH_NOT_FOUND;
    }
    if (error != 0) return error;
  }
  file = current;
  return 0;
}

win32::DWORD ReadWholeFile(Volume& volume, std::u16string_view path, Bytes& content) {
  FileId file = 0;
  const win32::DWORD error = volume.LookupPath(path, file);
  return error != 0 ? error : ReadWholeFile(volume, file, content);
}

win32::DWORD ReadWholeFile(Volume& volume, FileId file, Bytes& content) {
  std::uint64_t size = 0;
  if (const win32::DWORD error = volume.StreamSize(file, {}, size)) return error;
  if (size > volume.TotalBytes()) return win32::ERROR_FILE_CORRUPT;
  content.clear();
  content.reserve(static_cast<std::size_t>(size));
  // By pieces, so that tens of megabytes are not filled with zeros first.
  constexpr std::uint64_t kPiece = 1 << 20;
  Bytes piece(static_cast<std::size_t>(std::min(size, kPiece)));
  while (content.size() < size) {
    std::size_t done = 0;
    if (const win32::DWORD error = volume.Read(file, {}, content.size(), piece, done)) return error;
    if (done == 0) return win32::ERROR_FILE_CORRUPT;
    content.insert(content.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(done));
  }
  return 0;
}

win32::DWORD WriteWholeFile(Volume& volume, std::u16string_view path, ByteView content) {
  FileId file = 0;
  if (const win32::DWORD error = volume.LookupPath(path, file)) return error;
  if (const win32::DWORD error = volume.SetStreamSize(file, {}, content.size())) return error;
  return content.empty() ? 0 : volume.Write(file, {}, 0, content);
}

}  // namespace emulated
