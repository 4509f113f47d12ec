// Who may do what: the decision itself, without files.
#include <gtest/gtest.h>

#include "win32/emulated/security/access.h"

namespace {

using namespace emulated;

const Sid kUser = SidFromText(u"S-1-5-21-1-2-3-1001");

Bytes Descriptor(std::u16string_view sddl) {
  const auto descriptor = DescriptorFromText(sddl);
  EXPECT_TRUE(descriptor.has_value());
  return descriptor.value_or(Bytes());
}

// The granted rights, or the error as a negative number.
std::int64_t Ask(const Token& token, std::u16string_view sddl, win32::DWORD desired, bool backupIntent = false,
                 std::optional<std::u16string_view> directory = std::nullopt) {
  const Bytes descriptor = Descriptor(sddl), parent = directory ? Descriptor(*directory) : Bytes();
  win32::DWORD granted = 0;
  const win32::DWORD error = CheckAccess(token, descriptor, desired, kFileMapping, backupIntent,
                                         directory ? std::optional<ByteView>(parent) : std::nullopt, granted);
  return error == 0 ? std::int64_t{granted} : -std::int64_t{error};
}

constexpr std::int64_t kDenied = -std::int64_t{win32::ERROR_ACCESS_DENIED};
constexpr win32::DWORD kRead = win32::FILE_READ_DATA, kWrite = win32::FILE_WRITE_DATA;

TEST(SecurityAccess, EntriesCountInTheirOrder) {
  const auto token = MakeUserToken(kUser);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(D;;FW;;;BU)(A;;FA;;;BU)", kWrite), kDenied);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(D;;FW;;;BU)(A;;FA;;;BU)", kRead), kRead);
  // Not the preferred order: what was allowed before stays allowed.
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(A;;FA;;;BU)(D;;FW;;;BU)", kWrite), kWrite);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(A;;FR;;;BU)(A;;FW;;;AU)", kRead | kWrite), kRead | kWrite);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(A;OICIIO;FA;;;WD)", kRead), kDenied);
}

TEST(SecurityAccess, NoDaclGrantsEverythingAndAnEmptyOneNothing) {
  const auto token = MakeUserToken(kUser);
  EXPECT_EQ(Ask(*token, u"O:SYG:SY", win32::GENERIC_ALL), win32::FILE_ALL_ACCESS);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:NO_ACCESS_CONTROL", win32::GENERIC_ALL), win32::FILE_ALL_ACCESS);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:", win32::READ_CONTROL), kDenied);
}

TEST(SecurityAccess, TheOwnerMayReadAndChangeTheDaclUnlessOwnerRightsSayOtherwise) {
  const auto token = MakeUserToken(kUser);
  constexpr win32::DWORD kControl = win32::READ_CONTROL | win32::WRITE_DAC;
  EXPECT_EQ(Ask(*token, u"O:S-1-5-21-1-2-3-1001G:SYD:", kControl), kControl);
  EXPECT_EQ(Ask(*token, u"O:S-1-5-21-1-2-3-1001G:SYD:", kRead), kDenied);
  EXPECT_EQ(Ask(*token, u"O:S-1-5-21-1-2-3-1001G:SYD:(A;;RC;;;OW)", kControl), kDenied);
  EXPECT_EQ(Ask(*token, u"O:S-1-5-21-1-2-3-1001G:SYD:(A;;FR;;;OW)", kRead), kRead);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(A;;FA;;;OW)", kRead), kDenied);
}

TEST(SecurityAccess, AGroupForDenyOnlyDeniesAndDoesNotAllow) {
  const auto elevated = MakeAdministratorToken(kUser), filtered = MakeFilteredAdministratorToken(kUser);
  EXPECT_EQ(Ask(*elevated, u"O:SYG:SYD:(A;;FA;;;BA)", kWrite), kWrite);
  EXPECT_EQ(Ask(*filtered, u"O:SYG:SYD:(A;;FA;;;BA)", kWrite), kDenied);
  EXPECT_EQ(Ask(*filtered, u"O:SYG:SYD:(D;;FW;;;BA)(A;;FA;;;BU)", kWrite), kDenied);
  EXPECT_EQ(Ask(*filtered, u"O:BAG:SYD:", win32::READ_CONTROL), kDenied);  // nor does it own
}

TEST(SecurityAccess, MaximumAllowedGivesWhatThereIs) {
  const auto token = MakeUserToken(kUser);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(D;;FW;;;BU)(A;;0x1301bf;;;AU)", win32::MAXIMUM_ALLOWED), 0x1301bf & ~0x120116);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:(A;;FR;;;AU)", win32::MAXIMUM_ALLOWED | kWrite), kDenied);
  EXPECT_EQ(Ask(*token, u"O:SYG:SYD:", win32::MAXIMUM_ALLOWED), kDenied);
}

