// Whose SID is whose: names and SIDs of this machine, of its domain and of the system.
#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "win32/emulated/security/accounts.h"
#include "win32/emulated/text.h"
#include "win32/security.h"
#include "win32/system.h"

namespace {

using namespace win32;

constexpr std::u16string_view kMaria = u"S-1-5-21-100-200-300-1101";

class Accounts : public ::testing::Test {
 protected:
  Accounts() : machine(test::InstalledMachine()) {
    machine->domainAccounts = {
        {u"CORP", u"corp.example", u"maria", emulated::SidFromText(kMaria)},
        {u"CORP", u"corp.example", u"anna", emulated::SidFromText(u"S-1-5-21-100-200-300-1102")}};
    emulated::AddLocalAccount(*machine, u"Anna Berg", 1007);
    emulated::AddLocalAccount(*machine, u"\u00FCnal", 1008);
  }

  // "SID domain use", or the error.
  static std::string ByName(const char16_t* name, const char16_t* system = nullptr) {
    BYTE sid[68];
    char16_t domain[64];
    DWORD sidSize = sizeof sid, domainSize = 64;
    SID_NAME_USE use{};
    if (!LookupAccountNameW(system, name, sid, &sidSize, domain, &domainSize, &use))
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

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(Accounts, AreFoundByTheFormsOfNameThatWindowsTakes) {
  const std::string own = "S-1-5-21-1004336348-1177238915-682003330", maria = emulated::Utf8(kMaria);
  const std::string unknown = "1332";
  const struct {
    const char16_t* name;
    std::string found;
  } cases[] = {{u"anna", own + "-1001 WORKSTATION 1"},
               {u"ANNA", own + "-1001 WORKSTATION 1"},
               {u"anna berg", own + "-1007 WORKSTATION 1"},
               {u"Workstation\\Anna Berg", own + "-1007 WORKSTATION 1"},
               {u"\u00DCNAL", own + "-1008 WORKSTATION 1"},
               {u"workstation\\\u00FCNaL", own + "-1008 WORKSTATION 1"},
               {u"unal", unknown},
               {u"Administrator", own + "-500 WORKSTATION 1"},
               {u"Guest", own + "-501 WORKSTATION 1"},
               {u"WORKSTATION", own + " WORKSTATION 3"},
               {u"maria", maria + " CORP 1"},
               {u"corp\\Maria", maria + " CORP 1"},
               {u"corp.example\\maria", maria + " CORP 1"},
               {u"maria@corp.example", maria + " CORP 1"},
               {u"CORP\\anna", "S-1-5-21-100-200-300-1102 CORP 1"},
               {u"SYSTEM", "S-1-5-18 NT AUTHORITY 5"},
               {u"nt authority\\local service", "S-1-5-19 NT AUTHORITY 5"},
               {u"Everyone", "S-1-1-0  5"},
               {u"BUILTIN\\Administrators", "S-1-5-32-544 BUILTIN 4"},
               {u"Users", "S-1-5-32-545 BUILTIN 4"},
               {u"", "S-1-5-32 BUILTIN 3"},
               {u"ann", unknown},
               {u".\\anna", unknown},
               {u"BUILTIN\\anna", unknown},
               {u"CORP\\jan", unknown},
               {u"maria@other.example", unknown},
               {u"WORKSTATION\\", unknown}};
  for (const auto& [name, found] : cases) EXPECT_EQ(ByName(name), found) << emulated::Utf8(name);
  EXPECT_EQ(ByName(u"anna", u"\\\\workstation"), own + "-1001 WORKSTATION 1");
  EXPECT_EQ(ByName(u"anna", u"elsewhere"), "1722");
}

TEST_F(Accounts, AreNamedByTheirSids) {
  EXPECT_EQ(BySid(u"S-1-5-21-1004336348-1177238915-682003330-1007"), "WORKSTATION\\Anna Berg 1");
  EXPECT_EQ(BySid(kMaria), "CORP\\maria 1");
  EXPECT_EQ(BySid(u"S-1-5-21-100-200-300"), "CORP\\CORP 3");
  EXPECT_EQ(BySid(u"S-1-5-18"), "NT AUTHORITY\\SYSTEM 5");
  EXPECT_EQ(BySid(u"S-1-1-0"), "\\Everyone 5");
  EXPECT_EQ(BySid(u"S-1-5-21-100-200-300-9"), "1332");
  // They are in the machine's files, and gone when they are deleted.
  machine = test::BootFrom(machine->Snapshot());
  EXPECT_EQ(BySid(u"S-1-5-21-1004336348-1177238915-682003330-1007"), "WORKSTATION\\Anna Berg 1");
  EXPECT_EQ(BySid(kMaria), "1332") << "no domain controller answers";
  EXPECT_FALSE(emulated::AddLocalAccount(*machine, u"\u00DCnal", 1009)) << "that is another's name";
  EXPECT_TRUE(emulated::IsDisabled(*machine, emulated::SidFromText(u"S-1-5-21-1004336348-1177238915-682003330-501")));
  EXPECT_FALSE(emulated::IsDisabled(*machine, emulated::SidFromText(u"S-1-5-21-1004336348-1177238915-682003330-500")));
  EXPECT_TRUE(emulated::RemoveLocalAccount(*machine, u"Anna Berg"));
  EXPECT_EQ(BySid(u"S-1-5-21-1004336348-1177238915-682003330-1007"), "1332");
}

TEST_F(Accounts, TellBothSizesWhenOneBufferIsTooSmall) {
  BYTE sid[68];
  char16_t name[16], domain[16];
  DWORD sidSize = 0, nameSize = 16, domainSize = 0;
  SID_NAME_USE use{};
  EXPECT_FALSE(LookupAccountNameW(nullptr, u"anna", nullptr, &sidSize, nullptr, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(sidSize, 28U);
  EXPECT_EQ(domainSize, 12U) << "with its zero";
  domainSize = 11;
  EXPECT_FALSE(LookupAccountNameW(nullptr, u"anna", sid, &sidSize, domain, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_TRUE(LookupAccountNameW(nullptr, u"anna", sid, &sidSize, domain, &domainSize, &use));
  EXPECT_EQ(domainSize, 11U) << "without its zero";
  nameSize = 4;
  EXPECT_FALSE(LookupAccountSidW(nullptr, sid, name, &nameSize, domain, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(nameSize, 5U);
  EXPECT_EQ(domainSize, 12U);
  ASSERT_TRUE(LookupAccountSidW(nullptr, sid, name, &nameSize, domain, &domainSize, &use));
  EXPECT_EQ(nameSize, 4U);
}

}  // namespace
