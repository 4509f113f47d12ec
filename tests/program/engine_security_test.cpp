// Opening up security descriptors and putting them back.
#include "program/everything.h"

namespace {

using namespace test;
using namespace win32;
using emulated::Utf8;

class SavedSecurity : public Engine {
 protected:
  const std::u16string file = source + u"\\f";
};

TEST_F(SavedSecurity, OpensUpAndPutsBack) {
  MakeFile(file, "x");
  const std::u16string closed = u"O:BAD:P(A;;FR;;;SY)";
  SetSecurity(file, closed);
  const std::u16string before = Security(file);
  SavedSecurityMap saved;
  ASSERT_EQ(SaveSecurityInfo(file, saved[file]), 1);
  ASSERT_EQ(GrantEveryoneAndAdministrators(file), 1);
  EXPECT_EQ(Dacl(file), u"D:PAI(A;;FR;;;WD)(A;;FA;;;BA)") << "everyone may read, administrators do all";
  EXPECT_EQ(HasAccess(ImpersonatedCaller().token(), file, kReadAndExecute), 1);
  ASSERT_EQ(RestoreRemovedSecurityInfo(saved), 1);
  EXPECT_EQ(Security(file), before);
  // Written once, and once more; nothing is opened any further for that.
  for (const unsigned refusals : {1u, 2u}) {
    SetSecurity(file, u"O:BAD:P(A;;FA;;;BA)");
    for (unsigned call = 1; call <= refusals; ++call)
      machine->gate.FailCall("SetFileSecurityW", call, ERROR_ACCESS_DENIED);
    machine->debugOutput.clear();
    const bool fails = refusals == 2;
    EXPECT_EQ(Told([&] { EXPECT_EQ(RestoreRemovedSecurityInfo(saved), fails ? 0 : 1); }),
              fails ? "|#ERROR: Unable to restore the access rights of C:\\Data\\f. Access is denied." : "");
    EXPECT_EQ(Dacl(file), fails ? u"D:P(A;;FA;;;BA)" : u"D:P(A;;FR;;;SY)");
    EXPECT_EQ(Utf8(machine->debugOutput),
              "IN RestoreRemovedSecurityInfo() : C:\\Data\\fSetFileSecurity() failed for: C:\\Data\\f");
  }
  ASSERT_TRUE(DeleteFileW(file.c_str()));
  EXPECT_EQ(RestoreRemovedSecurityInfo(saved), 1);  // nothing is left that could get it
  EXPECT_EQ(machine->sleptMilliseconds, 6000u);
}

// Between the question for its size and the reading, a descriptor may grow.
TEST_F(SavedSecurity, IsReadOnceMoreWhenItHasGrown) {
  MakeFile(file, "x");
  SetSecurity(file, u"O:BAD:P(A;;FA;;;BA)");
  std::u16string large = u"O:BAG:BAD:P";
  for (int i = 0; i < 5; ++i) large += u"(A;;FA;;;SY)(A;;FR;;;WD)";
  emulated::Volume& volume = *machine->FindByLetter(u'C')->volume;
  const auto grow = [&, asked = 0](const char* name, std::uint64_t) mutable {
    emulated::FileId id;
    if (std::string_view(name) == "GetFileSecurityW" && ++asked == 2 && volume.LookupPath(u"\\Data\\f", id) == 0) {
      EXPECT_EQ(volume.SetSecurity(id, *emulated::DescriptorFromText(large)), 0u);
    }
  };
  SavedSecurityMap saved;
  machine->gate.Observe(grow);
  EXPECT_EQ(SaveSecurityInfo(file, saved[file]), 1);
  machine->gate.Observe({});
  SetSecurity(file, u"O:SYD:P(A;;FA;;;BA)");
  ASSERT_EQ(RestoreRemovedSecurityInfo(saved), 1);
  EXPECT_EQ(Security(file), large);
  for (const unsigned nth : {1u, 2u}) {
    machine->gate.FailCall("GetFileSecurityW", nth, ERROR_ACCESS_DENIED);
    SecurityBlock block;
    EXPECT_EQ(SaveSecurityInfo(file, block), 0);
    EXPECT_FALSE(block);
  }
  machine->gate.FailCallsFrom("GetFileSecurityW", 2, ERROR_INSUFFICIENT_BUFFER);
  const std::uint64_t asked = machine->gate.Count("GetFileSecurityW");
  EXPECT_EQ(SaveSecurityInfo(file, saved[file]), 0);
  EXPECT_EQ(machine->gate.Count("GetFileSecurityW"), asked + 3) << "not for ever";
}

// However the two places are written, and wherever the item is by now.
TEST_F(SavedSecurity, FollowsWhatHasMoved) {
  const std::u16string prefix = u"\\\\?\\", dots = prefix + source + u"\\dots.", newDots = prefix + target + u"\\dots.",
                       newFile = target + u"\\f";
  for (const std::u16string& written : {std::u16string(), prefix})
    for (const bool stays : {false, true}) {
      SCOPED_TRACE(Utf8(written) + (stays ? " stays" : " moves"));
      SavedSecurityMap saved;
      for (const std::u16string& path : {dots, file}) {
        MakeFile(path, "x");
        SetSecurity(path, u"O:BAD:P(A;;FR;;;SY)");
        ASSERT_EQ(SaveSecurityInfo(path, saved[path]), 1);
        ASSERT_EQ(GrantEveryoneAndAdministrators(path), 1);
      }
      ASSERT_TRUE(MoveFileW(dots.c_str(), newDots.c_str()));
      ASSERT_TRUE(stays || MoveFileW(file.c_str(), newFile.c_str()));
      const std::u16string from = written + source, to = written + target;
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, from.c_str(), to.c_str()), 1);
      for (const std::u16string& path : {newDots, stays ? file : newFile}) {
        EXPECT_EQ(Dacl(path), u"D:P(A;;FR;;;SY)") << Utf8(path);
        ASSERT_EQ(GrantEveryoneAndAdministrators(path), 1);
        ASSERT_TRUE(DeleteFileW(path.c_str()));
      }
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, from.c_str(), to.c_str()), 1);  // vanished from both places
      EXPECT_EQ(RestoreRemovedSecurityInfo(saved, u"C:\\Elsewhere", to.c_str()), 0);
    }
}

