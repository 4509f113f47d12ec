#include "probes/privileges.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <vector>

#include "report/console.h"

namespace {

constexpr std::array kPrivilegeNames{u"SeSecurityPrivilege", u"SeBackupPrivilege", u"SeRestorePrivilege",
                                     u"SeDebugPrivilege", u"SeTakeOwnershipPrivilege"};

// TOKEN_PRIVILEGES with room for all of them.
struct AllPrivileges {
  win32::DWORD PrivilegeCount = kPrivilegeNames.size();
  win32::LUID_AND_ATTRIBUTES Privileges[kPrivilegeNames.size()] = {};
};
static_assert(offsetof(AllPrivileges, Privileges) == offsetof(win32::TOKEN_PRIVILEGES, Privileges));

// The token that the caller acts with; empty when it cannot be opened.
win32::UniqueKernelHandle CallersToken() {
  win32::UniqueKernelHandle token;
  if (win32::OpenThreadToken(win32::GetCurrentThread(), win32::TOKEN_QUERY, win32::FALSE, token.put())) return token;
  if (win32::GetLastError() != win32::ERROR_NO_TOKEN) return {};
  if (!win32::OpenProcessToken(win32::GetCurrentProcess(), win32::TOKEN_QUERY, token.put())) return {};
  return token;
}

// What a token holds as Windows writes it, one Information in front; empty when it cannot be read.
template <typename Information>
std::vector<Information> Read(const win32::UniqueKernelHandle& token, win32::TOKEN_INFORMATION_CLASS kind) {
  win32::DWORD size = 0;
  if (win32::GetTokenInformation(token.get(), kind, nullptr, 0, &size) ||
      win32::GetLastError() != win32::ERROR_INSUFFICIENT_BUFFER)
    return {};
  std::vector<Information> held(size / sizeof(Information) + 1);
  if (!win32::GetTokenInformation(token.get(), kind, held.data(), size, &size)) return {};
  return held;
}

// The array at `offset` goes on behind the structure's end, as deep as the buffer.
template <typename Entry, typename Information>
const Entry* Entries(const std::vector<Information>& held, std::size_t offset) {
  return reinterpret_cast<const Entry*>(reinterpret_cast<const std::byte*>(held.data()) + offset);
}

}  // namespace

win32::UniqueSid AdministratorsSid() {
  win32::SID_IDENTIFIER_AUTHORITY ntAuthority{{0, 0, 0, 0, 0, 5}};
  win32::UniqueSid sid;
  win32::AllocateAndInitializeSid(&ntAuthority, 2, win32::SECURITY_BUILTIN_DOMAIN_RID, win32::DOMAIN_ALIAS_RID_ADMINS,
                                  0, 0, 0, 0, 0, 0, sid.put());
  return sid;
}

bool IsUserAdministrator() try {
  const win32::UniqueKernelHandle token = CallersToken();
  if (!token) return false;
  const auto groups = Read<win32::TOKEN_GROUPS>(token, win32::TOKEN_INFORMATION_CLASS::TokenGroups);
  const win32::UniqueSid administrators = AdministratorsSid();
  if (groups.empty() || !administrators) return false;

  const auto* const first = Entries<win32::SID_AND_ATTRIBUTES>(groups, offsetof(win32::TOKEN_GROUPS, Groups));
  for (win32::DWORD i = 0; i < groups[0].GroupCount; ++i)
    if (win32::EqualSid(administrators.get(), first[i].Sid)) return true;
  return false;
} catch (const std::exception&) {
  return false;
}

bool IsMemberOfAdministrators() {
  const win32::UniqueSid administrators = AdministratorsSid();
  win32::BOOL isMember = win32::FALSE;
  return administrators && win32::CheckTokenMembership(nullptr, administrators.get(), &isMember) && isMember;
}

bool EnablePrivileges() {
  AllPrivileges privileges;
  win32::UniqueKernelHandle token;
  if (!win32::OpenProcessToken(win32::GetCurrentProcess(), win32::TOKEN_ADJUST_PRIVILEGES | win32::TOKEN_QUERY,
                               token.put()))
    return false;
  for (std::size_t i = 0; i < kPrivilegeNames.size(); ++i) {
    privileges.Privileges[i].Attributes = win32::SE_PRIVILEGE_ENABLED;
    if (!win32::LookupPrivilegeValueW(nullptr, kPrivilegeNames[i], &privileges.Privileges[i].Luid)) return false;
  }
  return win32::AdjustTokenPrivileges(token.get(), win32::FALSE,
                                      reinterpret_cast<win32::TOKEN_PRIVILEGES*>(&privileges), sizeof privileges,
                                      nullptr, nullptr) != win32::FALSE;
}

PrivilegeResult EnablePrivilege(const char16_t* name) {
  win32::UniqueKernelHandle token;
  win32::TOKEN_PRIVILEGES privileges{.PrivilegeCount = 1, .Privileges = {{{}, win32::SE_PRIVILEGE_ENABLED}}};
  if (!win32::OpenProcessToken(win32::GetCurrentProcess(), win32::TOKEN_ADJUST_PRIVILEGES, token.put()) ||
      !win32::LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid))
    return PrivilegeResult::NotFound;
  return win32::AdjustTokenPrivileges(token.get(), win32::FALSE, &privileges, sizeof privileges, nullptr, nullptr)
             ? PrivilegeResult::Enabled
             : PrivilegeResult::NotAdjusted;
}

bool HoldsPrivilege(const char16_t* name) try {
  const win32::UniqueKernelHandle token = CallersToken();
  win32::LUID wanted{};
  if (!token || !win32::LookupPrivilegeValueW(nullptr, name, &wanted)) return false;
  const auto held = Read<win32::TOKEN_PRIVILEGES>(token, win32::TOKEN_INFORMATION_CLASS::TokenPrivileges);
  if (held.empty()) return false;
  const auto* const first = Entries<win32::LUID_AND_ATTRIBUTES>(held, offsetof(win32::TOKEN_PRIVILEGES, Privileges));
  return std::any_of(first, first + held[0].PrivilegeCount, [&](const win32::LUID_AND_ATTRIBUTES& one) {
    return one.Luid.LowPart == wanted.LowPart && one.Luid.HighPart == wanted.HighPart;
  });
} catch (const std::exception&) {
  return false;
}

bool IsAdministrator(StringId refusal) {
  if (IsMemberOfAdministrators()) return true;
  Say(refusal);
  return false;
}
