// Opening up security descriptors and putting them back.
#include "fsops/security.h"
#include "support/engine.h"
#include "win32/emulated/text.h"

namespace {

using namespace win32;
using emulated::Utf8;
using test::MakeFile;

class SavedSecurity : public test::Engine {};

TEST_F(SavedSecurity, OpensUpAndPutsBack) {
  const std::u16string file = source + u"\\f";
  MakeFile(file, "x");
  test::SetSecurity(file, u"O:BAD:P(A;;FR;;;SY)");
  const std::u16string before = test::Security(file);
  SavedSecurityMap saved;
  ASSERT_EQ(SaveSecurityInfo(file, saved[file]), 1);
  ASSERT_EQ(GrantEveryoneAndAdministrators(file), 1);
  EXPECT_NE(test::Dacl(file), before);
  EXPECT_EQ(HasAccess(ImpersonatedCaller().token(), file, kReadAndExecute), 1);
  ASSERT_EQ(RestoreRemovedSecurityInfo(saved), 1);
  EXPECT_EQ(test::Security(file), before);
  // Written once, and once more; nothing is opened any further for that.
  for (const int refusals : {1, 2}) {
    for (int call = 1; call <= refusals; ++call)
      machine->gate.FailCall("SetFileSecurityW", static_cast<unsigned>(call), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RestoreRemovedSecurityInfo(saved), refusals == 1 ? 1 : 0);
    EXPECT_EQ(test::Security(file), before);
    EXPECT_EQ(Logged(u"#ERROR: Unable to restore the access rights of C:\\Data\\f. Access is denied."), refusals == 2);
  }
  ASSERT_TRUE(DeleteFileW(file.c_str()));
  EXPECT_EQ(RestoreRemovedSecurityInfo(saved), 1);  // nothing is left that could get it
  EXPECT_EQ(machine->sleptMilliseconds, 6000u);
}

// However the two places are written, and wherever the item is by now.
TEST_F(SavedSecurity, FollowsWhatHasMoved) {
  const std::u16string prefix = u"\\\\?\\", dots = prefix + source + u"\\dots.", plain = source + u"\\f";
  const std::u16string newDots = prefix + target + u"\\dots.", newPlain = target + u"\\f";
  const auto saveAll = [](SavedSecurityMap& saved, const std::u16string& path) {
    ASSERT_EQ(SaveSecurityInfo(path, saved[path]), 1);
    ASSERT_EQ(GrantEveryoneAndAdministrators(path), 1);
  };
  for (const std::u16string& written : {std::u16string(), prefix})
    for (const bool stays : {false, true}) {
      SCOPED_TRACE(Utf8(written) + (stays ? " stays" : " moves"));
      SavedSecurityMap saved;
      for (const std::u16string& path : {dots, plain}) {
        MakeFile(path, "x");
        test::SetSecurity(path, u"O:BAD:P(A;;FR;;;SY)");
        saveAll(saved, path);
      }
      ASSERT_TRUE(MoveFileW(dots.c_str(), newDots.c_str()));
      ASSERT_TRUE(stays || MoveFileW(plain.c_str(), newPlain.c_str()));
      const std::u16string from = written + source, to = written + target;
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, from.c_str(), to.c_str()), 1);
      for (const std::u16string& path : {newDots, stays ? plain : newPlain}) {
        EXPECT_EQ(test::Dacl(path), u"D:P(A;;FR;;;SY)") << Utf8(path);
        ASSERT_EQ(GrantEveryoneAndAdministrators(path), 1);
        ASSERT_TRUE(DeleteFileW(path.c_str()));
      }
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, from.c_str(), to.c_str()), 1);  // vanished from both places
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, u"C:\\Elsewhere", to.c_str()), 0);
      machine->gate.FailCallsFrom("GetFileAttributesW", 1, ERROR_ACCESS_DENIED);
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, from.c_str(), to.c_str()), 0);
      machine->gate.ClearFailures();
    }
}

TEST_F(SavedSecurity, TakesOwnershipOnlyWhenAccessIsDenied) {
  const std::u16string file = source + u"\\f";
  MakeFile(file, "x");
  test::SetSecurity(file, u"O:SYD:P(A;;FA;;;SY)");
  machine->gate.FailCall("SetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(GrantEveryoneAndAdministrators(file), 1);
  EXPECT_TRUE(test::Security(file).starts_with(u"O:BA"));
  machine->gate.FailCall("SetNamedSecurityInfoW", 1, ERROR_SHARING_VIOLATION);
  EXPECT_EQ(GrantEveryoneAndAdministrators(file), 0);
}

TEST_F(SavedSecurity, InheritanceIsLookedAtOnce) {
  MakeFile(source + u"\\f", "x");
  InheritanceCache cache;
  EXPECT_EQ(HaveInheritedPermissions(cache, source + u"\\f"), 1);
  test::SetSecurity(source + u"\\f", u"O:BAD:P(A;;FA;;;BA)");
  EXPECT_EQ(HaveInheritedPermissions(cache, source + u"\\f"), 1);
  cache.clear();
  EXPECT_EQ(HaveInheritedPermissions(cache, source + u"\\f"), 0);
}

}  // namespace
