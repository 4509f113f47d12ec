// Tokens, privileges, security descriptors and access checks. Every function behaves, returns and sets the last error
// as Windows' own of that name; those that return DWORD give the error code instead.
#pragma once

#include "win32/constants.h"

namespace win32 {

BOOL OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess, HANDLE* TokenHandle);
BOOL OpenThreadToken(HANDLE ThreadHandle, DWORD DesiredAccess, BOOL OpenAsSelf, HANDLE* TokenHandle);
BOOL GetTokenInformation(HANDLE TokenHandle, TOKEN_INFORMATION_CLASS TokenInformationClass, void* TokenInformation,
                         DWORD TokenInformationLength, DWORD* ReturnLength);
BOOL LookupPrivilegeValueW(const char16_t* lpSystemName, const char16_t* lpName, LUID* lpLuid);
BOOL AdjustTokenPrivileges(HANDLE TokenHandle, BOOL DisableAllPrivileges, TOKEN_PRIVILEGES* NewState,
                           DWORD BufferLength, TOKEN_PRIVILEGES* PreviousState, DWORD* ReturnLength);
BOOL ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL ImpersonationLevel);
BOOL RevertToSelf();
BOOL CheckTokenMembership(HANDLE TokenHandle, PSID SidToCheck, BOOL* IsMember);

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* pIdentifierAuthority, BYTE nSubAuthorityCount,
                              DWORD nSubAuthority0, DWORD nSubAuthority1, DWORD nSubAuthority2, DWORD nSubAuthority3,
                              DWORD nSubAuthority4, DWORD nSubAuthority5, DWORD nSubAuthority6, DWORD nSubAuthority7,
                              PSID* pSid);
void* FreeSid(PSID pSid);
BOOL EqualSid(PSID pSid1, PSID pSid2);
BOOL ConvertSidToStringSidW(PSID Sid, char16_t** StringSid);        // LocalFree frees it
BOOL ConvertStringSidToSidW(const char16_t* StringSid, PSID* Sid);  // the same

// Accounts of this machine and of its domain. peUse may also be a value that SID_NAME_USE does not name.
BOOL LookupAccountNameW(const char16_t* lpSystemName, const char16_t* lpAccountName, PSID Sid, DWORD* cbSid,
                        char16_t* ReferencedDomainName, DWORD* cchReferencedDomainName, SID_NAME_USE* peUse);
BOOL LookupAccountSidW(const char16_t* lpSystemName, PSID Sid, char16_t* Name, DWORD* cchName,
                       char16_t* ReferencedDomainName, DWORD* cchReferencedDomainName, SID_NAME_USE* peUse);

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision);
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent, ACL* pDacl,
                               BOOL bDaclDefaulted);
BOOL GetAce(ACL* pAcl, DWORD dwAceIndex, void** pAce);
BOOL DeleteAce(ACL* pAcl, DWORD dwAceIndex);
DWORD SetEntriesInAclW(ULONG cCountOfExplicitEntries, EXPLICIT_ACCESS_W* pListOfExplicitEntries, ACL* OldAcl,
                       ACL** NewAcl);
void MapGenericMask(DWORD* AccessMask, GENERIC_MAPPING* GenericMapping);
BOOL AccessCheck(PSECURITY_DESCRIPTOR pSecurityDescriptor, HANDLE ClientToken, DWORD DesiredAccess,
                 GENERIC_MAPPING* GenericMapping, PRIVILEGE_SET* PrivilegeSet, DWORD* PrivilegeSetLength,
                 DWORD* GrantedAccess, BOOL* AccessStatus);

// The out pointers may be null; the descriptor is freed with LocalFree.
DWORD GetNamedSecurityInfoW(const char16_t* pObjectName, SE_OBJECT_TYPE ObjectType, DWORD SecurityInfo,
                            PSID* ppsidOwner, PSID* ppsidGroup, ACL** ppDacl, ACL** ppSacl,
                            PSECURITY_DESCRIPTOR* ppSecurityDescriptor);
DWORD SetNamedSecurityInfoW(char16_t* pObjectName, SE_OBJECT_TYPE ObjectType, DWORD SecurityInfo, PSID psidOwner,
                            PSID psidGroup, ACL* pDacl, ACL* pSacl);
BOOL GetFileSecurityW(const char16_t* lpFileName, DWORD RequestedInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                      DWORD nLength, DWORD* lpnLengthNeeded);
BOOL SetFileSecurityW(const char16_t* lpFileName, DWORD SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor);

// The text form of descriptors (SDDL, revision 1). Results are freed with LocalFree.
BOOL ConvertStringSecurityDescriptorToSecurityDescriptorW(const char16_t* StringSecurityDescriptor,
                                                          DWORD StringSDRevision,
                                                          PSECURITY_DESCRIPTOR* SecurityDescriptor,
                                                          ULONG* SecurityDescriptorSize);
BOOL ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR SecurityDescriptor,
                                                          DWORD RequestedStringSDRevision, DWORD SecurityInformation,
                                                          char16_t** StringSecurityDescriptor,
                                                          ULONG* StringSecurityDescriptorLen);

}  // namespace win32
