// What Windows' own set-up writes into the hives, as far as anything on this machine reads it.
#pragma once

#include <string_view>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/setup/windows_installation.h"

namespace emulated {

// Fills the mounted SYSTEM, SOFTWARE (and DEFAULT) hives of a new installation.
void FillSystemHives(Registry& registry, const InstallationFacts& facts);

// Where Windows keeps which volumes make short names (Machine::MakeShortNames).
inline constexpr std::u16string_view kFileSystemKey = u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\FileSystem";
inline constexpr std::u16string_view kDisable8dot3NameCreation = u"NtfsDisable8dot3NameCreation";

// Whose profile is where: a key for each user below this one, named by his SID.
inline constexpr std::u16string_view kProfileList =
    u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
void RecordProfile(Registry& registry, std::u16string_view sid, std::u16string_view folder, win32::DWORD flags);

}  // namespace emulated
