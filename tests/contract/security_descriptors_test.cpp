// Descriptors as text, and lists of entries in the program's memory.
#include "contract/security_support.h"

namespace {

using namespace contract;
using namespace win32;

constexpr DWORD kAllParts =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;

std::u16string TextOf(ACL* acl) {
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE);
  return contract::TextOf(&descriptor, DACL_SECURITY_INFORMATION);
}

using SecurityDescriptors = FileTest;

TEST_F(SecurityDescriptors, TextsSurviveTheRoundTripOrAreRefused) {
  for (const char16_t* const text :
       {u"O:SYG:BAD:PAI(A;OICI;FA;;;BA)(A;OICIIO;GA;;;CO)(A;;0x1200a9;;;BU)(D;;FW;;;AN)",
        u"O:S-1-5-21-1004336348-1177238915-682003330-1001D:AI(A;ID;FA;;;S-1-5-21-1004336348-1177238915-682003330-1001)",
        u"D:P", u"D:(A;;0x1301bf;;;AU)", u"D:(A;CI;KA;;;SY)(A;CI;KR;;;WD)", u"S:(AU;SAFA;FA;;;WD)", u"O:LSG:NS", u""}) {
    const UniqueLocalMemory descriptor = Parse(text);
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(contract::TextOf(descriptor.get(), kAllParts), text);
  }
  for (const char16_t* const text :
       {u"X:BA", u"D:(A;;FA;;;ZZ)", u"D:(A;;FA;;)", u"D:(Q;;FA;;;WD)", u"D:(A;ZZ;FA;;;WD)", u"D:(A;;FA;;;WD", u"O:S-1"})
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
  const WORD size = acl->AclSize;
  void* ace = nullptr;
  ASSERT_TRUE(GetAce(acl, 1, &ace));
  EXPECT_EQ(static_cast<ACE_HEADER*>(ace)->AceFlags, INHERITED_ACE);
  EXPECT_EQ(ErrorOf(GetAce(acl, 3, &ace)), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(DeleteAce(acl, 3));

  EXPECT_TRUE(DeleteAce(acl, 1));
  EXPECT_EQ(TextOf(acl), u"D:(D;;FW;;;AN)(A;;FR;;;WD)");
  EXPECT_EQ(acl->AclSize, size);  // the room stays the list's
  EXPECT_TRUE(DeleteAce(acl, 1) && DeleteAce(acl, 0));
  EXPECT_FALSE(GetAce(acl, 0, &ace));
}

struct Wish {
  ACCESS_MODE mode;
  DWORD mask;
  const char16_t* trustee;  // as the owner in a text
};

TEST_F(SecurityDescriptors, SetEntriesInAcl) {
  const char16_t* const old = u"D:(D;;FW;;;WD)(A;;FR;;;WD)(A;;FA;;;BA)";
  const struct {
    const char16_t* old;
    std::vector<Wish> wishes;
    const char16_t* made;
    bool onWine;
  } cases[] = {
      // New entries keep generic rights and stand in their given order.
      {nullptr,
       {{ACCESS_MODE::SET_ACCESS, GENERIC_READ, u"O:WD"}, {ACCESS_MODE::SET_ACCESS, GENERIC_ALL, u"O:BA"}},
       u"D:(A;;GR;;;WD)(A;;GA;;;BA)",
       true},
      // Setting and revoking replace what the trustee had. Wine leaves his denied entries.
      {old, {{ACCESS_MODE::REVOKE_ACCESS, 0, u"O:WD"}}, u"D:(A;;FA;;;BA)", false},
      {old, {{ACCESS_MODE::SET_ACCESS, FILE_GENERIC_EXECUTE, u"O:WD"}}, u"D:(A;;FX;;;WD)(A;;FA;;;BA)", false},
      // Denied entries stand before allowed ones and inherited ones last. Wine appends new ones where they come.
      {u"D:(A;;FR;;;BA)(A;ID;FA;;;SY)",
       {{ACCESS_MODE::DENY_ACCESS, FILE_WRITE_DATA, u"O:WD"}},
       u"D:(D;;DC;;;WD)(A;;FR;;;BA)(A;ID;FA;;;SY)",
       false}};
  for (const auto& one : cases) {
    if (OnWine() && !one.onWine) continue;
    std::vector<UniqueLocalMemory> owners;
    std::vector<EXPLICIT_ACCESS_W> entries;
    for (const Wish& wish : one.wishes) {
      owners.push_back(Parse(wish.trustee));
      entries.push_back({wish.mask,
                         wish.mode,
                         NO_INHERITANCE,
                         {nullptr, MULTIPLE_TRUSTEE_OPERATION::NO_MULTIPLE_TRUSTEE, TRUSTEE_FORM::TRUSTEE_IS_SID,
                          TRUSTEE_TYPE::TRUSTEE_IS_UNKNOWN, PartOf<char16_t>(owners.back(), 4)}});
    }
    const UniqueLocalMemory before = one.old ? Parse(one.old) : UniqueLocalMemory{};
    ACL* acl = nullptr;
    EXPECT_EQ(
        SetEntriesInAclW(static_cast<ULONG>(entries.size()), entries.data(), one.old ? DaclOf(before) : nullptr, &acl),
        0u);
    const UniqueLocalMemory after{acl};
    EXPECT_EQ(TextOf(acl), one.made);
  }
}

TEST_F(SecurityDescriptors, SidsAreComparedByTheirContentAndGenericRightsReplaced) {
  SID_IDENTIFIER_AUTHORITY nt{{0, 0, 0, 0, 0, 5}};
  UniqueSid sids[3];
  for (DWORD i = 0; i < 3; ++i)  // of the third only one part counts
    ASSERT_TRUE(AllocateAndInitializeSid(&nt, i == 2 ? 1 : 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS,
                                         i * 9, 0, 0, 0, 0, 0, sids[i].put()));
  EXPECT_TRUE(EqualSid(sids[0].get(), sids[1].get()));
  EXPECT_FALSE(EqualSid(sids[0].get(), sids[2].get()));
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  DWORD mask = GENERIC_READ | GENERIC_EXECUTE | DELETE;
  MapGenericMask(&mask, &mapping);
  EXPECT_EQ(mask, FILE_GENERIC_READ | FILE_GENERIC_EXECUTE | DELETE);
}

}  // namespace
