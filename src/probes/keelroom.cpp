#include "probes/keelroom.h"

#include <algorithm>
#include <array>
#include <exception>
#include <map>

#include "probes/file_version.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/handle.h"
#include "win32/shell.h"

namespace {

constexpr const char16_t* kParameters = u"SYSTEM\\CurrentControlSet\\services\\Keeldisk\\Parameters";

// What the driver keeps of a volume, below a key of its own.
struct KeelroomVolume {
  std::u16string guid;
  std::u16string mountAs;  // "T:"; the one part that decides anything
  std::u16string mountAsUser;
  std::u16string uniqueId;
  std::u16string hostFile;
  win32::DWORD extents = 0;
  win32::DWORD size = 0;
};

bool OpenKey(win32::HKEY parent, const char16_t* path, win32::UniqueKey& key) {
  return win32::RegOpenKeyExW(parent, path, 0, win32::KEY_QUERY_VALUE | win32::KEY_ENUMERATE_SUB_KEYS, key.put()) == 0;
}

// Whatever the value's type, as a text: up to the terminator, if there is one. Empty when the value cannot be read.
std::u16string ReadText(const win32::UniqueKey& key, const char16_t* name) {
  win32::DWORD size = 0;
  if (win32::RegQueryValueExW(key.get(), name, nullptr, nullptr, nullptr, &size) != 0) return {};
  std::u16string text(size / sizeof(char16_t) + 1, u'\0');  // one character more takes an odd byte
  if (win32::RegQueryValueExW(key.get(), name, nullptr, nullptr, reinterpret_cast<win32::BYTE*>(text.data()), &size) !=
      0)
    return {};
  text.resize(std::min<std::size_t>(text.find(u'\0'), size / sizeof(char16_t)));
  return text;
}

// 0 when the value cannot be read or is longer than a number; bytes that a shorter one lacks are 0.
win32::DWORD ReadNumber(const win32::UniqueKey& key, const char16_t* name) {
  std::array<win32::BYTE, sizeof(win32::DWORD)> bytes{};
  win32::DWORD size = sizeof bytes;
  if (win32::RegQueryValueExW(key.get(), name, nullptr, nullptr, bytes.data(), &size) != 0) return 0;
  win32::DWORD number = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) number = number << 8 | bytes[i];
  return number;
}

KeelroomVolume ReadVolume(const win32::UniqueKey& key) {
  KeelroomVolume volume;
  volume.guid = ReadText(key, u"GUID");
  volume.mountAs = ReadText(key, u"MountAs");
  volume.mountAsUser = ReadText(key, u"MountAsUser");
  volume.uniqueId = ReadText(key, u"UniqueId");
  volume.hostFile = ReadText(key, u"HostFile");
  volume.extents = ReadNumber(key, u"Extents");
  volume.size = ReadNumber(key, u"Size");
  return volume;
}

// By the names of their keys.
std::map<std::u16string, KeelroomVolume> ReadVolumes() {
  constexpr win32::DWORD kNameLength = 256;  // a key's name has at most 255 characters
  std::map<std::u16string, KeelroomVolume> volumes;
  win32::UniqueKey parameters;
  if (!OpenKey(win32::HKEY_LOCAL_MACHINE, kParameters, parameters)) return volumes;
  std::array<char16_t, kNameLength> name{};
  for (win32::DWORD index = 0; win32::RegEnumKeyW(parameters.get(), index, name.data(), kNameLength) == 0; ++index) {
    win32::UniqueKey key;
    if (OpenKey(parameters.get(), name.data(), key)) volumes[name.data()] = ReadVolume(key);
  }
  return volumes;
}

win32::WORD High(win32::DWORD value) { return static_cast<win32::WORD>(value >> 16); }
win32::WORD Low(win32::DWORD value) { return static_cast<win32::WORD>(value & 0xFFFF); }

}  // namespace

bool ReadKeelroomVolumes(std::vector<std::u16string>& drives) try {
  drives.clear();
  for (const auto& [key, volume] : ReadVolumes()) drives.push_back(volume.mountAs);
  return !drives.empty();
} catch (const std::exception&) {
  return false;
}

bool IsKeelroomDrive(char16_t driveLetter) try {
  const std::u16string drive = FormatText(u"%c:", driveLetter);
  std::vector<std::u16string> drives;
  ReadKeelroomVolumes(drives);
  return std::any_of(drives.begin(), drives.end(),
                     [&](const std::u16string& mounted) { return EqualPaths(mounted, drive); });
} catch (const std::exception&) {
  return false;
}

int GetFileVersionRecord(const std::u16string& path, FileVersionRecord& record) try {
  win32::VS_FIXEDFILEINFO fixed{};
  if (!ReadFixedFileInfo(path.c_str(), fixed)) return 0;
  record.major = High(fixed.dwFileVersionMS);
  record.minor = Low(fixed.dwFileVersionMS);
  record.build = High(fixed.dwFileVersionLS);
  record.revision = Low(fixed.dwFileVersionLS);
  record.majorText = FormatText(u"%d", record.major);
  record.minorText = FormatText(u"%d", record.minor);
  record.buildText = FormatText(u"%d", record.build);
  record.revisionText = FormatText(u"%d", record.revision);
  record.text = FormatText(u"%d.%d.%d.%d", record.major, record.minor, record.build, record.revision);
  return 1;
} catch (const std::exception&) {
  return 0;
}

int IsNewKeelroomVersion() try {
  constexpr win32::WORD kMajor = 8, kMinor = 33;
  std::array<char16_t, win32::MAX_PATH> system{};
  if (!win32::SHGetSpecialFolderPathW(nullptr, system.data(), win32::CSIDL_SYSTEM, win32::FALSE)) return 0;
  const std::u16string path = std::u16string(system.data()) + u"\\drivers\\Keeldisk.sys";
  if (!win32::PathFileExistsW(path.c_str())) return 0;
  FileVersionRecord version;
  if (!GetFileVersionRecord(path, version))
    return LogFailure(u"#ERROR: Failed to find the version of Keeldisk driver at %s", path);
  return version.major > kMajor || (version.major == kMajor && version.minor >= kMinor);
} catch (const std::exception&) {
  return 0;
}
