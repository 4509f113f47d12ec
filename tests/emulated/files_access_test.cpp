// Who may open what: descriptors, privileges, impersonation of other tokens, other processes' opens; volumes without
// letters; last access times where Windows keeps them.
#include <gtest/gtest.h>

#include "contract/files_support.h"
#include "support/images.h"
#include "support/machine.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/runtime_bound.h"
#include "win32/emulated/security/access.h"

using namespace win32;
using contract::kShareAll;
using contract::OpenError;

namespace {

class FilesAccess : public testing::Test {
 protected:
  FilesAccess() : machine_(test::TestMachine()) {}

  emulated::MountedVolume& C() { return *machine_->FindByLetter(u'C'); }
  void Protect(std::u16string_view path, std::u16string_view sddl) {
    emulated::FileId file = 0;
    ASSERT_EQ(C().volume->LookupPath(path, file), 0u);
    const auto descriptor = emulated::DescriptorFromText(sddl);
    ASSERT_TRUE(descriptor);
    ASSERT_EQ(C().volume->SetSecurity(file, *descriptor), 0u);
  }
  std::u16string SecurityOf(std::u16string_view path) {
    emulated::FileId file = 0;
    emulated::Bytes descriptor;
    EXPECT_EQ(C().volume->LookupPath(path, file), 0u);
    EXPECT_EQ(C().volume->GetSecurity(file, descriptor), 0u);
    return emulated::DescriptorToText(descriptor, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION);
  }
  void Become(std::shared_ptr<emulated::Token> token) { machine_->process.token = std::move(token); }
  void BecomeUser() { Become(emulated::MakeUserToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"))); }
  void Enable(std::u16string_view privilege, bool enable = true) {
    ASSERT_TRUE(machine_->process.token->EnablePrivilege(privilege, enable));
  }

  std::unique_ptr<emulated::Machine> machine_;
};

constexpr DWORD kBackup = FILE_FLAG_BACKUP_SEMANTICS;
constexpr const char16_t* kNobody = u"O:SYG:SYD:P(A;;FA;;;SY)";

TEST_F(FilesAccess, TheDescriptorDecides) {
  contract::Put(u"C:\\file");
  Protect(u"\\file", u"O:SYG:SYD:P(A;;FR;;;WD)(A;;FA;;;SY)");
  BecomeUser();
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ), 0u);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_WRITE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_WRITE, 0, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\file", WRITE_DAC), ERROR_ACCESS_DENIED);
  EXPECT_EQ(contract::ErrorOf(SetFileAttributesW(u"C:\\file", FILE_ATTRIBUTE_HIDDEN)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\file", DELETE), 0u);  // by the directory's right to delete children
  Protect(u"\\", u"O:SYG:SYD:P(A;OICI;FRFX;;;WD)(A;OICI;FA;;;SY)");
  EXPECT_EQ(OpenError(u"C:\\file", DELETE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(contract::ErrorOf(DeleteFileW(u"C:\\file")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\new", GENERIC_WRITE, 0, CREATE_NEW), ERROR_ACCESS_DENIED);
  EXPECT_EQ(contract::ErrorOf(CreateDirectoryW(u"C:\\new", nullptr)), ERROR_ACCESS_DENIED);
}

TEST_F(FilesAccess, AttributesAreReadThroughTheDirectorysListRight) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  contract::Put(u"C:\\d\\file");
  Protect(u"\\d\\file", kNobody);
  EXPECT_EQ(contract::AttributesError(u"C:\\d\\file"), 0u);
  Protect(u"\\d", kNobody);
  EXPECT_EQ(contract::AttributesError(u"C:\\d\\file"), ERROR_ACCESS_DENIED);  // though nothing stops the walk there
  EXPECT_EQ(contract::FindError(u"C:\\d\\*"), ERROR_ACCESS_DENIED);
}

TEST_F(FilesAccess, BackupAndRestorePrivilegesNeedBothTheFlagAndTheirEnabling) {
  contract::Put(u"C:\\file");
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  Protect(u"\\file", kNobody);
  Protect(u"\\d", kNobody);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ, kShareAll, OPEN_EXISTING, kBackup), ERROR_ACCESS_DENIED);
  Enable(u"SeBackupPrivilege");
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ, kShareAll, OPEN_EXISTING, kBackup), 0u);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_WRITE, kShareAll, OPEN_EXISTING, kBackup), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\d\\new", GENERIC_WRITE, 0, CREATE_NEW, kBackup), ERROR_ACCESS_DENIED);
  Enable(u"SeRestorePrivilege");
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ | GENERIC_WRITE | WRITE_DAC | WRITE_OWNER | DELETE, kShareAll,
                      OPEN_EXISTING, kBackup),
            0u);
  EXPECT_EQ(OpenError(u"C:\\d\\new", GENERIC_WRITE, 0, CREATE_NEW), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\d\\new", GENERIC_WRITE, 0, CREATE_NEW, kBackup), 0u);
}

