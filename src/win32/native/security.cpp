#include "win32/security.h"

#include "win32/native/cast.h"

#include <aclapi.h>
#include <sddl.h>

namespace win32 {

using native::As;
using native::Wide;

BOOL OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess, HANDLE* TokenHandle) {
  return ::OpenProcessToken(ProcessHandle, DesiredAccess, TokenHandle);
}

BOOL OpenThreadToken(HANDLE ThreadHandle, DWORD DesiredAccess, BOOL OpenAsSelf, HANDLE* TokenHandle) {
  return ::OpenThreadToken(ThreadHandle, DesiredAccess, OpenAsSelf, TokenHandle);
}

BOOL GetTokenInformation(HANDLE TokenHandle, TOKEN_INFORMATION_CLASS TokenInformationClass, void* TokenInformation,
                         DWORD TokenInformationLength, DWORD* ReturnLength) {
  return ::GetTokenInformation(TokenHandle, static_cast<::TOKEN_INFORMATION_CLASS>(TokenInformationClass),
                               TokenInformation, TokenInformationLength, ReturnLength);
}

BOOL LookupPrivilegeValueW(const char16_t* lpSystemName, const char16_t* lpName, LUID* lpLuid) {
  return ::LookupPrivilegeValueW(Wide(lpSystemName), Wide(lpName), As<::LUID>(lpLuid));
}

BOOL AdjustTokenPrivileges(HANDLE TokenHandle, BOOL DisableAllPrivileges, TOKEN_PRIVILEGES* NewState,
                           DWORD BufferLength, TOKEN_PRIVILEGES* PreviousState, DWORD* ReturnLength) {
  return ::AdjustTokenPrivileges(TokenHandle, DisableAllPrivileges, As<::TOKEN_PRIVILEGES>(NewState), BufferLength,
                                 As<::TOKEN_PRIVILEGES>(PreviousState), ReturnLength);
}

BOOL ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL ImpersonationLevel) {
  return ::ImpersonateSelf(static_cast<::SECURITY_IMPERSONATION_LEVEL>(ImpersonationLevel));
}

BOOL RevertToSelf() { return ::RevertToSelf(); }

BOOL CheckTokenMembership(HANDLE TokenHandle, PSID SidToCheck, BOOL* IsMember) {
  return ::CheckTokenMembership(TokenHandle, SidToCheck, IsMember);
}

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* pIdentifierAuthority, BYTE nSubAuthorityCount,
                              DWORD nSubAuthority0, DWORD nSubAuthority1, DWORD nSubAuthority2, DWORD nSubAuthority3,
                              DWORD nSubAuthority4, DWORD nSubAuthority5, DWORD nSubAuthority6, DWORD nSubAuthority7,
                              PSID* pSid) {
  return ::AllocateAndInitializeSid(As<::SID_IDENTIFIER_AUTHORITY>(pIdentifierAuthority), nSubAuthorityCount,
                                    nSubAuthority0, nSubAuthority1, nSubAuthority2, nSubAuthority3, nSubAuthority4,
                                    nSubAuthority5, nSubAuthority6, nSubAuthority7, pSid);
}

void* FreeSid(PSID pSid) { return ::FreeSid(pSid); }

BOOL EqualSid(PSID pSid1, PSID pSid2) { return ::EqualSid(pSid1, pSid2); }

BOOL ConvertSidToStringSidW(PSID Sid, char16_t** StringSid) {
  return ::ConvertSidToStringSidW(Sid, As<::LPWSTR>(StringSid));
}

BOOL ConvertStringSidToSidW(const char16_t* StringSid, PSID* Sid) {
  return ::ConvertStringSidToSidW(Wide(StringSid), Sid);
}

BOOL LookupAccountNameW(const char16_t* lpSystemName, const char16_t* lpAccountName, PSID Sid, DWORD* cbSid,
                        char16_t* ReferencedDomainName, DWORD* cchReferencedDomainName, SID_NAME_USE* peUse) {
  return ::LookupAccountNameW(Wide(lpSystemName), Wide(lpAccountName), Sid, cbSid, Wide(ReferencedDomainName),
                              cchReferencedDomainName, As<::SID_NAME_USE>(peUse));
}

BOOL LookupAccountSidW(const char16_t* lpSystemName, PSID Sid, char16_t* Name, DWORD* cchName,
                       char16_t* ReferencedDomainName, DWORD* cchReferencedDomainName, SID_NAME_USE* peUse) {
  return ::LookupAccountSidW(Wide(lpSystemName), Sid, Wide(Name), cchName, Wide(ReferencedDomainName),
                             cchReferencedDomainName, As<::SID_NAME_USE>(peUse));
}

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision) {
  return ::InitializeSecurityDescriptor(pSecurityDescriptor, dwRevision);
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent, ACL* pDacl,
                               BOOL bDaclDefaulted) {
  return ::SetSecurityDescriptorDacl(pSecurityDescriptor, bDaclPresent, As<::ACL>(pDacl), bDaclDefaulted);
}