TEST_F(SavedSecurity, TakesOwnershipOnlyWhenAccessIsDenied) {
  MakeFile(file, "x");
  const std::u16string closed = u"O:SYD:P(A;;FA;;;BA)", opened = u"D:PAI(A;;FR;;;WD)(A;;FA;;;BA)";
  const struct {
    unsigned refusals[3];  // of the access list, the owner, and the list again
    int result;
    std::u16string owner, dacl;
  } cases[] = {{{ERROR_ACCESS_DENIED, 0, 0}, 1, u"O:BA", opened},
               {{ERROR_SHARING_VIOLATION, 0, 0}, 0, u"O:SY", u"D:P(A;;FA;;;BA)"},
               {{ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED, 0}, 0, u"O:SY", u"D:P(A;;FA;;;BA)"},
               {{ERROR_ACCESS_DENIED, 0, ERROR_ACCESS_DENIED}, 0, u"O:BA", u"D:P(A;;FA;;;BA)"}};
  for (const auto& [refusals, result, owner, dacl] : cases) {
    SetSecurity(file, closed);
    for (unsigned call = 0; call < 3; ++call)
      if (refusals[call] != 0) machine->gate.FailCall("SetNamedSecurityInfoW", call + 1, refusals[call]);
    EXPECT_EQ(GrantEveryoneAndAdministrators(file), result);
    EXPECT_EQ(Security(file).substr(0, 4), owner);
    EXPECT_EQ(Dacl(file), dacl);
  }
}

TEST_F(SavedSecurity, InheritanceIsLookedAtOnce) {
  MakeFile(file, "x");
  InheritanceCache cache;
  EXPECT_EQ(HaveInheritedPermissions(cache, file), 1);
  SetSecurity(file, u"O:BAD:P(A;;FA;;;BA)");
  EXPECT_EQ(HaveInheritedPermissions(cache, file), 1);
  cache.clear();
  EXPECT_EQ(HaveInheritedPermissions(cache, file), 0);
}

// The question whether somebody has the file open makes none, and takes "access denied" for no.
TEST_F(SavedSecurity, AFileInUseIsKnownByItsSharing) {
  EXPECT_EQ(IsFileNotLocked(file), 1);
  EXPECT_FALSE(Exists(file));
  MakeFile(file, "x");
  EXPECT_EQ(IsFileNotLocked(file), 1);
  const auto held = HoldOpen(file, GENERIC_READ, FILE_SHARE_READ);
  EXPECT_EQ(IsFileNotLocked(file), 0);
  // A read-only file cannot be asked for; one whose attributes are not told is asked for reading alone.
  ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(IsFileNotLocked(file), 1);
  machine->gate.FailCall("GetFileAttributesW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(IsFileNotLocked(file), 0);
  for (const DWORD error : {ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_NOT_READY}) {
    machine->gate.FailCall("CreateFileW", 1, error);
    EXPECT_EQ(IsFileNotLocked(file), error == ERROR_NOT_READY ? 1 : 0);
  }
}

}  // namespace
