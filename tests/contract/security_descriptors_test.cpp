// Descriptors as text, and lists of entries in the program's memory.
#include <cstring>
#include <vector>

#include "contract/fixture.h"

namespace {

using namespace win32;
using contract::FileTest;

constexpr DWORD kAllParts =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;

// The descriptor of a text; null for one that is refused.
UniqueLocalMemory Parse(const char16_t* text) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ULONG size = 0;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SECURITY_DESCRIPTOR_REVISION, &descriptor, &size))
    return {};
  EXPECT_GE(size, 20u);
  return UniqueLocalMemory{descriptor};
}

std::u16string TextOf(PSECURITY_DESCRIPTOR descriptor, DWORD parts = kAllParts) {
  char16_t* text = nullptr;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SECURITY_DESCRIPTOR_REVISION, parts, &text,
                                                            nullptr))
    return u"error " + std::u16string(1, static_cast<char16_t>(u'0' + GetLastError() % 10));
  const UniqueLocalMemory owner{text};
  return text;
}

std::u16string TextOf(ACL* acl) {
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE);
  return TextOf(&descriptor, DACL_SECURITY_INFORMATION);
}

// The DACL inside a self-relative descriptor.
ACL* DaclOf(const UniqueLocalMemory& descriptor) {
  auto* const bytes = static_cast<BYTE*>(descriptor.get());
  DWORD offset = 0;
  std::memcpy(&offset, bytes + 16, sizeof offset);
  return offset == 0 ? nullptr : reinterpret_cast<ACL*>(bytes + offset);
}

class SecurityDescriptors : public FileTest {};

TEST_F(SecurityDescriptors, TextsSurviveTheRoundTrip) {
  const char16_t* const texts[] = {
      u"O:SYG:BAD:PAI(A;OICI;FA;;;BA)(A;OICIIO;GA;;;CO)(A;;0x1200a9;;;BU)(D;;FW;;;AN)",
      u"O:S-1-5-21-1004336348-1177238915-682003330-1001D:AI(A;ID;FA;;;S-1-5-21-1004336348-1177238915-682003330-1001)",
      u"D:P",
      u"D:(A;;0x1301bf;;;AU)",
      u"D:(A;CI;KA;;;SY)(A;CI;KR;;;WD)",
      u"S:(AU;SAFA;FA;;;WD)",
      u"O:LSG:NS",
      u"",
  };
  for (const char16_t* const text : texts) {
    const UniqueLocalMemory descriptor = Parse(text);
    ASSERT_TRUE(descriptor);
    EXPECT_TRUE(TextOf(descriptor.get()) == text);
  }
}

TEST_F(SecurityDescriptors, OnlyTheWantedPartsAreWritten) {
  const UniqueLocalMemory descriptor = Parse(u"O:BAG:SYD:(A;;FA;;;WD)");
  EXPECT_TRUE(TextOf(descriptor.get(), OWNER_SECURITY_INFORMATION) == u"O:BA");
  EXPECT_TRUE(TextOf(descriptor.get(), DACL_SECURITY_INFORMATION) == u"D:(A;;FA;;;WD)");
}

