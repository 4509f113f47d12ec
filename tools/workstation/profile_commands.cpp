// profile, session: who has a profile, and who is logged on.

#include <algorithm>
#include <cstdio>

#include "win32/emulated/registry/hive_file.h"
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

// What a path may not have, and a name neither.
constexpr std::string_view kNotInNames = "\"/\\[]:;|=,+*?<>@";
constexpr std::size_t kLongestName = 20;

// A file of this name cannot be made: "CON", "com1.txt".
bool IsDeviceName(std::string_view name) {
  std::u16string base = emulated::LowerAscii(Utf16(name.substr(0, name.find('.'))));
  base.resize(base.find_last_not_of(u' ') + 1);
  for (const auto* const device : {u"con", u"prn", u"aux", u"nul", u"conin$", u"conout$"})
    if (base == device) return true;
  const bool isPort = base.starts_with(u"com") || base.starts_with(u"lpt");
  return isPort && base.size() == 4 && base[3] >= u'1' && base[3] <= u'9';
}

// An account of this machine, made when there is none of that name.
Account LocalAccountFor(emulated::Machine& machine, const std::string& name) {
  const auto known = emulated::FindAccount(machine, emulated::ComputerName(machine) + u"\\" + Utf16(name));
  if (known) return *known;
  RefuseNameOfWindows(name);
  const emulated::UpCase& upCase = machine.registry().upCase();
  if (upCase(Utf16(name)) == upCase(emulated::ComputerName(machine)))
    throw Failure("\"" + name + "\" is the machine's own name");
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

[[noreturn]] void FailFirstLogon(const std::string& user, win32::DWORD error) {
  if (error == win32::ERROR_FILE_NOT_FOUND) throw Failure(user + ": the default profile has no NTUSER.DAT");
  if (error == emulated::kBadDatabase) throw Failure(user + ": the default profile's NTUSER.DAT is damaged or dirty");
  FailWith(user, error);
}

}  // namespace

AccountName ParseAccountName(const std::string& text) {
  const std::size_t cut = text.find('\\');
  AccountName account{cut == text.npos ? "" : text.substr(0, cut), cut == text.npos ? text : text.substr(cut + 1)};
  const std::string& name = account.name;
  const auto isControl = [](unsigned char byte) { return byte < 0x20; };
  if ((cut != text.npos && (account.domain.empty() || account.domain.find(' ') != text.npos)) || name.empty() ||
      name.find_first_of(kNotInNames) != name.npos || std::any_of(name.begin(), name.end(), isControl) ||
      name.front() == ' ' || name.back() == ' ' || name.back() == '.')
    throw Failure("\"" + text + "\" is not a user's name");
  if (Utf16(name).size() > kLongestName)
    throw Failure("\"" + text + "\": a user's name has " + std::to_string(kLongestName) + " characters at most");
  if (!account.domain.empty() && emulated::IsNameOfTheSystem(Utf16(account.domain)))
    throw Failure("\"" + text + "\": Windows' own \"" + account.domain + "\" has no users");
  if (IsDeviceName(name)) throw Failure("\"" + text + "\": no folder can have the name of a device");
  return account;
}

void RefuseNameOfWindows(const std::string& name) {
  const std::u16string text = Utf16(name);
  constexpr std::u16string_view kNames[] = {u"Public",        u"Default",      u"Default User",  u"All Users",
                                            u"desktop.ini",   u"Guest",        u"Administrator", u"DefaultAccount",
                                            u"systemprofile", u"LocalService", u"NetworkService"};
  const bool isFolder = std::any_of(std::begin(kNames), std::end(kNames),
                                    [&](std::u16string_view known) { return emulated::EqualAsciiNoCase(known, text); });
  if (isFolder || emulated::IsNameOfTheSystem(text))
    throw Failure("\"" + name + "\" is a name of Windows' own; no user can have it here");
}

emulated::DomainAccount DomainAccountFor(emulated::WorkstationState& state, const AccountName& account,
                                         const emulated::UpCase& upCase) {
  const std::u16string domain = Utf16(account.domain), name = Utf16(account.name);
  Sid domainSid = DomainSidFor(domain);
  win32::DWORD rid = kFirstUser + 100;
  for (const emulated::DomainAccount& known : state.domainAccounts) {
    if (upCase(known.domain) != upCase(domain)) continue;
    if (upCase(known.name) == upCase(name)) return known;
    domainSid = emulated::DomainOf(known.sid);
    rid = std::max(rid, RidOf(known.sid) + 1);
  }
  return state.domainAccounts.emplace_back(emulated::DomainAccount{domain, emulated::LowerAscii(domain) + u".example",
                                                                   name, emulated::WithRid(domainSid, rid)});
}

void Profile(const fs::path& folder, const Arguments& arguments) {
  if (arguments[0] == "list" && arguments.size() == 1) return OnMachine(folder, false, ListProfiles);
  if (arguments[0] != "add" || arguments.size() != 2) throw Failure("profile takes list, or add NAME");
  const std::string& user = arguments[1];
  const AccountName wanted = ParseAccountName(user);
  Account account;
  std::u16string made;
  OnStation(folder, true, [&](emulated::Workstation& station) {
    emulated::Machine& machine = station.machine();
    const emulated::UpCase& upCase = machine.registry().upCase();
    if (wanted.domain.empty() || upCase(Utf16(wanted.domain)) == upCase(emulated::ComputerName(machine))) {
      account = LocalAccountFor(machine, wanted.name);
    } else {
      const emulated::DomainAccount known = DomainAccountFor(station.state(), wanted, upCase);
      account = {known.domain, known.name, known.sid, kUser};
    }
    if (emulated::IsDisabled(machine, account.sid)) throw Failure(user + ": the account is disabled");
    if (const win32::DWORD error = emulated::CreateUserProfile(machine, account, made)) FailFirstLogon(user, error);
  });
  std::printf("%s %s\n", Utf8(emulated::SidToText(account.sid)).c_str(), Utf8(made).c_str());
}

void Session(const fs::path& folder, const Arguments& arguments) {
  if (arguments[0] != "begin" && arguments[0] != "end") throw Failure("session takes begin USER or end USER");
  OnStation(folder, true, [&](emulated::Workstation& station) {
    const std::string sid = SidOfUser(station.machine(), arguments[1]);
    if (arguments[0] == "begin") {
      station.state().sessions.insert(sid);
    } else if (station.state().sessions.erase(sid) == 0) {
      throw Failure("\"" + arguments[1] + "\" has no session");
    }
  });
}

}  // namespace workstation
