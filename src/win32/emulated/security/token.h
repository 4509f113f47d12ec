// Access tokens: who acts, with which groups and privileges.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/bytes.h"
#include "win32/emulated/object.h"
#include "win32/types.h"

namespace emulated {

// A security identifier in its binary form (revision, count, authority, sub-authorities; MS-DTYP 2.4.2.2).
using Sid = Bytes;

// From and to the text S-1-...; an empty Sid for a malformed text, an empty text for a malformed Sid.
Sid SidFromText(std::u16string_view text);
std::u16string SidToText(ByteView sid);
// The length of the SID that `bytes` begins with; 0 when there is none that lies inside `bytes`.
std::size_t SidLength(ByteView bytes);
// The SID behind a pointer of the program's; an empty view for null or what is no SID.
ByteView SidOf(const void* sid);

struct TokenGroup {
  Sid sid;
  win32::DWORD attributes = 0;  // SE_GROUP_*
};

struct TokenPrivilege {
  win32::LUID luid{};
  win32::DWORD attributes = 0;  // SE_PRIVILEGE_*
};

// The privileges that decisions are made with; the value is the low part of Windows' LUID.
enum class Privilege : win32::DWORD {
  Security = 8,
  TakeOwnership = 9,
  Backup = 17,
  Restore = 18,
  CreateSymbolicLink = 35,
};

class Token : public Object {
 public:
  const char16_t* TypeName() const override { return u"Token"; }

  Sid user;
  std::vector<TokenGroup> groups;
  std::vector<TokenPrivilege> privileges;
  Sid owner;          // of what this token creates
  Sid primaryGroup;   // of what this token creates
  Bytes defaultDacl;  // an ACL; may be empty
  bool impersonation = false;
  int impersonationLevel = 0;

  bool HasPrivilege(std::u16string_view name) const;  // held, enabled or not
  bool PrivilegeEnabled(std::u16string_view name) const;
  bool PrivilegeEnabled(Privilege privilege) const;
  bool EnablePrivilege(std::u16string_view name, bool enable);  // false when it is not held

  // Does an entry that allows (denies) `sid` apply? A group that is there for deny only counts for denying.
  bool Allows(ByteView sid) const;
  bool Denies(ByteView sid) const;

 private:
  const TokenPrivilege* Find(win32::DWORD luid) const;
};

// u"SeBackupPrivilege" -> its LUID, in any case; false for an unknown name.
bool PrivilegeLuid(std::u16string_view name, win32::LUID& luid);

// Tokens that a machine can start a process with. All privileges of an elevated administrator are held and, but for
// SeChangeNotify, SeImpersonate and SeCreateGlobal, disabled, as Windows hands them out.
std::shared_ptr<Token> MakeAdministratorToken(const Sid& user);
// An administrator who is not elevated: Administrators is there for deny only, the strong privileges are absent.
std::shared_ptr<Token> MakeFilteredAdministratorToken(const Sid& user);
std::shared_ptr<Token> MakeUserToken(const Sid& user);
std::shared_ptr<Token> MakeSystemToken();

}  // namespace emulated
