// The folders, links and files of user profiles, as Windows makes them since Vista.
#pragma once

#include <string>
#include <string_view>

#include "win32/emulated/setup/volume_builder.h"
#include "win32/emulated/setup/windows_installation.h"

namespace emulated {

// Where a profile is: on its volume, and as every program names it.
struct ProfilePlace {
  std::u16string inVolume;  // u"\\Users\\anna"
  std::u16string path;      // u"C:\\Users\\anna"
};

// The descriptor of a user's profile folder: he, the system and the administrators have all rights, nobody else any.
std::u16string ProfileDescriptor(std::u16string_view sid);

// Each makes what is missing of a profile below a folder that exists; what is there stays.
// The profile that new ones are copied from. `windows` is the version as 10.0 in two numbers.
struct WindowsVersion {
  win32::DWORD major = 10, minor = 0;
  bool AtLeast(win32::DWORD otherMajor, win32::DWORD otherMinor) const {
    return major > otherMajor || (major == otherMajor && minor >= otherMinor);
  }
};
void MakeDefaultProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, FileTime now);
// A user's, his hive included. With `ownWallpaper` his desktop shows a picture in his profile, else Windows' own.
void MakeUserProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, FileTime now,
                     std::u16string_view sid, bool ownWallpaper);
void MakePublicProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows);

// A compatibility link, hidden, that nobody may list: one of the system's own, which lets everybody read its
// attributes, or one in a user's profile, which inherits from there.
void MakeSystemLink(VolumeBuilder& build, std::u16string_view link, std::u16string_view target);
void MakeProfileLink(VolumeBuilder& build, std::u16string_view link, std::u16string_view target);

// What an .ini file of the shell holds: text of two bytes a character, with a mark.
Bytes IniText(std::u16string_view text);

// Where the wallpaper of a user with one of his own is, below his profile.
inline constexpr std::u16string_view kOwnWallpaper =
    u"\\AppData\\Roaming\\Microsoft\\Windows\\Themes\\TranscodedWallpaper";

}  // namespace emulated
