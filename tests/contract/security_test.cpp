// Descriptors as text and of files, lists of entries in the program's memory, tokens, AccessCheck, SIDs and accounts.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

// The descriptor of a text; null for one that is refused.
UniqueLocalMemory Parse(const char16_t* text) {
  UniqueLocalMemory descriptor;
  ULONG size = 0;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SECURITY_DESCRIPTOR_REVISION, descriptor.put(),
                                                            &size))
    return {};
  EXPECT_GE(size, 20u);
  return descriptor;
}

std::u16string TextOf(PSECURITY_DESCRIPTOR descriptor, DWORD parts) {
  char16_t* text = nullptr;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SECURITY_DESCRIPTOR_REVISION, parts, &text,
                                                            nullptr))
    return u"(none)";
  const UniqueLocalMemory owner{text};
  return text;
}

// What the header of a self-relative descriptor points to: the owner (4), the DACL (16).
template <typename Part>
Part* PartOf(const UniqueLocalMemory& descriptor, std::size_t field) {
  auto* const bytes = static_cast<BYTE*>(descriptor.get());
  DWORD offset = 0;
  std::memcpy(&offset, bytes + field, sizeof offset);
  return offset == 0 ? nullptr : reinterpret_cast<Part*>(bytes + offset);
}
ACL* DaclOf(const UniqueLocalMemory& descriptor) { return PartOf<ACL>(descriptor, 16); }

constexpr DWORD kAllParts =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;

std::u16string TextOf(ACL* acl) {
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE);
  return TextOf(&descriptor, DACL_SECURITY_INFORMATION);
}

using SecurityDescriptors = FileTest;

TEST_F(SecurityDescriptors, TextsSurviveTheRoundTripOrAreRefused) {
  for (const char16_t* const text :
       {u"O:SYG:BAD:PAI(A;OICI;FA;;;BA)(A;OICIIO;GA;;;CO)(A;;0x1200a9;;;BU)(D;;FW;;;AN)",
        u"O:S-1-5-21-1004336348-1177238915-682003330-1001D:AI(A;ID;FA;;;S-1-5-21-1004336348-1177238915-682003330-1001)",
        u"D:P", u"D:(A;;0x1301bf;;;AU)", u"D:(A;CI;KA;;;SY)(A;CI;KR;;;WD)", u"S:(AU;SAFA;FA;;;WD)", u""}) {
    const UniqueLocalMemory descriptor = Parse(text);
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(TextOf(descriptor.get(), kAllParts), text);
  }
  for (const char16_t* const text : {u"X:BA", u"D:(A;;FA;;;ZZ)", u"D:(A;;FA;;)", u"D:(Q;;FA;;;WD)", u"D:(A;;FA;;;WD"})
    EXPECT_FALSE(Parse(text));
  if (OnWine()) return;  // its texts do not know NO_ACCESS_CONTROL: the null DACL is not the empty one
  EXPECT_EQ(TextOf(static_cast<ACL*>(nullptr)), u"D:NO_ACCESS_CONTROL");
  EXPECT_EQ(DaclOf(Parse(u"D:NO_ACCESS_CONTROL")), nullptr);
  const UniqueLocalMemory empty = Parse(u"D:");
  ASSERT_NE(DaclOf(empty), nullptr);
  EXPECT_EQ(DaclOf(empty)->AceCount, 0);
}

