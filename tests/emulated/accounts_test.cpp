// Whose SID is whose: names and SIDs of this machine and of its domain. Those of the system are Windows' own
// everywhere.
#include "win32/emulated/security/accounts.h"

#include "emulated/on_machine.h"

namespace {

using namespace win32;

constexpr std::u16string_view kMaria = u"S-1-5-21-100-200-300-1101",
                              kBerg = u"S-1-5-21-1004336348-1177238915-682003330-1007";

class WorkstationAccounts : public test::OnWindows {
 protected:
  WorkstationAccounts() {
    for (const auto& [name, sid] : {std::pair{u"maria", kMaria}, {u"anna", u"S-1-5-21-100-200-300-1102"}})
      machine->domainAccounts.push_back({u"CORP", u"corp.example", name, emulated::SidFromText(sid)});
    emulated::AddLocalAccount(*machine, u"Anna Berg", 1007);
    emulated::AddLocalAccount(*machine, u"\u00FCnal", 1008);
  }

  // "SID domain use", or the error.
  static std::string ByName(const std::u16string& name, const char16_t* system = nullptr) {
    BYTE sid[68];
    char16_t domain[64];
    DWORD sidSize = sizeof sid, domainSize = 64;
    SID_NAME_USE use{};
    if (!LookupAccountNameW(system, name.c_str(), sid, &sidSize, domain, &domainSize, &use))
      return std::to_string(GetLastError());
    return emulated::Utf8(emulated::SidToText(emulated::SidOf(sid)) + u" " + std::u16string(domain, domainSize)) + ' ' +
           std::to_string(static_cast<int>(use));
  }
  // "domain\name use", or the error.
  static std::string BySid(std::u16string_view text) {
    emulated::Sid sid = emulated::SidFromText(text);
    char16_t name[64], domain[64];
    DWORD nameSize = 64, domainSize = 64;
    SID_NAME_USE use{};
    if (!LookupAccountSidW(nullptr, sid.data(), name, &nameSize, domain, &domainSize, &use))
      return std::to_string(GetLastError());
    return emulated::Utf8(std::u16string(domain, domainSize) + u"\\" + std::u16string(name, nameSize)) + ' ' +
           std::to_string(static_cast<int>(use));
  }
};

TEST_F(WorkstationAccounts, AreFoundByTheFormsOfNameThatWindowsTakes) {
  const std::string own = "S-1-5-21-1004336348-1177238915-682003330", maria = emulated::Utf8(kMaria);
  const std::pair<std::vector<std::u16string>, std::string> cases[] = {
      {{u"anna", u"ANNA"}, own + "-1001 WORKSTATION 1"},
      {{u"anna berg", u"Workstation\\Anna Berg"}, own + "-1007 WORKSTATION 1"},
      {{u"\u00DCNAL", u"workstation\\\u00FCNaL"}, own + "-1008 WORKSTATION 1"},
      {{u"Administrator"}, own + "-500 WORKSTATION 1"},
      {{u"WORKSTATION"}, own + " WORKSTATION 3"},
      {{u"maria", u"corp\\Maria", u"corp.example\\maria", u"maria@corp.example"}, maria + " CORP 1"},
      {{u"CORP\\anna"}, "S-1-5-21-100-200-300-1102 CORP 1"},
      {{u"nt authority\\local service"}, "S-1-5-19 NT AUTHORITY 5"},
      {{u"Everyone"}, "S-1-1-0  5"},
      {{u"BUILTIN\\Administrators"}, "S-1-5-32-544 BUILTIN 4"},
      {{u""}, "S-1-5-32 BUILTIN 3"},
      {{u"unal", u"ann", u".\\anna", u"BUILTIN\\anna", u"CORP\\jan", u"maria@other.example", u"WORKSTATION\\"},
       "1332"}};
  for (const auto& [names, found] : cases)
    for (const std::u16string& name : names) EXPECT_EQ(ByName(name), found) << emulated::Utf8(name);
  EXPECT_EQ(ByName(u"anna", u"\\\\workstation"), own + "-1001 WORKSTATION 1");
  EXPECT_EQ(ByName(u"anna", u"elsewhere"), "1722");
}

TEST_F(WorkstationAccounts, AreNamedByTheirSidsAndKeptInTheMachinesFiles) {
  for (const auto& [sid, found] : {std::pair{kBerg, "WORKSTATION\\Anna Berg 1"},
                                   {kMaria, "CORP\\maria 1"},
                                   {u"S-1-5-21-100-200-300", "CORP\\CORP 3"},
                                   {u"S-1-1-0", "\\Everyone 5"},
                                   {u"S-1-5-21-100-200-300-9", "1332"}})
    EXPECT_EQ(BySid(sid), found);
  Restart();
  EXPECT_EQ(BySid(kBerg), "WORKSTATION\\Anna Berg 1");
  EXPECT_EQ(BySid(kMaria), "1332") << "no domain controller answers";
  EXPECT_FALSE(emulated::AddLocalAccount(*machine, u"\u00DCnal", 1009)) << "that is another's name";
  for (const auto& [rid, isDisabled] : {std::pair{501u, true}, {500u, false}})
    EXPECT_EQ(emulated::IsDisabled(*machine, emulated::WithRid(emulated::MachineSid(*machine), rid)), isDisabled);
  EXPECT_TRUE(emulated::RemoveLocalAccount(*machine, u"Anna Berg"));
  EXPECT_EQ(BySid(kBerg), "1332");
}

}  // namespace
