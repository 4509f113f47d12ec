// Whose SID is whose: well-known and built-in accounts, this machine's own (in its SAM hive, where Windows keeps them)
// and those of domains (Machine::domainAccounts).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/machine.h"

namespace emulated {

struct Account {
  std::u16string domain;  // the machine's name for its own; u"NT AUTHORITY", u"BUILTIN"; empty for u"Everyone"
  std::u16string name;    // empty for a domain itself
  Sid sid;
  int use = 0;  // SID_NAME_USE
};

// The name that the machine started with; empty without a registry.
std::u16string ComputerName(Machine& machine);

// Whether an account or a domain of every Windows has this name: no user can have it.
bool IsNameOfTheSystem(std::u16string_view name);

// NAME, DOMAIN\NAME (the domain's short or its DNS name) or NAME@DNSDOMAIN, in any letter case.
std::optional<Account> FindAccount(Machine& machine, std::u16string_view name);
std::optional<Account> FindAccount(Machine& machine, ByteView sid);

// The machine's own accounts. Nothing on a machine whose SAM holds none (one made before, or without hives).
// The SID that those of all its accounts begin with; empty when the SAM does not tell it.
Sid MachineSid(Machine& machine);
// Makes `sid` (S-1-5-21-x-y-z) the machine's; part of an installation. Nothing happens where it has one.
void SetMachineSid(Machine& machine, ByteView sid);
struct LocalAccount {
  std::u16string name;
  win32::DWORD rid = 0;
};
std::vector<LocalAccount> LocalAccounts(Machine& machine);
// What the SAM says of an account.
inline constexpr win32::DWORD kAccountDisabled = 0x1, kNoPasswordNeeded = 0x4, kNormalAccount = 0x10,
                              kPasswordStays = 0x200;
// False when the name or the number is taken, or there is no machine SID.
bool AddLocalAccount(Machine& machine, std::u16string_view name, win32::DWORD rid,
                     win32::DWORD flags = kNormalAccount | kPasswordStays);
// Whether nobody may log on as this account of the machine's own. False for any other SID.
bool IsDisabled(Machine& machine, ByteView account);
bool RemoveLocalAccount(Machine& machine, std::u16string_view name);

// The SID's last number taken off, or put behind it.
Sid DomainOf(ByteView account);
Sid WithRid(ByteView domain, win32::DWORD rid);

}  // namespace emulated
