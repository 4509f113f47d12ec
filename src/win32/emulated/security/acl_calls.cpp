// SIDs, ACLs and descriptors in the program's memory, of win32/security.h.
#include <algorithm>

#include "win32/emulated/call.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/local_memory.h"
#include "win32/security.h"

namespace win32 {

namespace {

using emulated::AceView;
using emulated::ByteView;

// Where entry `index` of the ACL begins; null when there is none that lies inside the ACL.
BYTE* EntryAt(ACL* acl, DWORD index) {
  if (!acl || index >= acl->AceCount) return nullptr;
  BYTE* at = reinterpret_cast<BYTE*>(acl) + sizeof(ACL);
  const BYTE* const end = reinterpret_cast<BYTE*>(acl) + acl->AclSize;
  for (;; --index) {
    ACE_HEADER header;
    if (end - at < static_cast<std::ptrdiff_t>(sizeof header)) return nullptr;
    std::memcpy(&header, at, sizeof header);
    if (header.AceSize < sizeof header || header.AceSize > end - at) return nullptr;
    if (index == 0) return at;
    at += header.AceSize;
  }
}

struct ExplicitEntry {
  emulated::Sid sid;
  ACCESS_MODE mode;
  ACCESS_MASK mask;
  BYTE flags;
};

DWORD ExplicitEntries(const EXPLICIT_ACCESS_W* list, ULONG count, std::vector<ExplicitEntry>& entries) {
  for (ULONG i = 0; i < count; ++i) {
    const EXPLICIT_ACCESS_W& one = list[i];
    if (one.Trustee.TrusteeForm != TRUSTEE_FORM::TRUSTEE_IS_SID) return ERROR_NONE_MAPPED;  // no account names here
    const ByteView sid = emulated::SidOf(one.Trustee.ptstrName);
    if (sid.empty()) return ERROR_INVALID_PARAMETER;
    if (one.grfAccessMode == ACCESS_MODE::NOT_USED_ACCESS || one.grfAccessMode > ACCESS_MODE::REVOKE_ACCESS)
      return ERROR_INVALID_PARAMETER;
    entries.push_back(
        {{sid.begin(), sid.end()}, one.grfAccessMode, one.grfAccessPermissions, static_cast<BYTE>(one.grfInheritance)});
  }
  return ERROR_SUCCESS;
}

// What is left of an old explicit entry once the new ones are in: its mask, or nothing.
std::optional<ACCESS_MASK> Remaining(const AceView& ace, const std::vector<ExplicitEntry>& entries) {
  ACCESS_MASK mask = ace.mask;
  for (const ExplicitEntry& entry : entries) {
    if (!std::ranges::equal(entry.sid, ace.sid)) continue;
    if (entry.mode == ACCESS_MODE::SET_ACCESS || entry.mode == ACCESS_MODE::REVOKE_ACCESS) return std::nullopt;
    if ((ace.flags & emulated::kInheritanceFlags) != entry.flags) continue;
    // Granting takes from what is denied and the other way round; granting what is granted goes into the new entry.
    const bool same = (entry.mode == ACCESS_MODE::DENY_ACCESS) == (ace.type == ACCESS_DENIED_ACE_TYPE);
    if (same) return std::nullopt;
    mask &= ~entry.mask;
    if (mask == 0) return std::nullopt;
  }
  return mask;
}

// What the old explicit entries of the same kind, trustee and inheritance add to a new one.
ACCESS_MASK Combined(const ExplicitEntry& entry, ByteView old) {
  ACCESS_MASK mask = entry.mask;
  if (entry.mode == ACCESS_MODE::SET_ACCESS) return mask;
  const BYTE type = entry.mode == ACCESS_MODE::DENY_ACCESS ? ACCESS_DENIED_ACE_TYPE : ACCESS_ALLOWED_ACE_TYPE;
  for (const AceView& ace : emulated::Aces(old))
    if (ace.type == type && !ace.Has(INHERITED_ACE) && (ace.flags & emulated::kInheritanceFlags) == entry.flags &&
        std::ranges::equal(ace.sid, entry.sid))
      mask |= ace.mask;
  return mask;
}

// The preferred order: denied entries, then allowed ones, new ones first in each, then what was inherited.
emulated::Bytes MergedAcl(const std::vector<ExplicitEntry>& entries, ByteView old) {
  emulated::AclBuilder acl;
  for (const BYTE type : {ACCESS_DENIED_ACE_TYPE, ACCESS_ALLOWED_ACE_TYPE}) {
    for (const ExplicitEntry& entry : entries) {
      const bool denies = entry.mode == ACCESS_MODE::DENY_ACCESS;
      if (entry.mode == ACCESS_MODE::REVOKE_ACCESS || denies != (type == ACCESS_DENIED_ACE_TYPE)) continue;
      acl.Add(type, entry.flags, Combined(entry, old), entry.sid);
    }
    for (const AceView& ace : emulated::Aces(old)) {
      if (ace.Has(INHERITED_ACE) || (ace.type == ACCESS_DENIED_ACE_TYPE) != (type == ACCESS_DENIED_ACE_TYPE)) continue;
      const bool plain = ace.type == ACCESS_DENIED_ACE_TYPE || ace.type == ACCESS_ALLOWED_ACE_TYPE;
      const auto mask = plain ? Remaining(ace, entries) : ace.mask;
      if (mask) acl.Add(ace, ace.flags, *mask);
    }
  }
  for (const AceView& ace : emulated::Aces(old))
    if (ace.Has(INHERITED_ACE)) acl.Add(ace.bytes);
  return acl.Take();
}

}  // namespace

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* pIdentifierAuthority, BYTE nSubAuthorityCount,
                              DWORD nSubAuthority0, DWORD nSubAuthority1, DWORD nSubAuthority2, DWORD nSubAuthority3,
                              DWORD nSubAuthority4, DWORD nSubAuthority5, DWORD nSubAuthority6, DWORD nSubAuthority7,
                              PSID* pSid) {
  WIN32_CALL(nSubAuthorityCount, nSubAuthority0, nSubAuthority1);
  if (call.Refused()) return FALSE;
  constexpr BYTE kMost = 8;
  if (!pIdentifierAuthority || !pSid || nSubAuthorityCount > kMost) return call.Done(ERROR_INVALID_PARAMETER);
  const DWORD subAuthorities[kMost] = {nSubAuthority0, nSubAuthority1, nSubAuthority2, nSubAuthority3,
                                       nSubAuthority4, nSubAuthority5, nSubAuthority6, nSubAuthority7};
  emulated::Sid sid{1, nSubAuthorityCount};
  sid.insert(sid.end(), std::begin(pIdentifierAuthority->Value), std::end(pIdentifierAuthority->Value));
  for (BYTE i = 0; i < nSubAuthorityCount; ++i) emulated::AppendLittleEndian(sid, std::uint32_t{subAuthorities[i]});
  *pSid = emulated::LocalCopy(sid);
  return call.Done(*pSid ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

void* FreeSid(PSID pSid) {
  WIN32_CALL(pSid);
  std::free(pSid);  // also when refused: see HeapFree
  return call.Refused() ? pSid : nullptr;
}

BOOL EqualSid(PSID pSid1, PSID pSid2) {
  WIN32_CALL(pSid1, pSid2);
  if (call.Refused()) return FALSE;
  const ByteView one = emulated::SidOf(pSid1), other = emulated::SidOf(pSid2);
  emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(!one.empty() && std::ranges::equal(one, other) ? TRUE : FALSE);
}

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision) {
  WIN32_CALL(pSecurityDescriptor, dwRevision);
  if (call.Refused()) return FALSE;
  if (!pSecurityDescriptor) return call.Done(ERROR_INVALID_PARAMETER);
  if (dwRevision != SECURITY_DESCRIPTOR_REVISION) return call.Done(ERROR_UNKNOWN_REVISION);
  SECURITY_DESCRIPTOR blank{};
  blank.Revision = SECURITY_DESCRIPTOR_REVISION;
  *static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor) = blank;
  return call.Done(ERROR_SUCCESS);
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent, ACL* pDacl,
                               BOOL bDaclDefaulted) {
  WIN32_CALL(pSecurityDescriptor, bDaclPresent, pDacl, bDaclDefaulted);
  if (call.Refused()) return FALSE;
  auto* const descriptor = static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor);
  if (!descriptor) return call.Done(ERROR_INVALID_PARAMETER);
  if (descriptor->Revision != SECURITY_DESCRIPTOR_REVISION) return call.Done(ERROR_UNKNOWN_REVISION);
  if ((descriptor->Control & SE_SELF_RELATIVE) != 0) return call.Done(ERROR_INVALID_SECURITY_DESCR);
  unsigned control = descriptor->Control & ~unsigned{SE_DACL_PRESENT | SE_DACL_DEFAULTED};
  if (bDaclPresent) {
    control |= SE_DACL_PRESENT | (bDaclDefaulted ? SE_DACL_DEFAULTED : 0u);
    descriptor->Dacl = pDacl;
  }
  descriptor->Control = static_cast<WORD>(control);
  return call.Done(ERROR_SUCCESS);
}

