// Who may do what: the decision itself, without files.
#include <gtest/gtest.h>

#include "win32/emulated/security/access.h"

namespace {

using namespace emulated;

const Sid kUser = SidFromText(u"S-1-5-21-1-2-3-1001");

// The granted rights, or the error as a negative number.
std::int64_t Ask(const Token& token, std::u16string_view sddl, win32::DWORD desired, bool backupIntent = false,
                 std::optional<std::u16string_view> directory = std::nullopt) {
  const Bytes descriptor = DescriptorFromText(sddl).value();
  const Bytes parent = directory ? DescriptorFromText(*directory).value() : Bytes();
  win32::DWORD granted = 0;
  const win32::DWORD error = CheckAccess(token, descriptor, desired, kFileMapping, backupIntent,
                                         directory ? std::optional<ByteView>(parent) : std::nullopt, granted);
  return error == 0 ? std::int64_t{granted} : -std::int64_t{error};
}

constexpr std::int64_t kDenied = -std::int64_t{win32::ERROR_ACCESS_DENIED};
constexpr win32::DWORD kRead = win32::FILE_READ_DATA, kWrite = win32::FILE_WRITE_DATA,
                       kControl = win32::READ_CONTROL | win32::WRITE_DAC, kMaximum = win32::MAXIMUM_ALLOWED;
constexpr std::u16string_view kClosed = u"O:SYG:SYD:";

TEST(SecurityAccess, TheDescriptorDecides) {
  const auto user = MakeUserToken(kUser), elevated = MakeAdministratorToken(kUser),
             filtered = MakeFilteredAdministratorToken(kUser);
  const struct {
    const Token& token;
    std::u16string_view sddl;
    win32::DWORD desired;
    std::int64_t granted;
  } cases[] = {
      // Entries count in their order. Where it is not the preferred one, what was allowed before stays allowed.
      {*user, u"O:SYG:SYD:(D;;FW;;;BU)(A;;FA;;;BU)", kWrite, kDenied},
      {*user, u"O:SYG:SYD:(D;;FW;;;BU)(A;;FA;;;BU)", kRead, kRead},
      {*user, u"O:SYG:SYD:(A;;FA;;;BU)(D;;FW;;;BU)", kWrite, kWrite},
      {*user, u"O:SYG:SYD:(A;;FR;;;BU)(A;;FW;;;AU)", kRead | kWrite, kRead | kWrite},
      {*user, u"O:SYG:SYD:(A;OICIIO;FA;;;WD)", kRead, kDenied},
      // No list grants everything, an empty one nothing.
      {*user, u"O:SYG:SY", win32::GENERIC_ALL, win32::FILE_ALL_ACCESS},
      {*user, u"O:SYG:SYD:NO_ACCESS_CONTROL", win32::GENERIC_ALL, win32::FILE_ALL_ACCESS},
      {*user, kClosed, win32::READ_CONTROL, kDenied},
      // The owner may read and change the list unless an entry for owners says otherwise.
      {*user, u"O:S-1-5-21-1-2-3-1001G:SYD:", kControl, kControl},
      {*user, u"O:S-1-5-21-1-2-3-1001G:SYD:", kRead, kDenied},
      {*user, u"O:S-1-5-21-1-2-3-1001G:SYD:(A;;RC;;;OW)", kControl, kDenied},
      {*user, u"O:S-1-5-21-1-2-3-1001G:SYD:(A;;FR;;;OW)", kRead, kRead},
      {*user, u"O:SYG:SYD:(A;;FA;;;OW)", kRead, kDenied},
      // A group for deny only denies and neither allows nor owns.
      {*elevated, u"O:SYG:SYD:(A;;FA;;;BA)", kWrite, kWrite},
      {*filtered, u"O:SYG:SYD:(A;;FA;;;BA)", kWrite, kDenied},
      {*filtered, u"O:SYG:SYD:(D;;FW;;;BA)(A;;FA;;;BU)", kWrite, kDenied},
      {*filtered, u"O:BAG:SYD:", win32::READ_CONTROL, kDenied},
      // The most that there is.
      {*user, u"O:SYG:SYD:(D;;FW;;;BU)(A;;0x1301bf;;;AU)", kMaximum, 0x1301bf & ~0x120116},
      {*user, u"O:SYG:SYD:(A;;FR;;;AU)", kMaximum | kWrite, kDenied},
      {*user, kClosed, kMaximum, kDenied}};
  for (const auto& one : cases) EXPECT_EQ(Ask(one.token, one.sddl, one.desired), one.granted) << &one - cases;
}

TEST(SecurityAccess, PrivilegesGiveTheirRightsOnceTheyAreEnabled) {
  const auto token = MakeAdministratorToken(kUser);
  constexpr win32::DWORD kRestoring = win32::FILE_GENERIC_WRITE | win32::WRITE_DAC | win32::WRITE_OWNER | win32::DELETE;
  const struct {
    const char16_t* privilege;
    win32::DWORD right, granted;
    bool backupIntent;
    win32::DWORD error = win32::ERROR_ACCESS_DENIED;
  } cases[] = {{u"SeTakeOwnershipPrivilege", win32::WRITE_OWNER, win32::WRITE_OWNER, false},
               {u"SeBackupPrivilege", win32::GENERIC_READ, win32::FILE_GENERIC_READ, true},
               {u"SeRestorePrivilege", kRestoring, kRestoring, true}};
  for (const auto& one : cases) {
    EXPECT_EQ(Ask(*token, kClosed, one.right, true), -std::int64_t{one.error}) << &one - cases;
    token->EnablePrivilege(one.privilege, true);
    EXPECT_EQ(Ask(*token, kClosed, one.right, true), one.granted) << &one - cases;
    EXPECT_EQ(Ask(*token, kClosed, one.right, false), one.backupIntent ? kDenied : one.granted) << &one - cases;
  }
}

TEST(SecurityAccess, TheDirectoryLetsDeleteAndLookAtAttributes) {
  const auto token = MakeUserToken(kUser);
  const auto ask = [&](win32::DWORD desired, std::u16string_view directory) {
    return Ask(*token, kClosed, desired, false, directory);
  };
  EXPECT_EQ(ask(win32::DELETE, u"O:SYG:SYD:(A;;DT;;;WD)"), win32::DELETE);
  EXPECT_EQ(ask(win32::FILE_READ_ATTRIBUTES, u"O:SYG:SYD:(A;;CC;;;WD)"), win32::FILE_READ_ATTRIBUTES);
  EXPECT_EQ(ask(win32::DELETE, u"O:SYG:SYD:(A;;CC;;;WD)"), kDenied);
  EXPECT_EQ(ask(win32::DELETE | kRead, u"O:SYG:SYD:(A;;FA;;;WD)"), kDenied);
}

TEST(SecurityAccess, DamagedDescriptorsAreRefusedEverywhere) {
  const auto token = MakeAdministratorToken(kUser);
  const Bytes good = DescriptorFromText(
                         u"O:BAG:SYD:PAI(A;OICI;FA;;;BA)"
                         u"(OA;;CR;6da8a4ff-0e52-11d0-a286-00aa003049e2;;AU)S:(AU;SA;FA;;;WD)")
                         .value();
  unsigned random = 1;
  const auto next = [&] { return (random = random * 1103515245u + 12345u) >> 8; };
  for (int round = 0; round < 20000; ++round) {
    Bytes bad = good;
    for (int i = 0; i < 3; ++i) bad[next() % bad.size()] = static_cast<std::uint8_t>(next());
    if (round % 4 == 0) bad.resize(next() % bad.size());
    const Bytes damaged(bad);  // exactly as long as it is: reading beyond its end shows
    win32::DWORD granted = 0;
    const bool sound = IsSoundDescriptor(damaged);
    const win32::DWORD error = CheckAccess(*token, damaged, kMaximum, kFileMapping, true, ByteView(damaged), granted);
    EXPECT_EQ(error == win32::ERROR_INVALID_SECURITY_DESCR, !sound);
    EXPECT_EQ(MergeDescriptor(good, damaged, win32::DACL_SECURITY_INFORMATION).empty(), !sound);
    EXPECT_EQ(Reinherit(damaged, good, true, kFileMapping).empty(), !sound);
    DescriptorToText(damaged, win32::OWNER_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION |
                                  win32::SACL_SECURITY_INFORMATION);
  }
}

}  // namespace