TEST_F(SecurityDescriptors, EntriesAreFoundByIndexAndClosedUpWhenOneIsDeleted) {
  const UniqueLocalMemory descriptor = Parse(u"D:(D;;FW;;;AN)(A;ID;FA;;;S-1-5-21-1-2-3-4)(A;;FR;;;WD)");
  ACL* const acl = DaclOf(descriptor);
  void* ace = nullptr;
  ASSERT_TRUE(GetAce(acl, 1, &ace));
  EXPECT_EQ(static_cast<ACE_HEADER*>(ace)->AceFlags, INHERITED_ACE);
  EXPECT_EQ(ErrorOf(GetAce(acl, 3, &ace)), ERROR_INVALID_PARAMETER);
  EXPECT_TRUE(DeleteAce(acl, 1));
  EXPECT_EQ(ErrorOf(DeleteAce(acl, 2)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(TextOf(acl), u"D:(D;;FW;;;AN)(A;;FR;;;WD)");
}

TEST_F(SecurityDescriptors, SetEntriesInAcl) {
  const char16_t* const old = u"D:(D;;FW;;;WD)(A;;FR;;;WD)(A;;FA;;;BA)";
  const struct {
    const char16_t* old;
    ACCESS_MODE mode;
    DWORD mask;
    const char16_t* made;
    bool onWine = false;
  } cases[] = {
      {nullptr, ACCESS_MODE::SET_ACCESS, GENERIC_READ, u"D:(A;;GR;;;WD)", true},
      // Setting and revoking replace what the trustee had. Wine leaves his denied entries.
      {old, ACCESS_MODE::REVOKE_ACCESS, 0, u"D:(A;;FA;;;BA)"},
      {old, ACCESS_MODE::SET_ACCESS, FILE_GENERIC_EXECUTE, u"D:(A;;FX;;;WD)(A;;FA;;;BA)"},
      // Denied entries stand before allowed ones and inherited ones last. Wine appends new ones where they come.
      {u"D:(A;;FR;;;BA)(A;ID;FA;;;SY)", ACCESS_MODE::DENY_ACCESS, FILE_WRITE_DATA,
       u"D:(D;;DC;;;WD)(A;;FR;;;BA)(A;ID;FA;;;SY)"}};
  const UniqueLocalMemory everyone = Parse(u"O:WD");
  for (const auto& one : cases) {
    if (OnWine() && !one.onWine) continue;
    EXPLICIT_ACCESS_W entry{one.mask,
                            one.mode,
                            NO_INHERITANCE,
                            {nullptr, MULTIPLE_TRUSTEE_OPERATION::NO_MULTIPLE_TRUSTEE, TRUSTEE_FORM::TRUSTEE_IS_SID,
                             TRUSTEE_TYPE::TRUSTEE_IS_UNKNOWN, PartOf<char16_t>(everyone, 4)}};
    const UniqueLocalMemory before = Parse(one.old ? one.old : u"D:");
    ACL* acl = nullptr;
    EXPECT_EQ(SetEntriesInAclW(1, &entry, one.old ? DaclOf(before) : nullptr, &acl), 0u);
    const UniqueLocalMemory after{acl};
    EXPECT_EQ(TextOf(acl), one.made);
  }
}

class Tokens : public FileTest {
 protected:
  ~Tokens() override { RevertToSelf(); }

  static UniqueKernelHandle ProcessToken(DWORD access) {
    UniqueKernelHandle token;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), access, token.put()));
    return token;
  }

  static DWORD Enable(HANDLE token, const char16_t* privilege, DWORD attributes = SE_PRIVILEGE_ENABLED) {
    TOKEN_PRIVILEGES wish{1, {{{}, attributes}}};
    EXPECT_TRUE(LookupPrivilegeValueW(nullptr, privilege, &wish.Privileges[0].Luid));
    SetLastError(0xDEAD);
    EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &wish, 0, nullptr, nullptr));
    return GetLastError();
  }
};

TEST_F(Tokens, InformationTellsItsSizeFirstAndPointsIntoItsBuffer) {
  const UniqueKernelHandle token = ProcessToken(TOKEN_QUERY);
  DWORD needed = 0;
  EXPECT_EQ(ErrorOf(GetTokenInformation(token.get(), TOKEN_INFORMATION_CLASS::TokenGroups, nullptr, 0, &needed)),
            ERROR_INSUFFICIENT_BUFFER);
  std::vector<std::uint64_t> buffer(needed / 8 + 1);
  ASSERT_TRUE(GetTokenInformation(token.get(), TOKEN_INFORMATION_CLASS::TokenGroups, buffer.data(), needed, &needed));
  const auto& groups = *reinterpret_cast<const TOKEN_GROUPS*>(buffer.data());
  for (DWORD i = 0; i < groups.GroupCount; ++i)
    EXPECT_TRUE(groups.Groups[i].Sid > buffer.data() && groups.Groups[i].Sid < buffer.data() + buffer.size());
}

TEST_F(Tokens, AdjustingSucceedsAndSaysInTheLastErrorWhetherAllWereHeld) {
  const UniqueKernelHandle token = ProcessToken(TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES);
  EXPECT_EQ(Enable(token.get(), u"SeBackupPrivilege"), ERROR_SUCCESS);
  EXPECT_EQ(Enable(token.get(), u"SeBackupPrivilege", 0), ERROR_SUCCESS);
  EXPECT_TRUE(OnWine() || Enable(token.get(), u"SeCreateTokenPrivilege") == ERROR_NOT_ALL_ASSIGNED);
}

