#include "fsops/file_facts.h"

#include "report/log.h"
#include "win32/win32.h"

namespace {

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
  return FactsOf(OpenForAttributes(path, link));
}

bool HasOtherNames(const std::u16string& file) {
  const std::optional<FileFacts> facts = FactsOf(file);
  if (facts && facts->linkCount == 1) return false;
  Log(u"#ERROR: The file %ls is not overwritten: it has other names (hard links), or that cannot be told.", file);
  return true;
}
