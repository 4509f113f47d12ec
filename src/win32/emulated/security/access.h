// Security descriptors (self-relative bytes) and the decisions that are made with them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "win32/constants.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/emulated/security/token.h"

namespace emulated {

inline constexpr win32::GENERIC_MAPPING kFileMapping{0x120089, 0x120116, 0x1200A0, 0x1F01FF};
inline constexpr win32::GENERIC_MAPPING kKeyMapping{0x20019, 0x20006, 0x20019, 0xF003F};

// SDDL, both ways (MS-DTYP 2.5.1). `information` selects OWNER/GROUP/DACL/SACL_SECURITY_INFORMATION. Nothing for a
// malformed text; an empty text for a descriptor that is not sound or has an entry of a type without a text.
std::optional<Bytes> DescriptorFromText(std::u16string_view sddl);
std::u16string DescriptorToText(ByteView descriptor, win32::DWORD information);
// What SDDL takes for a SID: S-1-... or a name of two letters ("BA"). Empty for a malformed text.
Sid SidFromSddl(std::u16string_view text);
// Every offset, length and count in it lies inside it.
bool IsSoundDescriptor(ByteView descriptor);

// What the DACL and the ownership give `token`, as AccessCheck decides it: every right that is allowed before it is
// denied; all of `mapping` when there is no DACL. Nothing that privileges give. Entries are looked at until all that is
// `wanted` is granted: of other rights the answer then says nothing.
win32::ACCESS_MASK GrantedByDescriptor(const Token& token, const DescriptorView& descriptor,
                                       const win32::GENERIC_MAPPING& mapping, win32::ACCESS_MASK wanted);

// May `token` have `desired` (generic bits and MAXIMUM_ALLOWED welcome)? 0 and the granted rights, 5
// ERROR_ACCESS_DENIED, or 1314 when ACCESS_SYSTEM_SECURITY is asked without SeSecurityPrivilege. With `backupIntent`
// (an open with FILE_FLAG_BACKUP_SEMANTICS) an enabled SeBackupPrivilege grants all reading and an enabled
// SeRestorePrivilege all writing rights, WRITE_DAC, WRITE_OWNER, DELETE and ACCESS_SYSTEM_SECURITY included, as NTFS
// does it. SeTakeOwnershipPrivilege grants WRITE_OWNER. `parent`, when given, is the directory's descriptor: its
// DELETE_CHILD grants DELETE and its LIST (FILE_READ_DATA) grants FILE_READ_ATTRIBUTES on the child. 1338 for a
// descriptor that is not sound.
win32::DWORD CheckAccess(const Token& token, ByteView descriptor, win32::DWORD desired,
                         const win32::GENERIC_MAPPING& mapping, bool backupIntent, std::optional<ByteView> parent,
                         win32::DWORD& granted);
win32::DWORD CheckAccess(const Token& token, const DescriptorView& descriptor, win32::DWORD desired,
                         const win32::GENERIC_MAPPING& mapping, bool backupIntent, std::optional<ByteView> parent,
                         win32::DWORD& granted);

// Whom a token may make the owner: its user, its groups that are marked so, anybody with SeRestorePrivilege.
bool MayMakeOwner(const Token& token, ByteView owner);
// May `token` create an object with this descriptor? 0; 1307 ERROR_INVALID_OWNER for an owner that it may not assign;
// 1314 for a SACL without SeSecurityPrivilege.
win32::DWORD CheckCreator(const Token& token, std::optional<ByteView> creator);

// The descriptor of a new object: the creator's own parts where given, else inherited from the parent (CREATOR OWNER,
// NP, IO), else the token's defaults. A list that the creator gives is complete: nothing is inherited into it.
Bytes NewObjectDescriptor(const Token& token, std::optional<ByteView> parent, std::optional<ByteView> creator,
                          bool isContainer, const win32::GENERIC_MAPPING& mapping);

// `current` with the parts that `information` names replaced by those of `replacement`, control bits as the file system
// sets them (AUTO_INHERITED only where AUTO_INHERIT_REQ asks for it) and generic rights replaced by what they stand
// for. Empty when one of the two is not sound.
Bytes MergeDescriptor(ByteView current, ByteView replacement, win32::DWORD information,
                      const win32::GENERIC_MAPPING& mapping = kFileMapping);

// What SetNamedSecurityInfoW makes of `current` when a DACL is written under `parent`: explicit entries of `dacl` kept,
// inherited ones computed anew from the parent unless protected. No `dacl` (or an empty one) is the null DACL. Empty
// when a part is not sound or the DACL becomes too long (ERROR_INVALID_ACL).
Bytes ApplyDacl(ByteView current, std::optional<ByteView> dacl, win32::DWORD information,
                std::optional<ByteView> parent, bool isContainer, const win32::GENERIC_MAPPING& mapping);

// A child's descriptor after its parent's DACL has changed: its explicit entries and what it inherits now. `current`
// itself when it is protected. Empty as for ApplyDacl.
Bytes Reinherit(ByteView current, ByteView parent, bool isContainer, const win32::GENERIC_MAPPING& mapping);

}  // namespace emulated
