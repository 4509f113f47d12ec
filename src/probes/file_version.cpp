#include "probes/file_version.h"

#include <cstdint>
#include <cstring>
#include <exception>
#include <vector>

#include "win32/system.h"

namespace {

// The lengths inside a version resource are the file's own word.
bool LiesWithin(const std::vector<win32::BYTE>& block, const void* part, std::size_t size) {
  const auto start = reinterpret_cast<std::uintptr_t>(block.data());
  const auto at = reinterpret_cast<std::uintptr_t>(part);
  return at >= start && at - start <= block.size() && block.size() - (at - start) >= size;
}

}  // namespace

bool ReadFixedFileInfo(const char16_t* path, win32::VS_FIXEDFILEINFO& fixed) try {
  win32::DWORD ignored = 0;
  const win32::DWORD size = win32::GetFileVersionInfoSizeW(path, &ignored);
  if (size == 0) return false;
  std::vector<win32::BYTE> information(size);
  if (!win32::GetFileVersionInfoW(path, 0, size, information.data())) return false;

  static_assert(sizeof fixed == 52);
  void* root = nullptr;
  win32::UINT rootSize = 0;
  if (!win32::VerQueryValueW(information.data(), u"\\", &root, &rootSize) || rootSize != sizeof fixed ||
      !LiesWithin(information, root, sizeof fixed))
    return false;
  std::memcpy(&fixed, root, sizeof fixed);
  return true;
} catch (const std::exception&) {
  return false;
}
