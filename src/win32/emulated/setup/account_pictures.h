// The pictures that accounts are shown with: since Windows 8 files in the Public profile, and their paths in the
// registry.
#pragma once

#include <string_view>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/setup/user_profile.h"

namespace emulated {

// A JPEG file of a grey square with sides of so many pixels.
Bytes PictureFile(unsigned side);

// The pictures of the account in AccountPictures\SID of the Public profile and their paths in
// HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AccountPicture\Users\SID.
void MakeAccountPictures(VolumeBuilder& build, const ProfilePlace& publicProfile, Registry& registry,
                         std::u16string_view sid);

}  // namespace emulated