TEST_F(Tokens, AccessCheckWantsAnImpersonationTokenAndMappedRights) {
  const UniqueLocalMemory descriptor = Parse(u"O:SYG:SYD:(A;;FR;;;WD)");
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  PRIVILEGE_SET privileges{};
  DWORD length = sizeof privileges, granted = 0;
  BOOL allowed = FALSE;
  const auto check = [&](HANDLE token, DWORD desired) {
    return AccessCheck(descriptor.get(), token, desired, &mapping, &privileges, &length, &granted, &allowed);
  };
  const UniqueKernelHandle primary = ProcessToken(TOKEN_QUERY);
  EXPECT_EQ(ErrorOf(check(primary.get(), FILE_READ_DATA)), ERROR_NO_IMPERSONATION_TOKEN);

  UniqueKernelHandle token;  // which a thread has only while it impersonates
  EXPECT_EQ(ErrorOf(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())), ERROR_NO_TOKEN);
  ASSERT_TRUE(ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL::SecurityImpersonation));
  ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put()));
  EXPECT_TRUE(check(token.get(), FILE_READ_DATA) && allowed && granted == FILE_READ_DATA);
  EXPECT_TRUE(check(token.get(), FILE_READ_DATA | FILE_WRITE_DATA) && !allowed && granted == 0);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(check(token.get(), 0) && !allowed) << "who asks for nothing is given nothing";
  EXPECT_EQ(ErrorOf(check(token.get(), GENERIC_READ)), ERROR_GENERIC_NOT_MAPPED);
  DWORD mask = GENERIC_READ | GENERIC_EXECUTE | DELETE;
  MapGenericMask(&mask, &mapping);
  EXPECT_EQ(mask, FILE_GENERIC_READ | FILE_GENERIC_EXECUTE | DELETE);
}

constexpr DWORD kProtected = PROTECTED_DACL_SECURITY_INFORMATION;

class FileSecurity : public Tokens {
 protected:
  void SetUp() override { SKIP_ON_WINE("it keeps only Unix modes of a descriptor"); }

  std::u16string Directory(std::u16string_view name) const {
    MakeDirectory(Path(name));
    return Path(name);
  }
  static DWORD Read(const std::u16string& path, UniqueLocalMemory& descriptor, ACL** dacl = nullptr) {
    return GetNamedSecurityInfoW(path.c_str(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                 nullptr, dacl, nullptr, descriptor.put());
  }
  static std::u16string Dacl(const std::u16string& path) {
    UniqueLocalMemory descriptor;
    return Read(path, descriptor) == 0 ? TextOf(descriptor.get(), DACL_SECURITY_INFORMATION) : u"unreadable";
  }
  // Makes a directory with the descriptor of a text; the error.
  static DWORD MakeWith(const std::u16string& path, const char16_t* sddl) {
    const UniqueLocalMemory descriptor = Parse(sddl);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.get(), FALSE};
    return ErrorOf(CreateDirectoryW(path.c_str(), &attributes));
  }
  // Writes the DACL of a text by name.
  static DWORD SetDacl(std::u16string path, const char16_t* sddl, DWORD more = 0) {
    const UniqueLocalMemory descriptor = Parse(sddl);
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | more, nullptr,
                                 nullptr, DaclOf(descriptor), nullptr);
  }
};