TEST_F(FilesAccess, SystemSecurityNeedsItsPrivilege) {
  contract::Put(u"C:\\file");
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ | ACCESS_SYSTEM_SECURITY), ERROR_PRIVILEGE_NOT_HELD);
  EXPECT_EQ(OpenError(u"C:\\new", GENERIC_WRITE | ACCESS_SYSTEM_SECURITY, 0, OPEN_ALWAYS), ERROR_PRIVILEGE_NOT_HELD);
  Enable(u"SeSecurityPrivilege");
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_READ | ACCESS_SYSTEM_SECURITY), 0u);
  EXPECT_EQ(OpenError(u"C:\\new", GENERIC_WRITE | ACCESS_SYSTEM_SECURITY, 0, OPEN_ALWAYS), 0u);
}

TEST_F(FilesAccess, NewObjectsInheritUnlessTheCreatorSays) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  Protect(u"\\d", u"O:BAG:BAD:P(A;OICI;FA;;;BA)(A;OI;FR;;;BU)");
  contract::Put(u"C:\\d\\file");
  EXPECT_NE(SecurityOf(u"\\d\\file").find(u"(A;ID;FR;;;BU)"), std::u16string::npos);
  SECURITY_DESCRIPTOR nullDacl{};
  ASSERT_TRUE(InitializeSecurityDescriptor(&nullDacl, SECURITY_DESCRIPTOR_REVISION));
  ASSERT_TRUE(SetSecurityDescriptorDacl(&nullDacl, TRUE, nullptr, FALSE));
  SECURITY_ATTRIBUTES attributes{sizeof attributes, &nullDacl, FALSE};
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d\\open", &attributes));
  EXPECT_NE(SecurityOf(u"\\d\\open").find(u"NO_ACCESS_CONTROL"), std::u16string::npos);
  // A rename leaves the descriptor as it is, a copy takes what its directory gives.
  ASSERT_TRUE(MoveFileW(u"C:\\d\\file", u"C:\\moved"));
  EXPECT_NE(SecurityOf(u"\\moved").find(u"(A;ID;FR;;;BU)"), std::u16string::npos);
  ASSERT_TRUE(CopyFileW(u"C:\\moved", u"C:\\copied", TRUE));
  EXPECT_EQ(SecurityOf(u"\\copied").find(u"BU"), std::u16string::npos);
}

