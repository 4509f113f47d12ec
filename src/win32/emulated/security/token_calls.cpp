// Tokens of win32/security.h.
#include <algorithm>

#include "win32/emulated/machine.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/pseudo_handles.h"
#include "win32/security.h"

namespace win32 {

namespace {

using emulated::Bytes;
using emulated::ByteView;
using emulated::Machine;
using emulated::Token;

// What TOKEN_USER, TOKEN_GROUPS and TOKEN_PRIVILEGES consist of: SIDs first measured, then put behind the structures.
class TokenInformation {
 public:
  explicit TokenInformation(const Token& token) : token_(token) {}

  // False for a class that this system does not tell.
  bool Measure(TOKEN_INFORMATION_CLASS kind) {
    switch (kind) {
      case TOKEN_INFORMATION_CLASS::TokenUser:
        fixed_ = sizeof(TOKEN_USER);
        sids_ = {{token_.user, 0}};
        break;
      case TOKEN_INFORMATION_CLASS::TokenGroups:
        fixed_ = offsetof(TOKEN_GROUPS, Groups) + token_.groups.size() * sizeof(SID_AND_ATTRIBUTES);
        for (const emulated::TokenGroup& group : token_.groups) sids_.push_back({group.sid, group.attributes});
        break;
      case TOKEN_INFORMATION_CLASS::TokenPrivileges:
        fixed_ = offsetof(TOKEN_PRIVILEGES, Privileges) + token_.privileges.size() * sizeof(LUID_AND_ATTRIBUTES);
        break;
      default:
        return false;
    }
    kind_ = kind;
    size_ = fixed_;
    for (const auto& [sid, attributes] : sids_) size_ += sid.size();
    return true;
  }

  DWORD size() const { return static_cast<DWORD>(size_); }

  // Fills a buffer of at least size() bytes.
  void Write(BYTE* to) const {
    if (kind_ == TOKEN_INFORMATION_CLASS::TokenPrivileges) {
      const auto count = static_cast<DWORD>(token_.privileges.size());
      std::memcpy(to, &count, sizeof count);
      BYTE* entry = to + offsetof(TOKEN_PRIVILEGES, Privileges);
      for (const emulated::TokenPrivilege& privilege : token_.privileges) {
        const LUID_AND_ATTRIBUTES one{privilege.luid, privilege.attributes};
        std::memcpy(entry, &one, sizeof one);
        entry += sizeof one;
      }
      return;
    }
    BYTE* entry = to;
    if (kind_ == TOKEN_INFORMATION_CLASS::TokenGroups) {
      const auto count = static_cast<DWORD>(sids_.size());
      std::memcpy(to, &count, sizeof count);
      entry = to + offsetof(TOKEN_GROUPS, Groups);
    }
    BYTE* behind = to + fixed_;
    for (const auto& [sid, attributes] : sids_) {
      const SID_AND_ATTRIBUTES one{behind, attributes};
      std::memcpy(entry, &one, sizeof one);
      std::memcpy(behind, sid.data(), sid.size());
      entry += sizeof one;
      behind += sid.size();
    }
  }

