// The named-security functions as others than an all-powerful administrator see them.
#include <gtest/gtest.h>

#include "support/machine.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"
#include "win32/handle.h"

namespace {

using namespace win32;
using emulated::Bytes;

class SecurityFiles : public testing::Test {
 protected:
  SecurityFiles() : machine(test::TestMachine()) {}

  emulated::Volume& volume() { return *machine->FindByLetter(u'C')->volume; }

  // Behind the functions under test.
  void Place(std::u16string_view path, std::u16string_view sddl) {
    emulated::FileId file = 0;
    ASSERT_EQ(volume().LookupPath(path, file), 0u);
    ASSERT_EQ(volume().SetSecurity(file, *emulated::DescriptorFromText(sddl)), 0u);
  }
  std::string Stored(std::u16string_view path, DWORD parts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION) {
    emulated::FileId file = 0;
    Bytes descriptor;
    if (volume().LookupPath(path, file) != 0 || volume().GetSecurity(file, descriptor) != 0) return "(none)";
    return emulated::Utf8(emulated::DescriptorToText(descriptor, parts));
  }

  static DWORD Read(const char16_t* path, DWORD parts = DACL_SECURITY_INFORMATION) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetNamedSecurityInfoW(path, SE_OBJECT_TYPE::SE_FILE_OBJECT, parts, nullptr, nullptr, nullptr,
                                              nullptr, &descriptor);
    const UniqueLocalMemory owner{descriptor};
    return error;
  }
  static DWORD WriteDacl(std::u16string path, std::u16string_view sddl) {
    Bytes descriptor = *emulated::DescriptorFromText(sddl);
    Bytes dacl(emulated::ViewDescriptor(descriptor)->dacl.begin(), emulated::ViewDescriptor(descriptor)->dacl.end());
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                 nullptr, reinterpret_cast<ACL*>(dacl.data()), nullptr);
  }
  static DWORD WriteOwner(std::u16string path, std::u16string_view sid) {
    emulated::Sid owner = emulated::SidFromText(sid);
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, owner.data(),
                                 nullptr, nullptr, nullptr);
  }
  static void Enable(std::u16string_view privilege) {
    emulated::Machine::Current().process.token->EnablePrivilege(privilege, true);
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(SecurityFiles, ReadingNeedsTheRightToAndNoPrivilegeToBackUpHelps) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  Place(u"\\d", u"O:SYG:SYD:P(A;;FA;;;SY)");
  Enable(u"SeBackupPrivilege");
  Enable(u"SeRestorePrivilege");
  EXPECT_EQ(Read(u"C:\\d"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteDacl(u"C:\\d", u"D:(A;;FA;;;BA)"), ERROR_ACCESS_DENIED);
  DWORD needed = 0;
  EXPECT_FALSE(GetFileSecurityW(u"C:\\d", DACL_SECURITY_INFORMATION, nullptr, 0, &needed));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(SecurityFiles, WhoTakesOwnershipMayThenChangeTheDacl) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  Place(u"\\d", u"O:SYG:SYD:P(A;;FA;;;SY)");
  EXPECT_EQ(WriteOwner(u"C:\\d", u"S-1-5-32-544"), ERROR_ACCESS_DENIED);
  Enable(u"SeTakeOwnershipPrivilege");
  EXPECT_EQ(WriteOwner(u"C:\\d", u"S-1-5-32-544"), 0u);
  EXPECT_EQ(WriteDacl(u"C:\\d", u"D:(A;;FA;;;BA)"), 0u);
  EXPECT_EQ(Stored(u"\\d"), "O:BAD:PAI(A;;FA;;;BA)");
}

TEST_F(SecurityFiles, OnlyRestoringMakesAnybodyTheOwner) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  EXPECT_EQ(WriteOwner(u"C:\\d", u"S-1-5-21-9-9-9-1009"), ERROR_INVALID_OWNER);
  Enable(u"SeRestorePrivilege");
  EXPECT_EQ(WriteOwner(u"C:\\d", u"S-1-5-21-9-9-9-1009"), 0u);
  EXPECT_EQ(Stored(u"\\d", OWNER_SECURITY_INFORMATION), "O:S-1-5-21-9-9-9-1009");
}

