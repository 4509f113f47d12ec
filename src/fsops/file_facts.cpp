#include "fsops/file_facts.h"

#include "win32/win32.h"

namespace {

constexpr win32::DWORD kShareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;

std::uint64_t Joined(win32::DWORD high, win32::DWORD low) { return std::uint64_t{high} << 32 | low; }

}  // namespace

std::optional<FileFacts> FactsOf(const win32::UniqueFile& file) {
  win32::BY_HANDLE_FILE_INFORMATION information{};
  if (!file || !win32::GetFileInformationByHandle(file.get(), &information)) return std::nullopt;
  return FileFacts{.volume = information.dwVolumeSerialNumber,
                   .index = Joined(information.nFileIndexHigh, information.nFileIndexLow),
                   .size = Joined(information.nFileSizeHigh, information.nFileSizeLow),
                   .linkCount = information.nNumberOfLinks};
}

std::optional<FileFacts> FactsOf(const std::u16string& path, LastLink link) {
  const win32::DWORD flags =
      win32::FILE_FLAG_BACKUP_SEMANTICS | (link == LastLink::Itself ? win32::FILE_FLAG_OPEN_REPARSE_POINT : 0);
  return FactsOf(win32::UniqueFile{win32::CreateFileW(path.c_str(), win32::FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                                      win32::OPEN_EXISTING, flags, nullptr)});
}