BOOL GetAce(ACL* pAcl, DWORD dwAceIndex, void** pAce) { return ::GetAce(As<::ACL>(pAcl), dwAceIndex, pAce); }

BOOL DeleteAce(ACL* pAcl, DWORD dwAceIndex) { return ::DeleteAce(As<::ACL>(pAcl), dwAceIndex); }

DWORD SetEntriesInAclW(ULONG cCountOfExplicitEntries, EXPLICIT_ACCESS_W* pListOfExplicitEntries, ACL* OldAcl,
                       ACL** NewAcl) {
  return ::SetEntriesInAclW(cCountOfExplicitEntries, As<::EXPLICIT_ACCESS_W>(pListOfExplicitEntries), As<::ACL>(OldAcl),
                            As<::PACL>(NewAcl));
}

void MapGenericMask(DWORD* AccessMask, GENERIC_MAPPING* GenericMapping) {
  ::MapGenericMask(AccessMask, As<::GENERIC_MAPPING>(GenericMapping));
}

BOOL AccessCheck(PSECURITY_DESCRIPTOR pSecurityDescriptor, HANDLE ClientToken, DWORD DesiredAccess,
                 GENERIC_MAPPING* GenericMapping, PRIVILEGE_SET* PrivilegeSet, DWORD* PrivilegeSetLength,
                 DWORD* GrantedAccess, BOOL* AccessStatus) {
  return ::AccessCheck(pSecurityDescriptor, ClientToken, DesiredAccess, As<::GENERIC_MAPPING>(GenericMapping),
                       As<::PRIVILEGE_SET>(PrivilegeSet), PrivilegeSetLength, GrantedAccess, AccessStatus);
}

DWORD GetNamedSecurityInfoW(const char16_t* pObjectName, SE_OBJECT_TYPE ObjectType, DWORD SecurityInfo,
                            PSID* ppsidOwner, PSID* ppsidGroup, ACL** ppDacl, ACL** ppSacl,
                            PSECURITY_DESCRIPTOR* ppSecurityDescriptor) {
  return ::GetNamedSecurityInfoW(Wide(pObjectName), static_cast<::SE_OBJECT_TYPE>(ObjectType), SecurityInfo, ppsidOwner,
                                 ppsidGroup, As<::PACL>(ppDacl), As<::PACL>(ppSacl), ppSecurityDescriptor);
}

DWORD SetNamedSecurityInfoW(char16_t* pObjectName, SE_OBJECT_TYPE ObjectType, DWORD SecurityInfo, PSID psidOwner,
                            PSID psidGroup, ACL* pDacl, ACL* pSacl) {
  return ::SetNamedSecurityInfoW(Wide(pObjectName), static_cast<::SE_OBJECT_TYPE>(ObjectType), SecurityInfo, psidOwner,
                                 psidGroup, As<::ACL>(pDacl), As<::ACL>(pSacl));
}

BOOL GetFileSecurityW(const char16_t* lpFileName, DWORD RequestedInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                      DWORD nLength, DWORD* lpnLengthNeeded) {
  return ::GetFileSecurityW(Wide(lpFileName), RequestedInformation, pSecurityDescriptor, nLength, lpnLengthNeeded);
}

BOOL SetFileSecurityW(const char16_t* lpFileName, DWORD SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor) {
  return ::SetFileSecurityW(Wide(lpFileName), SecurityInformation, pSecurityDescriptor);
}

BOOL ConvertStringSecurityDescriptorToSecurityDescriptorW(const char16_t* StringSecurityDescriptor,
                                                          DWORD StringSDRevision,
                                                          PSECURITY_DESCRIPTOR* SecurityDescriptor,
                                                          ULONG* SecurityDescriptorSize) {
  return ::ConvertStringSecurityDescriptorToSecurityDescriptorW(Wide(StringSecurityDescriptor), StringSDRevision,
                                                                SecurityDescriptor, SecurityDescriptorSize);
}

BOOL ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR SecurityDescriptor,
                                                          DWORD RequestedStringSDRevision, DWORD SecurityInformation,
                                                          char16_t** StringSecurityDescriptor,
                                                          ULONG* StringSecurityDescriptorLen) {
  return ::ConvertSecurityDescriptorToStringSecurityDescriptorW(
      SecurityDescriptor, RequestedStringSDRevision, SecurityInformation, As<::LPWSTR>(StringSecurityDescriptor),
      StringSecurityDescriptorLen);
}

}  // namespace win32