TEST_F(SecurityFiles, AnAdministratorWithoutElevationIsAUser) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  Place(u"\\d", u"O:BAG:SYD:P(A;;FA;;;BA)");
  EXPECT_EQ(Read(u"C:\\d"), 0u);
  machine->process.token = emulated::MakeFilteredAdministratorToken(machine->process.token->user);
  EXPECT_EQ(Read(u"C:\\d"), ERROR_ACCESS_DENIED);
}

TEST_F(SecurityFiles, TheAuditListNeedsItsPrivilege) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  EXPECT_EQ(Read(u"C:\\d", SACL_SECURITY_INFORMATION), ERROR_PRIVILEGE_NOT_HELD);
  Enable(u"SeSecurityPrivilege");
  EXPECT_EQ(Read(u"C:\\d", SACL_SECURITY_INFORMATION), 0u);
}

TEST_F(SecurityFiles, ALinkHasItsOwnDescriptorAndNothingIsPropagatedThroughIt) {
  for (const char16_t* const path : {u"C:\\top", u"C:\\top\\link", u"C:\\target", u"C:\\target\\inside"})
    ASSERT_TRUE(CreateDirectoryW(path, nullptr));
  const UniqueFile link{CreateFileW(u"C:\\top\\link", GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
  const std::u16string substitute = u"\\??\\C:\\target", print = u"C:\\target";
  Bytes data;
  emulated::AppendLittleEndian(data, std::uint32_t{IO_REPARSE_TAG_MOUNT_POINT});
  for (const std::size_t word : {8 + (substitute.size() + print.size() + 2) * 2, std::size_t{0}, std::size_t{0},
                                 substitute.size() * 2, substitute.size() * 2 + 2, print.size() * 2})
    emulated::AppendLittleEndian(data, static_cast<std::uint16_t>(word));
  for (const char16_t unit : substitute + u'\0' + print + u'\0') emulated::AppendLittleEndian(data, unit);
  DWORD returned = 0;
  ASSERT_TRUE(link && DeviceIoControl(link.get(), FSCTL_SET_REPARSE_POINT, data.data(), static_cast<DWORD>(data.size()),
                                      nullptr, 0, &returned, nullptr));

  const std::string inside = Stored(u"\\target\\inside"), target = Stored(u"\\target");
  EXPECT_EQ(WriteDacl(u"C:\\top\\link", u"D:(A;OICI;FR;;;AN)"), 0u);
  EXPECT_NE(Stored(u"\\top\\link").find("AN"), std::string::npos);
  EXPECT_EQ(WriteDacl(u"C:\\top", u"D:(A;OICI;FW;;;BG)"), 0u);
  EXPECT_NE(Stored(u"\\top\\link").find("BG"), std::string::npos);
  EXPECT_EQ(Stored(u"\\target"), target);
  EXPECT_EQ(Stored(u"\\target\\inside"), inside);
  EXPECT_EQ(WriteDacl(u"C:\\top\\link\\inside", u"D:(A;;FX;;;PU)"), 0u);  // a link on the way is followed
  EXPECT_NE(Stored(u"\\target\\inside").find("PU"), std::string::npos);
}

TEST_F(SecurityFiles, PropagationPassesByWhatTheCallerMayNotChange) {
  for (const char16_t* const path : {u"C:\\top", u"C:\\top\\closed", u"C:\\top\\open"})
    ASSERT_TRUE(CreateDirectoryW(path, nullptr));
  Place(u"\\top\\closed", u"O:SYG:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_EQ(WriteDacl(u"C:\\top", u"D:(A;OICI;FW;;;BG)"), 0u);
  EXPECT_EQ(Stored(u"\\top\\closed"), "O:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_NE(Stored(u"\\top\\open").find("(A;OICIID;FW;;;BG)"), std::string::npos);
}

}  // namespace
