// The hive of a user, NTUSER.DAT in his profile: the one value in it that follows a profile.
#pragma once

#include <string>

#include "profiles/profile_list.h"

// Replaces oldFolder by newFolder in the value "WallPaper" of "Control Panel\Desktop", in the hive below HKEY_USERS
// when it is loaded, otherwise in `profile.folder`\ntuser.dat, which is loaded as "_ntuser" meanwhile. 1 also when
// there is nothing to replace; 0 when the hive could not be read or written, or not be unloaded (logged).
int RewriteWallpaper(const UserProfile& profile, const std::u16string& oldFolder, const std::u16string& newFolder);

// Could RewriteWallpaper do its work? 0 (logged) when the hive of a user who is not logged on cannot be loaded, or not
// be unloaded again: asked before a profile leaves.
int CanRewriteWallpaper(const UserProfile& profile);

// Unloads "_ntuser" if a run that was cut off left it loaded.
void UnloadForgottenHive();
