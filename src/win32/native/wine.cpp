#include "win32/native/wine.h"

#include <array>
#include <bit>
#include <string_view>

#include "win32/ntdll.h"
#include "win32/volume.h"

namespace win32::native {

namespace {

constexpr std::u16string_view kDrives = u"\\??\\";
constexpr ULONG kTextOffset = sizeof(UNICODE_STRING);

struct Device {
  std::array<char16_t, 64> name{};
};
std::array<Device, 26> devices;  // of the drives A to Z; empty for a letter without one
NtQueryObjectFunction queryObject;

void AskForDevices() {
  for (std::size_t letter = 0; letter < devices.size(); ++letter) {
    const char16_t drive[] = {static_cast<char16_t>(u'A' + letter), u':', u'\0'};
    std::array<char16_t, 64>& name = devices[letter].name;
    if (!QueryDosDeviceW(drive, name.data(), static_cast<DWORD>(name.size()))) name[0] = u'\0';
  }
}

// The device of a name that begins with a drive; empty for every other name.
std::u16string_view DeviceOf(std::u16string_view name) {
  const std::size_t letter = kDrives.size();
  if (!name.starts_with(kDrives) || name.size() < letter + 2 || name[letter + 1] != u':') return {};
  const unsigned index = static_cast<unsigned>(name[letter]) - u'A';
  return index < devices.size() ? std::u16string_view(devices[index].name.data()) : std::u16string_view();
}

// Runs on threads that are ended while they wait for the answer: it takes no memory and no lock.
NTSTATUS QueryObject(HANDLE handle, int informationClass, void* information, ULONG size, ULONG* needed) {
  alignas(UNICODE_STRING) std::array<BYTE, 8192> answer;
  const auto& own = *reinterpret_cast<const UNICODE_STRING*>(answer.data());
  if (informationClass != ObjectNameInformation ||
      !NT_SUCCESS(queryObject(handle, informationClass, answer.data(), answer.size(), nullptr)) || !own.Buffer)
    return queryObject(handle, informationClass, information, size, needed);
  const std::u16string_view name(own.Buffer, own.Length / sizeof(char16_t)), device = DeviceOf(name);
  if (device.empty()) return queryObject(handle, informationClass, information, size, needed);

  const std::u16string_view rest = name.substr(kDrives.size() + 2);
  const auto bytes = static_cast<WORD>((device.size() + rest.size()) * sizeof(char16_t));
  const auto maximum = static_cast<WORD>(bytes + sizeof(char16_t));
  if (needed) *needed = kTextOffset + maximum;
  if (size < kTextOffset) return STATUS_INFO_LENGTH_MISMATCH;
  if (size < kTextOffset + maximum) return STATUS_BUFFER_OVERFLOW;
  auto* const text = reinterpret_cast<char16_t*>(static_cast<BYTE*>(information) + kTextOffset);
  *static_cast<UNICODE_STRING*>(information) = {bytes, maximum, text};
  device.copy(text, device.size());
  rest.copy(text + device.size(), rest.size());
  text[device.size() + rest.size()] = u'\0';
  return STATUS_SUCCESS;
}

}  // namespace

FARPROC AsOnWindows(HMODULE module, const char* name, FARPROC found) {
  if (!found || std::string_view(name) != "NtQueryObject" || !GetProcAddress(module, "wine_get_version")) return found;
  AskForDevices();
  queryObject = std::bit_cast<NtQueryObjectFunction>(found);
  return std::bit_cast<FARPROC>(&QueryObject);
}

}  // namespace win32::native
