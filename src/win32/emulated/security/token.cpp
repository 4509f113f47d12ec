#include "win32/emulated/security/token.h"

#include <algorithm>
#include <iterator>

#include "win32/constants.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::SE_GROUP_ENABLED;
using win32::SE_GROUP_ENABLED_BY_DEFAULT;
using win32::SE_GROUP_MANDATORY;
using win32::SE_GROUP_OWNER;
using win32::SE_GROUP_USE_FOR_DENY_ONLY;
using win32::SE_PRIVILEGE_ENABLED;
using win32::SE_PRIVILEGE_ENABLED_BY_DEFAULT;

// Windows' privileges by the low part of their LUIDs, from 2 (SE_CREATE_TOKEN_PRIVILEGE) on.
constexpr win32::DWORD kFirstPrivilege = 2;
constexpr std::u16string_view kPrivileges[] = {
    u"SeCreateTokenPrivilege",
    u"SeAssignPrimaryTokenPrivilege",
    u"SeLockMemoryPrivilege",
    u"SeIncreaseQuotaPrivilege",
    u"SeMachineAccountPrivilege",
    u"SeTcbPrivilege",
    u"SeSecurityPrivilege",
    u"SeTakeOwnershipPrivilege",
    u"SeLoadDriverPrivilege",
    u"SeSystemProfilePrivilege",
    u"SeSystemtimePrivilege",
    u"SeProfileSingleProcessPrivilege",
    u"SeIncreaseBasePriorityPrivilege",
    u"SeCreatePagefilePrivilege",
    u"SeCreatePermanentPrivilege",
    u"SeBackupPrivilege",
    u"SeRestorePrivilege",
    u"SeShutdownPrivilege",
    u"SeDebugPrivilege",
    u"SeAuditPrivilege",
    u"SeSystemEnvironmentPrivilege",
    u"SeChangeNotifyPrivilege",
    u"SeRemoteShutdownPrivilege",
    u"SeUndockPrivilege",
    u"SeSyncAgentPrivilege",
    u"SeEnableDelegationPrivilege",
    u"SeManageVolumePrivilege",
    u"SeImpersonatePrivilege",
    u"SeCreateGlobalPrivilege",
    u"SeTrustedCredManAccessPrivilege",
    u"SeRelabelPrivilege",
    u"SeIncreaseWorkingSetPrivilege",
    u"SeTimeZonePrivilege",
    u"SeCreateSymbolicLinkPrivilege",
    u"SeDelegateSessionUserImpersonatePrivilege",
};

// What the logon gives to members of Administrators and to everyone else.
constexpr win32::DWORD kAdministratorPrivileges[] = {5,  8,  9,  10, 11, 12, 13, 14, 15, 17, 18, 19,
                                                     20, 22, 23, 24, 25, 28, 29, 30, 33, 34, 35, 36};
constexpr win32::DWORD kUserPrivileges[] = {19, 23, 25, 33, 34};
constexpr win32::DWORD kSystemPrivileges[] = {2,  3,  4,  5,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18,
                                              19, 20, 21, 22, 23, 25, 28, 29, 30, 31, 32, 33, 34, 35, 36};

constexpr win32::DWORD kOn = SE_GROUP_MANDATORY | SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED;
constexpr win32::DWORD kIntegrity = 0x60;      // SE_GROUP_INTEGRITY | SE_GROUP_INTEGRITY_ENABLED
constexpr win32::DWORD kLogonId = 0xC0000000;  // SE_GROUP_LOGON_ID
constexpr std::u16string_view kAdministrators = u"S-1-5-32-544";
constexpr std::u16string_view kLocalSystem = u"S-1-5-18";

// SIDs of a length mostly differ in their last number: that is looked at first.
bool Equal(ByteView a, ByteView b) {
  if (a.size() != b.size()) return false;
  constexpr std::size_t kNumber = 4;
  if (a.size() >= kNumber &&
      LoadLittleEndian<std::uint32_t>(a, a.size() - kNumber) != LoadLittleEndian<std::uint32_t>(b, b.size() - kNumber))
    return false;
  return std::memcmp(a.data(), b.data(), a.size()) == 0;
}

// The account domain's "Domain Users" or a computer's "None": the usual primary group of a user.
Sid PrimaryGroupOf(const Sid& user) {
  constexpr std::uint32_t kUsersRid = 513;
  Sid group = user;
  if (group.size() >= 12) StoreLittleEndian(group, group.size() - 4, kUsersRid);
  return group;
}

Bytes DefaultDacl(ByteView owner) {
  AclBuilder acl;
  acl.Add(win32::ACCESS_ALLOWED_ACE_TYPE, 0, win32::GENERIC_ALL, owner);
  acl.Add(win32::ACCESS_ALLOWED_ACE_TYPE, 0, win32::GENERIC_ALL, SidFromText(kLocalSystem));
  return acl.Take();
}

template <std::size_t N>
void GivePrivileges(Token& token, const win32::DWORD (&luids)[N]) {
  constexpr win32::DWORD kEnabled[] = {23, 29, 30};  // SeChangeNotify, SeImpersonate, SeCreateGlobal
  for (const win32::DWORD luid : luids) {
    const bool enabled = std::find(std::begin(kEnabled), std::end(kEnabled), luid) != std::end(kEnabled);
    token.privileges.push_back({{luid, 0}, enabled ? SE_PRIVILEGE_ENABLED | SE_PRIVILEGE_ENABLED_BY_DEFAULT : 0});
  }
}

void AddGroup(Token& token, std::u16string_view sid, win32::DWORD attributes = kOn) {
  token.groups.push_back({SidFromText(sid), attributes});
}

