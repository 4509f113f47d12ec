#include "report/service_path.h"

#include <vector>

#include "win32/handle.h"

namespace {

// The command line that the service is registered with; empty when it cannot be told.
std::u16string ServiceCommandLine(const char16_t* name) {
  const win32::UniqueService manager{win32::OpenSCManagerW(nullptr, nullptr, win32::GENERIC_READ)};
  if (!manager) return {};
  const win32::UniqueService service{win32::OpenServiceW(manager.get(), name, win32::SERVICE_QUERY_CONFIG)};
  if (!service) return {};

  win32::DWORD size = 0;
  win32::QueryServiceConfigW(service.get(), nullptr, 0, &size);
  if (size < sizeof(win32::QUERY_SERVICE_CONFIGW)) return {};
  std::vector<win32::QUERY_SERVICE_CONFIGW> buffer(size / sizeof(win32::QUERY_SERVICE_CONFIGW) + 1);
  if (!win32::QueryServiceConfigW(service.get(), buffer.data(), size, &size) || !buffer[0].lpBinaryPathName) return {};
  return buffer[0].lpBinaryPathName;
}

}  // namespace

std::u16string ServiceFolder(const char16_t* service) {
  const win32::ComApartment apartment;
  std::u16string path = ServiceCommandLine(service);
  const std::size_t quote = path.rfind(u'"');
  if (quote != std::u16string::npos) path = quote > 0 ? path.substr(1, quote - 1) : std::u16string();
  return path.substr(0, path.rfind(u'\\') + 1);  // nothing without a backslash
}