TEST_F(FileSecurity, InheritedEntriesComeFromTheDirectoryNotFromTheCaller) {
  const std::u16string directory = Directory(u"d");
  ASSERT_EQ(SetDacl(directory, u"D:(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)", kProtected), 0u);
  EXPECT_EQ(Dacl(directory), u"D:PAI(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)");
  const std::u16string child = Directory(u"d\\child");
  EXPECT_EQ(Dacl(child), u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");

  // Explicit entries are taken; those that the caller calls inherited are not.
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)(A;ID;FA;;;AN)"), 0u);
  EXPECT_EQ(Dacl(child), u"D:AI(A;;FW;;;SY)(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");
  // Protected: nothing is inherited, and what was becomes explicit; so it stays until another is said.
  ASSERT_EQ(SetDacl(child, u"D:(A;;FA;;;SY)(A;ID;FA;;;BA)", kProtected), 0u);
  EXPECT_EQ(Dacl(child), u"D:PAI(A;;FA;;;SY)(A;;FA;;;BA)");
  ASSERT_EQ(SetDacl(child, u"D:(A;;FR;;;WD)"), 0u);
  EXPECT_EQ(Dacl(child), u"D:PAI(A;;FR;;;WD)");
  ASSERT_EQ(SetDacl(child, u"D:", UNPROTECTED_DACL_SECURITY_INFORMATION), 0u);
  EXPECT_EQ(Dacl(child), u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");
}

TEST_F(FileSecurity, AListGivenAtCreationIsAllThatTheNewItemHas) {
  const std::u16string directory = Directory(u"d"), made = directory + u"\\made";
  ASSERT_EQ(SetDacl(directory, u"D:(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)", kProtected), 0u);
  for (const auto& [given, has] : {std::pair(u"D:(A;OICI;GA;;;SY)", u"D:(A;OICI;FA;;;SY)"),
                                   {u"D:P(A;;FR;;;WD)", u"D:P(A;;FR;;;WD)"},
                                   {u"D:", u"D:"},
                                   {u"D:NO_ACCESS_CONTROL", u"D:NO_ACCESS_CONTROL"},
                                   {u"O:BA", u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)"}}) {
    EXPECT_EQ(MakeWith(made, given), 0u);
    EXPECT_EQ(Dacl(made), has);
    EXPECT_EQ(SetDacl(made, u"D:(A;;FA;;;WD)"), 0u);  // as its owner
    EXPECT_EQ(RemoveError(made), 0u);
  }
  // Nobody makes others the owners of what he makes but who may restore.
  const UniqueKernelHandle token = ProcessToken(TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES);
  EXPECT_EQ(MakeWith(made, u"O:SYD:(A;;FA;;;WD)"), ERROR_INVALID_OWNER);
  EXPECT_EQ(MakeWith(made, u"D:(A;;FA;;;WD)S:(AU;SAFA;FA;;;WD)"), ERROR_PRIVILEGE_NOT_HELD);
  EXPECT_FALSE(Exists(made));
  ASSERT_EQ(Enable(token.get(), u"SeRestorePrivilege"), ERROR_SUCCESS);
  EXPECT_EQ(MakeWith(made, u"O:SYD:(A;;FA;;;WD)"), 0u);
  Enable(token.get(), u"SeRestorePrivilege", 0);
}

TEST_F(FileSecurity, AChangeReachesEverythingBelowThatIsNotProtected) {
  const std::u16string top = Directory(u"top"), child = Directory(u"top\\child"),
                       grandchild = Directory(u"top\\child\\grandchild"), apart = Directory(u"top\\apart");
  ASSERT_EQ(SetDacl(apart, u"D:(A;OICI;FA;;;BA)", kProtected), 0u);
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)"), 0u);
  ASSERT_EQ(SetDacl(top, u"D:(A;OICI;FA;;;BA)(A;CI;FR;;;BU)", kProtected), 0u);
  EXPECT_EQ(Dacl(child), u"D:AI(A;;FW;;;SY)(A;OICIID;FA;;;BA)(A;CIID;FR;;;BU)");
  EXPECT_EQ(Dacl(grandchild), u"D:AI(A;OICIID;FA;;;BA)(A;CIID;FR;;;BU)");
  EXPECT_EQ(Dacl(apart), u"D:PAI(A;OICI;FA;;;BA)");
}

TEST_F(FileSecurity, GenericRightsBecomeTheFileSystemsOwnAndANullDaclIsWritten) {
  std::u16string directory = Directory(u"d");
  ASSERT_EQ(SetDacl(directory, u"D:(A;;GR;;;WD)(A;OICIIO;GA;;;CO)(A;;GA;;;BA)", kProtected), 0u);
  EXPECT_EQ(Dacl(directory), u"D:PAI(A;;FR;;;WD)(A;OICIIO;GA;;;CO)(A;;FA;;;BA)");
  ASSERT_EQ(SetNamedSecurityInfoW(directory.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, nullptr, nullptr),
            0u);
  ACL none, *dacl = &none;
  UniqueLocalMemory descriptor;
  ASSERT_EQ(Read(directory, descriptor, &dacl), 0u);
  EXPECT_EQ(dacl, nullptr);
  SetLastError(0xDEAD);  // which stays: the code is the answer
  EXPECT_EQ(Read(Path(u"missing"), descriptor), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(GetLastError(), 0xDEADu);
}

TEST_F(FileSecurity, AWholeDescriptorIsWrittenAsItIsButForTheMarkOfInheritance) {
  const std::u16string directory = Directory(u"d"), child = Directory(u"d\\child"), before = Dacl(child);
  UniqueLocalMemory saved;
  ASSERT_EQ(Read(child, saved), 0u);
  ASSERT_EQ(SetDacl(child, u"D:(A;;FA;;;WD)", kProtected), 0u);
  ASSERT_TRUE(SetFileSecurityW(child.c_str(), DACL_SECURITY_INFORMATION, saved.get()));
  // That the entries were inherited automatically is said only on request.
  EXPECT_TRUE(before.starts_with(u"D:AI(") && Dacl(child) == u"D:" + before.substr(4));
}

TEST_F(FileSecurity, WhoMayOnlyDeleteAFileDeletesIt) {
  const std::u16string directory = Directory(u"d"), file = directory + u"\\file";
  Put(file);
  ASSERT_EQ(SetDacl(file, u"D:(A;;SD;;;WD)", kProtected), 0u);
  ASSERT_EQ(SetDacl(directory, u"D:(A;;0x1100a2;;;WD)", kProtected), 0u);  // neither to list nor to delete children
  EXPECT_EQ(AttributesError(file), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(file, DELETE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(DeleteError(file), 0u);
  EXPECT_EQ(RemoveError(directory), 0u);
}

using Accounts = FileTest;

std::u16string SidText(PSID sid) {
  char16_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) return u"error";
  const UniqueLocalMemory owner{text};
  return text;
}

TEST_F(Accounts, ASidIsWrittenAsItIsRead) {
  for (const auto& [text, written] : {std::pair{u"S-1-12-1-1-2-3-4294967295", u"S-1-12-1-1-2-3-4294967295"},
                                      {u"s-1-5-18", u"S-1-5-18"},
                                      {u"BA", u"S-1-5-32-544"}}) {
    UniqueLocalMemory sid;
    EXPECT_TRUE(ConvertStringSidToSidW(text, sid.put()));
    EXPECT_EQ(SidText(sid.get()), written);
  }
  std::vector<const char16_t*> bad{u"S-1-5", u"S-1-5-", u"S-1-5-18x", u"anna", u"BAx"};
  if (!OnWine()) bad.insert(bad.end(), {u"", u"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"});  // it takes both
  PSID none = nullptr;
  for (const char16_t* const text : bad) EXPECT_EQ(ErrorOf(ConvertStringSidToSidW(text, &none)), ERROR_INVALID_SID);
}

TEST_F(Accounts, AnAccountIsFoundByNameAndBySidInBuffersThatAreMeasuredFirst) {
  SID_NAME_USE use{};
  DWORD sidSize = 0, domainSize = 0, nameSize = 0;
  UniqueLocalMemory administrators, unknown;
  ASSERT_TRUE(ConvertStringSidToSidW(u"S-1-5-32-544", administrators.put()));
  EXPECT_EQ(ErrorOf(LookupAccountSidW(nullptr, administrators.get(), nullptr, &nameSize, nullptr, &domainSize, &use)),
            ERROR_INSUFFICIENT_BUFFER);
  std::u16string name(nameSize, u'#'), domain(domainSize, u'#');
  ASSERT_TRUE(
      LookupAccountSidW(nullptr, administrators.get(), name.data(), &nameSize, domain.data(), &domainSize, &use));
  // Each language has its own names; "Administrators" in English.
  RecordProperty("NameOfAdministrators", testing::PrintToString(name));
  name.resize(nameSize);
  name[0] = static_cast<char16_t>(name[0] | 0x20);
  domainSize = 0;
  EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, name.c_str(), nullptr, &sidSize, nullptr, &domainSize, &use)),
            ERROR_INSUFFICIENT_BUFFER);
  std::vector<DWORD> sid(sidSize / 4 + 1);
  ASSERT_TRUE(LookupAccountNameW(nullptr, name.c_str(), sid.data(), &sidSize, domain.data(), &domainSize, &use));
  EXPECT_EQ(SidText(sid.data()), u"S-1-5-32-544");
  // Those that nobody knows are said to be unmapped; asked within a domain of this machine, which asks no other.
  domain.resize(domainSize);
  domain += u"\\nobody of that name";
  EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, domain.c_str(), nullptr, &sidSize, nullptr, &domainSize, &use)),
            ERROR_NONE_MAPPED);
  ASSERT_TRUE(ConvertStringSidToSidW(u"S-1-5-21-1-2-3-1001", unknown.put()));
  EXPECT_EQ(ErrorOf(LookupAccountSidW(nullptr, unknown.get(), nullptr, &nameSize, nullptr, &domainSize, &use)),
            ERROR_NONE_MAPPED);
}

}  // namespace
