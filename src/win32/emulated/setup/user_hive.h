// The hives in a user's profile: NTUSER.DAT, which is his HKEY_CURRENT_USER, and UsrClass.dat, his classes.
#pragma once

#include <optional>
#include <string_view>

#include "win32/emulated/registry/hive.h"

namespace emulated {

// Windows' own wallpaper.
inline constexpr std::u16string_view kWindowsWallpaper = u"C:\\Windows\\Web\\Wallpaper\\Windows\\img0.jpg";

// An NTUSER.DAT as Windows ships it; `home` is the profile folder (u"C:\\Users\\anna"). The user of this SID has full
// access to it; without one (the default profile) only the system and the administrators have it. The desktop shows the
// file `wallpaper`, or Windows' own.
Bytes UserHive(std::u16string_view home, FileTime now, std::u16string_view sid = {},
               std::u16string_view wallpaper = {});

// The NTUSER.DAT of a new user, made of the default profile's: the same keys and values, but that he has full access to
// the root and to whatever inherits from there, and that the shell's folders are where its settings say in `home`.
// Nothing for a file that is no sound hive.
std::optional<Bytes> UserHiveFromDefault(ByteView defaultHive, const UpCase& upCase, std::u16string_view home,
                                         std::u16string_view sid, FileTime now);

// An UsrClass.dat without classes.
Bytes ClassesHive(std::u16string_view sid, FileTime now);

}  // namespace emulated
