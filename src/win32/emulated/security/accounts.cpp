// Accounts: the look-ups by name and by SID, and the SAM hive.
#include "win32/emulated/security/accounts.h"

#include <algorithm>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/emulated/text.h"
#include "win32/security.h"

namespace emulated {

namespace {

using win32::DWORD;

enum Use : int { kUser = 1, kDomain = 3, kAlias = 4, kWellKnownGroup = 5 };

constexpr std::u16string_view kAccountDomain = u"HKLM\\SAM\\SAM\\Domains\\Account";
constexpr std::size_t kSubAuthority = 4;        // the size of one
constexpr std::size_t kMachineIdentifier = 12;  // the three of a machine, at the end of the domain's value V

struct KnownAccount {
  std::u16string_view domain, name, sid;
  Use use;
};
constexpr KnownAccount kKnownAccounts[] = {
    {u"", u"Everyone", u"S-1-1-0", kWellKnownGroup},
    {u"", u"CREATOR OWNER", u"S-1-3-0", kWellKnownGroup},
    {u"NT AUTHORITY", u"INTERACTIVE", u"S-1-5-4", kWellKnownGroup},
    {u"NT AUTHORITY", u"SERVICE", u"S-1-5-6", kWellKnownGroup},
    {u"NT AUTHORITY", u"Authenticated Users", u"S-1-5-11", kWellKnownGroup},
    {u"NT AUTHORITY", u"SYSTEM", u"S-1-5-18", kWellKnownGroup},
    {u"NT AUTHORITY", u"LOCAL SERVICE", u"S-1-5-19", kWellKnownGroup},
    {u"NT AUTHORITY", u"NETWORK SERVICE", u"S-1-5-20", kWellKnownGroup},
    {u"BUILTIN", u"", u"S-1-5-32", kDomain},
    {u"BUILTIN", u"Administrators", u"S-1-5-32-544", kAlias},
    {u"BUILTIN", u"Users", u"S-1-5-32-545", kAlias},
    {u"BUILTIN", u"Guests", u"S-1-5-32-546", kAlias},
    {u"BUILTIN", u"Backup Operators", u"S-1-5-32-551", kAlias},
};

std::u16string EightDigits(DWORD number) {
  std::u16string digits;
  for (int shift = 28; shift >= 0; shift -= 4) digits += u"0123456789ABCDEF"[number >> shift & 0xF];
  return digits;
}

std::u16string NameKey(std::u16string_view name) {
  return std::u16string(kAccountDomain) + u"\\Users\\Names\\" + std::u16string(name);
}

std::u16string UserKey(DWORD rid) { return std::u16string(kAccountDomain) + u"\\Users\\" + EightDigits(rid); }

Account WellKnown(const KnownAccount& known) {
  return {std::u16string(known.domain), std::u16string(known.name), SidFromText(known.sid), known.use};
}

Account Own(const std::u16string& computer, const Sid& machineSid, const LocalAccount& local) {
  return {computer, local.name, WithRid(machineSid, local.rid), kUser};
}

Account InDomain(const DomainAccount& account) { return {account.domain, account.name, account.sid, kUser}; }

// Every account and domain of a machine, in the order in which a name without a domain is looked for.
std::vector<Account> AllAccounts(Machine& machine) {
  std::vector<Account> all;
  for (const KnownAccount& known : kKnownAccounts) all.push_back(WellKnown(known));
  if (const Sid own = MachineSid(machine); !own.empty()) {
    const std::u16string computer = ComputerName(machine);
    all.push_back({computer, {}, own, kDomain});
    for (const LocalAccount& local : LocalAccounts(machine)) all.push_back(Own(computer, own, local));
  }
  for (const DomainAccount& account : machine.domainAccounts)
    all.push_back({account.domain, {}, DomainOf(account.sid), kDomain});
  for (const DomainAccount& account : machine.domainAccounts) all.push_back(InDomain(account));
  return all;
}

// What a user's value V begins with: where each of 17 texts and tables lies behind this head, how long it is, and a
// number. Only the name is there.
Bytes UserVariableData(std::u16string_view name) {
  constexpr std::size_t kParts = 17, kNamePart = 1;
  Bytes data;
  for (std::size_t part = 0; part < kParts; ++part) {
    AppendLittleEndian(data, static_cast<DWORD>(part > kNamePart ? name.size() * 2 : 0));
    AppendLittleEndian(data, static_cast<DWORD>(part == kNamePart ? name.size() * 2 : 0));
    AppendLittleEndian(data, DWORD{0});
  }
  for (const char16_t unit : name) AppendLittleEndian(data, unit);
  return data;
}

constexpr std::size_t kFlagsOfUser = 0x38;  // in a user's value F

// A user's value F: of its 80 bytes, the number and the flags.
Bytes UserFixedData(DWORD rid, DWORD flags) {
  constexpr std::size_t kSize = 80, kRid = 0x30, kGroup = 0x34;
  constexpr DWORD kUsersGroup = 513, kGuestsGroup = 514, kGuest = 501;
  Bytes data(kSize);
  data[0] = 2;  // the format
  StoreLittleEndian(data, kRid, rid);
  StoreLittleEndian(data, kGroup, rid == kGuest ? kGuestsGroup : kUsersGroup);
  StoreLittleEndian(data, kFlagsOfUser, flags);
  return data;
}

// The groups that every machine has: their names, as those of users, with the number as the type of the default value.
void MakeBuiltinDomain(Registry& registry) {
  const std::u16string aliases = u"HKLM\\SAM\\SAM\\Domains\\Builtin\\Aliases";
  for (const KnownAccount& known : kKnownAccounts) {
    if (known.use != kAlias) continue;
    const Sid sid = SidFromText(known.sid);
    const auto rid = LoadLittleEndian<std::uint32_t>(sid, sid.size() - kSubAuthority);
    registry.CreateKey(aliases + u"\\" + EightDigits(rid));
    registry.Set(aliases + u"\\Names\\" + std::u16string(known.name), {}, rid, {});
  }
}

// Names are told apart as those of files and keys are: in upper case, by the machine's table.
class NameEquality {
 public:
  explicit NameEquality(Machine& machine) : upCase_(machine.registry().upCase()) {}
  bool operator()(std::u16string_view a, std::u16string_view b) const {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [this](char16_t x, char16_t y) { return upCase_(x) == upCase_(y); });
  }

