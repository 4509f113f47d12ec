// What objects inherit: at their creation, and when descriptors are written.
#include <gtest/gtest.h>

#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace {

using namespace emulated;

constexpr win32::DWORD kDacl = win32::DACL_SECURITY_INFORMATION;

std::string Text(ByteView descriptor, win32::DWORD parts = kDacl) { return Utf8(DescriptorToText(descriptor, parts)); }

Bytes Descriptor(std::u16string_view sddl) { return DescriptorFromText(sddl).value_or(Bytes()); }

std::string Inherited(std::u16string_view parent, bool isContainer,
                      std::optional<std::u16string_view> creator = std::nullopt) {
  const auto token = MakeUserToken(SidFromText(u"S-1-5-21-1-2-3-1001"));
  const Bytes above = Descriptor(parent), own = creator ? Descriptor(*creator) : Bytes();
  return Text(NewObjectDescriptor(*token, ByteView(above), creator ? std::optional<ByteView>(own) : std::nullopt,
                                  isContainer, kFileMapping));
}

TEST(SecurityInheritance, FlagsDecideWhoInheritsWhat) {
  const struct {
    const char16_t* parent;
    const char *directory, *file;
  } cases[] = {
      {u"D:(A;OICI;FA;;;BA)", "D:AI(A;OICIID;FA;;;BA)", "D:AI(A;ID;FA;;;BA)"},
      {u"D:(A;OI;FA;;;BA)(A;CI;FR;;;BU)", "D:AI(A;OIIOID;FA;;;BA)(A;CIID;FR;;;BU)", "D:AI(A;ID;FA;;;BA)"},
      {u"D:(A;OICIIO;FA;;;BA)(A;;FA;;;SY)", "D:AI(A;OICIID;FA;;;BA)", "D:AI(A;ID;FA;;;BA)"},
      {u"D:(A;OICINP;FA;;;BA)", "D:AI(A;ID;FA;;;BA)", "D:AI(A;ID;FA;;;BA)"},
      {u"D:(A;OICIIO;GA;;;CO)", "D:AI(A;ID;FA;;;S-1-5-21-1-2-3-1001)(A;OICIIOID;GA;;;CO)",
       "D:AI(A;ID;FA;;;S-1-5-21-1-2-3-1001)"},
      {u"D:(A;OICIIO;GXGR;;;BU)", "D:AI(A;ID;0x1200a9;;;BU)(A;OICIIOID;GXGR;;;BU)", "D:AI(A;ID;0x1200a9;;;BU)"},
      {u"D:(A;OI;FA;;;BA)(A;CINP;FR;;;CG)", "D:AI(A;OIIOID;FA;;;BA)(A;ID;FR;;;S-1-5-21-1-2-3-513)",
       "D:AI(A;ID;FA;;;BA)"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(Inherited(one.parent, true), one.directory);
    EXPECT_EQ(Inherited(one.parent, false), one.file);
  }
}

TEST(SecurityInheritance, CreatorAndTokenHaveTheirPart) {
  EXPECT_EQ(Inherited(u"D:(A;;FA;;;WD)", false), "D:(A;;FA;;;S-1-5-21-1-2-3-1001)(A;;FA;;;SY)")
      << "with nothing to inherit the token's defaults hold";
  constexpr std::u16string_view kParent = u"D:(A;OICI;FA;;;BA)";
  EXPECT_EQ(Inherited(kParent, true, u"D:(A;;GR;;;WD)(A;ID;FA;;;AN)"), "D:AI(A;;FR;;;WD)(A;OICIID;FA;;;BA)");
  EXPECT_EQ(Inherited(kParent, true, u"D:P(A;;GR;;;WD)"), "D:PAI(A;;FR;;;WD)");
  EXPECT_EQ(Inherited(kParent, true, u"D:NO_ACCESS_CONTROL"), "D:NO_ACCESS_CONTROL");
  // An administrator's objects belong to the group.
  const auto administrator = MakeAdministratorToken(SidFromText(u"S-1-5-21-1-2-3-500"));
  const Bytes parent = Descriptor(kParent);
  EXPECT_EQ(Text(NewObjectDescriptor(*administrator, ByteView(parent), std::nullopt, false, kFileMapping),
                 win32::OWNER_SECURITY_INFORMATION | win32::GROUP_SECURITY_INFORMATION),
            "O:BAG:S-1-5-21-1-2-3-513");
}

TEST(SecurityInheritance, AMergeTakesOnlyTheNamedPartsAndTheMarkOnlyOnRequest) {
  const Bytes current = Descriptor(u"O:SYG:SYD:AI(A;ID;FA;;;SY)"), other = Descriptor(u"O:BAG:BAD:PAI(A;;GR;;;WD)");
  constexpr win32::DWORD kAll = win32::OWNER_SECURITY_INFORMATION | win32::GROUP_SECURITY_INFORMATION | kDacl;
  EXPECT_EQ(Text(MergeDescriptor(current, other, win32::OWNER_SECURITY_INFORMATION), kAll),
            "O:BAG:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_EQ(Text(MergeDescriptor(current, other, kDacl), kAll), "O:SYG:SYD:P(A;;FR;;;WD)");
  EXPECT_EQ(Text(MergeDescriptor(current, Descriptor(u"D:ARAI(A;ID;FR;;;WD)"), kDacl), kDacl), "D:AI(A;ID;FR;;;WD)");
}

TEST(SecurityInheritance, AnUnsaidProtectionStays) {
  const Bytes parent = Descriptor(u"D:(A;OICI;FA;;;BA)"), isProtected = Descriptor(u"O:SYG:SYD:P(A;;FA;;;SY)");
  const Bytes written = Descriptor(u"D:(A;;FR;;;WD)");
  const auto dacl = ViewDescriptor(written)->dacl;
  EXPECT_EQ(Text(ApplyDacl(isProtected, dacl, kDacl, ByteView(parent), false, kFileMapping)), "D:PAI(A;;FR;;;WD)");
  EXPECT_EQ(Text(ApplyDacl(isProtected, dacl, kDacl | win32::UNPROTECTED_DACL_SECURITY_INFORMATION, ByteView(parent),
                           false, kFileMapping)),
            "D:AI(A;;FR;;;WD)(A;ID;FA;;;BA)");
}

TEST(SecurityInheritance, AListThatGrowsTooLongFails) {
  std::u16string many = u"D:", half = u"D:";
  for (int i = 0; i < 1200; ++i) {
    const std::u16string sid = u"FA;;;S-1-5-21-1-2-3-" + Utf16(std::to_string(i)) + u")";
    many += u"(A;OICI;" + sid;
    half += u"(A;;" + sid;
  }
  const Bytes parent = Descriptor(many), child = Descriptor(half);
  ASSERT_FALSE(parent.empty() || child.empty());
  EXPECT_TRUE(ApplyDacl(child, ViewDescriptor(child)->dacl, kDacl, ByteView(parent), true, kFileMapping).empty());
}

}  // namespace
