// Opening up security descriptors and putting them back.
#include "fsops/security.h"
#include "support/engine.h"

namespace {

using namespace win32;
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
  ASSERT_TRUE(DeleteFileW(file.c_str()));
  EXPECT_EQ(RestoreRemovedSecurityInfo(saved), 1);  // nothing is left that could get it
  EXPECT_EQ(machine->sleptMilliseconds, 2000u);
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
