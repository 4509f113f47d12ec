// What Windows' own set-up writes into the hives, as far as anything on this machine reads it.
#pragma once

#include <string_view>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/setup/windows_installation.h"

namespace emulated {

// Fills the mounted SYSTEM, SOFTWARE (and DEFAULT) hives of a new installation.
void FillSystemHives(Registry& registry, const InstallationFacts& facts);

// A user's NTUSER.DAT; `home` is his profile folder (u"C:\\Users\\anna"). His SID gives him full access to it; without
// one (the default profile) only the system and the administrators have it.
Bytes UserHive(std::u16string_view home, FileTime now, std::u16string_view sid = {});

}  // namespace emulated
