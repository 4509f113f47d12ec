// The folders, links and files of user profiles, as Windows makes them since Vista.
#pragma once

#include <string>
#include <string_view>

#include "win32/emulated/setup/volume_builder.h"

namespace emulated {

// Where a profile is: on its volume, and as every program names it.
struct ProfilePlace {
  std::u16string inVolume;  // u"\\Users\\anna"
  std::u16string path;      // u"C:\\Users\\anna"
};

// The descriptor of a user's profile folder: he, the system and the administrators have all rights, nobody else any.
std::u16string ProfileDescriptor(std::u16string_view sid);

// Two numbers, as in 10.0.
struct WindowsVersion {
  win32::DWORD major = 10, minor = 0;
  bool AtLeast(win32::DWORD otherMajor, win32::DWORD otherMinor) const {
    return major > otherMajor || (major == otherMajor && minor >= otherMinor);
  }
};

// Each makes what is missing of a profile below a folder that exists; what is there stays.
// The profile that new ones are copied from.
void MakeDefaultProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, FileTime now);
// A user's; `hive` is his NTUSER.DAT. With `ownWallpaper` the picture that it names is made, too.
void MakeUserProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, FileTime now,
                     std::u16string_view sid, ByteView hive, bool ownWallpaper);
// That of an account that services run for: no links, and nothing that the shell shows.
void MakeServiceProfile(VolumeBuilder& build, const ProfilePlace& place, FileTime now, std::u16string_view sid);
void MakePublicProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows);

// The folder of account pictures in the Public profile, from Windows 8 on.
void MakePicturesFolder(VolumeBuilder& build, const ProfilePlace& publicProfile);

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
