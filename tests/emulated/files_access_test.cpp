// Who may open what; last access times where Windows keeps them. How a descriptor decides is in
// security_access_test.cpp.
#include "emulated/on_machine.h"

using namespace contract;
using namespace win32;

namespace {

using FilesAccess = test::OnBareMachine;

constexpr DWORD kBackup = FILE_FLAG_BACKUP_SEMANTICS;
constexpr const char16_t* kNobody = u"O:SYG:SYD:P(A;;FA;;;SY)";

TEST_F(FilesAccess, TheDescriptorDecides) {
  Put(u"C:\\file");
  Protect(u"\\file", u"O:SYG:SYD:P(A;;FR;;;WD)(A;;FA;;;SY)");
  BecomeUser();
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ), 0u);
  for (const DWORD disposition : {OPEN_EXISTING, CREATE_ALWAYS})
    EXPECT_EQ(OpenError(u"C:\\file", GENERIC_WRITE, 0, disposition), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(SetFileAttributesW(u"C:\\file", FILE_ATTRIBUTE_HIDDEN)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\file", DELETE), 0u);  // by the directory's right to delete children
  Protect(u"\\", u"O:SYG:SYD:P(A;OICI;FRFX;;;WD)(A;OICI;FA;;;SY)");
  EXPECT_EQ(OpenError(u"C:\\file", DELETE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(DeleteFileW(u"C:\\file")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\new", GENERIC_WRITE, 0, CREATE_NEW), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(CreateDirectoryW(u"C:\\new", nullptr)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(emulated::CreateSymbolicLinkW(u"C:\\new", u"target", 0)), ERROR_PRIVILEGE_NOT_HELD);
  EXPECT_FALSE(Exists(u"C:\\new"));
}

TEST_F(FilesAccess, AttributesAreReadThroughTheDirectorysListRight) {
  MakeDirectory(u"C:\\d");
  Put(u"C:\\d\\file");
  Protect(u"\\d\\file", kNobody);
  EXPECT_EQ(AttributesError(u"C:\\d\\file"), 0u);
  Protect(u"\\d", kNobody);
  EXPECT_EQ(AttributesError(u"C:\\d\\file"), ERROR_ACCESS_DENIED);  // though nothing stops the walk there
  EXPECT_EQ(FindError(u"C:\\d\\*"), ERROR_ACCESS_DENIED);
}

TEST_F(FilesAccess, PrivilegesNeedBothTheirFlagAndTheirEnabling) {
  Put(u"C:\\file");
  MakeDirectory(u"C:\\d");
  Protect(u"\\file", kNobody);
  Protect(u"\\d", kNobody);
  const auto error = [](DWORD access, DWORD flags = kBackup) {
    return OpenError(u"C:\\file", access, kShareAll, OPEN_EXISTING, flags);
  };
  const auto makeError = [](DWORD flags) { return OpenError(u"C:\\d\\new", GENERIC_WRITE, 0, CREATE_NEW, flags); };
  const auto makeForAudit = [] {
    return OpenError(u"C:\\new", GENERIC_WRITE | ACCESS_SYSTEM_SECURITY, 0, OPEN_ALWAYS);
  };
  EXPECT_EQ(makeForAudit(), ERROR_PRIVILEGE_NOT_HELD);
  Enable(u"SeSecurityPrivilege");
  EXPECT_EQ(makeForAudit(), 0u);
  EXPECT_EQ(error(GENERIC_READ), ERROR_ACCESS_DENIED);
  Enable(u"SeBackupPrivilege");
  EXPECT_EQ(error(GENERIC_READ, 0), ERROR_ACCESS_DENIED);
  EXPECT_EQ(error(GENERIC_READ), 0u);
  EXPECT_EQ(error(GENERIC_WRITE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(makeError(kBackup), ERROR_ACCESS_DENIED);
  Enable(u"SeRestorePrivilege");
  EXPECT_EQ(error(GENERIC_READ | GENERIC_WRITE | WRITE_DAC | WRITE_OWNER | DELETE), 0u);
  EXPECT_EQ(makeError(0), ERROR_ACCESS_DENIED);
  EXPECT_EQ(makeError(kBackup), 0u);
}

TEST_F(FilesAccess, NewObjectsInheritUnlessTheCreatorSays) {
  MakeDirectory(u"C:\\d");
  Protect(u"\\d", u"O:BAG:BAD:P(A;OICI;FA;;;BA)(A;OI;FR;;;BU)");
  Put(u"C:\\d\\file");
  EXPECT_NE(SecurityOf(u"\\d\\file").find("(A;ID;FR;;;BU)"), std::string::npos);
  SECURITY_DESCRIPTOR nullDacl{};
  ASSERT_TRUE(InitializeSecurityDescriptor(&nullDacl, SECURITY_DESCRIPTOR_REVISION));
  ASSERT_TRUE(SetSecurityDescriptorDacl(&nullDacl, TRUE, nullptr, FALSE));
  SECURITY_ATTRIBUTES attributes{sizeof attributes, &nullDacl, FALSE};
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d\\open", &attributes));
  EXPECT_NE(SecurityOf(u"\\d\\open").find("NO_ACCESS_CONTROL"), std::string::npos);
  // A rename leaves the descriptor as it is, a copy takes what its directory gives.
  ASSERT_TRUE(MoveFileW(u"C:\\d\\file", u"C:\\moved"));
  EXPECT_NE(SecurityOf(u"\\moved").find("(A;ID;FR;;;BU)"), std::string::npos);
  ASSERT_TRUE(CopyFileW(u"C:\\moved", u"C:\\copied", TRUE));
  EXPECT_EQ(SecurityOf(u"\\copied").find("BU"), std::string::npos);
}

TEST_F(FilesAccess, ALinkBetweenTwoRootsDoesNotMakeThemOne) {
  MakeDirectory(u"D:\\Other");
  MakeDirectory(u"C:\\Beside");
  ASSERT_TRUE(emulated::CreateSymbolicLinkW(u"C:\\link", u"D:\\Other", SYMBOLIC_LINK_FLAG_DIRECTORY));
  EXPECT_EQ(OpenError(u"C:\\link", GENERIC_READ, kShareAll, OPEN_EXISTING, kBackup), 0u);
  EXPECT_TRUE(Exists(u"C:\\Beside"));
  EXPECT_FALSE(Exists(u"C:\\Other"));
}

// That SetFileTime's mark on a handle keeps the time is in backup_streams_test.cpp.
TEST_F(FilesAccess, LastAccessTimes) {
  Put(u"C:\\file");
  emulated::FileInfo before, after;
  EXPECT_EQ(volume().Stat(Find(u"\\file"), before), 0u);
  for (const bool updated : {false, true}) {  // not, as Windows is set up since Vista
    machine->files().lastAccessUpdates = updated;
    machine->Advance(60'000);
    Get(u"C:\\file");
    EXPECT_EQ(volume().Stat(Find(u"\\file"), after), 0u);
    EXPECT_EQ(after.lastAccess, updated ? machine->Now() : before.lastAccess);
  }
}

TEST_F(FilesAccess, OpenFilesFollowTheirRenames) {
  Put(u"C:\\file", "content");
  MakeDirectory(u"C:\\d");
  auto open = Open(u"C:\\file", GENERIC_READ | DELETE, kShareAll, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE);
  ASSERT_TRUE(MoveFileW(u"C:\\file", u"C:\\d\\moved"));
  Put(u"C:\\file", "another");
  char16_t path[300] = {};
  EXPECT_NE(emulated::GetFinalPathNameByHandleW(open.get(), path, 300, 0), 0u);
  EXPECT_EQ(std::u16string(path), u"\\\\?\\C:\\d\\moved");
  open.reset();
  EXPECT_FALSE(Exists(u"C:\\d\\moved"));
  EXPECT_EQ(Get(u"C:\\file"), "another");
}

}  // namespace