BOOL GetAce(ACL* pAcl, DWORD dwAceIndex, void** pAce) {
  WIN32_CALL(pAcl, dwAceIndex);
  if (call.Refused()) return FALSE;
  BYTE* const entry = EntryAt(pAcl, dwAceIndex);
  if (!entry || !pAce) return call.Done(ERROR_INVALID_PARAMETER);
  *pAce = entry;
  return call.Done(ERROR_SUCCESS);
}

BOOL DeleteAce(ACL* pAcl, DWORD dwAceIndex) {
  WIN32_CALL(pAcl, dwAceIndex);
  if (call.Refused()) return FALSE;
  BYTE* const entry = EntryAt(pAcl, dwAceIndex);
  if (!entry) return call.Done(ERROR_INVALID_PARAMETER);
  ACE_HEADER header;
  std::memcpy(&header, entry, sizeof header);
  const BYTE* const next = entry + header.AceSize;
  const BYTE* const end = reinterpret_cast<BYTE*>(pAcl) + pAcl->AclSize;
  std::memmove(entry, next, static_cast<std::size_t>(end - next));
  --pAcl->AceCount;
  return call.Done(ERROR_SUCCESS);
}

DWORD SetEntriesInAclW(ULONG cCountOfExplicitEntries, EXPLICIT_ACCESS_W* pListOfExplicitEntries, ACL* OldAcl,
                       ACL** NewAcl) {
  WIN32_CALL(cCountOfExplicitEntries, OldAcl);
  if (call.Refused()) return call.Code<DWORD>(call.error());
  if (!NewAcl || (cCountOfExplicitEntries != 0 && !pListOfExplicitEntries))
    return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  *NewAcl = nullptr;
  const auto old = emulated::AclOf(OldAcl);
  if (!old) return call.Code<DWORD>(ERROR_INVALID_ACL);
  if (cCountOfExplicitEntries == 0 && old->empty()) return call.Code<DWORD>(ERROR_SUCCESS);
  std::vector<ExplicitEntry> entries;
  if (const DWORD error = ExplicitEntries(pListOfExplicitEntries, cCountOfExplicitEntries, entries))
    return call.Code<DWORD>(error);
  const emulated::Bytes merged = MergedAcl(entries, *old);
  if (merged.empty()) return call.Code<DWORD>(ERROR_INVALID_ACL);
  *NewAcl = static_cast<ACL*>(emulated::LocalCopy(merged));
  return call.Code<DWORD>(*NewAcl ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

void MapGenericMask(DWORD* AccessMask, GENERIC_MAPPING* GenericMapping) {
  WIN32_CALL(AccessMask);
  if (call.Refused()) return;
  if (AccessMask && GenericMapping) *AccessMask = emulated::MapGeneric(*AccessMask, *GenericMapping);
}

BOOL ConvertStringSecurityDescriptorToSecurityDescriptorW(const char16_t* StringSecurityDescriptor,
                                                          DWORD StringSDRevision,
                                                          PSECURITY_DESCRIPTOR* SecurityDescriptor,
                                                          ULONG* SecurityDescriptorSize) {
  WIN32_CALL(StringSecurityDescriptor, StringSDRevision);
  if (call.Refused()) return FALSE;
  if (!StringSecurityDescriptor || !SecurityDescriptor) return call.Done(ERROR_INVALID_PARAMETER);
  if (StringSDRevision != SECURITY_DESCRIPTOR_REVISION) return call.Done(ERROR_UNKNOWN_REVISION);
  const auto descriptor = emulated::DescriptorFromText(StringSecurityDescriptor);
  if (!descriptor) return call.Done(ERROR_INVALID_PARAMETER);
  *SecurityDescriptor = emulated::LocalCopy(*descriptor);
  if (SecurityDescriptorSize) *SecurityDescriptorSize = static_cast<ULONG>(descriptor->size());
  return call.Done(*SecurityDescriptor ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

BOOL ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR SecurityDescriptor,
                                                          DWORD RequestedStringSDRevision, DWORD SecurityInformation,
                                                          char16_t** StringSecurityDescriptor,
                                                          ULONG* StringSecurityDescriptorLen) {
  WIN32_CALL(SecurityDescriptor, RequestedStringSDRevision, SecurityInformation);
  if (call.Refused()) return FALSE;
  if (!StringSecurityDescriptor) return call.Done(ERROR_INVALID_PARAMETER);
  if (RequestedStringSDRevision != SECURITY_DESCRIPTOR_REVISION) return call.Done(ERROR_UNKNOWN_REVISION);
  const emulated::Bytes descriptor = emulated::SelfRelative(SecurityDescriptor);
  const auto view = emulated::ViewDescriptor(descriptor);
  if (!view) return call.Done(ERROR_INVALID_SECURITY_DESCR);
  const std::u16string text = emulated::DescriptorToText(descriptor, SecurityInformation);
  const bool hasPart = ((SecurityInformation & OWNER_SECURITY_INFORMATION) != 0 && !view->owner.empty()) ||
                       ((SecurityInformation & GROUP_SECURITY_INFORMATION) != 0 && !view->group.empty()) ||
                       ((SecurityInformation & DACL_SECURITY_INFORMATION) != 0 && view->HasDacl()) ||
                       ((SecurityInformation & SACL_SECURITY_INFORMATION) != 0 && view->HasSacl());
  if (hasPart && text.empty()) return call.Done(ERROR_INVALID_ACL);  // an entry of a type without a text
  const std::size_t bytes = (text.size() + 1) * sizeof(char16_t);
  *StringSecurityDescriptor =
      static_cast<char16_t*>(emulated::LocalCopy({reinterpret_cast<const std::uint8_t*>(text.c_str()), bytes}));
  if (StringSecurityDescriptorLen) *StringSecurityDescriptorLen = static_cast<ULONG>(text.size() + 1);
  return call.Done(*StringSecurityDescriptor ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace win32
