// How objects come by their descriptors: at their creation, when one is written, and when the parent's changes.
//
// The rules are those of MS-DTYP 2.5.3.4 (CreateSecurityDescriptor, ComputeACL) and of the documentation of
// SetPrivateObjectSecurityEx, which is what the named-security functions stand on:
//  - An entry marked INHERITED_ACE that a program passes is not its to set: unless the DACL is protected such entries
//    are dropped and computed anew from the parent's inheritable ones. Explicit entries stand before inherited ones.
//  - A protected DACL inherits nothing. Entries passed with it are all kept and become explicit: INHERITED_ACE goes.
//  - A DACL that is given at creation is all that the object has, protected or not: files and keys are made as
//    CreatePrivateObjectSecurityEx does it without SEF_DACL_AUTO_INHERIT. Without one the DACL is inherited.
//  - SE_DACL_AUTO_INHERITED says that inherited entries are told from explicit ones. The named-security functions and
//    the creation of files without a DACL set it; a plain write of the descriptor (SetFileSecurity, restoring) only
//    where SE_DACL_AUTO_INHERIT_REQ stands beside it.
#include "win32/emulated/security/access.h"

#include <algorithm>

namespace emulated {

namespace {

using win32::CONTAINER_INHERIT_ACE;
using win32::INHERIT_ONLY_ACE;
using win32::INHERITED_ACE;
using win32::NO_PROPAGATE_INHERIT_ACE;
using win32::OBJECT_INHERIT_ACE;
using win32::WORD;

constexpr std::uint8_t kCreatorOwner[] = {1, 1, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0};  // S-1-3-0
constexpr std::uint8_t kCreatorGroup[] = {1, 1, 0, 0, 0, 0, 0, 3, 1, 0, 0, 0};  // S-1-3-1

// The bits of the control word that speak of one of the two ACLs.
struct AclBits {
  WORD present, defaulted, inheritRequest, inherited, isProtected;
};
constexpr AclBits kDaclBits{win32::SE_DACL_PRESENT, win32::SE_DACL_DEFAULTED, win32::SE_DACL_AUTO_INHERIT_REQ,
                            win32::SE_DACL_AUTO_INHERITED, win32::SE_DACL_PROTECTED};
constexpr AclBits kSaclBits{win32::SE_SACL_PRESENT, 0x0020, win32::SE_SACL_AUTO_INHERIT_REQ,
                            win32::SE_SACL_AUTO_INHERITED, win32::SE_SACL_PROTECTED};

WORD Without(WORD control, const AclBits& bits) {
  return static_cast<WORD>(control &
                           ~(bits.present | bits.defaulted | bits.inheritRequest | bits.inherited | bits.isProtected));
}

WORD With(WORD control, WORD bits) { return static_cast<WORD>(control | bits); }

// Who CREATOR OWNER and CREATOR GROUP stand for in a child; empty for any other SID.
ByteView CreatorFor(ByteView sid, ByteView owner, ByteView group) {
  if (std::ranges::equal(sid, kCreatorOwner)) return owner;
  if (std::ranges::equal(sid, kCreatorGroup)) return group;
  return {};
}

// What a child gets from one entry of its parent: an entry that acts on it, one that it only hands on, both in one, or
// none.
void InheritEntry(const AceView& ace, ByteView owner, ByteView group, bool isContainer,
                  const win32::GENERIC_MAPPING& mapping, AclBuilder& child) {
  const std::uint8_t others = static_cast<std::uint8_t>(ace.flags & ~kInheritanceFlags);
  const auto flags = [&](unsigned bits) { return static_cast<std::uint8_t>(others | INHERITED_ACE | bits); };
  const bool acts = ace.Has(isContainer ? CONTAINER_INHERIT_ACE : OBJECT_INHERIT_ACE);
  const unsigned handedOn =
      isContainer && !ace.Has(NO_PROPAGATE_INHERIT_ACE) ? ace.flags & (OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE) : 0u;
  if (!acts) {
    if (handedOn != 0) child.Add(ace, flags(handedOn | INHERIT_ONLY_ACE), ace.mask);
    return;
  }
  const ByteView creator = CreatorFor(ace.sid, owner, group);
  const win32::ACCESS_MASK mask = MapGeneric(ace.mask, mapping);
  if (creator.empty() && mask == ace.mask) {
    child.Add(ace, flags(handedOn), mask);
    return;
  }
  // What acts here differs from what is handed on: two entries.
  child.Add(ace, flags(0), mask, creator);
  if (handedOn != 0) child.Add(ace, flags(handedOn | INHERIT_ONLY_ACE), ace.mask);
}

void Inherit(ByteView parentAcl, ByteView owner, ByteView group, bool isContainer,
             const win32::GENERIC_MAPPING& mapping, AclBuilder& child) {
  for (const AceView& ace : Aces(parentAcl)) InheritEntry(ace, owner, group, isContainer, mapping, child);
}

enum class Inherited { Drop, Keep, MakeExplicit };

// The entries of an ACL that is written to an object. Generic rights become specific ones, except where an entry is
// only handed on to children, whose kind is not known here.
void Copy(ByteView acl, Inherited inherited, const win32::GENERIC_MAPPING& mapping, AclBuilder& to) {
  for (const AceView& ace : Aces(acl)) {
    if (inherited == Inherited::Drop && ace.Has(INHERITED_ACE)) continue;
    const auto flags =
        static_cast<std::uint8_t>(inherited == Inherited::MakeExplicit ? ace.flags & ~INHERITED_ACE : ace.flags);
    to.Add(ace, flags, ace.Has(INHERIT_ONLY_ACE) ? ace.mask : MapGeneric(ace.mask, mapping));
  }
}

// One of the two ACLs of an object.
struct NewAcl {
  bool present = false;
  bool failed = false;
  Bytes bytes;  // empty and present: the null ACL
  WORD control = 0;
};

// What the creator of an object gives it.
NewAcl GivenAcl(const AclBits& bits, WORD control, ByteView acl, const win32::GENERIC_MAPPING& mapping) {
  NewAcl made;
  made.present = true;
  made.control = static_cast<WORD>(control & (bits.present | bits.isProtected));
  if (acl.empty()) return made;  // a null ACL
  AclBuilder copy;
  Copy(acl, (control & bits.isProtected) != 0 ? Inherited::MakeExplicit : Inherited::Drop, mapping, copy);
  made.bytes = copy.Take();
  made.failed = made.bytes.empty();
  return made;
}

// Of an object that inherits, or whose inherited entries are computed anew.
NewAcl MakeAcl(const AclBits& bits, WORD ownControl, ByteView ownAcl, ByteView parentAcl, ByteView owner,
               ByteView group, bool isContainer, const win32::GENERIC_MAPPING& mapping) {
  NewAcl made;
  const bool own = (ownControl & bits.present) != 0;
  const bool isProtected = own && (ownControl & bits.isProtected) != 0;
  if (own && ownAcl.empty()) {  // a null ACL was asked for by name: nothing is merged into it
    made.present = true;
    made.control = static_cast<WORD>(bits.present | (ownControl & bits.isProtected));
    return made;
  }
  AclBuilder acl;
  if (own) Copy(ownAcl, isProtected ? Inherited::MakeExplicit : Inherited::Drop, mapping, acl);
  if (!isProtected) Inherit(parentAcl, owner, group, isContainer, mapping, acl);
  if (!own && acl.count() == 0) return made;
  made.present = true;
  made.bytes = acl.Take();
  made.failed = made.bytes.empty();
  made.control = static_cast<WORD>(bits.present | bits.inherited | (isProtected ? bits.isProtected : 0));
  return made;
}

}  // namespace

Bytes NewObjectDescriptor(const Token& token, std::optional<ByteView> parent, std::optional<ByteView> creator,
                          bool isContainer, const win32::GENERIC_MAPPING& mapping) {
  const DescriptorView above = parent ? ViewDescriptor(*parent).value_or(DescriptorView{}) : DescriptorView{};
  const DescriptorView own = creator ? ViewDescriptor(*creator).value_or(DescriptorView{}) : DescriptorView{};
  DescriptorView made;
  made.owner = own.owner.empty() ? ByteView(token.owner) : own.owner;
  made.group = own.group.empty() ? ByteView(token.primaryGroup) : own.group;
  const auto aclOf = [&](const AclBits& bits, ByteView given, ByteView parentAcl) {
    if ((own.control & bits.present) != 0) return GivenAcl(bits, own.control, given, mapping);
    return MakeAcl(bits, 0, {}, parentAcl, made.owner, made.group, isContainer, mapping);
  };
  NewAcl dacl = aclOf(kDaclBits, own.dacl, above.dacl);
  const NewAcl sacl = aclOf(kSaclBits, own.sacl, above.sacl);
  if (!dacl.present && !token.defaultDacl.empty()) {
    AclBuilder defaults;
    Copy(token.defaultDacl, Inherited::MakeExplicit, mapping, defaults);
    dacl = {true, false, defaults.Take(), win32::SE_DACL_PRESENT};
  }
  if (dacl.failed || sacl.failed) return {};
  made.control = With(dacl.control, sacl.control);
  made.dacl = dacl.bytes;
  made.sacl = sacl.bytes;
  return BuildDescriptor(made);
}

Bytes MergeDescriptor(ByteView current, ByteView replacement, win32::DWORD information,
                      const win32::GENERIC_MAPPING& mapping) {
  const auto old = ViewDescriptor(current), given = ViewDescriptor(replacement);
  if (!old || !given) return {};
  DescriptorView merged = *old;
  Bytes dacl, sacl;
  if ((information & win32::OWNER_SECURITY_INFORMATION) != 0) merged.owner = given->owner;
  if ((information & win32::GROUP_SECURITY_INFORMATION) != 0) merged.group = given->group;
  const auto replace = [&](const AclBits& bits, ByteView from, Bytes& copy, ByteView& to) {
    WORD taken = static_cast<WORD>(given->control & (bits.defaulted | bits.isProtected));
    if ((given->control & bits.inheritRequest) != 0)
      taken = With(taken, static_cast<WORD>(given->control & bits.inherited));
    merged.control = With(Without(merged.control, bits), With(taken, bits.present));
    to = {};
    if ((given->control & bits.present) == 0 || from.empty()) return true;  // a null ACL
    AclBuilder acl;
    Copy(from, Inherited::Keep, mapping, acl);
    copy = acl.Take();
    to = copy;
    return !copy.empty();
  };
  if ((information & win32::DACL_SECURITY_INFORMATION) != 0 && !replace(kDaclBits, given->dacl, dacl, merged.dacl))
    return {};
  if ((information & win32::SACL_SECURITY_INFORMATION) != 0 && !replace(kSaclBits, given->sacl, sacl, merged.sacl))
    return {};
  if ((information & win32::PROTECTED_DACL_SECURITY_INFORMATION) != 0)
    merged.control = With(merged.control, win32::SE_DACL_PROTECTED);
  if ((information & win32::UNPROTECTED_DACL_SECURITY_INFORMATION) != 0)
    merged.control = static_cast<WORD>(merged.control & ~win32::SE_DACL_PROTECTED);
  return BuildDescriptor(merged);
}

Bytes ApplyDacl(ByteView current, std::optional<ByteView> dacl, win32::DWORD information,
                std::optional<ByteView> parent, bool isContainer, const win32::GENERIC_MAPPING& mapping) {
  const auto old = ViewDescriptor(current);
  const auto above = parent ? ViewDescriptor(*parent) : DescriptorView{};
  if (!old || !above || (dacl && !dacl->empty() && !IsSoundAcl(*dacl))) return {};
  // Who says neither "protected" nor "unprotected" leaves it as it is.
  bool isProtected = (old->control & win32::SE_DACL_PROTECTED) != 0;
  if ((information & win32::PROTECTED_DACL_SECURITY_INFORMATION) != 0) isProtected = true;
  if ((information & win32::UNPROTECTED_DACL_SECURITY_INFORMATION) != 0) isProtected = false;
  const WORD own = static_cast<WORD>(win32::SE_DACL_PRESENT | (isProtected ? win32::SE_DACL_PROTECTED : 0));
  const NewAcl made =
      MakeAcl(kDaclBits, own, dacl.value_or(ByteView()), above->dacl, old->owner, old->group, isContainer, mapping);
  if (made.failed) return {};
  DescriptorView changed = *old;
  changed.control = With(Without(old->control, kDaclBits), made.control);
  changed.dacl = made.bytes;
  return BuildDescriptor(changed);
}

Bytes Reinherit(ByteView current, ByteView parent, bool isContainer, const win32::GENERIC_MAPPING& mapping) {
  const auto old = ViewDescriptor(current), above = ViewDescriptor(parent);
  if (!old || !above) return {};
  if ((old->control & win32::SE_DACL_PROTECTED) != 0) return {current.begin(), current.end()};
  // As documented for automatic propagation: a child without a DACL that inherits entries gets one of only these.
  AclBuilder acl;
  Copy(old->dacl, Inherited::Drop, mapping, acl);
  const unsigned explicitEntries = acl.count();
  Inherit(above->dacl, old->owner, old->group, isContainer, mapping, acl);
  const bool nullDacl = !old->HasDacl() || old->dacl.empty();
  if (nullDacl && acl.count() == explicitEntries) return {current.begin(), current.end()};
  const Bytes dacl = acl.Take();
  if (dacl.empty()) return {};
  DescriptorView changed = *old;
  changed.control = With(Without(old->control, kDaclBits), win32::SE_DACL_PRESENT | win32::SE_DACL_AUTO_INHERITED);
  changed.dacl = dacl;
  return BuildDescriptor(changed);
}

}  // namespace emulated