TEST_F(FilesAccess, SymbolicLinksNeedTheirPrivilege) {
  EXPECT_TRUE(emulated::CreateSymbolicLinkW(u"C:\\one", u"target", 0));
  BecomeUser();
  EXPECT_FALSE(emulated::CreateSymbolicLinkW(u"C:\\two", u"target", 0));
  EXPECT_EQ(GetLastError(), ERROR_PRIVILEGE_NOT_HELD);
  EXPECT_EQ(contract::AttributesError(u"C:\\two"), ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesAccess, ALinkBetweenTwoRootsDoesNotMakeThemOne) {
  ASSERT_TRUE(CreateDirectoryW(u"D:\\Other", nullptr));
  ASSERT_TRUE(CreateDirectoryW(u"C:\\Beside", nullptr));
  ASSERT_TRUE(emulated::CreateSymbolicLinkW(u"C:\\link", u"D:\\Other", SYMBOLIC_LINK_FLAG_DIRECTORY));
  const UniqueFile through{
      CreateFileW(u"C:\\link", GENERIC_READ, 7, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr)};
  EXPECT_TRUE(through);
  EXPECT_NE(GetFileAttributesW(u"C:\\Beside"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetFileAttributesW(u"C:\\Other"), INVALID_FILE_ATTRIBUTES);
}

TEST_F(FilesAccess, OtherProcessesKeepFilesOpen) {
  contract::Put(u"C:\\file");
  constexpr DWORD kOther = 0x500;
  const auto open = machine_->files().OpenForeign(kOther, u"C:\\file", GENERIC_READ, FILE_SHARE_READ);
  ASSERT_TRUE(open);
  EXPECT_EQ(open->processId, kOther);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_WRITE), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(contract::ErrorOf(DeleteFileW(u"C:\\file")), ERROR_SHARING_VIOLATION);
  machine_->files().CloseForeign(open);
  EXPECT_EQ(contract::ErrorOf(DeleteFileW(u"C:\\file")), 0u);
  EXPECT_TRUE(machine_->files().opens().empty());
}

TEST_F(FilesAccess, VolumesWithoutALetter) {
  emulated::MountedVolume* volume = nullptr;
  ASSERT_EQ(machine_->Attach(test::FreshNtfs(16, "Third"), "{12345678-0000-4000-8000-000000000001}.ntfs", &volume), 0u);
  const auto descriptor = emulated::DescriptorFromText(u"O:BAG:BAD:(A;OICI;FA;;;WD)");
  ASSERT_EQ(volume->volume->SetSecurity(volume->volume->Root(), *descriptor), 0u);
  const std::u16string root = volume->guidName;
  ASSERT_FALSE(root.empty());
  contract::Put(root + u"file", "on it");
  EXPECT_EQ(contract::Get(root + u"file"), "on it");
  EXPECT_EQ(contract::Find(root + u"*"), std::vector<std::u16string>{u"file"});
  EXPECT_NE(contract::AttributesError(root.substr(0, root.size() - 1)), 0u);  // the device, not its root

  ASSERT_TRUE(CreateDirectoryW(u"C:\\mount", nullptr));
  const std::u16string target = u"\\??\\" + root.substr(4);
  {
    const auto folder = contract::Open(u"C:\\mount", GENERIC_WRITE, 0, OPEN_EXISTING, contract::kOpenLink);
    ASSERT_EQ(contract::SetReparse(folder.get(), contract::JunctionData(target)), 0u);
  }
  EXPECT_EQ(contract::Get(u"C:\\mount\\file"), "on it");
  const auto opened = contract::Open(u"C:\\mount\\file", FILE_READ_ATTRIBUTES, kShareAll);
  char16_t path[300] = {};
  EXPECT_NE(emulated::GetFinalPathNameByHandleW(opened.get(), path, 300, 0), 0u);
  EXPECT_EQ(std::u16string(path), root + u"file");
}

TEST_F(FilesAccess, LastAccessTimes) {
  contract::Put(u"C:\\file");
  const auto lastAccess = [&] {
    emulated::FileId file = 0;
    emulated::FileInfo info;
    EXPECT_EQ(C().volume->LookupPath(u"\\file", file), 0u);
    EXPECT_EQ(C().volume->Stat(file, info), 0u);
    return info.lastAccess;
  };
  const emulated::FileTime before = lastAccess();
  machine_->Advance(60'000);
  contract::Get(u"C:\\file");
  EXPECT_EQ(lastAccess(), before);  // as Windows is set up since Vista
  machine_->files().lastAccessUpdates = true;
  {
    const auto file = contract::Open(u"C:\\file", GENERIC_READ | FILE_WRITE_ATTRIBUTES, kShareAll);
    const FILETIME keep{0xFFFFFFFF, 0xFFFFFFFF};
    char byte = 0;
    DWORD done = 0;
    EXPECT_TRUE(SetFileTime(file.get(), nullptr, &keep, nullptr));
    EXPECT_TRUE(ReadFile(file.get(), &byte, 1, &done, nullptr));
  }
  EXPECT_EQ(lastAccess(), before);
  contract::Get(u"C:\\file");
  EXPECT_EQ(lastAccess(), machine_->Now());
}

TEST_F(FilesAccess, OpenFilesFollowTheirRenames) {
  contract::Put(u"C:\\file", "content");
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  auto open = contract::Open(u"C:\\file", GENERIC_READ | DELETE, kShareAll, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE);
  ASSERT_TRUE(MoveFileW(u"C:\\file", u"C:\\d\\moved"));
  contract::Put(u"C:\\file", "another");
  char16_t path[300] = {};
  EXPECT_NE(emulated::GetFinalPathNameByHandleW(open.get(), path, 300, 0), 0u);
  EXPECT_EQ(std::u16string(path), u"\\\\?\\C:\\d\\moved");
  open.reset();
  EXPECT_EQ(contract::AttributesError(u"C:\\d\\moved"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(contract::Get(u"C:\\file"), "another");
}

TEST_F(FilesAccess, TheGateStopsACallBeforeItActs) {
  machine_->gate.FailCall("CreateFileW", 1, ERROR_DISK_FULL);
  EXPECT_EQ(OpenError(u"C:\\file", GENERIC_WRITE, 0, CREATE_NEW), ERROR_DISK_FULL);
  EXPECT_EQ(contract::AttributesError(u"C:\\file"), ERROR_FILE_NOT_FOUND);
}

}  // namespace
