#include "probes/drive_map.h"

#include <array>

#include "report/debugger.h"
#include "text/path_text.h"
#include "win32/system.h"
#include "win32/volume.h"

DriveMap::DriveMap() {
  for (char16_t letter = u'A'; letter <= u'Z'; ++letter) {
    constexpr win32::DWORD kDeviceBuffer = 1024;
    std::array<char16_t, kDeviceBuffer> device{};
    const char16_t drive[] = {letter, u':', u'\0'};
    // Several names may come, one after the other: the first is the one that holds.
    if (win32::QueryDosDeviceW(drive, device.data(), kDeviceBuffer)) devices_.emplace_back(letter, device.data());
  }
}

int DriveMap::GetFsFileName(const std::u16string& devicePath, std::u16string& path) const {
  for (const auto& [letter, device] : devices_)
    if (IsSameOrBelow(devicePath, device)) {
      path = std::u16string(1, letter) + u":" + devicePath.substr(device.size());
      return 1;
    }
  TellDebugger(u"\n GetFsFileName Failed.... :( \n");
  return 0;
}
