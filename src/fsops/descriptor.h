// Self-relative security descriptors: what they say, and changed ones to write.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "win32/types.h"

// Owner, group and DACL.
using FolderDescriptor = std::vector<win32::BYTE>;

// As SDDL, the parts that are named (OWNER_SECURITY_INFORMATION, ...); empty when it is no descriptor.
std::u16string DescriptorText(FolderDescriptor descriptor, win32::DWORD parts);
// Empty when it is no SDDL.
FolderDescriptor DescriptorFromText(const std::u16string& text);

// The descriptor with an entry in front that lets administrators do everything. Empty when it is none.
FolderDescriptor OpenToAdministrators(const FolderDescriptor& descriptor);

// Do both have the same owner and the same entries, as they stand?
bool SayTheSame(const FolderDescriptor& a, const FolderDescriptor& b);

// Which entries EntryOfOthers looks at.
enum class Entries { All, OwnOnly };  // OwnOnly: not those that come from the folder above
// The first entry, as SDDL, that gives one of `rights` (specific ones) to somebody else than administrators, the system
// and `user` (a SID's text; may be empty). The owner counts, too: he may change the entries; then it is "O:" and his
// SID. Empty when there is none. Entries that deny are not looked at.
std::u16string EntryOfOthers(FolderDescriptor descriptor, win32::DWORD rights, std::u16string_view user,
                             Entries entries = Entries::All);