TEST(SecurityAccess, BackupAndRestoreCountOnlyWhenEnabledAndAskedFor) {
  const auto token = MakeAdministratorToken(kUser);
  constexpr std::u16string_view kClosed = u"O:SYG:SYD:";
  EXPECT_EQ(Ask(*token, kClosed, kRead, true), kDenied);
  token->EnablePrivilege(u"SeBackupPrivilege", true);
  EXPECT_EQ(Ask(*token, kClosed, kRead, false), kDenied);
  EXPECT_EQ(Ask(*token, kClosed, win32::GENERIC_READ, true), win32::FILE_GENERIC_READ);
  EXPECT_EQ(Ask(*token, kClosed, kWrite, true), kDenied);
  token->EnablePrivilege(u"SeRestorePrivilege", true);
  constexpr win32::DWORD kRestoring = win32::FILE_GENERIC_WRITE | win32::WRITE_DAC | win32::WRITE_OWNER | win32::DELETE;
  EXPECT_EQ(Ask(*token, kClosed, kRestoring, true), kRestoring);
}

TEST(SecurityAccess, OtherPrivilegesGiveTheirOneRight) {
  const auto token = MakeAdministratorToken(kUser);
  constexpr std::u16string_view kClosed = u"O:SYG:SYD:";
  EXPECT_EQ(Ask(*token, kClosed, win32::WRITE_OWNER), kDenied);
  token->EnablePrivilege(u"SeTakeOwnershipPrivilege", true);
  EXPECT_EQ(Ask(*token, kClosed, win32::WRITE_OWNER), win32::WRITE_OWNER);
  EXPECT_EQ(Ask(*token, kClosed, win32::ACCESS_SYSTEM_SECURITY), -std::int64_t{win32::ERROR_PRIVILEGE_NOT_HELD});
  token->EnablePrivilege(u"SeSecurityPrivilege", true);
  EXPECT_EQ(Ask(*token, kClosed, win32::ACCESS_SYSTEM_SECURITY), win32::ACCESS_SYSTEM_SECURITY);
}

TEST(SecurityAccess, TheDirectoryLetsDeleteAndLookAtAttributes) {
  const auto token = MakeUserToken(kUser);
  constexpr std::u16string_view kClosed = u"O:SYG:SYD:";
  EXPECT_EQ(Ask(*token, kClosed, win32::DELETE, false, u"O:SYG:SYD:(A;;DT;;;WD)"), win32::DELETE);
  EXPECT_EQ(Ask(*token, kClosed, win32::FILE_READ_ATTRIBUTES, false, u"O:SYG:SYD:(A;;CC;;;WD)"),
            win32::FILE_READ_ATTRIBUTES);
  EXPECT_EQ(Ask(*token, kClosed, win32::DELETE, false, u"O:SYG:SYD:(A;;CC;;;WD)"), kDenied);
  EXPECT_EQ(Ask(*token, kClosed, win32::DELETE | kRead, false, u"O:SYG:SYD:(A;;FA;;;WD)"), kDenied);
}

TEST(SecurityAccess, DamagedDescriptorsAreRefusedEverywhere) {
  const auto token = MakeAdministratorToken(kUser);
  const Bytes good =
      Descriptor(u"O:BAG:SYD:PAI(A;OICI;FA;;;BA)(OA;;CR;6da8a4ff-0e52-11d0-a286-00aa003049e2;;AU)S:(AU;SA;FA;;;WD)");
  unsigned random = 1;
  const auto next = [&] { return (random = random * 1103515245u + 12345u) >> 8; };
  for (int round = 0; round < 20000; ++round) {
    Bytes bad = good;
    for (int i = 0; i < 3; ++i) bad[next() % bad.size()] = static_cast<std::uint8_t>(next());
    if (round % 4 == 0) bad.resize(next() % bad.size());
    const Bytes damaged(bad);  // exactly as long as it is: reading beyond its end shows
    win32::DWORD granted = 0;
    const bool sound = IsSoundDescriptor(damaged);
    const win32::DWORD error =
        CheckAccess(*token, damaged, win32::MAXIMUM_ALLOWED, kFileMapping, true, ByteView(damaged), granted);
    EXPECT_EQ(error == win32::ERROR_INVALID_SECURITY_DESCR, !sound);
    EXPECT_EQ(MergeDescriptor(good, damaged, win32::DACL_SECURITY_INFORMATION).empty(), !sound);
    EXPECT_EQ(Reinherit(damaged, good, true, kFileMapping).empty(), !sound);
    DescriptorToText(damaged, win32::OWNER_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION |
                                  win32::SACL_SECURITY_INFORMATION);
  }
}

}  // namespace
