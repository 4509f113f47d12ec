// profile, session: who has a profile, and who is logged on.

#include <algorithm>
#include <cstdio>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/security/accounts.h"
#include "win32/emulated/setup/first_logon.h"
#include "win32/emulated/setup/windows_installation.h"
#include "win32/emulated/text.h"
#include "workstation/command.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::Account;
using emulated::Sid;
using emulated::Utf16;
using emulated::Utf8;

namespace {

constexpr win32::DWORD kFirstUser = 1001;
constexpr int kUser = static_cast<int>(win32::SID_NAME_USE::SidTypeUser);

emulated::WorkstationState ReadState(const fs::path& folder) {
  emulated::WorkstationState state;
  std::string error;
  if (!emulated::Workstation::ReadState(folder, state, error)) throw Failure(error);
  return state;
}

void WriteState(const fs::path& folder, const emulated::WorkstationState& state) {
  std::string error;
  if (!emulated::Workstation::WriteState(folder, state, error)) throw Failure(error);
}

win32::DWORD RidOf(const Sid& sid) { return emulated::LoadLittleEndian<std::uint32_t>(sid, sid.size() - 4); }

// Three numbers that a domain has as its own, made of its name.
Sid DomainSidFor(std::u16string_view domain) {
  Sid sid = emulated::SidFromText(u"S-1-5-21");
  for (std::uint32_t part = 1; part <= 3; ++part) {
    std::uint32_t hash = 2166136261u + part;
    for (const char16_t unit : emulated::LowerAscii(domain)) hash = (hash ^ unit) * 16777619u;
    emulated::AppendLittleEndian(sid, hash);
    ++sid[1];
  }
  return sid;
}

std::u16string AccountText(const Account& account) {
  return account.domain.empty() ? account.name : account.domain + u"\\" + account.name;
}

void ListProfiles(emulated::Machine& machine) {
  const std::u16string list(emulated::kProfileList);
  for (const std::u16string& sid : machine.registry().SubKeys(list)) {
    const auto folder = machine.registry().Query(list + u"\\" + sid, u"ProfileImagePath");
    const auto account = emulated::FindAccount(machine, emulated::ByteView(emulated::SidFromText(sid)));
    std::printf("%-48s %-28s %s\n", Utf8(sid).c_str(), account ? Utf8(AccountText(*account)).c_str() : "-",
                folder ? Utf8(folder->Text()).c_str() : "-");
  }
}

// An account of this machine, made when there is none of that name.
Account LocalAccountFor(emulated::Machine& machine, const std::string& name) {
  const auto known = emulated::FindAccount(machine, std::u16string_view(Utf16(name)));
  if (known && known->use == kUser) return *known;
  if (known) throw Failure("\"" + name + "\" is the name of something else");
  win32::DWORD rid = kFirstUser;
  for (const emulated::LocalAccount& account : emulated::LocalAccounts(machine)) rid = std::max(rid, account.rid + 1);
  if (!emulated::AddLocalAccount(machine, Utf16(name), rid))
    throw Failure("\"" + name + "\": the machine's SAM takes no accounts");
  return {emulated::ComputerName(machine), Utf16(name), emulated::WithRid(emulated::MachineSid(machine), rid), kUser};
}

std::string SidOfUser(emulated::Machine& machine, const std::string& user) {
  if (!emulated::SidFromText(Utf16(user)).empty()) return user;
  const auto account = emulated::FindAccount(machine, std::u16string_view(Utf16(user)));
  if (!account || account->use != kUser) throw Failure("\"" + user + "\": no such user");
  return Utf8(emulated::SidToText(account->sid));
}

}  // namespace

bool SplitAccountName(const std::string& text, std::string& domain, std::string& name) {
  const std::size_t cut = text.find('\\');
  domain = cut == text.npos ? "" : text.substr(0, cut);
  name = cut == text.npos ? text : text.substr(cut + 1);
  const bool isDomain = cut == text.npos || (!domain.empty() && domain.find(' ') == domain.npos);
  return isDomain && !name.empty() && name.find_first_of("\"/\\[]:;|=,+*?<>@") == name.npos;
}

emulated::DomainAccount DomainAccountFor(emulated::WorkstationState& state, const std::string& domain,
                                         const std::string& name) {
  const std::u16string domainName = Utf16(domain), accountName = Utf16(name);
  Sid domainSid = DomainSidFor(domainName);
  win32::DWORD rid = kFirstUser + 100;
  for (const emulated::DomainAccount& account : state.domainAccounts) {
    if (!emulated::EqualAsciiNoCase(account.domain, domainName)) continue;
    if (emulated::EqualAsciiNoCase(account.name, accountName)) return account;
    domainSid = emulated::DomainOf(account.sid);
    rid = std::max(rid, RidOf(account.sid) + 1);
  }
  return state.domainAccounts.emplace_back(emulated::DomainAccount{
      domainName, emulated::LowerAscii(domainName) + u".example", accountName, emulated::WithRid(domainSid, rid)});
}

void Profile(const fs::path& folder, const Arguments& arguments) {
  if (arguments[0] == "list" && arguments.size() == 1) return OnMachine(folder, false, ListProfiles);
  std::string domain, name;
  if (arguments[0] != "add" || arguments.size() != 2) throw Failure("profile takes list, or add NAME");
  if (!SplitAccountName(arguments[1], domain, name)) throw Failure("\"" + arguments[1] + "\" is not a user's name");
  emulated::WorkstationState state = ReadState(folder);
  OnMachine(folder, true, [&](emulated::Machine& machine) {
    Account account;
    if (domain.empty() || emulated::EqualAsciiNoCase(Utf16(domain), emulated::ComputerName(machine))) {
      account = LocalAccountFor(machine, name);
    } else {
      const emulated::DomainAccount known = DomainAccountFor(state, domain, name);
      account = {known.domain, known.name, known.sid, kUser};
    }
    std::u16string made;
    if (const win32::DWORD error = emulated::CreateUserProfile(machine, account, made)) FailWith(arguments[1], error);
    std::printf("%s %s\n", Utf8(emulated::SidToText(account.sid)).c_str(), Utf8(made).c_str());
  });
  WriteState(folder, state);
}

void Session(const fs::path& folder, const Arguments& arguments) {
  if (arguments[0] != "begin" && arguments[0] != "end") throw Failure("session takes begin USER or end USER");
  std::string sid;
  OnMachine(folder, false, [&](emulated::Machine& machine) { sid = SidOfUser(machine, arguments[1]); });
  emulated::WorkstationState state = ReadState(folder);
  if (arguments[0] == "begin") {
    state.sessions.insert(sid);
  } else if (state.sessions.erase(sid) == 0) {
    throw Failure("\"" + arguments[1] + "\" has no session");
  }
  WriteState(folder, state);
}

}  // namespace workstation
