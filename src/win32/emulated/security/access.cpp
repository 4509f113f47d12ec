#include "win32/emulated/security/access.h"

#include <algorithm>

namespace emulated {

namespace {

using win32::ACCESS_SYSTEM_SECURITY;
using win32::DELETE;
using win32::FILE_READ_ATTRIBUTES;
using win32::READ_CONTROL;
using win32::WRITE_DAC;
using win32::WRITE_OWNER;

// S-1-3-4, OWNER RIGHTS: an entry for it replaces what ownership alone would give.
constexpr std::uint8_t kOwnerRights[] = {1, 1, 0, 0, 0, 0, 0, 3, 4, 0, 0, 0};

bool IsOwnerRights(ByteView sid) { return std::ranges::equal(sid, kOwnerRights); }

constexpr win32::ACCESS_MASK kAllRights = ~win32::ACCESS_MASK{0};
// What no DACL gives, whatever its entries say.
constexpr win32::ACCESS_MASK kNotByDacl = kGenericBits | ACCESS_SYSTEM_SECURITY;

bool IsAllowed(std::uint8_t type) { return type == win32::ACCESS_ALLOWED_ACE_TYPE || type == kAllowedObjectAce; }
bool IsDenied(std::uint8_t type) { return type == win32::ACCESS_DENIED_ACE_TYPE || type == kDeniedObjectAce; }

// What an open for backup or restore adds (documented with FILE_FLAG_BACKUP_SEMANTICS and the privilege constants).
win32::ACCESS_MASK GrantedByBackupIntent(const Token& token, const win32::GENERIC_MAPPING& mapping) {
  win32::ACCESS_MASK granted = 0;
  if (token.PrivilegeEnabled(Privilege::Backup))
    granted |= mapping.GenericRead | mapping.GenericExecute | READ_CONTROL | ACCESS_SYSTEM_SECURITY;
  if (token.PrivilegeEnabled(Privilege::Restore))
    granted |= mapping.GenericWrite | WRITE_DAC | WRITE_OWNER | DELETE | ACCESS_SYSTEM_SECURITY;
  return granted;
}

// What rights on the directory mean for the rights on a file in it.
win32::ACCESS_MASK GrantedByDirectory(const Token& token, ByteView directory) {
  const auto view = ViewDescriptor(directory);
  if (!view) return 0;
  const win32::ACCESS_MASK onDirectory = GrantedByDescriptor(token, *view, kFileMapping, kAllRights);
  win32::ACCESS_MASK granted = 0;
  if ((onDirectory & win32::FILE_DELETE_CHILD) != 0) granted |= DELETE;
  if ((onDirectory & win32::FILE_READ_DATA) != 0) granted |= FILE_READ_ATTRIBUTES;
  return granted;
}

}  // namespace

bool IsSoundDescriptor(ByteView descriptor) { return ViewDescriptor(descriptor).has_value(); }

win32::ACCESS_MASK GrantedByDescriptor(const Token& token, const DescriptorView& descriptor,
                                       const win32::GENERIC_MAPPING& mapping, win32::ACCESS_MASK wanted) {
  if (!descriptor.HasDacl() || descriptor.dacl.empty()) return mapping.GenericAll;
  const auto isOwner = [&] { return !descriptor.owner.empty() && token.Allows(descriptor.owner); };
  win32::ACCESS_MASK granted = 0, denied = 0;
  bool ownerRights = false;
  for (const AceView& ace : Aces(descriptor.dacl)) {
    if (ace.Has(win32::INHERIT_ONLY_ACE) || ace.sid.empty()) continue;
    const bool forOwner = IsOwnerRights(ace.sid);
    ownerRights = ownerRights || forOwner;
    if ((ace.mask & ~granted & ~denied) == 0) continue;  // entries before it have decided all that it speaks of
    if (IsAllowed(ace.type)) {
      if (forOwner ? isOwner() : token.Allows(ace.sid)) granted |= ace.mask & ~denied;
      if ((wanted & ~(granted & ~kNotByDacl)) == 0) return granted & ~kNotByDacl;
    } else if (IsDenied(ace.type)) {
      if (forOwner ? isOwner() : token.Denies(ace.sid)) denied |= ace.mask & ~granted;
    }
  }
  if (!ownerRights && isOwner()) granted |= READ_CONTROL | WRITE_DAC;
  return granted & ~kNotByDacl;
}

win32::DWORD CheckAccess(const Token& token, ByteView descriptor, win32::DWORD desired,
                         const win32::GENERIC_MAPPING& mapping, bool backupIntent, std::optional<ByteView> parent,
                         win32::DWORD& granted) {
  granted = 0;
  const auto view = ViewDescriptor(descriptor);
  if (!view) return win32::ERROR_INVALID_SECURITY_DESCR;
  return CheckAccess(token, *view, desired, mapping, backupIntent, parent, granted);
}

win32::DWORD CheckAccess(const Token& token, const DescriptorView& descriptor, win32::DWORD desired,
                         const win32::GENERIC_MAPPING& mapping, bool backupIntent, std::optional<ByteView> parent,
                         win32::DWORD& granted) {
  granted = 0;
  const bool maximum = (desired & win32::MAXIMUM_ALLOWED) != 0;
  desired = MapGeneric(desired & ~win32::MAXIMUM_ALLOWED, mapping);
  win32::ACCESS_MASK available = GrantedByDescriptor(token, descriptor, mapping, maximum ? kAllRights : desired);
  if (!maximum && (desired & ~available) == 0) {  // without any privilege
    granted = desired;
    return 0;
  }
  if (token.PrivilegeEnabled(Privilege::TakeOwnership)) available |= WRITE_OWNER;
  if (token.PrivilegeEnabled(Privilege::Security)) available |= ACCESS_SYSTEM_SECURITY;
  if (backupIntent) available |= GrantedByBackupIntent(token, mapping);
  if (parent && (maximum || ((desired & ~available) & (DELETE | FILE_READ_ATTRIBUTES)) != 0))
    available |= GrantedByDirectory(token, *parent);
  const win32::ACCESS_MASK missing = desired & ~available;
  if ((missing & ACCESS_SYSTEM_SECURITY) != 0) return win32::ERROR_PRIVILEGE_NOT_HELD;
  if (missing != 0) return win32::ERROR_ACCESS_DENIED;
  // MAXIMUM_ALLOWED does not bring the right to the SACL along; it has to be asked for by name.
  granted = maximum ? desired | (available & ~ACCESS_SYSTEM_SECURITY) : desired;
  if (maximum && granted == 0) return win32::ERROR_ACCESS_DENIED;
  return 0;
}

bool MayMakeOwner(const Token& token, ByteView owner) {
  const auto isOwner = [&](const Sid& sid) { return std::ranges::equal(sid, owner); };
  return token.PrivilegeEnabled(Privilege::Restore) || isOwner(token.user) ||
         std::ranges::any_of(token.groups, [&](const TokenGroup& group) {
           return (group.attributes & win32::SE_GROUP_OWNER) != 0 && isOwner(group.sid);
         });
}

win32::DWORD CheckCreator(const Token& token, std::optional<ByteView> creator) {
  const auto view = creator ? ViewDescriptor(*creator) : std::nullopt;
  if (!view) return 0;
  if (!view->owner.empty() && !MayMakeOwner(token, view->owner)) return win32::ERROR_INVALID_OWNER;
  return view->HasSacl() && !token.PrivilegeEnabled(Privilege::Security) ? win32::ERROR_PRIVILEGE_NOT_HELD : 0;
}

}  // namespace emulated