 private:
  const UpCase& upCase_;
};

}  // namespace

Sid DomainOf(ByteView account) {
  Sid domain(account.begin(), account.end());
  if (domain.size() < 8 + kSubAuthority) return {};
  domain.resize(domain.size() - kSubAuthority);
  --domain[1];
  return domain;
}

Sid WithRid(ByteView domain, DWORD rid) {
  Sid account(domain.begin(), domain.end());
  AppendLittleEndian(account, std::uint32_t{rid});
  ++account[1];
  return account;
}

std::u16string ComputerName(Machine& machine) {
  const auto name = machine.registry().Query(
      u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ActiveComputerName", u"ComputerName");
  return name ? name->Text() : std::u16string();
}

Sid MachineSid(Machine& machine) {
  const auto value = machine.registry().Query(kAccountDomain, u"V");
  if (!value || value->data.size() < kMachineIdentifier) return {};
  Sid sid = SidFromText(u"S-1-5-21");
  sid.insert(sid.end(), value->data.end() - kMachineIdentifier, value->data.end());
  sid[1] += 3;
  return sid;
}

void SetMachineSid(Machine& machine, ByteView sid) {
  if (SidLength(sid) != 8 + 4 * kSubAuthority || !MachineSid(machine).empty()) return;
  Registry& registry = machine.registry();
  // Nobody but the system looks into the accounts; administrators may change that.
  registry.CreateKey(u"HKLM\\SAM\\SAM");
  if (const auto security = DescriptorFromText(u"O:BAG:SYD:PAI(A;CI;KA;;;SY)(A;CI;RCWD;;;BA)"))
    registry.SetSecurity(u"HKLM\\SAM\\SAM", *security);
  registry.Set(kAccountDomain, u"V", win32::REG_BINARY, sid.last(kMachineIdentifier));
  registry.CreateKey(std::u16string(kAccountDomain) + u"\\Users\\Names");
  MakeBuiltinDomain(registry);
}

std::vector<LocalAccount> LocalAccounts(Machine& machine) {
  std::vector<LocalAccount> accounts;
  Registry& registry = machine.registry();
  for (const std::u16string& name : registry.SubKeys(std::u16string(kAccountDomain) + u"\\Users\\Names")) {
    const auto value = registry.Query(NameKey(name), {});
    if (value) accounts.push_back({name, value->type});  // the type is the number
  }
  return accounts;
}

bool AddLocalAccount(Machine& machine, std::u16string_view name, DWORD rid, DWORD flags) {
  Registry& registry = machine.registry();
  if (name.empty() || MachineSid(machine).empty() || registry.KeyExists(NameKey(name)) ||
      registry.KeyExists(UserKey(rid)))
    return false;
  registry.Set(NameKey(name), {}, rid, {});
  registry.Set(UserKey(rid), u"F", win32::REG_BINARY, UserFixedData(rid, flags));
  registry.Set(UserKey(rid), u"V", win32::REG_BINARY, UserVariableData(name));
  return true;
}

bool IsDisabled(Machine& machine, ByteView account) {
  if (account.size() < kSubAuthority || DomainOf(account) != MachineSid(machine)) return false;
  const auto rid = LoadLittleEndian<std::uint32_t>(account, account.size() - kSubAuthority);
  const auto data = machine.registry().Query(UserKey(rid), u"F");
  return data && data->data.size() >= kFlagsOfUser + sizeof(DWORD) &&
         (LoadLittleEndian<std::uint32_t>(data->data, kFlagsOfUser) & kAccountDisabled) != 0;
}

bool RemoveLocalAccount(Machine& machine, std::u16string_view name) {
  const auto value = machine.registry().Query(NameKey(name), {});
  if (!value) return false;
  machine.registry().DeleteTree(UserKey(value->type));
  return machine.registry().DeleteTree(NameKey(name));
}

bool IsNameOfTheSystem(std::u16string_view name) {
  return std::any_of(std::begin(kKnownAccounts), std::end(kKnownAccounts), [&](const KnownAccount& known) {
    return EqualAsciiNoCase(known.name, name) || EqualAsciiNoCase(known.domain, name);
  });
}

std::optional<Account> FindAccount(Machine& machine, std::u16string_view name) {
  const NameEquality equal(machine);
  std::u16string_view domain;
  bool qualified = false;
  if (const std::size_t cut = name.find(u'\\'); cut != name.npos) {
    domain = name.substr(0, cut);
    name.remove_prefix(cut + 1);
    qualified = true;
  } else if (const std::size_t at = name.rfind(u'@'); at != name.npos) {
    for (const DomainAccount& account : machine.domainAccounts)
      if (equal(account.dnsDomain, name.substr(at + 1)) && equal(account.name, name.substr(0, at)))
        return InDomain(account);
  }
  const auto isIn = [&](const Account& account) {
    if (!qualified || equal(account.domain, domain)) return true;
    return std::any_of(machine.domainAccounts.begin(), machine.domainAccounts.end(), [&](const DomainAccount& other) {
      return equal(other.dnsDomain, domain) && other.sid == account.sid;
    });
  };
  // No name at all is that of the built-in domain; a domain's own name means the domain.
  if (name.empty() && !qualified) name = u"BUILTIN";
  for (const Account& account : AllAccounts(machine)) {
    const bool isDomain = account.use == kDomain;
    if (isDomain ? !qualified && equal(account.domain, name) : equal(account.name, name) && isIn(account))
      return account;
  }
  return std::nullopt;
}

std::optional<Account> FindAccount(Machine& machine, ByteView sid) {
  for (const Account& account : AllAccounts(machine))
    if (std::equal(account.sid.begin(), account.sid.end(), sid.begin(), sid.end())) return account;
  return std::nullopt;
}

}  // namespace emulated

