// The named-security functions as others than an all-powerful administrator see them.
#include "emulated/on_machine.h"

namespace {

using namespace win32;
using emulated::Bytes;

class SecurityFiles : public test::OnBareMachine {
 protected:
  static void Make(std::initializer_list<const char16_t*> paths) {
    for (const char16_t* const path : paths) contract::MakeDirectory(path);
  }
  static DWORD Read(const char16_t* path, DWORD parts = DACL_SECURITY_INFORMATION) {
    UniqueLocalMemory descriptor;
    return GetNamedSecurityInfoW(path, SE_OBJECT_TYPE::SE_FILE_OBJECT, parts, nullptr, nullptr, nullptr, nullptr,
                                 descriptor.put());
  }
  static DWORD WriteDacl(std::u16string path, std::u16string_view sddl) {
    const Bytes descriptor = *emulated::DescriptorFromText(sddl);
    const emulated::ByteView view = emulated::ViewDescriptor(descriptor)->dacl;
    Bytes dacl(view.begin(), view.end());
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                 nullptr, reinterpret_cast<ACL*>(dacl.data()), nullptr);
  }
  static DWORD WriteOwner(std::u16string path, std::u16string_view sid) {
    emulated::Sid owner = emulated::SidFromText(sid);
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, owner.data(),
                                 nullptr, nullptr, nullptr);
  }
};

TEST_F(SecurityFiles, PrivilegesHelpAsFarAsEachGoes) {
  constexpr std::u16string_view kAdministrators = u"S-1-5-32-544", kAnybody = u"S-1-5-21-9-9-9-1009";
  Make({u"C:\\d"});
  EXPECT_EQ(Read(u"C:\\d", SACL_SECURITY_INFORMATION), ERROR_PRIVILEGE_NOT_HELD);
  Enable(u"SeSecurityPrivilege");
  EXPECT_EQ(Read(u"C:\\d", SACL_SECURITY_INFORMATION), 0u);
  // Only who may restore makes anybody the owner.
  EXPECT_EQ(WriteOwner(u"C:\\d", kAnybody), ERROR_INVALID_OWNER);
  Enable(u"SeRestorePrivilege");
  EXPECT_EQ(WriteOwner(u"C:\\d", kAnybody), 0u);
  EXPECT_TRUE(SecurityOf(u"\\d").starts_with("O:S-1-5-21-9-9-9-1009D:"));
  // No privilege to back up or restore opens what is closed.
  Protect(u"\\d", u"O:SYG:SYD:P(A;;FA;;;SY)");
  Enable(u"SeBackupPrivilege");
  EXPECT_EQ(Read(u"C:\\d"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteDacl(u"C:\\d", u"D:(A;;FA;;;BA)"), ERROR_ACCESS_DENIED);
  DWORD needed = 0;
  EXPECT_EQ(contract::ErrorOf(GetFileSecurityW(u"C:\\d", DACL_SECURITY_INFORMATION, nullptr, 0, &needed)),
            ERROR_ACCESS_DENIED);
  // Who takes the ownership may then change the list.
  EXPECT_EQ(WriteOwner(u"C:\\d", kAdministrators), ERROR_ACCESS_DENIED);
  Enable(u"SeTakeOwnershipPrivilege");
  EXPECT_EQ(WriteOwner(u"C:\\d", kAdministrators), 0u);
  EXPECT_EQ(WriteDacl(u"C:\\d", u"D:(A;;FA;;;BA)"), 0u);
  EXPECT_EQ(SecurityOf(u"\\d"), "O:BAD:PAI(A;;FA;;;BA)");
  LoseElevation();
  EXPECT_EQ(Read(u"C:\\d"), ERROR_ACCESS_DENIED);
}

TEST_F(SecurityFiles, ALinkHasItsOwnDescriptorAndNothingIsPropagatedThroughIt) {
  Make({u"C:\\top", u"C:\\target", u"C:\\target\\inside"});
  contract::MakeJunction(u"C:\\top\\link", u"\\??\\C:\\target");
  const auto mentions = [&](std::u16string_view path, const char* who) {
    return SecurityOf(path).find(who) != std::string::npos;
  };
  const std::string inside = SecurityOf(u"\\target\\inside"), target = SecurityOf(u"\\target");
  EXPECT_EQ(WriteDacl(u"C:\\top\\link", u"D:(A;OICI;FR;;;AN)"), 0u);
  EXPECT_TRUE(mentions(u"\\top\\link", "AN"));
  EXPECT_EQ(WriteDacl(u"C:\\top", u"D:(A;OICI;FW;;;BG)"), 0u);
  EXPECT_TRUE(mentions(u"\\top\\link", "BG"));
  EXPECT_EQ(SecurityOf(u"\\target"), target);
  EXPECT_EQ(SecurityOf(u"\\target\\inside"), inside);
  EXPECT_EQ(WriteDacl(u"C:\\top\\link\\inside", u"D:(A;;FX;;;PU)"), 0u);  // a link on the way is followed
  EXPECT_TRUE(mentions(u"\\target\\inside", "PU"));
}

TEST_F(SecurityFiles, PropagationPassesByWhatTheCallerMayNotChange) {
  Make({u"C:\\top", u"C:\\top\\closed", u"C:\\top\\open"});
  Protect(u"\\top\\closed", u"O:SYG:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_EQ(WriteDacl(u"C:\\top", u"D:(A;OICI;FW;;;BG)"), 0u);
  EXPECT_EQ(SecurityOf(u"\\top\\closed"), "O:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_NE(SecurityOf(u"\\top\\open").find("(A;OICIID;FW;;;BG)"), std::string::npos);
}

}  // namespace
