// Who may do what, and what objects inherit: the decisions themselves, without files.
#include <gtest/gtest.h>

#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace {

using namespace emulated;
using namespace win32;

const Sid kUser = SidFromText(u"S-1-5-21-1-2-3-1001");
constexpr std::int64_t kDenied = -std::int64_t{ERROR_ACCESS_DENIED};

TEST(Security, TheDescriptorDecides) {
  const auto user = MakeUserToken(kUser), elevated = MakeAdministratorToken(kUser),
             filtered = MakeFilteredAdministratorToken(kUser), backs = MakeAdministratorToken(kUser);
  backs->EnablePrivilege(u"SeBackupPrivilege", true);
  constexpr DWORD kRead = FILE_READ_DATA, kWrite = FILE_WRITE_DATA, kControl = READ_CONTROL | WRITE_DAC,
                  kMaximum = MAXIMUM_ALLOWED;
  const struct {
    std::shared_ptr<Token> token;
    std::u16string_view sddl;  // behind "O:SYG:SY", unless it names an owner
    DWORD desired;
    std::int64_t granted;  // the rights, or the error as a negative number
    bool backupIntent = false;
    std::optional<std::u16string_view> directory = {};
  } cases[] = {
      // Entries count in their order. Where it is not the preferred one, what was allowed before stays allowed.
      {user, u"D:(D;;FW;;;BU)(A;;FA;;;BU)", kWrite, kDenied},
      {user, u"D:(A;;FA;;;BU)(D;;FW;;;BU)", kWrite, kWrite},
      {user, u"D:(A;;FR;;;BU)(A;;FW;;;AU)", kRead | kWrite, kRead | kWrite},
      {user, u"D:(A;OICIIO;FA;;;WD)", kRead, kDenied},
      // No list grants everything, an empty one nothing.
      {user, u"", GENERIC_ALL, FILE_ALL_ACCESS},
      {user, u"D:", READ_CONTROL, kDenied},
      // The owner may read and change the list unless an entry for owners says otherwise.
      {user, u"O:S-1-5-21-1-2-3-1001G:SYD:", kControl, kControl},
      {user, u"O:S-1-5-21-1-2-3-1001G:SYD:(A;;RC;;;OW)", kControl, kDenied},
      // A group for deny only denies and neither allows nor owns.
      {elevated, u"D:(A;;FA;;;BA)", kWrite, kWrite},
      {filtered, u"D:(A;;FA;;;BA)", kWrite, kDenied},
      {filtered, u"D:(D;;FW;;;BA)(A;;FA;;;BU)", kWrite, kDenied},
      {filtered, u"O:BAG:SYD:", READ_CONTROL, kDenied},
      {user, u"D:(D;;FW;;;BU)(A;;0x1301bf;;;AU)", kMaximum, 0x1301bf & ~0x120116},
      // Who may back up everything writes nothing by that, and who may delete children does not read them.
      {backs, u"D:", FILE_GENERIC_WRITE, kDenied, true},
      {user, u"D:", DELETE | kRead, kDenied, false, u"O:SYG:SYD:(A;;FA;;;WD)"}};
  for (const auto& one : cases) {
    const std::u16string sddl = (one.sddl.starts_with(u"O:") ? u"" : u"O:SYG:SY") + std::u16string(one.sddl);
    const Bytes descriptor = DescriptorFromText(sddl).value(),
                parent = DescriptorFromText(one.directory.value_or(u"")).value();
    DWORD granted = 0;
    const DWORD error = CheckAccess(*one.token, descriptor, one.desired, kFileMapping, one.backupIntent,
                                    one.directory ? std::optional<ByteView>(parent) : std::nullopt, granted);
    EXPECT_EQ(error == 0 ? std::int64_t{granted} : -std::int64_t{error}, one.granted) << &one - cases;
  }
}

TEST(Security, DamagedDescriptorsAreRefusedEverywhere) {
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
    DWORD granted = 0;
    const bool sound = IsSoundDescriptor(damaged);
    const DWORD error = CheckAccess(*token, damaged, MAXIMUM_ALLOWED, kFileMapping, true, ByteView(damaged), granted);
    EXPECT_EQ(error == ERROR_INVALID_SECURITY_DESCR, !sound);
    EXPECT_EQ(MergeDescriptor(good, damaged, DACL_SECURITY_INFORMATION).empty(), !sound);
    EXPECT_EQ(Reinherit(damaged, good, true, kFileMapping).empty(), !sound);
    DescriptorToText(damaged, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION);
  }
}

}  // namespace