TEST_F(SecurityDescriptors, MalformedTextsAreRefused) {
  for (const char16_t* const text :
       {u"X:BA", u"D:(A;;FA;;;ZZ)", u"D:(A;;FA;;)", u"D:(Q;;FA;;;WD)", u"D:(A;ZZ;FA;;;WD)", u"D:(A;;FA;;;WD", u"O:S-1"})
    EXPECT_FALSE(Parse(text));
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  EXPECT_FALSE(ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:", 2, &descriptor, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_UNKNOWN_REVISION);
}

TEST_F(SecurityDescriptors, TheNullDaclIsNotTheEmptyOne) {
  SKIP_ON_WINE("its texts do not know NO_ACCESS_CONTROL");
  EXPECT_TRUE(TextOf(static_cast<ACL*>(nullptr)) == u"D:NO_ACCESS_CONTROL");
  const UniqueLocalMemory null = Parse(u"D:NO_ACCESS_CONTROL"), empty = Parse(u"D:");
  EXPECT_EQ(DaclOf(null), nullptr);
  ASSERT_NE(DaclOf(empty), nullptr);
  EXPECT_EQ(DaclOf(empty)->AceCount, 0);
}

TEST_F(SecurityDescriptors, EntriesAreFoundByIndexAndClosedUpWhenOneIsDeleted) {
  const UniqueLocalMemory descriptor = Parse(u"D:(D;;FW;;;AN)(A;ID;FA;;;S-1-5-21-1-2-3-4)(A;;FR;;;WD)");
  ACL* const acl = DaclOf(descriptor);
  const WORD size = acl->AclSize;
  void* ace = nullptr;
  ASSERT_TRUE(GetAce(acl, 1, &ace));
  EXPECT_EQ(static_cast<ACE_HEADER*>(ace)->AceFlags, INHERITED_ACE);
  EXPECT_FALSE(GetAce(acl, 3, &ace));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(DeleteAce(acl, 3));

  EXPECT_TRUE(DeleteAce(acl, 1));
  EXPECT_TRUE(TextOf(acl) == u"D:(D;;FW;;;AN)(A;;FR;;;WD)");
  EXPECT_EQ(acl->AclSize, size);  // the room stays the list's
  EXPECT_TRUE(DeleteAce(acl, 1) && DeleteAce(acl, 0));
  EXPECT_FALSE(GetAce(acl, 0, &ace));
}

struct Wish {
  ACCESS_MODE mode;
  DWORD mask;
  const char16_t* trustee;  // as the owner in a text
};

// What SetEntriesInAclW makes of a list.
std::u16string With(const char16_t* old, const std::vector<Wish>& wishes) {
  std::vector<UniqueLocalMemory> owners;
  std::vector<EXPLICIT_ACCESS_W> entries;
  for (const Wish& wish : wishes) {
    owners.push_back(Parse(wish.trustee));
    auto* const bytes = static_cast<BYTE*>(owners.back().get());
    DWORD offset = 0;
    std::memcpy(&offset, bytes + 4, sizeof offset);
    entries.push_back({wish.mask,
                       wish.mode,
                       NO_INHERITANCE,
                       {nullptr, MULTIPLE_TRUSTEE_OPERATION::NO_MULTIPLE_TRUSTEE, TRUSTEE_FORM::TRUSTEE_IS_SID,
                        TRUSTEE_TYPE::TRUSTEE_IS_UNKNOWN, reinterpret_cast<char16_t*>(bytes + offset)}});
  }
  const UniqueLocalMemory before = old ? Parse(old) : UniqueLocalMemory{};
  ACL* acl = nullptr;
  const DWORD error =
      SetEntriesInAclW(static_cast<ULONG>(entries.size()), entries.data(), old ? DaclOf(before) : nullptr, &acl);
  if (error != 0) return u"failed";
  const UniqueLocalMemory after{acl};
  return TextOf(acl);
}

TEST_F(SecurityDescriptors, NewEntriesKeepGenericRightsAndStandInTheirGivenOrder) {
  EXPECT_TRUE(With(nullptr, {{ACCESS_MODE::SET_ACCESS, GENERIC_READ, u"O:WD"},
                             {ACCESS_MODE::SET_ACCESS, GENERIC_ALL, u"O:BA"}}) == u"D:(A;;GR;;;WD)(A;;GA;;;BA)");
}

TEST_F(SecurityDescriptors, SettingAndRevokingReplaceWhatTheTrusteeHad) {
  SKIP_ON_WINE("it leaves the trustee's denied entries");
  const char16_t* const old = u"D:(D;;FW;;;WD)(A;;FR;;;WD)(A;;FA;;;BA)";
  EXPECT_TRUE(With(old, {{ACCESS_MODE::REVOKE_ACCESS, 0, u"O:WD"}}) == u"D:(A;;FA;;;BA)");
  EXPECT_TRUE(With(old, {{ACCESS_MODE::SET_ACCESS, FILE_GENERIC_EXECUTE, u"O:WD"}}) == u"D:(A;;FX;;;WD)(A;;FA;;;BA)");
}

TEST_F(SecurityDescriptors, DeniedEntriesStandBeforeAllowedOnesAndInheritedOnesLast) {
  SKIP_ON_WINE("it appends new entries where they come");
  EXPECT_TRUE(With(u"D:(A;;FR;;;BA)(A;ID;FA;;;SY)", {{ACCESS_MODE::DENY_ACCESS, FILE_WRITE_DATA, u"O:WD"}}) ==
              u"D:(D;;DC;;;WD)(A;;FR;;;BA)(A;ID;FA;;;SY)");
}

TEST_F(SecurityDescriptors, SidsAreComparedByTheirContent) {
  SID_IDENTIFIER_AUTHORITY nt{{0, 0, 0, 0, 0, 5}};
  UniqueSid administrators, same, system;
  ASSERT_TRUE(AllocateAndInitializeSid(&nt, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                       administrators.put()));
  ASSERT_TRUE(AllocateAndInitializeSid(&nt, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 9, 0, 0, 0, 0, 0,
                                       same.put()));
  ASSERT_TRUE(AllocateAndInitializeSid(&nt, 1, 18, 0, 0, 0, 0, 0, 0, 0, system.put()));
  EXPECT_TRUE(EqualSid(administrators.get(), same.get()));
  EXPECT_FALSE(EqualSid(administrators.get(), system.get()));
  PSID tooLong = nullptr;
  EXPECT_FALSE(AllocateAndInitializeSid(&nt, 9, 0, 0, 0, 0, 0, 0, 0, 0, &tooLong));
}

TEST_F(SecurityDescriptors, GenericRightsAreReplacedByWhatTheyStandFor) {
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  DWORD mask = GENERIC_READ | GENERIC_EXECUTE | DELETE;
  MapGenericMask(&mask, &mapping);
  EXPECT_EQ(mask, FILE_GENERIC_READ | FILE_GENERIC_EXECUTE | DELETE);
}

}  // namespace