 private:
  const Token& token_;
  TOKEN_INFORMATION_CLASS kind_ = TOKEN_INFORMATION_CLASS::TokenUser;
  std::vector<std::pair<ByteView, DWORD>> sids_;
  std::size_t fixed_ = 0;
  std::size_t size_ = 0;
};

// The token of a handle that was opened with `access`; the error of a call that lacks it.
DWORD TokenOf(HANDLE handle, ACCESS_MASK access, std::shared_ptr<Token>& token) {
  Machine& machine = Machine::Current();
  const emulated::HandleEntry* const entry = machine.objects.Entry(handle, machine.process.id);
  if (entry) token = std::dynamic_pointer_cast<Token>(entry->object);
  if (!token) return ERROR_INVALID_HANDLE;
  return (entry->granted & access) == access ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

ACCESS_MASK TokenAccess(DWORD desired) {
  constexpr GENERIC_MAPPING kTokenMapping{0x2001A, 0x200E0, 0x20004, 0xF01FF};
  if ((desired & MAXIMUM_ALLOWED) != 0) return kTokenMapping.GenericAll;
  return emulated::MapGeneric(desired, kTokenMapping);
}

// Carries one wished privilege over; false when the token does not hold it.
bool Adjust(Token& token, const LUID_AND_ATTRIBUTES& wish, std::vector<LUID_AND_ATTRIBUTES>& before) {
  const auto found =
      std::find_if(token.privileges.begin(), token.privileges.end(), [&](const emulated::TokenPrivilege& privilege) {
        return privilege.luid.LowPart == wish.Luid.LowPart && privilege.luid.HighPart == wish.Luid.HighPart;
      });
  if (found == token.privileges.end()) return false;
  const DWORD old = found->attributes;
  if ((wish.Attributes & SE_PRIVILEGE_REMOVED) != 0) {
    before.push_back({found->luid, old});
    token.privileges.erase(found);
    return true;
  }
  found->attributes = (old & ~SE_PRIVILEGE_ENABLED) | (wish.Attributes & SE_PRIVILEGE_ENABLED);
  if (found->attributes != old) before.push_back({found->luid, old});
  return true;
}

std::vector<LUID_AND_ATTRIBUTES> WishedPrivileges(const Token& token, bool disableAll, const TOKEN_PRIVILEGES* wishes) {
  std::vector<LUID_AND_ATTRIBUTES> wished;
  if (disableAll) {
    for (const emulated::TokenPrivilege& privilege : token.privileges) wished.push_back({privilege.luid, 0});
    return wished;
  }
  const auto* const from = reinterpret_cast<const BYTE*>(wishes) + offsetof(TOKEN_PRIVILEGES, Privileges);
  wished.resize(wishes->PrivilegeCount);
  if (!wished.empty()) std::memcpy(wished.data(), from, wished.size() * sizeof(LUID_AND_ATTRIBUTES));
  return wished;
}

}  // namespace

BOOL OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess, HANDLE* TokenHandle) {
  WIN32_CALL(ProcessHandle, DesiredAccess);
  if (call.Refused()) return FALSE;
  if (!TokenHandle) return call.Done(ERROR_INVALID_PARAMETER);
  if (ProcessHandle != kCurrentProcess) return call.Done(ERROR_INVALID_HANDLE);
  *TokenHandle = emulated::NewHandle(Machine::Current().process.token, TokenAccess(DesiredAccess));
  return call.Done(ERROR_SUCCESS);
}

BOOL OpenThreadToken(HANDLE ThreadHandle, DWORD DesiredAccess, BOOL OpenAsSelf, HANDLE* TokenHandle) {
  WIN32_CALL(ThreadHandle, DesiredAccess, OpenAsSelf);
  if (call.Refused()) return FALSE;
  if (!TokenHandle) return call.Done(ERROR_INVALID_PARAMETER);
  if (ThreadHandle != kCurrentThread) return call.Done(ERROR_INVALID_HANDLE);
  const Machine& machine = Machine::Current();
  if (!machine.threadToken) return call.Done(ERROR_NO_TOKEN);
  *TokenHandle = emulated::NewHandle(machine.threadToken, TokenAccess(DesiredAccess));
  return call.Done(ERROR_SUCCESS);
}

BOOL GetTokenInformation(HANDLE TokenHandle, TOKEN_INFORMATION_CLASS TokenInformationClass,
                         void* TokenInformationBuffer, DWORD TokenInformationLength, DWORD* ReturnLength) {
  WIN32_CALL(TokenHandle, TokenInformationClass, TokenInformationBuffer, TokenInformationLength);
  if (call.Refused()) return FALSE;
  std::shared_ptr<Token> token;
  if (const DWORD error = TokenOf(TokenHandle, TOKEN_QUERY, token)) return call.Done(error);
  TokenInformation information(*token);
  if (!information.Measure(TokenInformationClass)) return call.Done(ERROR_INVALID_PARAMETER);
  if (ReturnLength) *ReturnLength = information.size();
  if (!TokenInformationBuffer || TokenInformationLength < information.size())
    return call.Done(ERROR_INSUFFICIENT_BUFFER);
  information.Write(static_cast<BYTE*>(TokenInformationBuffer));
  return call.Done(ERROR_SUCCESS);
}

BOOL LookupPrivilegeValueW(const char16_t* lpSystemName, const char16_t* lpName, LUID* lpLuid) {
  WIN32_CALL(lpSystemName, lpName);
  if (call.Refused()) return FALSE;
  if (!lpName || !lpLuid) return call.Done(ERROR_INVALID_PARAMETER);
  if (!emulated::PrivilegeLuid(lpName, *lpLuid)) return call.Done(ERROR_NO_SUCH_PRIVILEGE);
  return call.Done(ERROR_SUCCESS);
}

// TRUE also when the token lacks some of the privileges: then the last error is ERROR_NOT_ALL_ASSIGNED, else it is 0.
BOOL AdjustTokenPrivileges(HANDLE TokenHandle, BOOL DisableAllPrivileges, TOKEN_PRIVILEGES* NewState,
                           DWORD BufferLength, TOKEN_PRIVILEGES* PreviousState, DWORD* ReturnLength) {
  WIN32_CALL(TokenHandle, DisableAllPrivileges, NewState, BufferLength);
  if (call.Refused()) return FALSE;
  if (!DisableAllPrivileges && !NewState) return call.Done(ERROR_INVALID_PARAMETER);
  std::shared_ptr<Token> token;
  const ACCESS_MASK access = TOKEN_ADJUST_PRIVILEGES | (PreviousState ? TOKEN_QUERY : 0);
  if (const DWORD error = TokenOf(TokenHandle, access, token)) return call.Done(error);

  const std::vector<LUID_AND_ATTRIBUTES> wished = WishedPrivileges(*token, DisableAllPrivileges != 0, NewState);
  const std::vector<emulated::TokenPrivilege> unchanged = token->privileges;
  std::vector<LUID_AND_ATTRIBUTES> before;
  bool all = true;
  for (const LUID_AND_ATTRIBUTES& wish : wished) all = Adjust(*token, wish, before) && all;
  if (PreviousState) {
    const auto needed =
        static_cast<DWORD>(offsetof(TOKEN_PRIVILEGES, Privileges) + before.size() * sizeof(LUID_AND_ATTRIBUTES));
    if (ReturnLength) *ReturnLength = needed;
    if (BufferLength < needed) {
      token->privileges = unchanged;
      return call.Done(ERROR_INSUFFICIENT_BUFFER);
    }
    PreviousState->PrivilegeCount = static_cast<DWORD>(before.size());
    BYTE* const to = reinterpret_cast<BYTE*>(PreviousState) + offsetof(TOKEN_PRIVILEGES, Privileges);
    if (!before.empty()) std::memcpy(to, before.data(), before.size() * sizeof(LUID_AND_ATTRIBUTES));
  }
  emulated::SetLastError(all ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
  return call.Return(TRUE);
}

BOOL ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL ImpersonationLevel) {
  WIN32_CALL(ImpersonationLevel);
  if (call.Refused()) return FALSE;
  Machine& machine = Machine::Current();
  auto token = std::make_shared<Token>(*machine.process.token);
  token->impersonation = true;
  token->impersonationLevel = static_cast<int>(ImpersonationLevel);
  machine.threadToken = std::move(token);
  return call.Done(ERROR_SUCCESS);
}

BOOL RevertToSelf() {
  WIN32_CALL();
  if (call.Refused()) return FALSE;
  Machine::Current().threadToken = nullptr;
  return call.Done(ERROR_SUCCESS);
}

BOOL CheckTokenMembership(HANDLE TokenHandle, PSID SidToCheck, BOOL* IsMember) {
  WIN32_CALL(TokenHandle, SidToCheck);
  if (call.Refused()) return FALSE;
  if (!IsMember) return call.Done(ERROR_INVALID_PARAMETER);
  *IsMember = FALSE;
  const ByteView sid = emulated::SidOf(SidToCheck);
  if (sid.empty()) return call.Done(ERROR_INVALID_SID);
  if (!TokenHandle) {
    *IsMember = Machine::Current().EffectiveToken().Allows(sid);
    return call.Done(ERROR_SUCCESS);
  }
  std::shared_ptr<Token> token;
  if (const DWORD error = TokenOf(TokenHandle, TOKEN_QUERY, token)) return call.Done(error);
  if (!token->impersonation) return call.Done(ERROR_NO_IMPERSONATION_TOKEN);
  *IsMember = token->Allows(sid);
  return call.Done(ERROR_SUCCESS);
}

// The verdict is in AccessStatus; FALSE means that there could be none. No generic rights in DesiredAccess.
BOOL AccessCheck(PSECURITY_DESCRIPTOR pSecurityDescriptor, HANDLE ClientToken, DWORD DesiredAccess,
                 GENERIC_MAPPING* GenericMapping, PRIVILEGE_SET* PrivilegeSet, DWORD* PrivilegeSetLength,
                 DWORD* GrantedAccess, BOOL* AccessStatus) {
  WIN32_CALL(pSecurityDescriptor, ClientToken, DesiredAccess);
  if (call.Refused()) return FALSE;
  if (!GenericMapping || !PrivilegeSetLength || !GrantedAccess || !AccessStatus)
    return call.Done(ERROR_INVALID_PARAMETER);
  if ((DesiredAccess & emulated::kGenericBits) != 0) return call.Done(ERROR_GENERIC_NOT_MAPPED);
  std::shared_ptr<Token> token;
  if (const DWORD error = TokenOf(ClientToken, TOKEN_QUERY, token)) return call.Done(error);
  if (!token->impersonation) return call.Done(ERROR_NO_IMPERSONATION_TOKEN);
  if (token->impersonationLevel < static_cast<int>(SECURITY_IMPERSONATION_LEVEL::SecurityIdentification))
    return call.Done(ERROR_BAD_IMPERSONATION_LEVEL);
  if (!PrivilegeSet || *PrivilegeSetLength < sizeof(PRIVILEGE_SET)) {
    *PrivilegeSetLength = sizeof(PRIVILEGE_SET);
    return call.Done(ERROR_INSUFFICIENT_BUFFER);
  }
  const Bytes descriptor = emulated::SelfRelative(pSecurityDescriptor);
  const auto view = emulated::ViewDescriptor(descriptor);
  if (!view || view->owner.empty() || view->group.empty()) return call.Done(ERROR_INVALID_SECURITY_DESCR);

  DWORD granted = 0;
  DWORD denied =
      emulated::CheckAccess(*token, descriptor, DesiredAccess, *GenericMapping, false, std::nullopt, granted);
  if (DesiredAccess == 0) denied = ERROR_ACCESS_DENIED;
  *PrivilegeSet = {};
  *GrantedAccess = denied == 0 ? granted : 0;
  *AccessStatus = denied == 0 ? TRUE : FALSE;
  if (denied != 0) emulated::SetLastError(denied);
  return call.Return(TRUE);
}

}  // namespace win32
