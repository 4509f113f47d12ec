#include "fsops/file_facts.h"

#include "report/log.h"
#include "win32/win32.h"

namespace {

std::uint64_t Joined(win32::DWORD high, win32::DWORD low) { return std::uint64_t{high} << 32 | low; }

template <typename Information>
FileVersion VersionIn(const Information& found) {
  constexpr win32::DWORD kKind =
      win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT | win32::FILE_ATTRIBUTE_ENCRYPTED;
  return {.kind = found.dwFileAttributes & kKind,
          .creation = Joined(found.ftCreationTime.dwHighDateTime, found.ftCreationTime.dwLowDateTime),
          .lastWrite = Joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime),
          .size = Joined(found.nFileSizeHigh, found.nFileSizeLow)};
}

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
  return FactsOf(OpenForAttributes(path, link));
}

FileVersion VersionOf(const win32::BY_HANDLE_FILE_INFORMATION& information) { return VersionIn(information); }

std::optional<FileVersion> VersionOf(const std::u16string& path) {
  win32::WIN32_FILE_ATTRIBUTE_DATA found{};
  if (!win32::GetFileAttributesExW(path.c_str(), win32::GetFileExInfoStandard, &found)) return std::nullopt;
  return VersionIn(found);
}

bool HasOtherNames(const std::u16string& file) {
  const std::optional<FileFacts> facts = FactsOf(file);
  if (facts && facts->linkCount == 1) return false;
  Log(u"#ERROR: The file %ls is not overwritten: it has other names (hard links), or that cannot be told.", file);
  return true;
}