// A user at the keyboard. `administrators`: the attributes of that group; 0 for one who is not in it.
std::shared_ptr<Token> InteractiveToken(const Sid& user, win32::DWORD administrators, std::u16string_view integrity) {
  auto token = std::make_shared<Token>();
  token->user = user;
  token->primaryGroup = PrimaryGroupOf(user);
  token->groups.push_back({token->primaryGroup, kOn});
  AddGroup(*token, u"S-1-1-0");  // Everyone
  if (administrators != 0) AddGroup(*token, kAdministrators, administrators);
  AddGroup(*token, u"S-1-5-32-545");                     // Users
  AddGroup(*token, u"S-1-5-4");                          // INTERACTIVE
  AddGroup(*token, u"S-1-2-1");                          // console logon
  AddGroup(*token, u"S-1-5-11");                         // Authenticated Users
  AddGroup(*token, u"S-1-5-15");                         // This Organization
  AddGroup(*token, u"S-1-5-113");                        // Local account
  AddGroup(*token, u"S-1-5-5-0-98765", kOn | kLogonId);  // the logon session
  AddGroup(*token, u"S-1-2-0");                          // LOCAL
  AddGroup(*token, integrity, kIntegrity);
  return token;
}

}  // namespace

bool PrivilegeLuid(std::u16string_view name, win32::LUID& luid) {
  for (std::size_t i = 0; i < std::size(kPrivileges); ++i) {
    if (!EqualAsciiNoCase(kPrivileges[i], name)) continue;
    luid = {kFirstPrivilege + static_cast<win32::DWORD>(i), 0};
    return true;
  }
  return false;
}

const TokenPrivilege* Token::Find(win32::DWORD luid) const {
  for (const TokenPrivilege& privilege : privileges)
    if (privilege.luid.LowPart == luid && privilege.luid.HighPart == 0) return &privilege;
  return nullptr;
}

bool Token::HasPrivilege(std::u16string_view name) const {
  win32::LUID luid;
  return PrivilegeLuid(name, luid) && Find(luid.LowPart);
}

bool Token::PrivilegeEnabled(std::u16string_view name) const {
  win32::LUID luid;
  return PrivilegeLuid(name, luid) && PrivilegeEnabled(static_cast<Privilege>(luid.LowPart));
}

bool Token::PrivilegeEnabled(Privilege privilege) const {
  const TokenPrivilege* const held = Find(static_cast<win32::DWORD>(privilege));
  return held && (held->attributes & SE_PRIVILEGE_ENABLED) != 0;
}

bool Token::EnablePrivilege(std::u16string_view name, bool enable) {
  win32::LUID luid;
  if (!PrivilegeLuid(name, luid)) return false;
  for (TokenPrivilege& privilege : privileges) {
    if (privilege.luid.LowPart != luid.LowPart) continue;
    privilege.attributes =
        enable ? privilege.attributes | SE_PRIVILEGE_ENABLED : privilege.attributes & ~SE_PRIVILEGE_ENABLED;
    return true;
  }
  return false;
}

bool Token::Allows(ByteView sid) const {
  if (Equal(user, sid)) return true;
  return std::any_of(groups.begin(), groups.end(), [&](const TokenGroup& group) {
    return (group.attributes & SE_GROUP_ENABLED) != 0 && (group.attributes & SE_GROUP_USE_FOR_DENY_ONLY) == 0 &&
           Equal(group.sid, sid);
  });
}

bool Token::Denies(ByteView sid) const {
  if (Equal(user, sid)) return true;
  return std::any_of(groups.begin(), groups.end(), [&](const TokenGroup& group) {
    return (group.attributes & (SE_GROUP_ENABLED | SE_GROUP_USE_FOR_DENY_ONLY)) != 0 && Equal(group.sid, sid);
  });
}

std::shared_ptr<Token> MakeAdministratorToken(const Sid& user) {
  const auto token = InteractiveToken(user, kOn | SE_GROUP_OWNER, u"S-1-16-12288");
  GivePrivileges(*token, kAdministratorPrivileges);
  token->owner = SidFromText(kAdministrators);
  token->defaultDacl = DefaultDacl(token->owner);
  return token;
}

std::shared_ptr<Token> MakeFilteredAdministratorToken(const Sid& user) {
  const auto token = InteractiveToken(user, SE_GROUP_USE_FOR_DENY_ONLY, u"S-1-16-8192");
  GivePrivileges(*token, kUserPrivileges);
  token->owner = user;
  token->defaultDacl = DefaultDacl(user);
  return token;
}

std::shared_ptr<Token> MakeUserToken(const Sid& user) {
  const auto token = InteractiveToken(user, 0, u"S-1-16-8192");
  GivePrivileges(*token, kUserPrivileges);
  token->owner = user;
  token->defaultDacl = DefaultDacl(user);
  return token;
}

std::shared_ptr<Token> MakeSystemToken() {
  const auto token = std::make_shared<Token>();
  token->user = SidFromText(kLocalSystem);
  token->primaryGroup = token->user;
  AddGroup(*token, kAdministrators, SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED | SE_GROUP_OWNER);
  AddGroup(*token, u"S-1-1-0");
  AddGroup(*token, u"S-1-5-11");
  AddGroup(*token, u"S-1-16-16384", kIntegrity);
  GivePrivileges(*token, kSystemPrivileges);
  token->owner = SidFromText(kAdministrators);
  token->defaultDacl = DefaultDacl(token->owner);
  return token;
}

}  // namespace emulated