namespace win32 {

namespace {

using emulated::Account;
using emulated::Machine;

constexpr DWORD kServerUnavailable = 1722;  // RPC_S_SERVER_UNAVAILABLE

// Only this machine answers.
bool IsThisSystem(Machine& machine, const char16_t* name) {
  if (!name || !*name) return true;
  const std::u16string_view plain = std::u16string_view(name).starts_with(u"\\\\") ? name + 2 : name;
  return emulated::NameEquality(machine)(plain, emulated::ComputerName(machine));
}

// A buffer of the caller's for a text: `length` is its size in units, and afterwards what is in it, or what it needs.
struct TextBuffer {
  char16_t* text;
  DWORD* length;

  bool Holds(const std::u16string& value) const { return text && *length > value.size(); }
  void Fill(const std::u16string& value) const {
    std::copy_n(value.c_str(), value.size() + 1, text);
    *length = static_cast<DWORD>(value.size());
  }
  void Demand(const std::u16string& value) const { *length = static_cast<DWORD>(value.size() + 1); }
};

}  // namespace

BOOL LookupAccountNameW(const char16_t* lpSystemName, const char16_t* lpAccountName, PSID Sid, DWORD* cbSid,
                        char16_t* ReferencedDomainName, DWORD* cchReferencedDomainName, SID_NAME_USE* peUse) {
  WIN32_CALL(lpSystemName, lpAccountName);
  if (call.Refused()) return FALSE;
  Machine& machine = Machine::Current();
  if (!cbSid || !cchReferencedDomainName || !peUse) return call.Done(ERROR_INVALID_PARAMETER);
  if (!IsThisSystem(machine, lpSystemName)) return call.Done(kServerUnavailable);
  const auto account = emulated::FindAccount(machine, std::u16string_view(lpAccountName ? lpAccountName : u""));
  if (!account) return call.Done(ERROR_NONE_MAPPED);
  const TextBuffer domain{ReferencedDomainName, cchReferencedDomainName};
  *peUse = static_cast<SID_NAME_USE>(account->use);
  if (!Sid || *cbSid < account->sid.size() || !domain.Holds(account->domain)) {
    *cbSid = static_cast<DWORD>(account->sid.size());
    domain.Demand(account->domain);
    return call.Done(ERROR_INSUFFICIENT_BUFFER);
  }
  std::memcpy(Sid, account->sid.data(), account->sid.size());
  domain.Fill(account->domain);
  return call.Done(ERROR_SUCCESS);
}

BOOL LookupAccountSidW(const char16_t* lpSystemName, PSID Sid, char16_t* Name, DWORD* cchName,
                       char16_t* ReferencedDomainName, DWORD* cchReferencedDomainName, SID_NAME_USE* peUse) {
  WIN32_CALL(lpSystemName, Sid);
  if (call.Refused()) return FALSE;
  Machine& machine = Machine::Current();
  const emulated::ByteView sid = emulated::SidOf(Sid);
  if (sid.empty() || !cchName || !cchReferencedDomainName || !peUse) return call.Done(ERROR_INVALID_PARAMETER);
  if (!IsThisSystem(machine, lpSystemName)) return call.Done(kServerUnavailable);
  const auto account = emulated::FindAccount(machine, sid);
  if (!account) return call.Done(ERROR_NONE_MAPPED);
  const TextBuffer name{Name, cchName}, domain{ReferencedDomainName, cchReferencedDomainName};
  // A domain is its own name.
  const std::u16string& own = account->name.empty() ? account->domain : account->name;
  *peUse = static_cast<SID_NAME_USE>(account->use);
  if (!name.Holds(own) || !domain.Holds(account->domain)) {
    name.Demand(own);
    domain.Demand(account->domain);
    return call.Done(ERROR_INSUFFICIENT_BUFFER);
  }
  name.Fill(own);
  domain.Fill(account->domain);
  return call.Done(ERROR_SUCCESS);
}

}  // namespace win32
